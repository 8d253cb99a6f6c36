"""The golden messages of the unit tests, judged by a reader of others: Python's email."""
import email
import email.policy
import pathlib

import pytest

GOLDEN = pathlib.Path(__file__).resolve().parents[1] / "data" / "golden"
NOTES = b"first\r\n.second\r\nFrom here = there \r\nlast"
DATA = bytes(i * 7 & 255 for i in range(1000))
LOGO = b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR"
FILES = [("application/octet-stream", "data.bin", DATA), ("text/plain", "notes.txt", NOTES)]
RELATED = [("multipart/related", None, None), ("text/html", None, None), ("image/png", "logo.png", LOGO)]

# Name: subject, then (media type, file name, decoded content or None) of all parts in order.
MESSAGES = {
    "nothing": (None, [("text/plain", None, "")]),
    "ascii_html": ("Hello", [("text/html", None, '<html><head><meta charset="us-ascii"></head>\r\n'
                              "<body>Hi\r\n.</body></html>")]),
    "latin1_html": ("Café à la carte", [("text/html", None, "<meta charset=iso-8859-1><p>crème brûlée</p>")]),
    "latin2_html": ("Árvíztűrő tükörfúrógép", [("text/html", None, None)]),
    "utf8_html": ("漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。それでも元の文字は"
                  "そのまま残る。", [("text/html", None, "<p>漢字 😀</p>")]),
    "logo_and_html": ("Logo", RELATED),
    "everything": ("Számla: mellékelve", [("multipart/mixed", None, None), *RELATED, *FILES[::-1],
                                          ("application/pdf", "számla 漢字.pdf", b"%PDF")]),
    "attachments_alone": (None, [("multipart/mixed", None, None), ("text/plain", None, ""), *FILES]),
}


def parsed(name):
    return email.message_from_bytes((GOLDEN / f"{name}.eml").read_bytes(), policy=email.policy.SMTP)


def test_every_golden_message_is_judged():
    assert sorted(p.stem for p in GOLDEN.glob("*.eml")) == sorted(MESSAGES)


@pytest.mark.parametrize("name", MESSAGES)
def test_python_reads_it_back(name):
    subject, parts = MESSAGES[name]
    for line in (GOLDEN / f"{name}.eml").read_bytes().split(b"\r\n"):
        assert len(line) <= 998 and b"\r" not in line and b"\n" not in line
    assert parsed(name)["Subject"] == subject
    found = list(parsed(name).walk())
    assert [(p.get_content_type(), p.get_filename()) for p in found] == [p[:2] for p in parts]
    for part, (_, _, content) in zip(found, parts):
        assert not part.defects
        if content is not None:
            wanted = content.encode(part.get_content_charset()) if isinstance(content, str) else content
            assert part.get_payload(decode=True) == wanted


def test_python_reads_the_addresses():
    message = parsed("everything")
    assert [[(a.display_name, a.addr_spec) for a in message[name].addresses] for name in ("From", "To", "Cc")] == [
        [("", "sender@example.com")],
        [("", "anna@example.com"), ("Kovács Béla", "bela@xn--plda-bpa.hu"), ("Doe, John", "john@example.com"),
         ("", "a.rather.long.local.part@a.rather.long.domain.example.com")], [("", "copy@example.com")]]
    assert message["Date"].datetime.isoformat() == "2026-11-14T09:05:07+01:00"
    assert "hidden" not in message.as_string()
