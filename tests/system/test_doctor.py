"""emailsend doctor: what it says of servers that are well and of those that are not, and the settings file it writes."""
import contextlib
import json
import os
import re
import signal
import socket
import ssl
import subprocess
import threading
import time

import pytest

from products import ROOT, Host
from programs import run, start
from receiver import Receiver, server_context
from scripted import ScriptedServer
from servers import dnsmasq, free_port, make_certificate
from test_dns import SERVERS
from test_settings import Watched, certificates  # noqa: F401 (a fixture)
from test_tls_trust import chain  # noqa: F401 (a fixture)

PASSWORD = "hidden-word"
GOLDEN = ROOT / "tests/data/doctor.txt"
# A file that gets what is said now, to be the golden one: with -k "what_it_says and so", after a change of the words.
RECORD = os.environ.get("TV_RECORD_DOCTOR")


def scripted(replies, leaf=None):
    """Answers by the table; with a certificate, EHLO offers STARTTLS."""
    def serve(folder):
        offer = replies.get("EHLO", "250-mail.example.test\r\n" + "250-STARTTLS\r\n" * bool(leaf) +
                            "250-SIZE 10485760\r\n250-AUTH PLAIN\r\n250 DSN\r\n")
        table = {"AUTH": "235 2.7.0 welcome\r\n", **replies, "EHLO": offer}
        shown = folder / f"{leaf}-shown.pem"
        tls = leaf and server_context((shown if shown.exists() else folder / f"{leaf}.pem", folder / f"{leaf}.key"))
        return ScriptedServer(lambda _, command: table.get(command), tls)
    return serve


def old_tls(folder):
    server = scripted({}, "lonely")(folder)
    server.tls.set_ciphers("ALL:@SECLEVEL=0")
    server.tls.minimum_version = server.tls.maximum_version = ssl.TLSVersion.TLSv1
    return server


def chosen_clients(folder):
    """Wants a certificate of the client; before TLS 1.3, where that ends the handshake."""
    server = scripted({}, "lonely")(folder)
    server.tls.load_verify_locations(folder / "root.pem")
    server.tls.verify_mode, server.tls.maximum_version = ssl.CERT_REQUIRED, ssl.TLSVersion.TLSv1_2
    return server


@contextlib.contextmanager
def at_port(number):
    yield type("Server", (), {"port": number})


@contextlib.contextmanager
def refusing(folder):
    """A name server with nobody to ask."""
    with dnsmasq(folder, SERVERS["dnsmasq"], "elsewhere.test", []), at_port(25) as named:
        yield named


@contextlib.contextmanager
def silent(_):
    with socket.create_server(("127.0.0.1", 0)) as server, at_port(server.getsockname()[1]) as named:
        yield named


@contextlib.contextmanager
def drips():
    """A greeting letter by letter, without an end."""
    def drip(taken):
        with contextlib.suppress(OSError):
            while True:
                taken.sendall(b"2")
                time.sleep(0.2)

    def serve(server):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=drip, args=(server.accept()[0],), daemon=True).start()

    with socket.create_server(("127.0.0.1", 0)) as server, at_port(server.getsockname()[1]) as named:
        threading.Thread(target=serve, args=(server,), daemon=True).start()
        yield named


def submission_alone(folder):
    """At an address where nobody listens at the other usual ports."""
    server = Watched(folder, "lonely")
    server.hostname, server.port = "127.9.8.7", 587
    return server


def round_robin(folder):
    """Shows another certificate from the second look on: the first connection is for the address alone."""
    def plan(number, command):
        if command == "GREETING" and number == 2:
            server.tls = scripted({}, "other")(folder).tls
        return first(number, command)

    server = scripted({}, "lonely")(folder)
    first, server.plan = server.plan, plan
    return server


def implicit(folder):
    return Receiver(tls="implicit", context=server_context((folder / "lonely.pem", folder / "lonely.key")))


VERIFY = "[server]\nencryption = starttls\n[certificate]\nroots = {root}\n"
LOGIN, TO = ["--user", "anna", "--password-file", "secret.txt"], ["--to", "bela@example.test"]
# Who is looked at, what the settings file says, further words, exit code, what the last sentence names.
CASES = {
    "healthy": (lambda folder: Watched(folder, "good"), VERIFY, [*TO, "--send"], 0, "Nothing is amiss"),
    "healthy, with a login": (scripted({}, "good"), VERIFY, [*LOGIN, *TO], 0, "with a login"),
    "dead name server": (lambda _: at_port(25), f"[names]\nservers = {SERVERS['nobody']}\n",
                         ["--host", "mail.example.test"], 69, "none of the name servers answers"),
    "name server that refuses": (refusing, f"[names]\nservers = {SERVERS['dnsmasq']}\n",
                                 ["--host", "mail.example.test"], 68, "refuses to answer this host (REFUSED)"),
    "no port named": (submission_alone, None, ["--host", "127.9.8.7"], 0, "issued for another host"),
    "closed port": (lambda _: at_port(free_port()), None, [], 69, "Connection rejected"),
    "silent port": (silent, None, [], 69, "greeting failed: The server said nothing for 2 s"),
    "TLS where clear text was asked for": (implicit, None, [], 76, "expects TLS from the first byte"),
    "clear text where TLS was asked for": (scripted({}, "lonely"), None, ["--tls", "implicit"], 76, "speaks clear text first"),
    "TLS 1.0 alone": (old_tls, None, [], 0, "no version of TLS that is still safe"),
    "client certificate": (chosen_clients, None, ["--tls", "starttls"], 76, "a client certificate was asked for"),
    "expired": (lambda folder: Watched(folder, "expired"), VERIFY, [], 77, "The certificate has expired"),
    "signed by itself": (scripted({}, "lonely"), None, LOGIN, 0, "signed by itself"),
    "wrong name": (lambda folder: Watched(folder, "other"), VERIFY, [], 77, "was issued for another host"),
    "no login without TLS": (
        scripted({"GREETING": "220 \x1b[31mred\x07 \u202egreen\r\n",
                  "EHLO": "250-mail.example.test\r\n250 STARTTLS\r\n"}), "[server]\nencryption = none\n",
        LOGIN, 77, "the server offers no login on this connection; over TLS it may"),
    "login in clear": (scripted({}), None, LOGIN, 77, "the connection is not encrypted"),
    "wrong password": (scripted({"AUTH": "535 5.7.8 Error: authentication failed\r\n"}, "lonely"), None, LOGIN, 77,
                       "535 5.7.8 Error: authentication failed"),
    "another certificate": (round_robin, None, [*LOGIN, *TO, "--send"], 77, "another certificate than the first"),
    "relay denied": (scripted({"RCPT": "554 5.7.1 <bela@example.test>: Relay access denied\r\n"}, "lonely"), None, TO, 69,
                     "Relay access denied"),
    "relay denied after a login": (
        scripted({"RCPT": "554 5.7.1 <bela@example.test>: Relay access denied\r\n"}, "lonely"), None, [*LOGIN, *TO], 69,
        "The login stood"),
    "no EHLO": (scripted({"EHLO": "504 5.5.1 no EHLO here\r\n", "HELO": "250 mail.example.test\r\n"}), None, [], 0,
                "refuses EHLO"),
    "dripping greeting": (lambda _: drips(), None, [], 69, "(overload, or a tarpit): its reply was not complete after 2 s"),
    "tarpit": (scripted({"EHLO": "250-mail.example.test\r\n"}), None, [], 69, "(overload, or a tarpit): its reply was not complete after 2 s"),
    "full disk": (scripted({"MAIL": "452 4.3.1 Insufficient system storage\r\n"}, "lonely"), None, TO, 75,
                  "Insufficient system storage"),
    "unusable settings": (scripted({}, "lonely"), "[server]\nhots = x\n", LOGIN, 78,
                          '"hots" is no key of [server]; perhaps "host" of [server] is meant. Correct it first: until then'),
}
ON_WINDOWS = ["healthy", "healthy, with a login", "closed port", "signed by itself", "wrong password"]


def golden():
    with open(GOLDEN, encoding="utf-8") as file:
        return dict(re.findall(r"^== (.+)\n((?:(?!== ).*\n)*)", file.read(), re.M))


def masked(text, names):
    text = re.sub(r"^(\w+) +\d+ ms", r"\1 N ms", text, flags=re.M)
    for name, mask in names.items():
        text = re.sub(rf"(?<!\d){re.escape(name)}(?!\d)", lambda _, mask=mask: mask, text)
    for pattern, mask in [(r"Python SMTP [\d.]+\d", "aiosmtpd"), (r"sha256//[\w+/=]+", "PIN"),
                          (r"\d+ days left", "N days left")]:
        text = re.sub(pattern, mask, text)
    return text


class Ward:
    """A folder with what the doctor is told, and the library he looks at."""

    def __init__(self, product, folder):
        self.product, self.folder = product, folder
        (folder / "secret.txt").write_text(PASSWORD + "\n")
        (folder / "secret.txt").chmod(0o600)

    def say(self, text, certs):
        roots = self.product.path(certs / "root.pem")
        (self.folder / "mail.ini").write_text(text.format(root=roots))

    def see(self, *words, **env):
        done = run(self.product, self.product.program, "doctor", "--library", self.product.path(self.product.library),
                   *words, env=env, cwd=self.folder)
        assert PASSWORD not in done.out + done.err and done.err == ""
        return done


@pytest.mark.parametrize("build, case", [(build, case) for build in ("so", "dll") for case in CASES
                                         if build == "so" or case in ON_WINDOWS] + [("dll64", "healthy")])
def test_what_it_says(build, case, request, tmp_path, certificates):  # noqa: F811
    serve, said, words, code, named = CASES[case]
    product = request.getfixturevalue(build)
    ward, env = Ward(product, tmp_path), {}
    if said:
        ward.say(said, certificates)
        env["EMAILSENDING_SETTINGS"] = product.path(tmp_path / "mail.ini")
    with serve(certificates) as server:
        port = ["--port", server.port] if server.port != 587 else []
        words = ["--host", "localhost", *port, "--limit", 2, *words]
        done = ward.see(*words, **env)
    names = {product.path(tmp_path / "mail.ini"): "FILE", product.path(product.library.resolve()): "LIBRARY",
             product.path(product.library.parent) + ("/" if build == "so" else "\\"): "BESIDE/",
             product.path(certificates): "CERTS", SERVERS["nobody"]: "NOBODY", SERVERS["dnsmasq"]: "REFUSING",
             "\\root.pem": "/root.pem", str(server.port): "PORT",
             ", /etc/emailsending.ini": ""}
    text = masked(done.out, names)
    if RECORD and build == "so":
        with open(RECORD, "a", encoding="utf-8") as file:
            file.write(f"== {case}\n{text}")
    last = text.splitlines()[-1]
    assert (named in last, done.code) == (True, code), text
    assert RECORD or text == golden()[case]
    if case == "healthy":
        assert len(server.messages) == 1 and server.messages[0].parsed()["Subject"] == "Test message"


def test_json_says_the_same(so, tmp_path, certificates):  # noqa: F811
    with scripted({"GREETING": '220 "quoted" \\ \x1b[31m\r\n'}, "lonely")(certificates) as server:
        words = ["--host", "localhost", "--port", server.port, "--to", "bela@example.test"]
        plain, told = (Ward(so, tmp_path).see(*words, *more) for more in ([], ["--json"]))
    assert json.loads(told.out)["exitCode"] == told.code
    plain, told = masked(plain.out, {}), json.loads(masked(told.out, {}))
    lines = [f"{step['step']}{f' at {server.port}' * ('port' in step)}: {step['found']}." for step in told["steps"]]
    assert [line.split("ms  ")[1].split(" -> ")[0] for line in plain.splitlines()[:-2]] == lines
    assert told["sentence"] == plain.splitlines()[-1]
    assert '220 "quoted" \\  [31m.' in "".join(lines)


@pytest.mark.parametrize("words, error", [
    (["--port", "0"], '--port cannot be "0"'), (["--send"], "--send needs --to"), (["--host"], "--host needs a value"),
    (["--auth", "FOO"], '--auth cannot be "FOO"'), (["--to=x"], '"x" is no address'),
    (["--hots=x"], 'unknown argument "--hots"'), (["--password-file", "x"], "--password-file needs --user")])
def test_words_that_are_not_understood(so, words, error):
    done = run(so, so.program, "doctor", *words)
    assert (done.code, done.out) == (64, "") and done.err.startswith("emailsend: " + error)


def test_ctrl_c_ends_it(so):
    with socket.create_server(("127.0.0.1", 0)) as quiet, start(
            so, so.program, "doctor", "--json", "--host", "127.0.0.1", "--port", quiet.getsockname()[1],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        for _ in range(2):  # an address by itself, and the one that waits for a greeting
            quiet.accept()
        process.send_signal(signal.SIGINT)
        assert process.communicate(timeout=10) == (b"", b"emailsend: stopped; no message was being sent\n")
        assert process.returncode == 130


class House(Watched):
    """A server that takes mail after a login alone, and logins over TLS alone."""

    def __init__(self, folder, leaf):
        super().__init__(folder, leaf)
        self.logins = []
        self.SMTP_kwargs.update(auth_required=True, authenticator=self.judge)

    def judge(self, server, session, envelope, mechanism, data):
        from aiosmtpd.smtp import AuthResult
        self.logins.append((mechanism, data.login.decode(), session.ssl is not None))
        return AuthResult(success=data.password.decode() == PASSWORD)


def send(product, folder, port, path):
    """By a program that asks for no TLS, no login and no verification."""
    with Host(product, folder, EMAILSENDING_SETTINGS=product.path(path)) as host:
        host.Initialise()
        host.compose(port, "anna@example.test", "bela@example.test")
        return host.szBrisko(), host.error()


@pytest.mark.parametrize("by_file", [True, False])
def test_from_a_look_to_a_send_that_verifies(product, tmp_path, certificates, by_file):  # noqa: F811
    ward, path = Ward(product, tmp_path), tmp_path / "new.ini"
    words = ["--user", "anna"] + ["--password-file", "secret.txt"] * by_file
    (tmp_path / "hosts").write_text("127.0.0.1 mail.house.test\n")
    ward.say("[names]\nhosts = hosts\n", certificates)
    env = {"EMAILSENDING_SETTINGS": product.path(tmp_path / "mail.ini")}
    env |= {} if by_file else {"EMAILSEND_PASSWORD": PASSWORD}
    with House(certificates, "lonely") as server:
        words = ["--host", "mail.house.test", "--port", server.port, *words, "--to", "bela@example.test", "--write",
                 "new.ini"]
        done = ward.see(*words, **env)
        assert done.code == 0 and server.logins == [("LOGIN", "anna", True)], done.out
        text = path.read_text()
        assert path.stat().st_mode & 0o777 == 0o600 or product.name == "dll"
        for said in ("encryption = starttls", "pin = " + (certificates / "pin").read_text(), "lowest = 1.3",
                     "only-encrypted = yes", "user = anna"):
            assert said + "\n" in text
        assert (PASSWORD in text) == (not by_file and product.name == "so")
        assert "the pin holds" in done.out.splitlines()[-1]
        pinned = ward.see("--limit", 5, EMAILSENDING_SETTINGS=product.path(path))
        assert pinned.code == 0 and "Nothing is amiss" in pinned.out.splitlines()[-1], pinned.out
        again = ward.see(*words, **env)
        assert (again.code, path.read_text()) == (78, text) and "is not overwritten" in again.out
        if product.name == "so":
            (tmp_path / "link").symlink_to(tmp_path / "nowhere")
            led = ward.see(*words[:-1], "link", **env)
            assert "is not overwritten" in led.out and not (tmp_path / "nowhere").exists()
        assert send(product, tmp_path, server.port, path) == (1, "") and len(server.messages) == 1
        # Somebody else answers in its place.
        server.tls.load_cert_chain(*make_certificate(tmp_path / "thief", "-addext", "subjectAltName=DNS:localhost"))
        sent, error = send(product, tmp_path, server.port, path)
        assert not sent and "none of those that are pinned" in error and len(server.messages) == 1


def test_ctrl_c_in_the_trial_leaves_no_file(so, tmp_path, certificates):  # noqa: F811
    trial, reached = 3, threading.Event()

    def serve(number, command):
        if (number, command) != (trial, "GREETING"):
            return None
        reached.set()
        return ""

    with ScriptedServer(serve) as server, start(
            so, so.program, "doctor", "--host", "localhost", "--port", server.port, "--write", "new.ini", cwd=tmp_path,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        assert reached.wait(10)
        process.send_signal(signal.SIGTERM)
        assert process.communicate(timeout=10)[1] == b"emailsend: stopped; no message was being sent\n"
    assert process.returncode == 130 and not list(tmp_path.iterdir())


OFFERS_TOKENS = {"EHLO": "250-mail.example.test\r\n250-STARTTLS\r\n250 AUTH XOAUTH2\r\n"}
NO_LOGINS = {"EHLO": "250-mail.example.test\r\n250 STARTTLS\r\n"}


@pytest.mark.parametrize("replies, words, said, code", [
    ({"AUTH": "535 5.7.8 no\r\n"}, LOGIN, "", 77),
    (NO_LOGINS, [*LOGIN, "--auth", "PLAIN"], "which the server does not offer", 78),
    (OFFERS_TOKENS, [], "by a token, which is not copied", 78)])
def test_nothing_is_written_of_what_would_not_work(so, tmp_path, certificates, replies, words, said, code):  # noqa: F811
    ward = Ward(so, tmp_path)
    ward.say("" if words else "[server]\nhost = localhost\n[login]\nuser = anna\noauth2 = token.txt\n", certificates)
    (tmp_path / "token.txt").write_text(PASSWORD)
    (tmp_path / "token.txt").chmod(0o600)
    with scripted(replies, "lonely")(certificates) as server:
        done = ward.see("--host", "localhost", "--port", server.port, *words, "--write", "new.ini",
                        EMAILSENDING_SETTINGS=so.path(tmp_path / "mail.ini"))
    assert (done.code, said in done.out.splitlines()[-1]) == (code, True), done.out
    assert not (tmp_path / "new.ini").exists()


def test_the_login_is_written_as_it_was_made(so, tmp_path, certificates):  # noqa: F811
    """The server would take no other than PLAIN, and lists LOGIN first."""
    ward, path = Ward(so, tmp_path), tmp_path / "new.ini"
    offer = "250-mail.example.test\r\n250-STARTTLS\r\n250 AUTH LOGIN PLAIN\r\n"
    ward.say("[server]\nhelo = desk.house.test\n[login]\ndomain = house\nntlm = 2\nchannel-binding = if-possible\n",
             certificates)
    with scripted({"EHLO": offer}, "lonely")(certificates) as server:
        server.plan = lambda number, command, plan=server.plan: (
            "504 5.5.4 no\r\n" if command == "AUTH" and "PLAIN" not in server.commands[-1][1] else plan(number, command))
        made = ward.see("--host", "localhost", "--port", server.port, *LOGIN, "--auth", "PLAIN", "--write", "new.ini",
                        EMAILSENDING_SETTINGS=so.path(tmp_path / "mail.ini"))
        server.commands.clear()
        again = ward.see(EMAILSENDING_SETTINGS=so.path(path))
    assert made.code == again.code == 0 and "login at" in again.out, again.out
    assert [line.split()[1] for _, line in server.commands if line.startswith("AUTH")] == ["PLAIN"]
    assert {line for _, line in server.commands if line.startswith("EHLO")} == {"EHLO desk.house.test"}
    for said in ("domain = house", "ntlm = 2", "channel-binding = if-possible"):
        assert said + "\n" in path.read_text()
