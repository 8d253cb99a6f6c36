"""What README.md shows is so: its programs compile and send, its commands run, its declarations are those of
the header. A block that is not known here is a failure: nothing is shown that nobody has run."""
import json
import re
import shlex
import subprocess
import sys

import pytest

import programs
from products import EXPORTS, ROOT, Product
from receiver import receiver_with_login
from samples import PNG

sys.path.insert(0, str(ROOT / "tests"))
import run_all  # noqa: E402

README = (ROOT / "README.md").read_text()
PAGES = sorted(ROOT.glob("*.md")) + sorted(ROOT.glob("docs/*.md"))
LOGIN_REFUSED = 77
FILES = {"body.html": b"<p>{LOGO}</p>", "logo.png": PNG, "report.pdf": b"%PDF-\r\n.\r\n", "secret.txt": b"secret\n",
         "mail-password.txt": b"secret\n", "company-root.pem": b"as the company has it\n"}


def blocks(text, language):
    """Of a page those between fences, of one language."""
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.M | re.S)


def commands(prompt, shell):
    """The lines of a block that begin with the prompt, each joined with its continuations."""
    joined = shell.replace("\\\n", " ")
    return [shlex.split(line.removeprefix(prompt), comments=True) for line in joined.splitlines()
            if line.startswith(prompt) and shlex.split(line, comments=True)]


@pytest.fixture
def folder(tmp_path):
    for name, content in FILES.items():
        (tmp_path / name).write_bytes(content)
        (tmp_path / name).chmod(0o600)
    return tmp_path


def test_every_block_is_of_a_kind_that_is_run():
    assert {*re.findall(r"^```(\w*)\n", README, re.M)} <= {"", "c", "sh", "ini"}


@pytest.mark.parametrize("program", blocks(README, "c"), ids=lambda text: text.splitlines()[0])
def test_c(program, folder, receiver):
    compiling = ["cc", "-xc", "-Wall", "-Wextra", "-Werror", "-I", ROOT / "include", "-"]
    if "int main(" not in program:
        compiling += ["-fsyntax-only", "-Wno-unused-function", "-include", "stdio.h", "-include", "string.h"]
        subprocess.run(compiling, input=program, text=True, check=True)
        return
    program = program.replace("mail.example.com", "127.0.0.1")
    program, ports = re.subn(r"setSmtpPort\(\d+\)", f"setSmtpPort({receiver.port})", program)
    assert ports == 1
    library = ROOT / "build/native"
    subprocess.run([*compiling, "-o", "first", "-L", library, "-lemailsending", f"-Wl,-rpath,{library}"],
                   cwd=folder, input=program, text=True, check=True)
    run = subprocess.run("./first", cwd=folder, capture_output=True, text=True)
    assert (run.returncode, run.stdout) == (0, "")
    message, = receiver.messages
    parts = {part.get_filename(): part.get_payload(decode=True) for part in message.parsed().walk()}
    assert parts["report.pdf"] == FILES["report.pdf"] and PNG in parts.values()
    (folder / "report.pdf").unlink()
    run = subprocess.run("./first", cwd=folder, capture_output=True, text=True)
    assert (run.returncode, run.stdout) == (1, "report.pdf cannot be read\n") and len(receiver.messages) == 1


def test_table_of_functions():
    rows = re.findall(r"^\| `(.*) (\w+)\((.*)\)` \| `(.*)` \|", README, re.M)
    assert {(name, result, bool(takes), decorated) for result, name, takes, decorated in rows} == {
        (name, result, bool(takes), f"_{name}@{4 if takes else 0}") for name, (result, takes) in EXPORTS.items()}


def test_doors():
    assert {*re.findall(r"\./run (\w+)", README)} <= {*re.findall(r"^\./run (\w+)", subprocess.run(
        [ROOT / "run", "help"], capture_output=True, text=True, check=True).stdout, re.M)}
    presets = {preset["name"] for preset in json.loads((ROOT / "CMakePresets.json").read_text())["configurePresets"]}
    assert {*re.findall(r"--preset (\w+)", README)} <= presets
    assert re.search(r"Parts: `([\w ]+)`", README)[1].split() == list(run_all.PARTS)


def test_commands(folder):
    lines = [words for shell in blocks(README, "sh") for words in commands("", shell)]
    lines += [words for shell in blocks(README, "") for words in commands("$ ", shell)]
    lines += [inline.split() for inline in re.findall(r"`(emailsend [^`]*--[^`]+)`", README)]
    product, sent = Product("so"), 0
    with receiver_with_login(folder, "secret") as receiver:
        for program, *words in lines:
            assert program == "emailsend", f"nobody runs {program}"
            if "--host" in words:
                words = [value for before, value in zip([None, *words], words) if "--port" not in (before, value)]
                words[words.index("--host") + 1] = "127.0.0.1"
                words += ["--port", receiver.port]
            done = programs.run(product, product.program, *words, cwd=folder)
            if "NTLM" in words:  # which this server does not have
                assert done.code == LOGIN_REFUSED and "Unrecognized authentication type" in done.err, done
                continue
            assert done.code == 0, f"{words}: {done}"
            sent += "--html" in words
    assert sent == len(receiver.messages) > 2


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_page(page, folder):
    text = page.read_text()
    for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", text):
        assert (page.parent / link).exists(), link
    product, file = Product("so"), folder / "emailsending.ini"
    for settings in blocks(text, "ini"):
        file.write_text(settings)
        file.chmod(0o600)
        done = programs.run(product, product.program, "settings", "check", file)
        assert (done.code, done.err) == (0, ""), settings
