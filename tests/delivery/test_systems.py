"""README.md names the oldest systems that emailsend runs on: those that have all versions of functions it asks for."""
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]


def test_emailsend_needs_what_the_readme_says():
    table = subprocess.run(["objdump", "-T", ROOT / "build/native/emailsend"], capture_output=True, text=True, check=True)
    row = re.search(r"^\| `emailsend` on Linux.*", (ROOT / "README.md").read_text(), re.M)[0]
    for library in ("GLIBC", "GLIBCXX"):
        needed = {tuple(map(int, found.split("."))) for found in re.findall(rf"\b{library}_([\d.]+)\)", table.stdout)}
        said = re.search(rf"\b{library}_([\d.]+\d)", row)[1]
        assert max(needed) == tuple(map(int, said.split("."))), library
