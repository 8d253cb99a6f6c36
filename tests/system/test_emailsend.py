"""The companion program: what it sends, what it refuses to send, and what it says then."""
import contextlib
import fcntl
import os
import pty
import resource
import select
import signal
import socket
import subprocess
import termios
import time

import pytest

import samples
from products import DELIVERED
from programs import run, start
from receiver import Receiver, receiver_with_login
from scripted import ScriptedServer

FROM, TO = ["--from", "Anna <anna@example.test>"], ["--to", "bela@example.test"]
HOST = ["--host", "127.0.0.1"]


@pytest.mark.parametrize("product", DELIVERED, indirect=True)
def test_the_sample(product, receiver, sample, tmp_path):
    done = run(product, product.program, *HOST, "--port", receiver.port, "--log",
               *sample.command_line(product), cwd=tmp_path)
    assert (done.code, done.out, done.err) == (0, "", "")
    [received] = receiver.messages
    assert received.recipients == [samples.TO, samples.CC, samples.BCC]
    sample.check(received.parsed())
    assert (tmp_path / "emailsending.log").read_bytes().startswith(b"--BEGIN SENT TOLVANE EMAIL--\n")


# Name: options beside the server, sender and a recipient that it refuses; exit code, how stderr begins,
# what else stands there.
FAILURES = {
    "refused recipient": (["--verbose"], 69, "Naming the recipients (RCPT TO) failed: No recipient was accepted. ",
                          ["was answered with: 550", "Correct the refused addresses", "RCPT TO:<bela@example.test>",
                           "no such mailbox"]),
    "in one sentence": ([], 69, "Naming the recipients (RCPT TO) failed: ", ["something has changed.\n"]),
    "no server": (["--port", "1", "--verbose", "--auth", "ntlm", "--user", "Default"],  # no password
                  69, "Connecting to the server failed: No connection to 127.0.0.1:1: Connection rejected. Check host",
                  ["sending it again is safe.\nTolvaneLog:\n", "VerboseLogging: 1"]),
    "no such host": (["--host", "no..such"], 68, "Looking up the server's name failed: ", []),
    "no TLS there": (["--tls=implicit"], 76, "The TLS handshake failed: ", ["encryption = starttls in [server]"]),
    "no address": (["--cc", ""], 64, 'no recipient: ""\n', []),
    **{f"missing after {' '.join(words)}": ([*words, "missing"], 66, "cannot read the file missing: ", [])
       for words in (["--html"], ["--attach", "plain", "--attach"], ["--html", "plain", "--logo"],
                     ["--password-file"])},
    "a folder": (["--attach", "."], 66, "cannot read the file .", []),
    "no file": (["--attach", ""], 66, "--attach names no file", []),
    "NUL in the body": (["--html", "zero"], 66, "the body is no UTF-8 text: zero", []),
    "body in Latin-1": (["--html=latin1"], 66, "the body is no UTF-8 text: latin1", []),
    "two lines": (["--password-file", "lines"], 66, "the file holds more than one line: lines", []),
    **{f"password in {name}": (["--password-file", name], 66, f"the file is no UTF-8 text: {name}", [])
       for name in ("utf16", "latin1")},
    "no password": (["--user", "me", "--auth", "NTLM"], 64, "--user needs a password", []),
    "missing library": (["--library", "missing"], 66, "cannot load the plug-in missing: ", []),
    "on Windows: no library for its bits": (
        ["--library", "plain."], 66, "cannot load the plug-in plain.: it is no library for programs of 32 bits\n", []),
    "logo alone": (["--logo", "plain"], 64, "--logo needs a body", []),
    "sender without @": (["--from", "a"], 64, "--from is missing or no address", []),
    "sender that is no address": (["--from", "@"], 64, "Naming the sender (MAIL FROM) failed: The sender is no", []),
    "no value": (["--host"], 64, "--host needs a value", []),
    "a word too many": (["--log", "now"], 64, 'unknown argument "now"', []),
    "password in the open": (["--password=x"], 64, 'unknown argument "--password=x"', []),
    **{f"{option} {value!r}": ([option, value], 64, f'{option} cannot be "{value}"', [])
       for option, value in [("--tls", "ssl3"), ("--auth", "XOAUTH2"), ("--ntlm-version", "v2"),
                             *(("--port", port) for port in ("", "0", "65536", "25x", " 25",
                                                             "99999999999"))]},
    "on Windows: a file beyond all memory": (
        ["--attach", "huge"], 66, "there is not enough memory for the file huge\n", []),
    "on Windows: a user that does not fit the code page": (
        ["--password-file", "plain", "--user", "пользователь"], 64, "--user has characters", []),
    # So few descriptors are left to the process that the plug-in gets none for the file.
    "on Linux: a file that the plug-in cannot attach": (
        ["--attach", "plain", "--verbose"], 66, "could not attach the file plain\nemailsending: ",
        ["Failed to load file."]),
}


@pytest.mark.parametrize("build, case", [(build, case) for case in FAILURES for build in (
    ["dll"] if "on Windows" in case else ["so"] if "on Linux" in case else ["so", "dll"])])
def test_failures(build, request, tmp_path, case):
    (arguments, code, error, more), product = FAILURES[case], request.getfixturevalue(build)
    for name, content in {"plain": b"text", "zero": b"a\0b", "latin1": b"\xe1", "lines": b"a\nb\n",
                          "utf16": "line\r\n".encode("utf-16"), "huge": b""}.items():
        (tmp_path / name).write_bytes(content)
    os.truncate(tmp_path / "huge", 3 << 30)
    few = {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (6, 6))}
    with Receiver(refuse=["bela@example.test"]) as receiver:
        done = run(product, product.program, *HOST, *FROM, *TO, "--port", receiver.port, *arguments,
                   cwd=tmp_path, **few if "cannot attach" in case else {})
    assert (receiver.messages, done.code, done.out) == ([], code, ""), done.err
    assert done.err.startswith("emailsend: " + error)
    assert all(text in done.err for text in more), done.err
    assert "--verbose" in arguments or "TolvaneLog" not in done.err


# Sender, recipient; command and what the server answers to it; exit code, what is told.
ANSWERS = [
    ("a@x.test", "b@x.test", "RCPT", "550 \x1b[1m\x7f\u009b31m\u202eno\r\n", 69, "was answered with: 550 "),
    ("a@x.test", "b@x.test", "MAIL", "354 go ahead\r\n", 69, "came out of order"),
    ("jözsef@x.test", "b@x.test", None, None, 64, "cannot be the sender: letters outside ASCII"),
    ("a@x.test", "jözsef@x.test", None, None, 64, "cannot be reached: letters outside ASCII"),
]


@pytest.mark.parametrize("sender, recipient, command, answer, code, told", ANSWERS)
def test_what_the_server_answers(product, sender, recipient, command, answer, code, told):
    with ScriptedServer(lambda _, line: answer if line == command else None) as server:
        done = run(product, product.program, *HOST, "--port", server.port, "--from", sender, "--to", recipient, "--verbose")
    assert (done.code, server.taken) == (code, []) and told in done.err, done.err
    assert not set(done.err) & set("\x1b\x7f\u009b\u202e") and done.err.count("\n") > 5


def test_a_password_file_of_a_windows_editor(so, tmp_path):
    (tmp_path / "password").write_bytes("\ufeffsecret é\r\n".encode())
    with receiver_with_login(tmp_path, "secret é") as receiver:
        done = run(so, so.program, *HOST, *FROM, *TO, "--port", receiver.port, "--tls=starttls", "--user=me",
                   "--password-file", tmp_path / "password")
    assert (done.code, len(receiver.messages)) == (0, 1), done.err


def test_who_was_left_out(product):
    with Receiver(refuse=["cili@example.test"]) as receiver:
        done = run(product, product.program, *HOST, *FROM, *TO, "--port", receiver.port, "--cc", "cili@example.test")
    assert (done.code, len(receiver.messages)) == (0, 1)
    assert done.err == "emailsend: not for cili@example.test: the server answered 550\n"


def test_other_ways_to_say_it(product, receiver, tmp_path):
    (tmp_path / "body").write_text("<p>=é</p>", "utf-8")
    with (tmp_path / "body").open("rb") as body:
        done = run(product, product.program, *HOST, *FROM, *TO, f"--port={receiver.port}", "--subject=a=b", "--html", "-",
                   stdin=body)
    assert done == (0, "", "")
    received = receiver.messages[-1].parsed()
    assert received["Subject"] == "a=b" and "=é" in received.get_body().get_content()
    told = {word: run(product, product.program, word) for word in ("--help", "-h", "/?", "--version")}
    assert told["-h"] == told["/?"] == told["--help"] and told["-h"].out.startswith("emailsend: ")
    assert told["--version"] == (0, "emailsend 1.0.0\n", "")


@pytest.mark.parametrize("words, code", [(["--help"], 74), (["doctor", "--help"], 74), (["settings", "sample"], 74),
                                         (["doctor", "--host", "127.0.0.1", "--port", "1"], 69)])
def test_output_that_is_lost(so, words, code):
    with open("/dev/full", "wb") as full, start(so, so.program, *words, stdout=full, stderr=subprocess.PIPE) as process:
        assert process.communicate(timeout=20)[1] == b"emailsend: the output could not be written\n"
    assert process.returncode == code


def test_the_server_of_the_settings_file(so, receiver, tmp_path):
    (tmp_path / "mail.ini").write_text(f"[server]\nhost = 127.0.0.1\nport = {receiver.port}\n")
    (tmp_path / "mail.ini").chmod(0o600)
    done = run(so, so.program, *FROM, *TO, env={"EMAILSENDING_SETTINGS": str(tmp_path / "mail.ini")})
    assert (done.code, len(receiver.messages)) == (0, 1), done.err


def test_what_every_message_needs(so):
    for words, error in {(*FROM, *TO): "--host is missing", (*HOST, *TO): "--from is missing or no address",
                         (*HOST, *FROM): "there is no recipient"}.items():
        done = run(so, so.program, *words)
        assert done.code == 64 and done.err.startswith("emailsend: " + error), words


STOPPED = "emailsend: stopped; the server may or may not have the message"


def on_terminal(product, port, keys=b"", **env):
    """Exit code, and all that stood on the terminal; the keys are typed when the line stands there."""
    master, slave = pty.openpty()
    seen = b""
    command = product.command(product.program, *HOST, *FROM, *TO, "--port", str(port))
    with subprocess.Popen(command, env={**product.env, **env}, stdin=slave, stdout=slave, stderr=slave, preexec_fn=lambda: (
            os.setsid(), fcntl.ioctl(0, termios.TIOCSCTTY, 0))) as process:
        os.close(slave)
        with contextlib.suppress(OSError):  # the program has gone
            while select.select([master], [], [], 20)[0]:
                seen += os.read(master, 4096)
                if b"Ctrl-C stops" in seen:
                    os.write(master, keys)
                    keys = b""
        os.close(master)
        return process.wait(20), seen.decode()


def test_a_line_on_the_terminal_while_it_takes_long(so):
    with ScriptedServer(lambda *_: time.sleep(0.2)) as server:
        code, seen = on_terminal(so, server.port)
    line = "emailsend: sending 0 KB to 127.0.0.1 1 s (Ctrl-C stops)"
    assert code == 0 and len(server.taken) == 1
    assert seen.startswith("\r" + line) and seen.endswith("\r" + " " * len(line) + "\r")


@pytest.mark.parametrize("no_color", ["", "1"])
def test_ctrl_c_ends_it_at_once(product, no_color):
    with socket.create_server(("127.0.0.1", 0)) as silent:
        code, seen = on_terminal(product, silent.getsockname()[1], b"\x03", TERM="xterm", NO_COLOR=no_color)
    red = "\x1b[1;31memailsend:\x1b[0m "
    assert product.wine or (red in seen) == (not no_color)
    seen = seen.replace(red, "emailsend: ")
    # Wine's console writes control sequences of its own.
    assert code == 3 and "emailsend: sending 0 KB to 127.0.0.1" in seen and STOPPED + "\r" in seen


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_without_a_terminal(so, number, tmp_path):
    with socket.create_server(("127.0.0.1", 0)) as silent, start(
            so, so.program, *HOST, *FROM, *TO, "--port", silent.getsockname()[1],
            stderr=subprocess.PIPE, env={"TMPDIR": str(tmp_path)}) as process:
        silent.accept()
        assert list(tmp_path.iterdir())
        process.send_signal(number)
        assert process.communicate(timeout=10)[1].decode() == STOPPED + "\n" and process.returncode == 3
    assert not list(tmp_path.iterdir())


def test_a_closed_terminal_under_nohup(so):
    with ScriptedServer(lambda *_: time.sleep(0.2)) as server, start(
            so, so.program, *HOST, *FROM, *TO, "--port", server.port,
            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)) as process:
        while not server.commands and process.poll() is None:
            time.sleep(0.01)
        process.send_signal(signal.SIGHUP)
        assert (process.wait(20), len(server.taken)) == (0, 1)
