"""Reads include/emailsending.h for what is made of it: declarations for other languages (bindings.py)
and a manual page (manpages.py). Strictly: what is not understood is an error, nothing is passed over.
"""
import dataclasses
import pathlib
import re

FILE = pathlib.Path(__file__).resolve().parents[1] / "include" / "emailsending.h"
START, END = '#ifdef __cplusplus\nextern "C" {\n#endif\n', "#ifdef __cplusplus\n}\n#endif\n"
PIECE = re.compile(r"(/\*.*?\*/)|([^/;\s][^/;]*;)|(\n\s*\n)|\s+", re.S)
DECLARATION = re.compile(r"(void|int|const char\*) EMAILSENDING_CALL (\w+)\((void|(?:int|const char\*) \w+)\);")


class NotUnderstood(Exception):
    """The header, or a template that it fills, has something that is not known here."""


@dataclasses.dataclass(frozen=True)
class Declaration:
    """A function in the words of C."""
    result: str
    name: str
    parameter: str  # "int port"; "void" for none


def opening():
    """The comment at the head of the file."""
    found = re.match(r"/\*.*?\*/\n", FILE.read_text(encoding="utf-8"), re.S)
    if not found:
        raise NotUnderstood("the header does not begin with a comment")
    return found[0]


def pieces(text):
    """Of the header's text between the braces of extern "C", in their order: comments as they stand,
    declarations, and None for a blank line (or several)."""
    if text.count(START) != 1 or text.count(END) != 1:
        raise NotUnderstood('the header has no single part in extern "C"')
    body, at = text.split(START)[1].split(END)[0], 0
    while at < len(body):
        piece = PIECE.match(body, at)
        if not piece:
            raise NotUnderstood(f"in the header: {body[at:at + 60]!r}")
        comment, code, blank = piece.groups()
        if code:
            declared = DECLARATION.fullmatch(" ".join(code.split()))
            if not declared:
                raise NotUnderstood(f"not a function: {code}")
            yield Declaration(*declared.groups())
        elif comment:
            yield comment
        elif blank:
            yield None
        at = piece.end()


def lines(comment):
    """Of a comment, without its marks."""
    first, *rest = comment.strip().removeprefix("/*").removesuffix("*/").rstrip().splitlines()
    found = [re.fullmatch(r" \*(?: (.*))?", line) for line in rest]
    if None in found:
        raise NotUnderstood(f"a line of a comment without its star: {rest[found.index(None)]!r}")
    return [first.strip(), *(line[1] or "" for line in found)]
