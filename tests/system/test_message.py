"""The sample message through both libraries to other people's servers, read by other people's readers."""
import email
import email.policy
import re
import subprocess

import samples
from products import Host


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
