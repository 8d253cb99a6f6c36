#!/usr/bin/env python3
"""Writes emailsend.1, emailsending.3 and emailsending.ini.5 (mdoc) into a folder.

    manpages.py OUT_DIR

Their words are those of emailsend's help texts, of include/emailsending.h, docs/settings.md and
CHANGELOG.md; here stands only what a page needs around them. What is not understood there ends the
script with the place: a page never lacks what its source says.
"""
import calendar
import pathlib
import re
import sys
import textwrap

import header
from header import NotUnderstood

ROOT = pathlib.Path(__file__).resolve().parent.parent
SETTINGS = "docs/settings.md"
# Help text of each command, and the source that holds it.
HELPS = {"": "tools/emailsend/Arguments.cpp", "doctor": "tools/emailsend/doctor/Options.cpp",
         "settings": "tools/emailsend/SettingsCommand.cpp"}
SETTINGS_LEFT_OUT = ("What filters say",)  # measured once; no help to who writes a file
LITERAL = {"\\": "\\e", "-": "\\-", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def stop(place, what):
    raise NotUnderstood(f"{place}: not understood: {what!r}")


def read(name):
    return (ROOT / name).read_text(encoding="utf-8")


# ---- mdoc: how a text is written so that it stays one.

def escaped(text):
    text = "".join(LITERAL.get(c, c if ord(c) < 128 else f"\\[u{ord(c):04X}]") for c in text)
    return "\\&" + text if text[:1] in (".", "'") else text


def argument(word):
    """A word on a line of macros that is no macro there, nor a delimiter, whatever it looks like."""
    text = escaped(word)
    text = "\\&" + text if re.fullmatch(r"[A-Z%][A-Za-z]{1,2}|\W", text) else text
    return '"' + text.replace('"', '""') + '"' if " " in word or '"' in word else text


def prose(text):
    """Lines of text; each sentence begins one: who sets the page parts them by more than a blank."""
    sentences = re.split(r"(?<=[\w)\"'>][.!?]) (?=[A-Z\"(])", " ".join(text.split()))
    return [escaped(line) for sentence in sentences
            for line in textwrap.wrap(sentence, 72, break_long_words=False, break_on_hyphens=False)]


def literal(lines):
    return [".Bd -literal -offset indent", *(escaped(line.expandtabs()) for line in lines), ".Ed"]


def tagged(rows):
    """A list of (macros or text behind .It, lines)."""
    out = [".Bl -tag -width Ds"]
    for head, lines in rows:
        out += [f".It {head}", *lines]
    return [*out, ".El"]


def page(name, section, about, parts):
    version, day = release()
    out = [f".Dd {day}", f".Dt {name.upper()} {section}", f".Os emailsending {version}", ".Sh NAME", f".Nm {name}",
           f".Nd {about}"]
    for title, lines in parts:
        out += [f".Sh {title}", *lines]
    return "\n".join(out) + "\n"


def release():
    """Version and day of the newest one: a page says when its words were settled, not when it was built."""
    found = re.search(r"^## (\d+\.\d+\.\d+) \((\d{4})-(\d\d)-(\d\d)\)$", read("CHANGELOG.md"), re.M)
    if not found:
        stop("CHANGELOG.md", "no release with a number and a day")
    version, year, month, day = found.groups()
    return version, f"{calendar.month_name[int(month)]} {int(day)}, {year}"


def see_also(*pages):
    return ("SEE ALSO", [f".Xr {name} {section}" + (" ," if i + 1 < len(pages) else "")
                         for i, (name, section) in enumerate(pages)])


# ---- emailsend(1)

def help_text(command):
    texts = re.findall(r'R"\((emailsend.*?)\)"', read(HELPS[command]), re.S)
    if len(texts) != 1:
        stop(HELPS[command], f"{len(texts)} help texts")
    return texts[0]


def term(text, place):
    """The macros for what an option or a command looks like: "--port PORT", "--help, -h, /?"."""
    words = []
    for word in re.findall(r"[\[\],]|[^\[\], ]+", text):
        if flag := re.fullmatch(r"-(-?)([a-z][a-z0-9-]*)", word):
            words += ["Fl", *(["Fl"] if flag[1] else []), argument(flag[2])]
        elif re.fullmatch(r"[A-Z]+|options", word):
            words += ["Ar", argument(word)]
        elif word == "/?":
            words += ["Cm", "/\\&?"]
        elif re.fullmatch(r"[a-z]+", word):
            words += ["Cm", argument(word)]
        elif word in "[],":
            words += [{"[": "Oo", "]": "Oc"}.get(word, word)]
        else:
            stop(place, text)
    return " ".join(words)


def items(lines, place):
    """[(what, text)] of indented lines: two blanks, a term, two blanks or more, a text that goes on below itself."""
    out, column = [], 0
    for line in lines:
        if found := re.fullmatch(r"  (\S+(?: \S+)*)(?:  +(\S.*))?", line):
            column = found.start(2) if found[2] else column
            out.append([found[1], found[2] or ""])
        elif out and column and re.fullmatch(rf" {{{column}}}\S.*", line):
            out[-1][1] += " " + line.strip()
        else:
            stop(place, line)
    return out


def help_parts(command):
    """(first sentence, [blocks]) where a block is (heading, [items]) or (None, paragraph)."""
    place, text = HELPS[command], help_text(command)
    first, *blocks = [block.splitlines() for block in text.strip("\n").split("\n\n")]
    opening = re.fullmatch(r"emailsend ?\w*: (.+)\.", " ".join(first))
    if not opening:
        stop(place, first)
    out = []
    for lines in blocks:
        indented = [line.startswith("  ") for line in lines]
        if not any(indented):
            out.append((None, " ".join(lines)))
        elif all(indented[1:]):
            out.append((lines[0].rstrip(":") if not indented[0] else "", items(lines[not indented[0]:], place)))
        else:
            stop(place, lines)
    return opening[1], out


def synopsis_of(block, place):
    if block[0] != "" or not all(what.startswith("emailsend") for what, _ in block[1]):
        stop(place, block)
    return [what.removeprefix("emailsend").strip() for what, _ in block[1]]


def list_of(content, command):
    return tagged([(term(what.removeprefix("emailsend "), HELPS[command]), prose(text)) for what, text in content])


def shown(blocks, command):
    """The blocks of a help text as lines, but for the exit codes, which are given back beside them."""
    out, codes = [], []
    for heading, content in blocks:
        if heading is None and content.startswith("Exit code"):
            codes += prose(content)
        elif heading == "Exit code":
            codes += tagged([(argument(code), prose(text)) for code, text in content])
        elif heading is None:
            out += [".Pp", *prose(content)]
        else:
            title, _, remark = heading.partition(" (")
            out += [".Ss " + argument(title)] if heading else []
            out += prose(f"({remark}") if remark else []
            out += list_of(content, command)
    return out, codes


def examples():
    """The commands of the README, each with the remark above it."""
    found = re.search(r"^## emailsend\n.*?```sh\n(.*?)```", read("README.md"), re.S | re.M)
    if not found:
        stop("README.md", "no examples under \"## emailsend\"")
    return literal(found[1].rstrip("\n").splitlines())


def emailsend():
    about, (usage, *blocks) = help_parts("")
    synopsis, body, codes = synopsis_of(usage, HELPS[""]), *shown(blocks, "")
    body = [".Nm", *prose(about + "."), *body]
    for command in HELPS:
        if not command:
            continue
        opening, (usage, *blocks) = help_parts(command)
        synopsis += synopsis_of(usage, HELPS[command])
        lines, more = shown(blocks, command)
        body += [f".Ss emailsend {command}", *prose(opening[0].upper() + opening[1:] + ".")]
        body += list_of(usage[1], command) if any(text for _, text in usage[1]) else []
        body += lines
        codes += [f".Ss emailsend {command}", *more]
    forms = [term(form, "synopsis") for form in [*synopsis, "errors"]]
    return page("emailsend", 1, escaped(about), [
        ("SYNOPSIS", [line for form in forms for line in (".Nm", "." + form)]), ("DESCRIPTION", body),
        ("ENVIRONMENT", tagged([
            ("Ev EMAILSEND_PASSWORD", ["The password, where no file with it is named."]),
            ("Ev EMAILSENDING_SETTINGS", ["The settings file, see", ".Xr emailsending.ini 5 ."]),
            ("Ev NO_COLOR", ["No colours on a terminal."])])),
        ("EXIT STATUS", codes), ("EXAMPLES", examples()), see_also(("emailsending", 3), ("emailsending.ini", 5))])


# ---- emailsending(3)

def comment(text):
    """A comment as mdoc: paragraphs, " - " items, code behind four blanks more."""
    lines = header.lines(text)
    out = []
    for block in re.split(r"\n\n+", "\n".join(lines).strip("\n")):
        rows = block.split("\n")
        if all(row.startswith("    ") for row in rows):
            out += literal(row[4:] for row in rows)
            continue
        head, *marked = re.split(r"^ - ", block, flags=re.M)
        out += [*([".Pp"] if out else []), *prose(head)]
        if marked:
            out += [".Bl -dash", *(line for item in marked for line in (".It", *prose(item))), ".El"]
    return out


def functions():
    """In their order ("group", title) and ("functions", declarations, lines)."""
    out = []
    for piece in header.pieces(header.FILE.read_text(encoding="utf-8")):
        if isinstance(piece, header.Declaration):
            if not out or out[-1][0] == "group":
                raise NotUnderstood(f"{piece.name} has no comment")
            out[-1][1].append(piece)
        elif group := re.fullmatch(r"/\* ---- (.*?)(?: ----)? \*/", piece or "", re.S):
            out.append(("group", " ".join(group[1].split())))
        elif piece:
            out.append(("functions", [], comment(piece)))
    for row in out:
        if not row[1]:
            raise NotUnderstood(f"a comment without a function: {row[2][0]}")
    return out


def emailsending():
    rows = functions()
    synopsis = [".In emailsending.h"]
    calls = {one: f'Fn {one.name} "{one.parameter}"' for row in rows if row[0] == "functions" for one in row[1]}
    for one, call in calls.items():
        synopsis += [f".Ft {argument(one.result)}", f".{call}"]
    body, listed = comment(header.opening()), False
    for kind, *row in rows:
        if kind == "group":
            title, _, remark = row[0].partition(". ")
            body += [".El"] * listed + [".Ss " + argument(title.rstrip(".")), *(prose(remark) if remark else [])]
            listed = False
            continue
        body += [".Bl -tag -width Ds"] * (not listed)
        body += [f".It {calls[one]}" for one in row[0]] + row[1]
        listed = True
    return page("emailsending", 3, "sends e\\-mail", [
        ("LIBRARY", ["emailsending (libemailsending, \\-lemailsending)"]), ("SYNOPSIS", synopsis),
        ("DESCRIPTION", [*body, *[".El"] * listed]), see_also(("emailsend", 1), ("emailsending.ini", 5))])


# ---- emailsending.ini(5)

def plain(text, place):
    """Markdown within a line as text. What is code needs no mark: it is recognised by what it looks like."""
    text = re.sub(r"\*\*(.+?)\*\*", r"\1", text)
    text = re.sub(r"\[([^\]]+)\]\([^)]+\)", r"\1", text)
    if text.count("`") % 2:
        stop(place, text)
    return text.replace("`", "")


def key_table(lines):
    """The rows of one table of keys: name, what may be, what counts without it, what it means."""
    if lines[:2] != ["| key | may be | without it | meaning |", "|---|---|---|---|"]:
        stop(SETTINGS, lines[0])
    rows = []
    for line in lines[2:]:
        found = re.fullmatch(r"\| `([a-z0-9-]+)` \| (.+?) \| (.+?) \| (.+) \|", line)
        if not found:
            stop(SETTINGS, line)
        key, may_be, without, meaning = found.groups()
        rows.append((f"Ic {argument(key)}", [*prose(plain(meaning, SETTINGS)), ".br",
                                             *prose(f"May be: {may_be}."), ".br", *prose(f"Without it: {without}.")]))
    return tagged(rows)


def settings_block(block):
    lines = block.split("\n")
    if block.startswith("|"):
        return key_table(lines)
    if block.startswith("```ini\n") and lines[-1] == "```":
        return literal(lines[1:-1])
    if re.match(r"1\. ", block):
        out = [".Bl -enum"]
        for item in re.split(r"^\d+\. ", block, flags=re.M)[1:]:
            out += [".It", *prose(plain(item, SETTINGS))]
        return [*out, ".El"]
    if re.match(r"[-*>#`]|\d+\.", lines[0]) and not re.match(r"`[^`]", lines[0]):
        stop(SETTINGS, lines[0])
    return prose(plain(block, SETTINGS))


def blocks_of(text):
    """Paragraphs, tables and headings, parted by blank lines; a block of code is one, its blank lines with it."""
    out, code = [], False
    for part in text.split("\n\n"):
        if code:
            out[-1] += "\n\n" + part
        else:
            out.append(part.strip("\n"))
        code = out[-1].startswith("```") and not out[-1].endswith("\n```")
    if code:
        stop(SETTINGS, out[-1])
    return out


def settings_sections():
    """{title: lines}; what stands before the first section has no title."""
    _, *blocks = blocks_of(read(SETTINGS).strip())
    sections = {"": []}
    for block in blocks:
        lines = sections[[*sections][-1]]
        if heading := re.fullmatch(r"(##|###) (.+)", block):
            if heading[1] == "##":
                sections[heading[2]] = []
            else:
                lines.append(f".Ss {argument(heading[2])}\\&")  # a "]" at the end is no delimiter
        elif [*sections][-1] not in SETTINGS_LEFT_OUT:
            made = settings_block(block)
            alone = not lines or lines[-1].startswith(".Ss") or made[0].startswith((".Bl", ".Bd"))
            lines += [*([] if alone else [".Pp"]), *made]
    return sections


def settings_file():
    sections = settings_sections()
    if missing := {"The keys", *SETTINGS_LEFT_OUT} - {*sections}:
        stop(SETTINGS, f"no section {missing}")
    keys, described = sections.pop("The keys"), sections.pop("")
    for title, lines in sections.items():
        described += [f".Ss {argument(title)}", *lines] if lines else []
    return page("emailsending.ini", 5, "the settings file of the e\\-mail sending plug\\-in", [
        ("DESCRIPTION", described), ("KEYS", keys), see_also(("emailsend", 1), ("emailsending", 3))])


def main():
    if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        sys.exit(__doc__.strip())
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    try:
        for name, make in (("emailsend.1", emailsend), ("emailsending.3", emailsending), ("emailsending.ini.5", settings_file)):
            (folder / name).write_text(make(), encoding="ascii", newline="\n")
    except NotUnderstood as failure:
        sys.exit(f"manpages: {failure}")


if __name__ == "__main__":
    main()
