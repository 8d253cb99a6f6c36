"""The sample message through both libraries to other people's servers, read by other people's readers,
and where it is kept if a host asks for a log."""
import email
import email.policy
import stat
import subprocess

import pytest

import samples
from products import DELIVERED


def test_postfix_delivers_the_sample(host, postfix, sample):
    before = len(postfix.messages(0))
    sample.send(host, postfix.port)
    copies = [email.message_from_bytes(data, policy=email.policy.default)
              for data in postfix.messages(before + 3)[before:]]
    for copy in copies:
        sample.check(copy)
    assert {copy["X-Original-To"] for copy in copies} == {samples.TO, samples.CC, samples.BCC}


@pytest.mark.parametrize("product", DELIVERED, indirect=True)
def test_ripmime_finds_the_parts(host, receiver, sample, tmp_path):
    sample.send(host, receiver.port)
    [message] = receiver.messages
    assert all(len(line) <= 998 and b"\n" not in line for line in message.data.split(b"\r\n"))
    subprocess.run(["ripmime", "-i", "-", "-d", tmp_path / "parts"], input=message.data, check=True,
                   capture_output=True, timeout=60)
    for path in (sample.text, sample.logo, sample.binary):
        # This reader counts the line end before a boundary to the text.
        read = (tmp_path / "parts" / path.name).read_bytes()
        assert read.removesuffix(b"\r\n" * (path == sample.text)) == path.read_bytes()


def test_the_sent_mail_log_lies_where_the_host_is(host, receiver, sample, tmp_path):
    sample.send(host, receiver.port)
    assert not list(tmp_path.glob("*.log"))
    host.setLogging()
    for name in ("napló ő", "two"):
        folder = tmp_path / name
        folder.mkdir()
        assert host.chdir(host.product.path(folder)) == 1
        for _ in range(2):
            sample.send(host, receiver.port, anew=False)
        # The debug log is given a directory's name, so there is no debug log.
        [log] = folder.iterdir()
        text = log.read_bytes()
        assert text.count(b"--BEGIN SENT TOLVANE EMAIL--\n") == text.count(b"\nSubject: ") == 2
        # Whole messages: for nobody else to read.
        assert log.name == "emailsending.log"
        assert host.product.wine or stat.S_IMODE(log.stat().st_mode) == 0o600
