"""A host's long life: thousands of messages over a server that refuses, cuts and recovers, with resets,
dead ports and new beginnings in between. Each is accepted exactly once or refused with a reason, nothing
of one shows in another, and memory and handles stay where they are."""
import email
import email.policy
import socket

import pytest

from products import Host
from scripted import CUT, RESET, ScriptedServer

SOAK_SECONDS = 240
COUNTS = {"so": 2000, "dll": 500, "asan": 100}
# Linux: exactly what is in use; the text of the longest error yet is kept. Windows counts pages.
KEPT_BYTES = {"so": 4096, "dll": 100 * 1024}

REFUSED, CLOSING = "550 5.7.1 not today\r\n", "421 4.3.2 closing\r\n"
# name: (faults by command, each used once, flag of szBrisko, messages that arrive whole, a part of the error text)
KINDS = {
    "good": ({}, 1, 1, ""),
    "first recipient refused": ({"RCPT": [REFUSED]}, 1, 1, ""),
    "all recipients refused": ({"RCPT": [REFUSED] * 3}, 0, 0, "550 5.7.1 not today"),
    "sender refused": ({"MAIL": [REFUSED]}, 0, 0, "550 5.7.1 not today"),
    "trial refused": ({"GREETING": ["554 5.3.2 closed for now\r\n"] * 2}, 0, 0, "554 5.3.2 closed for now"),
    "dead port": ({}, 0, 0, "Connection rejected"),
    "message refused": ({".": ["554 5.6.0 spam\r\n"]}, 0, 1, "554 5.6.0 spam"),
    "cut after the message": ({".": [CUT]}, 0, 1, "ConnectionLost"),
    # From here on half a second goes by before the second try.
    "421 to a recipient": ({"RCPT": [CLOSING] * 3}, 1, 1, ""),
    "421 to DATA, twice": ({"DATA": [CLOSING] * 2}, 0, 0, "421 4.3.2 closing"),
    "cut at the sender": ({"MAIL": [CUT]}, 1, 1, ""),
    "reset at a recipient": ({"RCPT": [RESET]}, 1, 1, ""),
    "cut twice": ({"MAIL": [CUT, CUT]}, 0, 0, "ConnectionLost"),
    "451 to the sender": ({"MAIL": ["451 4.3.0 again\r\n"]}, 1, 1, ""),
}
KEPT = {"trial refused", "dead port"}  # the message, for another try
QUICK = list(KINDS)[:8]


def compose(host, number, attachment):
    host.setFromAddress(f"sender{number}@example.test")
    host.setSubject(f"Message {number}")
    for add, word in ((host.setRecipient, "to"), (host.setCC, "cc"), (host.setBCC, "bcc")):
        assert add(f"{word}{number}@example.test") == 1
    host.setBody(f"<p>Body of {number}</p>")
    host.setLogo("")
    if number % 3 == 0:
        host.setAttachment(host.product.path(attachment))


def check_message(taken, number, kind, attachment):
    message = email.message_from_bytes(taken.data, policy=email.policy.default)
    assert taken.sender == f"sender{number}@example.test"
    expected = [f"{word}{number}@example.test" for word in ("to", "cc", "bcc")]
    assert taken.recipients == (expected[1:] if kind == "first recipient refused" else expected)
    assert [message.get_all(name) for name in ("Subject", "To", "Cc", "Bcc")] == [
        [f"Message {number}"], expected[:1], expected[1:2], None]
    leaves = [part for part in message.walk() if not part.is_multipart()]
    assert leaves[0].get_content().strip() == f"<p>Body of {number}</p>"
    assert [p.get_payload(decode=True) for p in leaves[1:]] == (
        [attachment.read_bytes()] if number % 3 == 0 else [])
    return message["Message-ID"]


@pytest.mark.timeout(SOAK_SECONDS + 60)
def test_a_hosts_long_life(any_product, tmp_path):
    attachment = tmp_path / "life.bin"
    attachment.write_bytes(bytes(range(256)) * 8)
    count, due, identifiers, used, sent = COUNTS[any_product.name], {}, set(), [], 0

    def plan(connection, command, _):
        if due.get(command):
            return due[command].pop(0)
        return "250 8BITMIME\r\n" if command == "EHLO" and number % 4 == 0 else None

    with ScriptedServer(plan) as server, Host(any_product, tmp_path) as host, socket.socket() as dead:
        dead.bind(("127.0.0.1", 0))  # and nobody listens
        for number in range(count):
            kinds = QUICK if number >= 2 * len(KINDS) else list(KINDS)
            kind = kinds[number % len(kinds)]
            if number % 7 == 0:
                host.setRecipient("thrown-away@example.test")
                host.Initialise()
                host.setSmtpHost("127.0.0.1")
            if number % 11 == 5:
                compose(host, 888, attachment)
                host.ResetEmail()
            compose(host, number, attachment)
            for attempt in (kind, "good") if kind in KEPT else (kind,):
                faults, flag, arriving, reason = KINDS[attempt]
                where = f"message {number}, {attempt}"
                host.setSmtpPort((dead.getsockname() if attempt == "dead port" else [0, server.port])[1])
                due = {command: list(replies) for command, replies in faults.items()}
                before = len(server.taken)
                assert host.szBrisko() == flag, f"{where}\n{host.error()}"
                assert reason in host.error() and bool(host.error()) != bool(flag), f"{where}\n{host.error()}"
                assert not any(due.values()), where
                taken = server.taken[before:]
                assert len(taken) == arriving, where
                sent += flag
                identifiers.update(check_message(message, number, kind, attachment) for message in taken)
            if number % 4 == 1:
                assert host.szBrisko() == 0  # the message is gone, whatever came of it
                assert "No SMTP recipients" in host.error() or "NoValidRecipients" in host.error(), host.error()
            if (number + 1) % (count // 10) == 0:
                host.Initialise()
                host.setSmtpHost("127.0.0.1")
                used.append((host.handles(), host.memory()))
    assert len(identifiers) == len(server.taken) and len(server.accepted) == sent  # no message came twice
    handles, memory = zip(*used[1:])
    assert max(handles) == min(handles), handles
    assert max(memory) - memory[0] <= KEPT_BYTES.get(any_product.name, max(memory)), memory
