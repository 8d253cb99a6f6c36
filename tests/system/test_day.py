"""A host's day: fifty messages over a server that refuses, cuts and recovers, with resets and a
second Initialise in between. Each message is accepted exactly once or refused with a reason, and
nothing of one message shows in another."""
import email
import email.policy

import samples
from products import Host
from scripted import CUT, RESET, ScriptedServer

MESSAGES = 50
PLAIN_EHLO = "250-mail.example.test\r\n250 8BITMIME\r\n"


class Faults:
    """Answers the way a good server does but for what is due; each fault is used once."""

    def __init__(self):
        self.due = {}
        self.pipelining = True

    def __call__(self, connection, command, count):
        if self.due.get(command):
            return self.due[command].pop(0)
        if command == "EHLO" and not self.pipelining:
            return PLAIN_EHLO
        return None


REFUSED = "550 5.7.1 not today\r\n"
# name: (faults by command, flag of szBrisko, messages that arrive whole, a part of the error text)
KINDS = {
    "good": ({}, 1, 1, ""),
    "first recipient refused": ({"RCPT": [REFUSED]}, 1, 1, ""),
    "all recipients refused": ({"RCPT": [REFUSED] * 3}, 0, 0, "550 5.7.1 not today"),
    "sender refused": ({"MAIL": [REFUSED]}, 0, 0, "550 5.7.1 not today"),
    "451 to the sender": ({"MAIL": ["451 4.3.0 again\r\n"]}, 1, 1, ""),
    "421 to a recipient": ({"RCPT": ["421 4.3.2 closing\r\n"] * 3}, 1, 1, ""),
    "421 to DATA": ({"DATA": ["421 4.3.2 closing\r\n"]}, 1, 1, ""),
    "421 to DATA, twice": ({"DATA": ["421 4.3.2 closing\r\n"] * 2}, 0, 0, "421 4.3.2 closing"),
    "DATA refused": ({"DATA": ["554 5.6.0 no text\r\n"]}, 0, 0, "554 5.6.0 no text"),
    "message refused": ({".": ["554 5.6.0 spam\r\n"]}, 0, 1, "554 5.6.0 spam"),
    "message put off": ({".": ["451 4.3.0 later\r\n"]}, 0, 1, "451 4.3.0 later"),
    "cut at the sender": ({"MAIL": [CUT]}, 1, 1, ""),
    "reset at the sender": ({"MAIL": [RESET]}, 1, 1, ""),
    "cut at a recipient": ({"RCPT": [CUT]}, 1, 1, ""),
    "cut at DATA": ({"DATA": [CUT]}, 1, 1, ""),
    "cut after the message": ({".": [CUT]}, 0, 1, "ConnectionLost"),
    "cut twice": ({"MAIL": [CUT, CUT]}, 0, 0, "ConnectionLost"),
}
CYCLE = list(KINDS)


def initialise(host, port):
    host.Initialise()
    host.setSmtpHost("127.0.0.1")
    host.setSmtpPort(port)


def compose(host, number, attachment):
    host.setFromAddress(f"sender{number}@example.test")
    host.setSubject(f"Message {number}")
    assert host.setRecipient(f"to{number}@example.test") == 1
    assert host.setCC(f"cc{number}@example.test") == 1
    assert host.setBCC(f"bcc{number}@example.test") == 1
    host.setBody(f"<p>Body of {number}</p>")
    host.setLogo("")
    if number % 3 == 0:
        host.setAttachment(host.product.path(attachment))


def check_message(taken, number, kind, attachment):
    message = email.message_from_bytes(taken.data, policy=email.policy.default)
    assert taken.sender == f"sender{number}@example.test"
    expected = [f"{word}{number}@example.test" for word in ("to", "cc", "bcc")]
    assert taken.recipients == expected[1:] if kind == "first recipient refused" else expected
    assert message.get_all("Subject") == [f"Message {number}"]
    assert [a.addr_spec for a in message["To"].addresses] == expected[:1]
    assert [a.addr_spec for a in message["Cc"].addresses] == expected[1:2]
    leaves = [part for part in message.walk() if not part.is_multipart()]
    assert leaves[0].get_content().strip() == f"<p>Body of {number}</p>"
    assert [p.get_payload(decode=True) for p in leaves[1:]] == (
        [attachment.read_bytes()] if number % 3 == 0 else [])


def test_a_hosts_day(any_product, tmp_path):
    attachment = tmp_path / "day.bin"
    attachment.write_bytes(bytes(range(256)) * 40)
    faults = Faults()
    identifiers, handles = [], []
    with ScriptedServer(faults) as server, Host(any_product, tmp_path) as host:
        initialise(host, server.port)
        for number in range(MESSAGES):
            kind = CYCLE[number % len(CYCLE)]
            due, flag, arriving, reason = KINDS[kind]
            where = f"message {number}, {kind}"
            faults.pipelining = number < MESSAGES // 2 or number % 2 == 0
            if number == 20:
                compose(host, 999, attachment)  # thrown away with the objects
                initialise(host, server.port)
            if number % 11 == 5:
                compose(host, 888, attachment)
                host.ResetEmail()
            compose(host, number, attachment)
            before = len(server.taken)
            if number % 10 == 7:  # the trial connection is refused, and the message stays for a retry
                faults.due = {"GREETING": ["554 5.3.2 closed for now\r\n"] * 2}
                assert host.szBrisko() == 0, where
                assert "554 5.3.2 closed for now" in host.error(), where
            faults.due = {command: list(replies) for command, replies in due.items()}
            assert host.szBrisko() == flag, f"{where}\n{host.error()}"
            assert reason in host.error() and bool(host.error()) != bool(flag), f"{where}\n{host.error()}"
            assert not any(faults.due.values()), where
            taken = server.taken[before:]
            assert len(taken) == arriving, where
            assert [message.accepted for message in taken] == [bool(flag)] * arriving, where
            for message in taken:
                check_message(message, number, kind, attachment)
                identifiers.append(email.message_from_bytes(message.data)["Message-ID"])
            handles.append(host.handles())
            if number % 4 == 1:
                assert host.szBrisko() == 0  # the message is gone, whatever came of it
                assert "No SMTP recipients" in host.error() or "NoValidRecipients" in host.error(), host.error()
                assert len(server.taken) == before + arriving
    assert len(set(identifiers)) == len(identifiers)
    assert max(handles[-10:]) <= max(handles[5:15]) + 4, handles
    assert samples.SENDER not in str(server.commands)
