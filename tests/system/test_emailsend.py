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
from programs import run
from receiver import Receiver
from scripted import ScriptedServer

ADDRESSES = ["--from", "Anna <anna@example.test>", "--to", "bela@example.test"]


def send(product, port, *args, **options):
    return run(product, product.program, "--host", "127.0.0.1", "--port", port, *ADDRESSES, *args,
               **options)


def test_the_sample(product, receiver, sample, tmp_path):
    done = run(product, product.program, "--host", "127.0.0.1", "--port", receiver.port, "--log",
               *sample.command_line(product), cwd=tmp_path)
    assert (done.code, done.out, done.err) == (0, "", "")
    [received] = receiver.messages
    assert received.recipients == [samples.TO, samples.CC, samples.BCC]
    sample.check(received.parsed())
    assert (tmp_path / "emailsending.log").read_bytes().startswith(b"--BEGIN SENT TOLVANE EMAIL--\n")


# Name: options beside two recipients and a server that refuses, exit code, connections, how stderr begins.
FAILURES = {
    "refused recipient": (["--verbose"], 1, 2, "the message was not accepted\n"),
    "no server": (["--port", "1", "--verbose", "--auth", "ntlm", "--user", "Default"], 1, 0,  # needs no password
                  "the message was not accepted\nTolvaneLog:"),
    "no address": (["--cc", ""], 1, 0, 'no recipient: ""\n'),
    "missing body": (["--html", "missing"], 2, 0, "cannot read the file missing"),
    "missing file": (["--attach", "plain", "--attach", "missing"], 2, 0, "cannot read the file missing"),
    "missing logo": (["--html", "plain", "--logo", "missing"], 2, 0, "cannot read the file missing"),
    "missing password": (["--password-file", "missing"], 2, 0, "cannot read the file missing"),
    "a folder": (["--attach", "."], 2, 0, "cannot read the file ."),
    "no file": (["--attach", ""], 2, 0, "--attach names no file"),
    "NUL in the body": (["--html", "zero"], 2, 0, "the body is no UTF-8 text: zero"),
    "body in Latin-1": (["--html", "latin1"], 2, 0, "the body is no UTF-8 text: latin1"),
    "two lines": (["--password-file", "lines"], 2, 0, "the file holds more than one line: lines"),
    "no password": (["--user", "me", "--auth", "NTLM"], 2, 0, "--user needs a password"),
    "missing library": (["--library", "missing"], 2, 0, "cannot load the plug-in missing: "),
}


@pytest.mark.parametrize("case", FAILURES)
def test_failures(product, tmp_path, case):
    arguments, code, connections, error = FAILURES[case]
    for name, content in {"plain": b"text", "zero": b"a\0b", "latin1": b"\xe1", "lines": b"a\nb\n"}.items():
        (tmp_path / name).write_bytes(content)
    with Receiver(refuse=["bela@example.test"]) as receiver:
        done = send(product, receiver.port, *arguments, cwd=tmp_path)
    assert (done.code, receiver.connections, receiver.messages) == (code, connections, [])
    assert done.err.startswith("emailsend: " + error)
    assert ("RCPT TO:<bela@example.test>" in done.err and "no such mailbox" in done.err) == (connections > 0)
    assert ("VerboseLogging: 1" in done.err) == (case == "no server")


def test_a_file_beyond_all_memory(dll, receiver, tmp_path):
    with open(tmp_path / "huge", "wb") as huge:
        huge.truncate(3 << 30)
    done = send(dll, receiver.port, "--attach", "huge", cwd=tmp_path)
    assert (done.code, done.err) == (2, "emailsend: there is not enough memory for the file huge\n")
    assert receiver.connections == 0


def test_a_file_that_the_plug_in_cannot_attach(so, receiver, tmp_path):
    """So few descriptors are left to the process that the plug-in gets none for the file."""
    (tmp_path / "plain").write_bytes(b"text")
    done = send(so, receiver.port, "--attach", "plain", cwd=tmp_path,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (6, 6)))
    assert done.code == 2 and receiver.connections == 0
    assert done.err.startswith("emailsend: could not attach the file plain\nemailsending: ")
    assert "Failed to load file." in done.err


WORDS = {
    "nothing": ([], "--host is missing"),
    "no sender": (["--host", "h", "--to", "a@b"], "--from is missing or no address"),
    "sender without @": (["--host", "h", "--to", "a@b", "--from", "a"], "--from is missing"),
    "no recipient": (["--host", "h", "--from", "a@b"], "there is no recipient"),
    "logo alone": (["--host", "h", *ADDRESSES, "--logo", "x"], "--logo needs a body"),
    "no value": (["--host"], "--host needs a value"),
    "a word too many": (["--log", "now"], 'unknown argument "now"'),
    "password in the open": (["--password", "x"], 'unknown argument "--password"'),
    **{f"{option} {value!r}": ([option, value], f'{option} cannot be "{value}"') for option, value in [
        ("--tls", "ssl3"), ("--auth", "XOAUTH2"), ("--ntlm-version", "v2"),
        *(("--port", port) for port in ("", "0", "-1", "65536", "25x", " 25", "99999999999"))]},
}


@pytest.mark.parametrize("case", WORDS)
def test_command_lines_that_make_no_message(so, case):
    arguments, error = WORDS[case]
    done = run(so, so.program, *arguments)
    assert (done.code, done.out) == (2, "")
    assert done.err.startswith("emailsend: " + error)


def test_server_settings_must_fit_the_code_page(dll):
    done = send(dll, 1, "--user", "пользователь", env={"EMAILSEND_PASSWORD": "secret"})
    assert done.code == 2 and done.err.startswith("emailsend: --user has characters")


def on_terminal(product, port, keys=b""):
    """Exit code, and all that stood on the terminal; the keys are typed when the line stands there."""
    master, slave = pty.openpty()
    seen = b""
    with subprocess.Popen(product.command(product.program, "--host", "127.0.0.1", "--port", str(port), *ADDRESSES),
                          env=product.env, stdin=slave, stdout=slave, stderr=slave,
                          preexec_fn=lambda: (os.setsid(), fcntl.ioctl(0, termios.TIOCSCTTY, 0))) as process:
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


STOPPED = "emailsend: stopped; the server may or may not have the message"


def test_ctrl_c_ends_it_at_once(product):
    with socket.create_server(("127.0.0.1", 0)) as silent:
        code, seen = on_terminal(product, silent.getsockname()[1], b"\x03")
    # Wine's console writes control sequences of its own.
    assert code == 3 and "emailsend: sending 0 KB to 127.0.0.1" in seen and STOPPED + "\r" in seen


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_without_a_terminal(so, number):
    with socket.create_server(("127.0.0.1", 0)) as silent, subprocess.Popen(
            [so.program, "--host", "127.0.0.1", "--port", str(silent.getsockname()[1]), *ADDRESSES],
            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as process:
        silent.accept()
        process.send_signal(number)
        assert process.communicate(timeout=10) == (None, STOPPED + "\n") and process.returncode == 3
