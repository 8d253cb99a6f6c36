"""The example settings files: each can be used as it lies there, once the files that it names lie beside it."""
import json
import pathlib
import re
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
import products  # noqa: E402

EXAMPLES = sorted((ROOT / "examples").glob("*.ini"))
SHIPPED = "oauth2.json"


def check(file):
    return subprocess.run([products.Product("so").program, "settings", "check", file.name], cwd=file.parent,
                          capture_output=True, text=True)


def laid(path, content):
    path.write_bytes(content)
    path.chmod(0o600)
    return path


@pytest.mark.parametrize("line_end", ["\n", "\r\n"], ids=["LF", "CRLF"])
@pytest.mark.parametrize("example", EXAMPLES, ids=lambda path: path.stem)
def test_accepted(tmp_path, example, line_end):
    text = example.read_text()
    file = laid(tmp_path / example.name, text.replace("\n", line_end).encode())
    named = re.findall(r"^(?:password-file|oauth2|roots|roots-also) = (\S+)$", text, re.M)
    for name in named:
        laid(tmp_path / name, (ROOT / "examples" / SHIPPED).read_bytes() if name == SHIPPED else b"as the site has it\n")
    done = check(file)
    assert (done.returncode, done.stderr) == (0, "")
    said = [line for line in text.splitlines() if re.match(r"\w", line)]
    assert len(re.findall(r"^  .* = .*(?<!\(profile\))$", done.stdout, re.M)) == len(said)
    for name in named:
        (tmp_path / name).unlink()
        assert f"line {1 + text[:text.index(f' = {name}')].count(chr(10))}: " in check(file).stderr
        laid(tmp_path / name, b"{}")


def test_description_of_a_token_has_all_that_is_needed():
    description = json.loads((ROOT / "examples" / SHIPPED).read_text())
    assert {"token_endpoint", "client_id", "client_secret"} <= {*description}
    assert description["token_endpoint"].startswith("https://") and {*map(type, description.values())} == {str}
