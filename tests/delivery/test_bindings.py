"""What tools/bindings.py makes for each language, held against the libraries themselves. Basic and Delphi
have no compiler here: their declarations are read, and so is what C# and Pascal have for Windows."""
import collections
import pathlib
import re
import shlex
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = map(str, (ROOT / "tests/fixtures", ROOT / "tools"))
import binaries  # noqa: E402
import bindings  # noqa: E402
from products import EXPORTS  # noqa: E402
from receiver import Receiver  # noqa: E402
from servers import free_port  # noqa: E402

MACHINES = {"x86": ("i686", "win32"), "x64": ("x86_64", "win64")}
UTF8 = {"setFromAddress", "setRecipient", "setCC", "setBCC", "setSubject", "setBody", "setLogo", "setAttachment"}
NATIVE = {"LC_ALL": "C.UTF-8", "PATH": "/usr/bin:/bin", "LD_LIBRARY_PATH": str(ROOT / "build/native")}


def run(*command, **options):
    done = subprocess.run(list(map(str, command)), capture_output=True, timeout=120, **options)
    assert done.returncode == 0, (done.stdout + done.stderr).decode(errors="replace")
    return done.stdout.decode()


def shell(line, folder, **words):
    line = line.format(**{name: shlex.quote(str(word)) for name, word in words.items()})
    run("sh", "-c", line, cwd=folder, env=NATIVE)


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    folder = tmp_path_factory.mktemp("made")
    run("/usr/bin/python3", ROOT / "tools/bindings.py", folder)
    return folder


@pytest.fixture(scope="module")
def sessions(wine_session, wine64_session):
    return {"x86": wine_session, "x64": wine64_session}


def dll_of(machine):
    return ROOT / "build" / MACHINES[machine][1] / "emailsending.dll"


def dll_names(machine):
    return {*binaries.PeFile(dll_of(machine).read_bytes()).exports()}


# ---- Declarations. What a list says of one function, and how many bytes its types have in 32 and 64 bits.

TYPES = {(4, 4): "_NUMBER int Integer Long", (4, 8): "_TEXT IntPtr PAnsiChar String LongPtr", (0, 0): "None void"}
SIZES = {name: sizes for sizes, names in TYPES.items() for name in names.split()} | {"": (0, 0), None: (0, 0)}
BASIC = (r'Declare (?:PtrSafe )?\w+ dll_\w+ Lib "emailsending.dll" Alias "(?P<export>\S+)" '
         r'\((?:ByVal \w+ As (?P<takes>\w+))?\)(?: As (?P<gives>\w+))?$')
PASCAL = (r"(?:procedure|function) dll_\w+(?:\(\w+: (?P<takes>\w+)\))?(?:: (?P<gives>\w+))?;\n.*; external DLL "
          r"name Before \+ '(?P<export>\w+)' \+ Bytes\d;$")
CSHARP = r'EntryPoint = "(?P<export>\S+)",.*\n +public static extern (?P<gives>\w+) \w+\((?P<takes>\w*)'
VBNET = (r'EntryPoint:="(?P<export>\S+)",.*\n +Public Shared \w+ \w+\((?:ByVal \w+ As (?P<takes>\w+))?\)'
         r'(?: As (?P<gives>\w+))?$')
PYTHON = r'"%s": \("%s", (?P<gives>\w+), \[(?P<takes>\w*)\]\)'
# Language, what is to be found in its text, the machine of each list there.
LISTS = [
    ("vb6", BASIC, ["x86"]), ("vba", BASIC, ["x64", "x86", "x86"]),
    ("csharp", CSHARP, ["x64", "x86"]), ("vbnet", VBNET, ["x64", "x86"]),
    ("python", PYTHON % (r"\w+", r"(?P<export>\S+)"), ["x86"]),
    ("python", PYTHON % (r"(?P<export>\w+)", r"\S+"), ["x64"]),
    ("pascal", PASCAL, ["x64"]),  # the names in 32 bits are the compiler's affair, below
]


def text_of(made, language):
    path, = (made / "bindings" / language).iterdir()
    return path.read_bytes().decode("ascii").replace("\r\n", "\n")


@pytest.mark.parametrize("language, pattern, machines", LISTS)
def test_declarations_are_those_of_the_dll(made, language, pattern, machines):
    text = text_of(made, language)
    rows = list(re.finditer(pattern, text, re.M))
    assert len(rows) == len(machines) * len(EXPORTS)
    for number, machine in enumerate(machines):
        listed = rows[number * len(EXPORTS):][:len(EXPORTS)]
        assert {row["export"] for row in listed} == dll_names(machine)
        wide = machine == "x64"
        for row, (name, (result, argument)) in zip(listed, EXPORTS.items()):
            assert re.fullmatch(rf"_?{name}(@\d+)?", row["export"])
            expected = [0 if kind in ("", "void") else 8 if wide and "char" in kind else 4
                        for kind in (argument, result)]
            assert [SIZES[row["takes"]][wide], SIZES[row["gives"]][wide]] == expected, name
            if not wide:
                assert row["export"].endswith(f"@{SIZES[row['takes']][0]}")


@pytest.mark.parametrize("machine, defined", [("x86", ["-dMSWINDOWS", "-dWIN32"]), ("x64", ["-dMSWINDOWS", "-dWIN64"])])
def test_pascal_looks_for_the_names_of_the_dll(made, tmp_path, machine, defined):
    run("fpc", *defined, "-Cn", f"-FU{tmp_path}", made / "bindings/pascal/emailsending.pas", env=NATIVE)
    wanted = run("nm", "-u", tmp_path / "emailsending.o").split()
    assert {name for name in wanted if name.strip("_").split("@")[0] in EXPORTS} == dll_names(machine)


# Language: the functions whose texts become UTF-8; what runs is tested below, with a charset that tells.
MADE_UTF8 = {
    "vb6": r"bytes = Utf8\(\w+\)\n +.*?dll_(\w+)", "vba": r"bytes = Utf8\(\w+\)\n +.*?dll_(\w+)",
    "csharp": r"Text\.Utf8\(\w+\)\)\n.*X86\.(\w+)", "vbnet": r"HeldText\.InUtf8\(\w+\)\n.*X86\.(\w+)",
    "pascal": r"(\w+)\(const \w+: UTF8String\)(?:: Boolean)?;\nbegin",
}


@pytest.mark.parametrize("language", MADE_UTF8)
def test_texts_of_the_message_alone_become_utf8(made, language):
    text = text_of(made, language)
    assert sorted(re.findall(MADE_UTF8[language], text)) == sorted(UTF8)
    assert re.search(r"\WANSI texts: setSmtpHost, .*\n.*\n.*\WUTF-8 texts: setFromAddress,", text)


@pytest.mark.parametrize("old, new", [
    ("(int port)", "(short port)"), ("(int port)", "(int port, int other)"),
    ("void EMAILSENDING_CALL setBody", "void setBody"),
    ("Windows domain for an NTLM login. ANSI.", "Windows domain."),
    ("Subject. UTF-8;", "Subject. UTF-8 or ANSI;"), ("Returns count.", ""),
    ("/* Subject.", "#pragma once\n/* Subject."), ("setSubject(const", "setBody(const"),
])
def test_a_header_that_is_not_understood_is_refused(old, new):
    header = bindings.header.FILE.read_text()
    assert len(bindings.functions(header)) == len(EXPORTS) and header.count(old) == 1
    with pytest.raises(bindings.NotUnderstood):
        bindings.functions(header.replace(old, new))


# ---- Import libraries.

LINKERS = {
    "microsoft": "clang --target={cpu}-pc-windows-msvc -O1 -I {include} -c bare.c -o bare.obj && "
                 "lld-link /subsystem:console /nodefaultlib bare.obj {made}/emailsending.lib",
    "mingw": "{cpu}-w64-mingw32-gcc -O1 -I {include} bare.c -o bare.exe -nostdlib -e {entry} "
             "{made}/libemailsending.dll.a",
}


def windows_program(session, folder, *command):
    with open(folder / "output.txt", "wb") as out:
        return subprocess.run(session.command(*command), cwd=folder, env=session.env, timeout=180,
                              stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT)


def test_no_file_tells_where_and_when_it_was_made(made, tmp_path):
    run("/usr/bin/python3", ROOT / "tools/bindings.py", "elsewhere", cwd=tmp_path)
    files = [path.relative_to(made) for path in made.rglob("*.*") if path.is_file()]
    assert len(files) == len(bindings.LANGUAGES) + 3 * len(MACHINES)
    assert [file for file in files if (made / file).read_bytes() != (tmp_path / "elsewhere" / file).read_bytes()] == []


@pytest.mark.parametrize("linker", LINKERS)
@pytest.mark.parametrize("machine", MACHINES)
def test_a_linked_program_calls_the_dll(made, sessions, tmp_path, machine, linker):
    values = {"": "", "int": "2", "const char*": '"x"'}
    # Before Initialise they do nothing.
    calls = [f"{name}({values[argument]});" for name, (_, argument) in EXPORTS.items() if name != "Initialise"]
    (tmp_path / "bare.c").write_text("\n".join([
        '#include "emailsending.h"', "int mainCRTStartup(void) {", *calls,
        "return setNoopCount(40) + setDefaultNtlmVersion(2) + Initialise() + szBrisko(); }", ""]))
    (tmp_path / "emailsending.dll").symlink_to(dll_of(machine))
    cpu, entry = MACHINES[machine][0], "_" * (machine == "x86") + "mainCRTStartup"
    shell(LINKERS[linker], tmp_path, cpu=cpu, entry=entry, include=ROOT / "include", made=made / machine)
    imports = binaries.PeFile((tmp_path / "bare.exe").read_bytes()).imports()
    assert {*imports.pop("emailsending.dll")} == dll_names(machine) and not imports
    assert windows_program(sessions[machine], tmp_path, "bare.exe").returncode == 42


# ---- Programs of the folder hosts, each built in a folder of its own.

HOSTS = ROOT / "tests/delivery/hosts"
GXX = "-std=c++17 -Wall -Wextra -Wconversion -Wshadow -Werror -I {made}/cpp -I {made}/c host.cpp"
# Language: the ending of its files, how a program is built, how it is started.
LANGUAGES = {
    "python": (".py", "cp {made}/python/emailsending.py . && ln -s {library}/libemailsending.so .",
               ["/usr/bin/python3", "host.py"]),
    "csharp": (".cs", "mcs -langversion:5 -warnaserror -warn:4 host.cs {made}/csharp/EmailSending.cs",
               ["mono", "host.exe"]),
    "pascal": (".pas", "fpc -vewn -Sew -Fu{made}/pascal -Fl{library} -FU. host.pas", ["./host"]),
    "cpp": (".cpp", f"g++ {GXX} -L {{library}} -lemailsending -o host && "  # and where there are no exceptions
            "g++ -std=c++17 -fno-exceptions -I {made}/c -fsyntax-only -x c++ {made}/cpp/emailsending.hpp", ["./host"]),
}


def build(language, name, made, folder, library, calls=None):
    """The command that starts the program."""
    ending, compiler, start = LANGUAGES[language]
    source = (HOSTS / (name + ending)).read_text()
    if calls is not None:
        source = re.sub("(//|#) CALLS", lambda _: calls, source)
    (folder / f"host{ending}").write_text(source)
    shell(compiler, folder, made=made / "bindings", library=library)
    return start


@pytest.fixture(scope="module")
def recorder(tmp_path_factory):
    """The folder of a library that says how it is called: function, number or bytes."""
    folder = tmp_path_factory.mktemp("recorder")
    code = "#include <stdio.h>\n#include <stdlib.h>\n"
    for name, (result, argument) in EXPORTS.items():
        show = {"": "", "int": 'fprintf(stderr, "%d", a);',
                "const char*": 'while (*a) fprintf(stderr, "%02x", *a++ & 255);'}[argument]
        value = {"void": "", "int": "1"}.get(result, 'getenv("SAID")')
        code += (f'{result} {name}({argument + " a" if argument else "void"}) {{ fputs("{name} ", stderr); {show} '
                 f'fputc(10, stderr); return {value}; }}\n')
    (folder / "recorder.c").write_text(code)
    run("gcc", "-shared", "-fPIC", "-w", "recorder.c", "-o", "libemailsending.so", cwd=folder)
    return folder


LETTER = "ő"
# The methods of C++ in the order of the header; the image comes with the body, attach opens the file first.
METHODS = dict(zip(EXPORTS, (
    "", "session.host", "session.port", "session.user", "session.password", "session.auth_method",
    "session.login_domain", "session.ntlm_version", "session.use_ssl", "session.start_tls", "session.noop_count",
    "session.log_messages", "session.verbose", "message.from", "message.to", "message.cc", "message.bcc",
    "message.subject", "message.html", "", "", "message.reset", "message.send", "")))
# Language: what stands before each name, around a text, behind a call; true.
SPELLING = {"python": ("mail.", '"', "", "True"), "csharp": ("Email.", '"', ";", "true"),
            "pascal": ("", "'", ";", "True"), "cpp": (None, '"', ";", "true")}


def calls_of(language, charset):
    """A call of every function, as the language says it and as the recorder does."""
    prefix, quote, end, true = SPELLING[language]
    for one in bindings.functions(bindings.header.FILE.read_text()):
        name = METHODS[one.name] if prefix is None else prefix + one.name
        shown = LETTER.encode("UTF-8" if one.name in UTF8 else charset).hex()
        value, shown = {"none": ("", ""), "number": ("2", "2"), "flag": (true, "1")}.get(
            one.takes, (quote + LETTER + quote, shown))
        if name and one.result != "text":
            yield f"{name}({value}){end}", [f"{one.name} {shown}"] + ["setLogo "] * (name == "message.html")


@pytest.mark.parametrize("language, charset", [
    *((language, "UTF-8") for language in LANGUAGES), ("python", "ISO-8859-2")])
def test_each_function_reaches_its_own(made, recorder, tmp_path, language, charset):
    calls, expected = zip(*calls_of(language, charset))
    command = build(language, "call", made, tmp_path, recorder, "\n".join(calls))
    # The first is the one that is installed everywhere; Python does not need the other to be.
    env = {**NATIVE, "LC_ALL": "C.UTF-8" if charset == "UTF-8" else f"hu_HU.{charset}", "SAID": LETTER.encode(charset),
           "LD_LIBRARY_PATH": str(recorder), "PYTHONIOENCODING": "utf-8"}
    done = subprocess.run(command, cwd=tmp_path, env=env, capture_output=True, encoding="utf-8", timeout=60)
    assert (done.returncode, done.stdout.strip()) == (0, LETTER), done.stderr
    expected = [*sum(expected, []), "getLastError "]
    if language == "cpp":  # Session and Message begin and end with calls of their own
        expected = ["Initialise ", "ResetEmail ", *expected, "ResetEmail ", "Initialise "]
    assert done.stderr.splitlines() == expected


@pytest.mark.parametrize("language, machine", [
    *((language, "native") for language in LANGUAGES), ("cpp", "x86"), ("cpp", "x64")])
def test_a_message_goes_out_and_failures_are_told(made, request, tmp_path, language, machine):
    (tmp_path / "ő €.txt").write_bytes(b"attached")
    command = build(language, "send", made, tmp_path, ROOT / "build/native")
    if machine in MACHINES:
        session = request.getfixturevalue("sessions")[machine]
        shell(f"{MACHINES[machine][0]}-w64-mingw32-g++-posix {GXX} -static -o host.exe {{library}}", tmp_path,
              made=made / "bindings", library=made / machine / "libemailsending.dll.a")
        (tmp_path / "emailsending.dll").symlink_to(dll_of(machine))

    def told(port, recipient):
        if machine in MACHINES:
            assert windows_program(session, tmp_path, "host.exe", str(port), recipient).returncode == 0
            return (tmp_path / "output.txt").read_text().splitlines()
        return run(*command, port, recipient, cwd=tmp_path, env=NATIVE).splitlines()

    # The classes of C++ refuse a message that lacks something.
    lacks = ["The file cannot be read: no such file.txt", "No address in: ;"] if language == "cpp" else []
    with Receiver(refuse={"no@example.test"}) as server:
        assert told(server.port, "you@example.test") == ["sent", *lacks]
        message, = (received.parsed() for received in server.messages)
        assert (message["subject"], message["from"].addresses[0].display_name) == ("Łódź: 1200 €", "Łukasz")
        assert [(part.get_filename(), part.get_content()) for part in message.iter_attachments()] == [
            ("ő €.txt", "attached")]
        assert "550 5.1.1 <no@example.test>" in told(server.port, "no@example.test")[0]
    port = free_port()
    assert told(port, "you@example.test") == [f"No connection to 127.0.0.1:{port}: Connection rejected.", *lacks]
