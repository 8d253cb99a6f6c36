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

import pytest

from cutter import Cutter
from programs import run
from receiver import Receiver

ADDRESSES = ["--from", "Anna <anna@example.test>", "--to", "bela@example.test"]


def send(product, port, *args, **options):
    return run(product, product.program, "--host", "127.0.0.1", "--port", port, *ADDRESSES, *args,
               **options)


def test_a_whole_message(product, tmp_path):
    body = "<p>Árvíztűrő</p>{LOGO}<p>vége</p>"
    files = {"logo.png": b"\x89PNG\r\n\x1a\n" + bytes(range(256)), "jelentés.bin": bytes(70000),
             "plain.txt": b"one line\r\n"}
    for name, content in files.items():
        (tmp_path / name).write_bytes(content)
    (tmp_path / "body.html").write_bytes(b"\xef\xbb\xbf" + body.encode())
    with Receiver() as receiver:
        done = send(product, receiver.port, "--to", "cili@example.test", "--cc", "dora@example.test",
                    "--bcc", "elek@example.test", "--subject", "Őszi jelentés", "--html", "body.html",
                    "--logo", "logo.png", "--attach", "jelentés.bin", "--attach", "plain.txt",
                    "--log", cwd=tmp_path)
    assert (done.code, done.out, done.err) == (0, "", "")

    [mail] = receiver.messages
    assert mail.sender == "anna@example.test"
    assert mail.recipients == [f"{name}@example.test" for name in ("bela", "cili", "dora", "elek")]
    message = mail.parsed()
    assert message["Subject"] == "Őszi jelentés"
    assert message["From"].addresses[0].display_name == "Anna"
    assert "elek" not in mail.data.decode("latin-1")
    logo = next(part for part in message.walk() if part["Content-ID"])
    element = (f'<img title="logo" src="cid:{logo["Content-ID"][1:-1]}"'
               ' style="width: 100%; height: auto;">')
    assert message.get_body(("html",)).get_content().strip() == body.replace("{LOGO}", element)
    assert logo.get_content() == files["logo.png"]
    attached = {part.get_filename(): part.get_payload(decode=True) for part in message.iter_attachments()}
    assert attached["jelentés.bin"] == files["jelentés.bin"]
    assert attached["plain.txt"] == files["plain.txt"]
    logged = (tmp_path / "emailsending.log").read_bytes()
    assert logged.startswith(b"--BEGIN SENT TOLVANE EMAIL--\n") and b"Message-ID" in logged


def test_no_server(product):
    with socket.create_server(("127.0.0.1", 0)) as closed:
        port = closed.getsockname()[1]
    done = send(product, port, "--verbose", "--auth", "ntlm", "--user", "Default")  # needs no password
    assert done.code == 1
    assert done.err.startswith("emailsend: the message was not accepted\nTolvaneLog:")


def test_refused_recipient(product):
    with Receiver(refuse=["bela@example.test"]) as receiver:
        done = send(product, receiver.port)
    assert done.code == 1
    assert receiver.messages == []
    assert "RCPT TO:<bela@example.test>" in done.err and "no such mailbox" in done.err


def test_a_recipient_without_an_address_is_noticed_before_anything_is_sent(product):
    with Receiver() as receiver:
        done = send(product, receiver.port, "--cc", "")
    assert (done.code, receiver.connections) == (1, 0)
    assert done.err == 'emailsend: no recipient: ""\n'


FILES = {
    "missing body": (["--html", "missing"], "cannot read the file missing"),
    "missing attachment": (["--attach", "plain", "--attach", "missing"], "cannot read the file missing"),
    "missing logo": (["--html", "plain", "--logo", "missing"], "cannot read the file missing"),
    "missing password": (["--password-file", "missing"], "cannot read the file missing"),
    "a folder": (["--attach", "."], "cannot read the file ."),
    "no file": (["--attach", ""], "--attach names no file"),
    "NUL in the body": (["--html", "zero"], "the body is no UTF-8 text: zero"),
    "body in Latin-1": (["--html", "latin1"], "the body is no UTF-8 text: latin1"),
    "password of two lines": (["--password-file", "lines"], "the file holds more than one line: lines"),
    "a user without a password": (["--user", "me", "--auth", "NTLM"], "--user needs a password"),
    "missing library": (["--library", "missing"], "cannot load the plug-in missing: "),
}


@pytest.mark.parametrize("case", FILES)
def test_files_are_looked_at_first(product, tmp_path, case):
    for name, content in {"plain": b"text", "zero": b"a\0b", "latin1": b"\xe1", "lines": b"a\nb\n"}.items():
        (tmp_path / name).write_bytes(content)
    arguments, error = FILES[case]
    with Receiver() as receiver:
        done = send(product, receiver.port, *arguments, cwd=tmp_path)
    assert done.code == 2
    assert done.err.startswith("emailsend: " + error)
    assert receiver.connections == 0


def test_a_file_beyond_all_memory(dll, tmp_path):
    (tmp_path / "small").write_bytes(b"text")
    with open(tmp_path / "huge", "wb") as huge:
        huge.truncate(3 << 30)
    with Receiver() as receiver:
        done = send(dll, receiver.port, "--attach", "small", "--attach", "huge", cwd=tmp_path)
    assert (done.code, done.err) == (2, "emailsend: there is not enough memory for the file huge\n")
    assert receiver.connections == 0


def test_a_file_that_the_plug_in_cannot_attach(so, tmp_path):
    """So few descriptors are left to the process that the plug-in gets none for the file."""
    (tmp_path / "plain").write_bytes(b"text")
    with Receiver() as receiver:
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
    "unknown option": (["--hots", "h"], 'unknown argument "--hots"'),
    "a word too many": (["--log", "now"], 'unknown argument "now"'),
    "password in the open": (["--password", "x"], 'unknown argument "--password"'),
    "TLS of another kind": (["--tls", "ssl3"], '--tls cannot be "ssl3"'),
    "a login that no function reaches": (["--auth", "XOAUTH2"], '--auth cannot be "XOAUTH2"'),
    "NTLM without a number": (["--ntlm-version", "v2"], '--ntlm-version cannot be "v2"'),
    **{f"port {port!r}": (["--port", port], f'--port cannot be "{port}"')
       for port in ("", "0", "-1", "65536", "25x", " 25", "99999999999")},
}


@pytest.mark.parametrize("case", WORDS)
def test_command_lines_that_make_no_message(so, case):
    arguments, error = WORDS[case]
    done = run(so, so.program, *arguments)
    assert (done.code, done.out) == (2, "")
    assert done.err.startswith("emailsend: " + error)


def test_help_names_every_option(product):
    done = run(product, product.program, "--help")
    assert (done.code, done.err) == (0, "")
    for option in ("host port from to cc bcc subject html logo attach tls user password-file auth domain"
                   " ntlm-version log verbose library").split():
        assert f"--{option} " in done.out


def test_server_settings_must_fit_the_code_page(dll):
    done = run(dll, dll.program, "--host", "h", *ADDRESSES, "--user", "пользователь",
               env={"EMAILSEND_PASSWORD": "secret"})
    assert done.code == 2
    assert done.err.startswith("emailsend: --user has characters")


class Terminal:
    """Context manager: the program on a terminal of its own. `seen` is all that stood on it."""

    def __init__(self, product, port):
        self._master, slave = pty.openpty()
        command = product.command(product.program, "--host", "127.0.0.1", "--port", str(port), *ADDRESSES)
        self.process = subprocess.Popen(command, env=product.env, stdin=slave, stdout=slave, stderr=slave,
                                        preexec_fn=lambda: (os.setsid(), fcntl.ioctl(0, termios.TIOCSCTTY, 0)))
        os.close(slave)
        self.seen = ""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        os.close(self._master)

    def type(self, keys):
        os.write(self._master, keys)

    def read_until(self, text):
        """To the end of the output where the text is None."""
        with contextlib.suppress(OSError):  # the program has gone
            while text is None or text not in self.seen:
                assert select.select([self._master], [], [], 30)[0], self.seen
                self.seen += os.read(self._master, 4096).decode()


def test_a_line_on_the_terminal_while_it_takes_long(so):
    with Receiver() as receiver, Cutter() as cutter:
        with Terminal(so, cutter.line(receiver.port, delay=0.2).port) as terminal:
            terminal.read_until(None)
            assert terminal.process.wait(30) == 0
        assert len(receiver.messages) == 1
    line = "emailsend: sending 0 KB to 127.0.0.1 1 s (Ctrl-C stops)"
    assert terminal.seen.startswith("\r" + line)
    assert terminal.seen.endswith("\r" + " " * len(line) + "\r")


def test_ctrl_c_ends_it_at_once(product):
    with socket.create_server(("127.0.0.1", 0)) as silent, Terminal(product, silent.getsockname()[1]) as terminal:
        terminal.read_until("Ctrl-C stops")
        terminal.type(b"\x03")
        assert terminal.process.wait(10) == 3
        terminal.read_until(None)
    # Wine's console writes control sequences of its own.
    assert "emailsend: sending 0 KB to 127.0.0.1" in terminal.seen
    assert "emailsend: stopped; the server may or may not have the message\r" in terminal.seen


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_without_a_terminal(so, number, tmp_path):
    with socket.create_server(("127.0.0.1", 0)) as silent, open(tmp_path / "err", "w+") as errors:
        process = subprocess.Popen([so.program, "--host", "127.0.0.1", "--port", str(silent.getsockname()[1]),
                                    *ADDRESSES], stdin=subprocess.DEVNULL, stderr=errors)
        silent.accept()
        process.send_signal(number)
        assert process.wait(10) == 3
        errors.seek(0)
        assert errors.read() == "emailsend: stopped; the server may or may not have the message\n"
