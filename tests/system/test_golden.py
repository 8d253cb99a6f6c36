"""The golden messages of the unit tests, judged by readers of others: Python's email and ripmime."""
import email
import email.policy
import pathlib
import subprocess

import pytest

GOLDEN = pathlib.Path(__file__).resolve().parents[1] / "data" / "golden"
NOTES = b"first\r\n.second\r\nFrom here = there \r\nlast"
DATA = bytes(i * 7 & 255 for i in range(1000))
LOGO = b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR"
INVOICE = "számla 漢字.pdf"

# Name: subject, then (media type, file name, decoded content or None) of all parts in order.
MESSAGES = {
    "nothing": (None, [("text/plain", None, "")]),
    "ascii_html": ("Hello", [("text/html", None, '<html><head><meta charset="us-ascii"></head>\r\n'
                              "<body>Hi\r\n.</body></html>")]),
    "latin1_html": ("Café à la carte", [("text/html", None,
                                         "<meta charset=iso-8859-1><p>crème brûlée</p>")]),
    "latin2_html": ("Árvíztűrő tükörfúrógép", [("text/html", None, None)]),
    "utf8_html": ("漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。それでも元の文字は"
                  "そのまま残る。", [("text/html", None, "<p>漢字 😀</p>")]),
    "logo_and_html": ("Logo", [("multipart/related", None, None), ("text/html", None, None),
                               ("image/png", "logo.png", LOGO)]),
    "everything": ("Számla: mellékelve",
                   [("multipart/mixed", None, None), ("multipart/related", None, None),
                    ("text/html", None, None), ("image/png", "logo.png", LOGO),
                    ("text/plain", "notes.txt", NOTES),
                    ("application/octet-stream", "data.bin", DATA),
                    ("application/pdf", INVOICE, b"%PDF")]),
    "attachments_alone": (None, [("multipart/mixed", None, None), ("text/plain", None, ""),
                                 ("application/octet-stream", "data.bin", DATA),
                                 ("text/plain", "notes.txt", NOTES)]),
}


def test_every_golden_message_is_judged():
    assert sorted(p.stem for p in GOLDEN.glob("*.eml")) == sorted(MESSAGES)


@pytest.mark.parametrize("name", MESSAGES)
def test_python_reads_it_back(name):
    subject, parts = MESSAGES[name]
    raw = (GOLDEN / f"{name}.eml").read_bytes()
    for line in raw.split(b"\r\n"):
        assert len(line) <= 998 and b"\r" not in line and b"\n" not in line
    message = email.message_from_bytes(raw, policy=email.policy.SMTP)
    assert message["Subject"] == subject
    found = list(message.walk())
    assert [(p.get_content_type(), p.get_filename()) for p in found] == [p[:2] for p in parts]
    for part, (_, _, content) in zip(found, parts):
        assert not part.defects
        if isinstance(content, str):
            content = content.encode(part.get_content_charset())
        if content is not None:
            assert part.get_payload(decode=True) == content


def test_python_reads_the_addresses():
    message = email.message_from_bytes((GOLDEN / "everything.eml").read_bytes(),
                                       policy=email.policy.SMTP)
    assert [(a.display_name, a.addr_spec) for a in message["To"].addresses] == [
        ("", "anna@example.com"), ("Kovács Béla", "bela@xn--plda-bpa.hu"),
        ("Doe, John", "john@example.com"),
        ("", "a.rather.long.local.part@a.rather.long.domain.example.com")]
    assert [a.addr_spec for a in message["From"].addresses] == ["sender@example.com"]
    assert [a.addr_spec for a in message["Cc"].addresses] == ["copy@example.com"]
    assert message["Date"].datetime.isoformat() == "2026-11-14T09:05:07+01:00"
    assert "hidden" not in message.as_string()


def test_ripmime_takes_it_apart(tmp_path):
    subprocess.run(["ripmime", "-i", GOLDEN / "everything.eml", "-d", tmp_path], check=True)
    assert (tmp_path / "data.bin").read_bytes() == DATA
    assert (tmp_path / "logo.png").read_bytes() == LOGO
    assert (tmp_path / "notes.txt").read_bytes().splitlines() == NOTES.splitlines()
    assert (tmp_path / INVOICE).read_bytes() == b"%PDF"
