"""A host's long life: thousands of messages over a server that refuses, cuts and recovers, with resets,
dead ports and new beginnings in between. Each is accepted exactly once or refused with a reason, nothing
of one shows in another, and memory and handles stay where they are."""
import socket

import pytest

from products import Host
from scripted import CUT, RESET, ScriptedServer

COUNTS = {"so": 2000, "dll": 500, "asan": 100}
# Linux: exactly what is in use; the text of the longest error yet is kept. Windows counts pages.
KEPT_BYTES = {"so": 4096, "dll": 100 * 1024}

REFUSED, CLOSING = "550 5.7.1 not today\r\n", "421 4.3.2 closing\r\n"
# name: (faults by command, each used once, flag of szBrisko, messages that arrive, a part of the error)
KINDS = {
    "good": ({}, 1, 1, ""),
    "first recipient refused": ({"RCPT": [REFUSED]}, 1, 1, ""),
    "all recipients refused": ({"RCPT": [REFUSED] * 3}, 0, 0, "550 5.7.1 not today"),
    "trial refused": ({"GREETING": [REFUSED] * 2}, 0, 0, "550 5.7.1 not today"),
    "dead port": ({}, 0, 0, "Connection rejected"),
    "message refused": ({".": [REFUSED]}, 0, 1, "550 5.7.1 not today"),
    "cut after the message": ({".": [CUT]}, 0, 1, "ConnectionLost"),
    # From here on half a second goes by before the second try.
    "421 to a recipient": ({"RCPT": [CLOSING] * 3}, 1, 1, ""),
    "421 to DATA, twice": ({"DATA": [CLOSING] * 2}, 0, 0, "421 4.3.2 closing"),
    "cut at the sender": ({"MAIL": [CUT]}, 1, 1, ""),
    "reset at a recipient": ({"RCPT": [RESET]}, 1, 1, ""),
    "cut twice": ({"MAIL": [CUT, CUT]}, 0, 0, "ConnectionLost"),
}
KEPT = {"trial refused", "dead port"}  # the message, for another try
QUICK = list(KINDS)[:7]


def people(number):
    return [f"{word}{number}@example.test" for word in ("sender", "to", "cc", "bcc")]


def compose(host, number, files):
    host.compose(0, *people(number))
    host.setSubject(f"Message {number}")
    host.setBody(f"<p>Body of {number}</p>")
    host.setLogo("")
    for file in files:
        host.setAttachment(host.product.path(file))


def check_message(taken, number, kind, files):
    message, (sender, *recipients) = taken.parsed(), people(number)
    assert [taken.sender, *taken.recipients] == [sender, *recipients[kind == "first recipient refused":]]
    assert [message.get_all(name) for name in ("Subject", "To", "Cc", "Bcc")] == [
        [f"Message {number}"], recipients[:1], recipients[1:2], None]
    leaves = [part for part in message.walk() if not part.is_multipart()]
    assert leaves[0].get_content().strip() == f"<p>Body of {number}</p>"
    assert [p.get_payload(decode=True) for p in leaves[1:]] == [file.read_bytes() for file in files]
    return message["Message-ID"]


@pytest.mark.parametrize("build", COUNTS)
def test_a_hosts_long_life(build, request, tmp_path):
    attachment = tmp_path / "life.bin"
    attachment.write_bytes(bytes(range(256)) * 8)
    count, due, identifiers, used, sent = COUNTS[build], {}, set(), [], 0

    def plan(_, command):
        if due.get(command):
            return due[command].pop(0)
        return "250 8BITMIME\r\n" if command == "EHLO" and number % 4 == 0 else None

    with ScriptedServer(plan) as server, socket.socket() as dead, \
            Host(request.getfixturevalue(build), tmp_path) as host:
        dead.bind(("127.0.0.1", 0))  # and nobody listens
        for number in range(count):
            kinds = QUICK if number >= 2 * len(KINDS) else list(KINDS)
            kind, files = kinds[number % len(kinds)], [attachment] * (number % 3 == 0)
            if number % 7 == 0:
                host.setRecipient("thrown-away@example.test")
                host.Initialise()
            if number % 11 == 5:
                compose(host, 888, [attachment])
                host.ResetEmail()
            compose(host, number, files)
            for attempt in (kind, "good") if kind in KEPT else (kind,):
                faults, flag, arriving, reason = KINDS[attempt]
                host.setSmtpPort(dead.getsockname()[1] if attempt == "dead port" else server.port)
                due = {command: list(replies) for command, replies in faults.items()}
                before = len(server.taken)
                outcome = host.szBrisko(), bool(host.error()), len(server.taken) - before, any(due.values())
                where = f"message {number}, {attempt}\n{host.error()}"
                assert outcome == (flag, not flag, arriving, False) and reason in host.error(), where
                sent += flag
                identifiers.update(check_message(message, number, kind, files)
                                   for message in server.taken[before:])
            if number % 4 == 1:
                assert host.szBrisko() == 0  # the message is gone, whatever came of it
                assert "No SMTP recipients" in host.error() or "NoValidRecipients" in host.error()
            if (number + 1) % (count // 10) == 0:
                host.Initialise()
                used.append((host.handles(), host.memory()))
    assert len(identifiers) == len(server.taken) and server.accepted == sent  # no message came twice
    handles, memory = zip(*used[1:])
    assert max(handles) == min(handles), handles
    assert max(memory) - memory[0] <= KEPT_BYTES.get(build, max(memory)), memory
