#!/usr/bin/env python3
"""Writes what host programs of each language need into a folder, all of it from include/emailsending.h.

    bindings.py OUT_DIR [LANGUAGE...]    bindings/LANGUAGE/* for all or the named languages (c cpp csharp
                                         pascal python vb6 vba vbnet); without names also
                                         {x86,x64}/emailsending.def and the import libraries

The texts are tools/bindings/*.in, the header is read strictly: what it says of a function has to be
understood whole, or nothing is written.

A template is the file as it will be, but for these lines and for words such as @name@ (see fields()):

    @include FILE           the lines of another template
    @each                   the lines up to @end, once for every function in the header's order; of the
    @when RESULT(ARGUMENT)  parts that @when begins the first that fits: "number|flag(*)"; those before
    @end                    the first @when stand before every part
"""
import argparse
import dataclasses
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

import header
import import_libraries
from header import NotUnderstood

ROOT = pathlib.Path(__file__).resolve().parents[1]
TEMPLATES = ROOT / "tools" / "bindings"
# Of each language: the file, its template, its ends of lines. Basic on Windows takes no others.
LANGUAGES = {
    "c": ("emailsending.h", None, "\n"),
    "cpp": ("emailsending.hpp", "cpp.in", "\n"),
    "csharp": ("EmailSending.cs", "csharp.in", "\n"),
    "pascal": ("emailsending.pas", "pascal.in", "\n"),
    "python": ("emailsending.py", "python.in", "\n"),
    "vb6": ("emailsending.bas", "vb6.in", "\r\n"),
    "vba": ("emailsending.bas", "vba.in", "\r\n"),
    "vbnet": ("EmailSending.vb", "vbnet.in", "\r\n"),
}
WIDTH = 100


# ---- The header.

@dataclasses.dataclass
class Function:
    """One of the header. result is void, number, flag or text, takes is none, number, flag, ansi or utf8."""
    name: str
    result: str
    takes: str
    argument: str
    doc: list  # paragraphs

    @property
    def size(self):
        """Bytes of the arguments in 32 bits."""
        return 0 if self.takes == "none" else 4


def paragraphs(comment):
    """Of a comment, without the code in it."""
    found = [[]]
    for line in header.lines(comment):
        if not line.strip() or line.lstrip().startswith("- "):
            found.append([])
        if not line.startswith("    "):
            found[-1].append(line.strip())
    return [" ".join(lines).strip() for lines in found if any(lines)]


def encoding(name, comments):
    """Of the texts of a function, by the nearest comment above it that names one."""
    for comment in comments:
        if words := {*re.findall(r"\b(?:ANSI|UTF-8)(?![\w-])", comment)}:
            if len(words) == 1:
                return {"ANSI": "ansi", "UTF-8": "utf8"}[words.pop()]
            break
    raise NotUnderstood(f"{name}: its comment says neither ANSI nor UTF-8, or both")


def number_kind(name, comments):
    """Whether an int that is returned is a flag, by the nearest comment that says what is returned."""
    for comment in comments:
        if said := re.search(r"\bReturns (\w+)", " ".join(comment.split())):
            return "flag" if said[1] == "1" else "number"
    raise NotUnderstood(f"{name}: its comment does not say what it returns")


def function(declared, comments):
    """comments are those of its paragraph, the nearest first."""
    if not comments:
        raise NotUnderstood(f"{declared.name} has no comment")
    takes, _, argument = declared.parameter.rpartition(" ")
    kind = {"": "none", "int": "flag" if argument == "flag" else "number"}.get(takes)
    result = {"void": "void", "const char*": "text"}.get(declared.result)
    one = Function(declared.name, result or number_kind(declared.name, comments),
                   kind or encoding(declared.name, comments), argument if takes else "", paragraphs(comments[0]))
    if one.result == "text" and encoding(one.name, comments) != "ansi":
        raise NotUnderstood(f"{one.name}: a text that is returned is ANSI in all templates")
    return one


def functions(text):
    """Those of the header's text in its order. A blank line parts them: comments hold up to the next."""
    found, comments = [], []
    for piece in header.pieces(text):
        if piece is None:
            comments = []
        elif isinstance(piece, header.Declaration):
            found.append(function(piece, comments))
        else:
            comments.insert(0, piece)
    if not found or len({one.name for one in found}) != len(found):
        raise NotUnderstood("the header declares nothing, or something twice")
    return found


# ---- The templates.

def fields(one):
    """What stands for @word@ in the lines of one function: a text, or paragraphs that are wrapped."""
    escaped = [part.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;") for part in one.doc]
    return {"name": one.name, "decorated": f"_{one.name}@{one.size}", "bytes": one.size, "argument": one.argument,
            "doc": one.doc, "xmldoc": escaped}


def common_fields(all_functions):
    def names(kind):
        return ", ".join(one.name for one in all_functions if kind in (one.takes, one.result))
    return {"encodings": [f"- ANSI texts: {names('ansi')}; and what {names('text')} returns.",
                          f"- UTF-8 texts: {names('utf8')}."],
            "count": len(all_functions)}


def wrapped(parts, prefix):
    """The lines of paragraphs, with an empty one between them but for those of a list."""
    rows = []
    for part in parts:
        item = part.startswith("- ")
        rows += [prefix.rstrip()] if rows and not item else []
        rows += textwrap.wrap(part, WIDTH, initial_indent=prefix, subsequent_indent=prefix + "  " * item,
                              break_on_hyphens=False, break_long_words=False)
    return rows


def filled(line, words):
    """The line or lines that come of one."""
    for word in re.findall(r"@(\w+)@", line):
        if word not in words:
            raise NotUnderstood(f"a template has @{word}@")
        if isinstance(words[word], list):
            return wrapped(words[word], line.split(f"@{word}@")[0])
        line = line.replace(f"@{word}@", str(words[word]))
    return [line]


def fits(pattern, one):
    result, takes = re.fullmatch(r"([\w|*]+)\(([\w|*]+)\)", pattern).groups()
    return all(kind in known.split("|") or known == "*"
               for known, kind in ((result, one.result), (takes, one.takes)))


def part_for(block, one):
    """Of the lines between @each and @end those that are for this function."""
    taken, wanted, chosen = [], True, False
    for line in block:
        if line.startswith("@when "):
            wanted = not chosen and fits(line.removeprefix("@when "), one)
            chosen = chosen or wanted
        elif wanted:
            taken.append(line)
    if not chosen and any(line.startswith("@when ") for line in block):
        raise NotUnderstood(f"a template has nothing for {one.name}: {one.result}({one.takes})")
    return taken


def template_lines(name):
    for line in (TEMPLATES / name).read_text().splitlines():
        yield from template_lines(line.split()[1]) if line.startswith("@include ") else [line]


def render(template, all_functions):
    lines, out, common = template_lines(template), [], common_fields(all_functions)
    for line in lines:
        if line != "@each":
            out += filled(line, common)
            continue
        block = list(iter(lambda: next(lines), "@end"))
        for one in all_functions:
            for row in part_for(block, one):
                out += filled(row, fields(one))
    return out


# ---- All of it.

def write_languages(out, languages, all_functions):
    for language in languages:
        file, template, end = LANGUAGES[language]
        path = out / "bindings" / language / file
        path.parent.mkdir(parents=True, exist_ok=True)
        if template:
            lines = render(template, all_functions)
            path.write_bytes("".join(line + end for line in lines).encode("ascii"))
        else:
            shutil.copyfile(header.FILE, path)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("out", type=pathlib.Path, metavar="OUT_DIR")
    parser.add_argument("languages", nargs="*", metavar="LANGUAGE")
    chosen = parser.parse_args()
    if unknown := {*chosen.languages} - {*LANGUAGES}:
        parser.error(f"no such language: {', '.join(sorted(unknown))}")
    try:
        all_functions = functions(header.FILE.read_text())
        write_languages(chosen.out, chosen.languages or LANGUAGES, all_functions)
        if not chosen.languages:
            import_libraries.write(chosen.out, [(one.name, one.size) for one in all_functions])
    except (NotUnderstood, OSError, subprocess.CalledProcessError) as error:
        sys.exit(f"bindings.py: {error}")


if __name__ == "__main__":
    main()
