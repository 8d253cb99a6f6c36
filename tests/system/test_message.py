"""The sample message through both libraries to other people's servers, read by other people's readers,
and what is kept of it where a host asks for a log."""
import email
import email.policy
import re
import stat
import subprocess

import samples
from products import Host


BEGIN, END = b"--BEGIN SENT TOLVANE EMAIL--\n", b"\n--END SENT TOLVANE EMAIL--\n"


def parse(data):
    return email.message_from_bytes(data, policy=email.policy.default)


def test_postfix_delivers_the_sample(host, postfix, sample):
    before = len(list((postfix.home / "mail" / "new").glob("*")))
    sample.send(host, postfix.port)
    copies = [parse(data) for data in postfix.messages(before + 3)[before:]]
    for copy in copies:
        sample.check(copy)
    assert {copy["X-Original-To"] for copy in copies} == {samples.TO, samples.CC, samples.BCC}


# What each send draws anew; everything else has to agree between the two libraries.
DRAWN = [(rb"(?im)^(message-id): .*", rb"\1: ID"), (rb"(?im)^(date): .*", rb"\1: NOW"),
         (rb"(?im)^(content-id): .*", rb"\1: CID"), (rb"cid:[^\"&]+?(=22|\")", rb"cid:CID\1")]


def normalised(data):
    for name in set(re.findall(rb'boundary="?([^"\r\n;]+)', data)):
        data = data.replace(name, b"BOUNDARY")
    # Soft line breaks move with the length of the Content-ID.
    data = data.replace(b"=\r\n", b"").replace(b"=3D", b"=")
    for pattern, text in DRAWN:
        data = re.sub(pattern, text, data)
    return data


def test_both_libraries_write_the_same_message(so, dll, receiver, sample, tmp_path):
    for product in (so, dll):
        with Host(product, tmp_path) as host:
            sample.send(host, receiver.port)
    linux, windows = (received.data for received in receiver.messages)
    assert normalised(linux) == normalised(windows)
    assert b"BOUNDARY" in normalised(linux) and b"cid:CID" in normalised(linux)
    assert all(len(line) <= 998 for line in linux.split(b"\r\n"))
    assert b"\n" not in linux.replace(b"\r\n", b"") and samples.BCC.encode() not in linux

    (tmp_path / "message.eml").write_bytes(linux)
    subprocess.run(["ripmime", "-i", tmp_path / "message.eml", "-d", tmp_path / "parts", "-e", "headers.txt"],
                   check=True, capture_output=True, timeout=60)
    parts = {path.name: path.read_bytes() for path in (tmp_path / "parts").iterdir()}
    # This reader counts the line end before a boundary to the text.
    assert parts.get(samples.TEXT_NAME, b"").removesuffix(b"\r\n") == sample.text.read_bytes()
    assert parts.get("logo.png") == sample.logo.read_bytes()
    assert parts.get(samples.BINARY_NAME) == sample.binary.read_bytes()
    headers = re.sub(r"\r?\n(?=[ \t])", "", parts["headers.txt"].decode()).replace("\r\n", "\n")
    for name, value in (("Subject", samples.SUBJECT), ("To", samples.TO), ("Cc", samples.CC)):
        assert re.findall(rf"^{name}: (.*)", headers, re.M) == [value]


def test_the_sent_mail_log_holds_each_message_where_the_host_is(host, receiver, sample, tmp_path):
    sample.send(host, receiver.port)
    assert not list(tmp_path.glob("*.log"))
    host.setLogging()
    sent = []
    for name in ("napló ő", "two"):
        folder = tmp_path / name
        folder.mkdir()
        assert host.chdir(host.product.path(folder)) == 1
        for _ in range(2):
            sample.send(host, receiver.port, anew=False)
        # The debug log is given a directory's name, so there is no debug log.
        assert [path.name for path in folder.iterdir()] == ["emailsending.log"]
        log = folder / "emailsending.log"
        if not host.product.wine:  # whole messages: for nobody else to read
            assert stat.S_IMODE(log.stat().st_mode) == 0o600
        text = log.read_bytes()
        assert text.startswith(BEGIN) and text.endswith(END)
        sent += [entry.removeprefix(BEGIN) for entry in text.removesuffix(END).split(END)]
    assert [entry.replace(b"\n..", b"\n.").rstrip(b"\r\n") for entry in sent] == [
        message.data.rstrip(b"\r\n") for message in receiver.messages[1:]]
