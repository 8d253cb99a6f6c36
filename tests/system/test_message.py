"""The sample message through both libraries to other people's servers, read by other people's readers."""
import email
import email.policy
import re
import subprocess

import samples
from products import Host
from programs import run


def parse(data):
    return email.message_from_bytes(data, policy=email.policy.default)


def send_by_exports(host, port, sample):
    host.Initialise()
    host.setSmtpHost("127.0.0.1")
    host.setSmtpPort(port)
    sample.compose(host)
    assert host.szBrisko() == 1, host.error()
    assert host.error() == ""


def test_exports_deliver_the_sample(host, receiver, sample):
    send_by_exports(host, receiver.port, sample)
    [received] = receiver.messages
    assert received.sender == samples.SENDER
    assert received.recipients == [samples.TO, samples.CC, samples.BCC]
    assert all(len(line) <= 998 for line in received.data.split(b"\r\n"))
    assert b"\n" not in received.data.replace(b"\r\n", b"")
    assert samples.BCC.encode() not in received.data
    sample.check(received.parsed())


def test_emailsend_delivers_the_sample(product, receiver, sample):
    done = run(product, product.program, "--host", "127.0.0.1", "--port", receiver.port,
               *sample.command_line(product))
    assert done.code == 0, done.err
    [received] = receiver.messages
    assert received.recipients == [samples.TO, samples.CC, samples.BCC]
    sample.check(received.parsed())


def test_postfix_delivers_the_sample(host, postfix, sample):
    before = len(list((postfix.home / "mail" / "new").glob("*")))
    send_by_exports(host, postfix.port, sample)
    copies = postfix.messages(before + 3)[before:]
    for data in copies:
        sample.check(parse(data))
    envelope = {parse(data)["X-Original-To"] for data in copies}
    assert envelope == {samples.TO, samples.CC, samples.BCC}


def test_postfix_refusal_reaches_the_host(host, postfix):
    host.Initialise()
    host.setSmtpHost("127.0.0.1")
    host.setSmtpPort(postfix.port)
    host.setFromAddress(samples.SENDER)
    host.setRecipient("nobody@example.test")
    assert host.szBrisko() == 0
    assert "550 5.1.1" in host.error() and "no such mailbox" in host.error()


def test_ripmime_reads_the_sample(host, receiver, sample, tmp_path):
    send_by_exports(host, receiver.port, sample)
    data = receiver.messages[0].data
    (tmp_path / "message.eml").write_bytes(data)
    out = tmp_path / "parts"
    out.mkdir()
    subprocess.run(["ripmime", "-i", tmp_path / "message.eml", "-d", out, "-e", "headers.txt"], check=True,
                   capture_output=True, timeout=60)
    parts = {path.name: path.read_bytes() for path in out.iterdir()}
    headers = parts.pop("headers.txt").decode()
    # This reader counts the line end before a boundary to the text.
    assert parts.get(samples.TEXT_NAME, b"").removesuffix(b"\r\n") == sample.text.read_bytes()
    assert parts.get("logo.png") == sample.logo.read_bytes()
    assert parts.get(samples.BINARY_NAME) == sample.binary.read_bytes()
    bodies = [text for text in parts.values() if text.startswith(b"<html>")]
    assert len(bodies) == 1
    assert "Üdvözlettel: ő" in bodies[0].decode(parse(data).get_body(("html",)).get_content_charset())
    unfolded = re.sub(r"\r?\n(?=[ \t])", "", headers).replace("\r\n", "\n")
    for name, value in (("Subject", samples.SUBJECT), ("From", samples.SENDER), ("To", samples.TO),
                        ("Cc", samples.CC)):
        assert re.findall(rf"^{name}: (.*)", unfolded, re.M) == [value]


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
        folder = tmp_path / product.name
        folder.mkdir()
        with Host(product, folder) as host:
            send_by_exports(host, receiver.port, sample)
    linux, windows = (normalised(message.data) for message in receiver.messages)
    assert linux == windows
    assert b"BOUNDARY" in linux and b"cid:CID" in linux
