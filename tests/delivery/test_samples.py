"""The samples, compiled and started by the very lines that the comment at their top gives, in a folder laid
out as what is delivered: what arrives, and what each says when nothing can. Python, C#, Pascal and Java
run on Linux alone, C and C++ as Windows programs, too."""
import collections
import ctypes.util
import re
import shlex
import shutil
import subprocess

import pytest

import programs
from products import ROOT
from receiver import Receiver, receiver_with_login
from servers import free_port

SUBJECT = "Report for Łódź: 1200 €"
TO = "bela@example.test"
MINGW = {"x86": "i686-w64-mingw32-", "x64": "x86_64-w64-mingw32-"}
PLATFORMS = [(language, "linux") for language in ("c", "cpp", "csharp", "java", "pascal", "python")] + [
    (language, bits) for language in ("c", "cpp") for bits in MINGW]
BUILD_SECONDS = 120
# Folders as they are delivered; x86 and x64 have DLL and import library.
Tree = collections.namedtuple("Tree", "include lib lib32 bindings x86 x64 samples")


@pytest.fixture(scope="module")
def tree(linux, windows):
    return Tree(*(linux / name for name in ("include", "lib", "lib32", "bindings")), windows / "x86", windows / "x64",
                linux / "samples")


@pytest.fixture(scope="module")
def samples(tree, tmp_path_factory):
    """A copy of the samples' folder, beside the others of the tree."""
    place = tmp_path_factory.mktemp("delivered")
    for name, folder in tree._asdict().items():
        if name != "samples":
            (place / name).symlink_to(folder)
    return shutil.copytree(tree.samples, place / "samples")


def lines_for(system, source):
    """The commands that the comment at the top of a sample gives for one system."""
    block = re.search(rf"^(?: \*)? ?{system}\b.*:\n((?:(?: \*)? {{5,}}\S.*\n|    \S.*\n)+)", source.read_text(), re.M)
    return re.findall(r"(?: \*)? {4,}(.*)", block[1])


class Sample:
    """One sample, built for one platform; programs.run starts it."""

    def __init__(self, folder, language, platform, wine=None):
        self.folder, self.platform, self.wine, self.library = folder, platform, wine, "../lib"
        self.env = {**(wine.env if wine else {}), "LC_ALL": "C.UTF-8"}
        source, = (folder / language).iterdir()
        if platform == "linux":
            *compiling, self._start = lines_for("Linux", source)
        else:
            name = source.with_suffix(".exe").name
            compiling = [MINGW[platform] + line.replace("x86", platform).replace(name, f"{platform}-{name}")
                         for line in lines_for("Windows", source) if line.startswith(("gcc ", "g++ "))]
            self._start = f"{platform}-{name}"
            assert len(compiling) == 1
        for line in compiling:
            done = subprocess.run(["sh", "-c", line], cwd=folder, timeout=BUILD_SECONDS, capture_output=True, text=True)
            assert done.returncode == 0, f"{line}\n{done.stdout}{done.stderr}"

    def command(self, _, *args):
        if self.wine:
            # The loader of Windows looks into the folder that is current.
            shutil.copy(self.folder.parent / self.platform / "emailsending.dll", self.folder)
            return [ROOT / "cmake/wine.sh", *["--64"] * (self.platform == "x64"), self.folder / self._start, *args]
        words = " mail.example.com 25 me@example.com you@example.com"
        assert words in self._start
        return ["sh", "-c", self._start.replace(words, " " + shlex.join(args)).replace("../lib", self.library)]

    def run(self, port, *more, to=TO):
        """Exit code and all that it prints."""
        done = programs.run(self, None, "127.0.0.1", port, "Zoë <zoe@example.test>", to, *more, cwd=self.folder)
        return done.code, (done.out + done.err).strip()


@pytest.fixture(scope="module", params=PLATFORMS, ids=" ".join)
def sample(request, samples):
    language, platform = request.param
    session = {"x86": "wine_session", "x64": "wine64_session"}.get(platform)
    return Sample(samples, language, platform, session and request.getfixturevalue(session))


def test_mail_arrives(sample, receiver):
    assert sample.run(receiver.port) == (0, "")
    received, = receiver.messages
    assert (received.sender, received.recipients) == ("zoe@example.test", [TO])
    message = received.parsed()
    assert (message["Subject"], str(message["From"]), str(message["To"])) == (SUBJECT, "Zoë <zoe@example.test>", TO)
    html, logo, report = [part for part in message.walk() if not part.is_multipart()]
    assert "Żaneta, " in html.get_content() and f'src="cid:{logo["Content-ID"].strip("<>")}"' in html.get_content()
    assert report.get_filename() == "report.txt"
    for part, name in ((logo, "logo.png"), (report, "report.txt")):
        assert part.get_payload(decode=True) == (sample.folder / name).read_bytes()


def test_one_line_says_what_went_wrong(sample):
    closed = free_port()
    assert sample.run(closed) == (1, f"No connection to 127.0.0.1:{closed}: Connection rejected.")
    code, words = sample.run("abc")  # a port; no other is taken for it
    assert code and "Connection" not in words and "\tat " not in words, words
    with Receiver(refuse=[TO]) as receiver:  # which offers no TLS
        port = receiver.port
        assert sample.run(port) == (1, "NoValidRecipients: No recipient was accepted. "
                                       f"RCPT TO:<{TO}> was answered with: 550 5.1.1 <{TO}>: no such mailbox")
        code, words = sample.run(port, "zoe", "secret")
        assert code == 1 and "STARTTLS" in words and "\n" not in words, words
        code, words = sample.run(port, to=";")
        assert code == 1 and "o address" in words and ";" in words, words
        assert not receiver.messages


@pytest.mark.parametrize("library", ["../none", "../lib32"])
@pytest.mark.parametrize("language", ["csharp", "java", "pascal", "python"])
def test_a_library_that_cannot_be_loaded_is_told(samples, language, library):
    if ctypes.util.find_library("emailsending"):
        pytest.skip("this machine has the library where every program finds it")
    sample = Sample(samples, language, "linux")
    sample.library = library
    code, words = sample.run(free_port())
    assert code and re.search("not there|cannot open|wrong ELF class", words) and "\tat " not in words, words


@pytest.mark.parametrize("name", ["logo.png", "report.txt"])
def test_nothing_goes_out_without_its_files(sample, receiver, name):
    file = sample.folder / name
    content = file.read_bytes()
    file.unlink()
    try:
        code, words = sample.run(receiver.port)
    finally:
        file.write_bytes(content)
    assert code == 1 and name in words and "\n" not in words and not receiver.messages, words


def test_login(sample, tmp_path):
    with receiver_with_login(tmp_path, "jelszó") as receiver:
        assert sample.run(receiver.port, "zoe", "jelszó") == (0, "")
        code, words = sample.run(receiver.port, "zoe", "wrong")
        assert code == 1 and "535" in words and len(receiver.messages) == 1, words


def test_delphi_unit_sends(samples, receiver):
    """By a program that has it, compiled by Free Pascal: Delphi is not to be had here."""
    (samples / "by_unit.pas").write_text(f"""program by_unit;
uses cwstring, ReportMail;
begin Write(SendReport('127.0.0.1', {receiver.port}, 'zoe@example.test', ParamStr(1), '.')) end.
""")
    compiling = "fpc -Fudelphi -Fu../bindings/pascal -Fl../lib -FE. -FU. by_unit.pas".split()
    subprocess.run(compiling, cwd=samples, check=True, stdout=subprocess.DEVNULL)
    for recipient, told in ((TO, ""), (";", "; is no address")):
        assert subprocess.run(["./by_unit", recipient], cwd=samples, env={"LD_LIBRARY_PATH": "../lib"}, text=True,
                              stdout=subprocess.PIPE).stdout == told
    message, = receiver.messages
    assert message.parsed()["Subject"] == SUBJECT


@pytest.mark.parametrize("language", ["vb6", "vba", "vbnet"])
def test_texts_call_what_their_module_has(tree, samples, language):
    source, module = ((folder / language).iterdir() for folder in (samples, tree.bindings))
    source, module = (next(files).read_bytes() for files in (source, module))
    assert source.count(b"\r\n") == (source.count(b"\n") if b"\r\n" in module else 0)
    code = re.sub(rb"'.*|\"[^\"]*\"", b"", source)
    called = {*re.findall(rb"\b(?:[sg]et[A-Z]|sz|send|[tT]elling|Initialise)\w*", code)}
    assert b"setAttachment" in called
    assert called <= {*re.findall(rb"Public (?:Shared )?(?:Sub|Function) (\w+)\(", module)}


def test_page_says_the_lines_of_the_samples():
    folder = ROOT / "samples"
    rows = [line.split("|") for line in (folder / "README.md").read_text().splitlines() if line.startswith("| [")]
    said = [(path, cell.split("`")[1].removesuffix(" ARGS")) for _, name, *cells in rows
            for path in re.findall(r"\((\S+)\)", name) for cell in cells if cell.startswith(" `")]
    assert len(said) == 13
    for path, line in said:
        assert line in (folder / path).read_text(), line
