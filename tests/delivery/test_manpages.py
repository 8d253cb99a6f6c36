"""The manual pages: clean to a formatter, and whole: each line of what they are made from is found in what a
reader sees, the help texts as the built program prints them."""
import pathlib
import re
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "fixtures"), str(ROOT / "tools")]
import manpages  # noqa: E402
import products  # noqa: E402

PAGES = ("emailsend.1", "emailsending.3", "emailsending.ini.5")


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    folder = tmp_path_factory.mktemp("man")
    subprocess.run([sys.executable, ROOT / "tools/manpages.py", folder], check=True, cwd=folder)
    return folder


def squeezed(text):
    return re.sub(r"\s", "", text).lower()


def seen(page):
    """What a reader sees, without blanks, bold and the hyphens that are set as dashes."""
    done = subprocess.run(["mandoc", "-Tutf8", page], capture_output=True, text=True, check=True)
    return squeezed(re.sub(".\b", "", done.stdout))


def help_lines():
    program = products.Product("so").program
    for command in ([], ["doctor"], ["settings"]):
        done = subprocess.run([program, *command, "--help"], capture_output=True, text=True, check=True)
        for line in done.stdout.splitlines():
            yield from re.split("  +", re.sub(r"^emailsend ?\w*: |^Exit code:$", "", line))


def header_lines():
    text = (ROOT / "include/emailsending.h").read_text()
    for line in re.findall(r"^ ?(?:/\*|\*)(?!/)(.*?)(?:\*/)?$", text, re.M):
        yield from line.replace("----", "").split(". ")
    for result, name, argument in re.findall(r"^(\w.*) EMAILSENDING_CALL (\w+)(\(.*\));", text, re.M):
        yield result + name + argument


def settings_lines():
    text = (ROOT / "docs/settings.md").read_text()
    text = re.sub(r"^## What filters say\n.*?(?=^## )", "", text, flags=re.S | re.M)
    for line in text.splitlines()[1:]:
        if not line.startswith(("|--", "| key |", "```")):
            yield from re.sub(r"^#+ |^\d\. |`", "", line).split(" | ")


@pytest.mark.parametrize("name", PAGES)
def test_formatters_have_nothing_to_say(folder, name):
    lint = subprocess.run(["mandoc", "-Tlint", "-Wwarning", folder / name], capture_output=True, text=True)
    assert (lint.returncode, lint.stdout) == (0, "")


@pytest.mark.parametrize("name, lines, least", zip(PAGES, (help_lines, header_lines, settings_lines), (100, 150, 200)))
def test_each_line_of_the_source_is_on_the_page(folder, name, lines, least):
    page = seen(folder / name)
    wanted = [squeezed(line.strip(" |").rstrip(".")) for line in lines()]
    assert len([line for line in wanted if line]) > least
    assert [line for line in wanted if line not in page] == []


@pytest.mark.parametrize("read, text", [
    (manpages.items, ["  --port PORT   its port", "        and a line that stands nowhere"]),
    (manpages.items, ["   --port PORT  three blanks"]),
    (manpages.term, "--port <PORT>"),
    (lambda text, _: manpages.comment(text), "/*\n * A line.\n   Another without its star.\n */"),
    (lambda text, _: manpages.settings_block(text), "| key | meaning |\n|---|---|\n| `host` | The mail server. |"),
], ids=["continuation", "indent", "term", "star", "table"])
def test_what_is_not_understood_ends_the_script(read, text):
    with pytest.raises(manpages.NotUnderstood):
        read(text, "here")
