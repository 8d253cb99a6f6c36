"""The golden messages of the unit tests, judged by a reader of others: Python's email."""
import email
import email.policy
import pathlib

import pytest

GOLDEN = pathlib.Path(__file__).resolve().parents[1] / "data" / "golden"
DATA = bytes(i * 7 & 255 for i in range(1000))
FILES = [("application/octet-stream", "data.bin", DATA),
         ("text/plain", "notes.txt", b"first\r\n.second\r\nFrom here = there \r\nlast")]
MIXED = ("multipart/mixed", None, None)
RELATED = [("multipart/related", None, None), ("text/html", None, None),
           ("image/png", "logo.png", b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR")]

# Name: subject, then (media type, file name, decoded content or None) of all parts in order.
MESSAGES = {
    "nothing": (None, [("text/plain", None, "")]),
    "ascii_html": ("Hello", [("text/html", None, '<html><head><meta charset="us-ascii"></head>\r\n'
                              "<body>Hi\r\n.</body></html>")]),
    "latin1_html": ("Café à la carte", [("text/html", None,
                                         "<meta charset=iso-8859-1><p>crème brûlée</p>")]),
    "latin2_html": ("Árvíztűrő tükörfúrógép", [("text/html", None, None)]),
    "utf8_html": ("漢字かな交じり文の長い件名は、いくつもの符号化された語に分けられる。"
                  "それでも元の文字はそのまま残る。", [("text/html", None, "<p>漢字 😀</p>")]),
    "logo_and_html": ("Logo", RELATED),
    "everything": ("Számla: mellékelve", [MIXED, *RELATED, *FILES[::-1],
                                          ("application/pdf", "számla 漢字.pdf", b"%PDF")]),
    "attachments_alone": (None, [MIXED, ("text/plain", None, ""), *FILES]),
}
PEOPLE = {"From": [("", "sender@example.com")], "Cc": [("", "copy@example.com")], "To": [
    ("", "anna@example.com"), ("Kovács Béla", "bela@xn--plda-bpa.hu"), ("Doe, John", "john@example.com"),
    ("", "a.rather.long.local.part@a.rather.long.domain.example.com")]}


@pytest.mark.parametrize("path", sorted(GOLDEN.glob("*.eml")), ids=lambda path: path.stem)
def test_python_reads_it_back(path):
    subject, parts = MESSAGES[path.stem]
    data = path.read_bytes()
    assert all(len(line) <= 998 and not {*b"\r\n"} & {*line} for line in data.split(b"\r\n"))
    message = email.message_from_bytes(data, policy=email.policy.SMTP)
    assert message["Subject"] == subject
    found = list(message.walk())
    assert [(p.get_content_type(), p.get_filename()) for p in found] == [p[:2] for p in parts]
    for part, (_, _, content) in zip(found, parts):
        assert not part.defects
        if isinstance(content, str):
            content = content.encode(part.get_content_charset())
        assert content is None or part.get_payload(decode=True) == content
    if path.stem == "everything":
        assert {name: [(a.display_name, a.addr_spec) for a in message[name].addresses]
                for name in PEOPLE} == PEOPLE
        assert message["Date"].datetime.isoformat() == "2026-11-14T09:05:07+01:00"
        assert "hidden" not in message.as_string()
