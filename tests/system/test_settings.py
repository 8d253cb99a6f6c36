"""The settings file through both libraries, under a program that knows nothing of it: emailsend and the 24 functions."""
import base64
import contextlib
import datetime
import email.policy
import hashlib
import html.entities
import os
import shlex
import shutil
import socket
import socketserver
import ssl
import threading
import time
import types

import pytest

import ntlm_judge
from programs import run
from products import Host
from receiver import Receiver, server_context
from scripted import ScriptedServer
from servers import Server, dnsmasq, make_certificate
from servers import run as run_tool
from test_dns import SERVERS, UNBOUND, VIEW
from test_oauth2 import token_endpoint
from test_tls_trust import chain  # noqa: F401 (a fixture)


@pytest.fixture(scope="module")
def certificates(chain):  # noqa: F811
    """The chain with a certificate that is signed by itself, one that has expired, and a pin by openssl's own hand."""
    make_certificate(chain / "lonely", "-addext", "subjectAltName=DNS:localhost")
    run_tool("openssl", "x509", "-in", chain / "lonely.pem", "-CA", chain / "between.pem", "-CAkey", chain / "between.key",
             "-CAcreateserial", "-days", "-1", "-out", chain / "expired.pem")
    shutil.copy(chain / "lonely.key", chain / "expired.key")
    for leaf in ("good", "other", "expired"):  # servers show what stands between, too
        shown = (chain / f"{leaf}.pem").read_text() + (chain / "between.pem").read_text()
        (chain / f"{leaf}-shown.pem").write_text(shown)
    run_tool("openssl", "pkey", "-in", chain / "lonely.key", "-pubout", "-outform", "DER", "-out", chain / "lonely.der")
    pin = hashlib.sha256((chain / "lonely.der").read_bytes()).digest()
    (chain / "pin").write_text("sha256//" + base64.b64encode(pin).decode())
    return chain


class Watched(Receiver):
    """Notes names, addresses and the number of connections, too."""

    def __init__(self, folder=None, leaf=None, **options):
        self.names, self.peers, self.connections = [], set(), 0
        shown = leaf and folder / f"{leaf}-shown.pem"
        files = leaf and (shown if shown.exists() else folder / f"{leaf}.pem", folder / f"{leaf}.key")
        self.tls = server_context(files) if leaf else None
        super().__init__(tls=leaf and "starttls", context=self.tls, **options)

    def __enter__(self):
        super().__enter__()
        self.connections = 0  # the controller's own first one does not count
        return self

    def factory(self):
        self.connections += 1
        return super().factory()

    async def handle_EHLO(self, server, session, envelope, hostname, responses):
        self.names.append(hostname)
        self.peers.add(session.peer[0])
        return await super().handle_EHLO(server, session, envelope, hostname, responses)


class Site:
    """A machine with a settings file, and a program that sends from it."""

    def __init__(self, product, folder, chain=None):
        self.product, self.file, self.chain = product, folder / "mail.ini", chain

    def say(self, text, mode=0o600):
        if self.chain:
            roots = {name: self.product.path(self.chain / f"{name}.pem") for name in ("root", "stranger")}
            text = text.format(pin=(self.chain / "pin").read_text(), **roots)
        self.file.write_text(text, "utf-8")
        self.file.chmod(mode)

    def send(self, server, *words, host="localhost", sender="a@b.test", to="c@d.test", **env):
        return run(self.product, self.product.program, "--host", host, "--port", server.port, "--from", sender,
                   "--to", to, "--verbose", *words, env={"EMAILSENDING_SETTINGS": self.product.path(self.file), **env})


@pytest.fixture
def site(product, tmp_path):
    return Site(product, tmp_path)


VERIFY = "[server]\nencryption = starttls\n[certificate]\n"
# What the file says, the certificate of the server or None for no TLS, what is told; None: the message goes out.
CASES = {
    "nothing said": ("", "lonely", None),
    "signed by itself": (VERIFY + "verify = yes", "lonely", "not known or not trusted"),
    "issuer unknown": (VERIFY + "roots = {stranger}", "good", "not known or not trusted"),
    "expired": (VERIFY + "roots = {root}", "expired", "has expired"),
    "wrong name": (VERIFY + "roots = {root}", "other", "issued for another host"),
    "the company's root": (VERIFY + "roots = {root}", "good", None),
    "besides the system's roots": (VERIFY + "roots-also = {root}", "good", None),
    "besides the stranger": (VERIFY + "roots = {stranger}\nroots-also = {root}", "good", None),
    "pinned": (VERIFY + "pin = {pin}", "lonely", None),
    "one of the pins": (VERIFY + f"pin = {'0' * 64}, {{pin}}", "lonely", None),
    "another key": (VERIFY + "pin = {pin}", "good", "none of those that are pinned"),
    "pinned but unknown": (VERIFY + "verify = yes\npin = {pin}", "lonely", "not known or not trusted"),
    "known but not pinned": (VERIFY + "roots = {root}\npin = {pin}", "good", "none of those that are pinned"),
    "a pin in clear": ("[server]\nencryption = if-offered\n[certificate]\npin = {pin}", "lonely",
                       '"pin" of [certificate] needs "encryption" of [server]'),
    "an old suite": ("[server]\nencryption = starttls", "AES256-GCM-SHA384", None),
    "no old suite": ("[server]\nencryption = starttls\n[tls]\nold-suites = no", "AES256-GCM-SHA384", "handshake"),
    "no TLS": ("[server]\nencryption = starttls", None, "STARTTLS"),
    "TLS not asked for": ("[certificate]\nverify = yes", None, '"verify" of [certificate] needs "encryption" of [server]'),
    "only new versions": ("[server]\nencryption = starttls\n[tls]\nlowest = 1.3", "lonely", "handshake"),
    "unknown key": ("[server]\nhots = x", None, 'mail.ini cannot be used: line 2: "hots" is no key of [server]'),
}


@pytest.mark.parametrize("case", CASES)
def test_verdicts(product, tmp_path, certificates, case):
    said, leaf, told = CASES[case]
    site = Site(product, tmp_path, certificates)
    site.say(said)
    suite, leaf = (leaf, "signing") if "suite" in case else (None, leaf)
    with Watched(certificates, leaf) as server:
        if suite:
            server.tls.set_ciphers(suite)
        if suite or case == "only new versions":
            server.tls.maximum_version = ssl.TLSVersion.TLSv1_2
        done = site.send(server)
    assert (done.code == 0, len(server.messages)) == ((True, 1) if told is None else (False, 0)), done.err
    assert told is None or told in done.err


@pytest.fixture(scope="module")
def name_servers(certificates):
    """Both know the host that a certificate of the chain is for; unbound proves by another that it is "localhost"."""
    folder = certificates / "names"
    folder.mkdir()
    (folder / "unbound.conf").write_text(UNBOUND.format(
        address=SERVERS["unbound"], certificate=(certificates / "good-shown.pem", certificates / "good.key"), zone=MAIL,
        records=f"local-data: '{MAIL}. A 127.0.0.1'", broken="broken.example", refuses=SERVERS["dnsmasq"]))
    with dnsmasq(folder, SERVERS["dnsmasq"], MAIL, [f"host-record={MAIL},127.0.0.1"]), Server(
            folder, ["unbound", "-d", "-c", folder / "unbound.conf"], "start of service"):
        yield


MAIL, ROOT = "other.test", "[server]\nencryption = starttls\n[certificate]\nroots = {root}\n"
DNSMASQ, UNBOUND_TLS = SERVERS["dnsmasq"], "tls://" + SERVERS["unbound"]
# What the file says, and what is told; None: the message goes out.
NAMES = {
    "in clear": (f"servers = {DNSMASQ}", None),
    "the second one": (f"servers = {SERVERS['nobody']}\nservers = {DNSMASQ}", None),
    "over TLS": (f"servers = {UNBOUND_TLS}", None),
    "proven": (f"servers = {UNBOUND_TLS}#localhost\n{ROOT}", None),
    "another name": (f"servers = {UNBOUND_TLS}#dns.test\n{ROOT}", "issued for another host"),
    "not by these roots": (f"servers = {UNBOUND_TLS}#localhost", "not known or not trusted"),
    "not over TLS": (f"servers = tls://{DNSMASQ}", "none of the nameservers support DoT"),
    "nobody": (f"servers = {SERVERS['nobody']}", "DNS lookup failed"),
    "of the file": (f"hosts = hosts.txt\nservers = {SERVERS['nobody']}", None),
    "for IPv6": (f"servers = {DNSMASQ}\n[server]\nfamily = ipv6", "no IPv6 address"),
}


@pytest.mark.parametrize("case", NAMES)
def test_names(product, tmp_path, certificates, name_servers, case):
    said, told = NAMES[case]
    site = Site(product, tmp_path, certificates)
    (tmp_path / "hosts.txt").write_text(f"127.0.0.1 {MAIL}\n")
    site.say(f"[names]\n{said}\n")
    with Watched(certificates, "other") as server:
        done = site.send(server, host=MAIL)
        assert (done.code == 0, bool(server.connections)) == (told is None, told is None), done.err
    assert (told or "") in done.err and "systemResolver" not in done.err


def test_names_of_token_endpoints(product, tmp_path, certificates, name_servers):
    site = Site(product, tmp_path, certificates)
    leaf = certificates / "other-shown.pem", certificates / "other.key"
    with Watched(certificates, "other") as server, token_endpoint(leaf) as (forms, description):
        (tmp_path / "token.json").write_text(description.replace("127.0.0.1", MAIL))
        (tmp_path / "token.json").chmod(0o600)
        site.say(f"[server]\nhost = {MAIL}\nport = {server.port}\n[login]\nuser = anna\noauth2 = token.json\n"
                 f"[names]\nservers = {UNBOUND_TLS}#localhost\n{ROOT}")
        done = site.send(server)
    assert len(forms) == 1, done.err


@pytest.mark.parametrize("name, hosts, told", [
    ("pc17.example.test", "", "pc17.example.test"), ("pc17", "127.0.1.1 pc17.example.test pc17", "pc17.example.test"),
    ("pc17", "127.0.1.1 pc17.local pc17", "[127.0.0.1]")])
def test_own_name(so, tmp_path, name, hosts, told):
    site = Site(so, tmp_path)
    site.say("[server]\ntrial = never\nhelo = DNS\n")
    (tmp_path / "hosts").write_text(f"127.0.0.1 localhost\n{hosts}\n")
    with Watched() as server:
        done = run(so, "unshare", "--uts", "--mount", "--propagation", "private", "sh", "-c", f"hostname {name} && {VIEW}",
                   "sh", "/dev/null", tmp_path / "hosts", so.program, "--host", "127.0.0.1", "--port", server.port,
                   "--from", "a@b.test", "--to", "c@d.test", env={"EMAILSENDING_SETTINGS": str(site.file)})
    assert (done.code, server.names) == (0, [told]), done.err


def test_connection_and_message(site):
    site.say("[server]\nhelo = pc17.example.test\nlocal-address = 127.0.0.9\nfamily = ipv4\n[log]\nsent-mail = sent.log\n")
    with Watched() as server:
        assert site.send(server).code == 0
    assert server.names == ["pc17.example.test"] * 2  # the trial and the send
    assert server.peers == {"127.0.0.9"}
    assert b"--BEGIN SENT TOLVANE EMAIL--" in (site.file.parent / "sent.log").read_bytes()


@pytest.mark.parametrize("said, code", [("", 3), ("acceptance-timeout = 10 s", 0),
                                        ("acceptance-timeout = 10 s\ntotal-timeout = 1 s", 3)])
def test_a_server_that_thinks(site, said, code):
    def plan(_, command):
        return time.sleep(1.6) if command == "." else None
    site.say(f"[server]\nidle-timeout = 1 s\n{said}\n")
    with ScriptedServer(plan) as server:
        assert site.send(server).code == code


def test_a_server_that_cannot_be_reached(site):
    """Its queue is full, so that nothing answers."""
    site.say("[server]\nconnect-timeout = 1 s\n")
    with contextlib.ExitStack() as stack:
        listener = stack.enter_context(socket.socket())
        listener.bind(("127.0.0.1", 0))
        listener.listen(0)
        for _ in range(3):
            waiting = stack.enter_context(socket.socket())
            waiting.setblocking(False)
            waiting.connect_ex(listener.getsockname())
        start = time.monotonic()
        done = site.send(types.SimpleNamespace(port=listener.getsockname()[1]), host="127.0.0.1")
    assert done.code == 69 and 1 <= time.monotonic() - start < 15, "30 s without the key"
    assert "ConnectFailReason" in done.err or "connect" in done.err


@pytest.mark.parametrize("offer, asked", [("DSN", " NOTIFY=FAILURE,DELAY"), ("HELP", "")])
def test_delivery_report(site, tmp_path, offer, asked):
    def plan(_, command):
        return f"250-here\r\n250 {offer}\r\n" if command == "EHLO" else None
    site.say("[message]\ndelivery-report = failure\ndelivery-report = Delay\n[log]\ndebug = debug.log\n")
    with ScriptedServer(plan) as server:
        assert site.send(server).code == 0
    assert [line for _, line in server.commands if line.startswith("RCPT")] == ["RCPT TO:<c@d.test>" + asked]
    assert ("Warning: No delivery report" in (tmp_path / "debug.log").read_text()) == (not asked)


# What the file says, the host's sender, and what arrives: sender and recipients of the envelope, fields of the header.
@pytest.mark.parametrize("said, host, sender, to, fields", [
    ("from = Desk <d@e.test>", "a@b.test", "a@b.test", ["c@d.test"], {"From": "a@b.test", "Reply-To": None}),
    ("from-always = D\u00e9sk <d@e.test>", "a@b.test", "d@e.test", ["c@d.test"],
     {"From": "D\u00e9sk <d@e.test>", "Reply-To": "a@b.test"}),
    ("from-always = d@e.test\nreply-to = f@g.test", "a@b.test", "d@e.test", ["c@d.test"], {"Reply-To": "f@g.test"}),
    ("envelope-sender = bounces@e.test", "a@b.test", "bounces@e.test", ["c@d.test"], {"From": "a@b.test"}),
    ("bcc = h@i.test, j@k.test\nbcc = l@m.test", "a@b.test", "a@b.test",
     ["c@d.test", "h@i.test", "j@k.test", "l@m.test"], {"To": "c@d.test", "Bcc": None}),
    ("header = X-Site: 17\nheader = X-Word: \u00e1", "a@b.test", "a@b.test", ["c@d.test"],
     {"X-Site": "17", "X-Word": "\u00e1"}),
    ("text-alternative = yes", "a@b.test", "a@b.test", ["c@d.test"], {}),
    ("[test]\nredirect = me@n.test", "a@b.test", "a@b.test", ["me@n.test"], {"To": "c@d.test"})])
def test_what_arrives(site, tmp_path, said, host, sender, to, fields):
    site.say(f"[message]\nmessage-id-domain = sender\n{said}\n")
    for name, content in {"a.html": "<title>x</title><p>Kedves &Odblac;rs!{LOGO}", "a.png": "logo", "a.txt": "file"}.items():
        (tmp_path / name).write_text(content)
    html, logo, file = (site.product.path(tmp_path / f"a.{end}") for end in ("html", "png", "txt"))
    with Watched() as server:
        done = site.send(server, "--html", html, "--logo", logo, "--attach", file, sender=host)
    assert done.code == 0, done.err
    [message] = server.messages
    header = message.parsed()
    assert (message.sender, message.recipients) == (sender, to)
    assert {name: header[name] and str(header[name]) for name in fields} == fields
    plain = header.get_body(("plain",))
    assert (plain and plain.get_content().splitlines()) == (["Kedves \u0150rs!"] if "text-" in said else None)
    assert [part.get_content_type() for part in header.get_body().iter_parts()] == ["text/html", "image/png"]
    assert [part.get_content() for part in header.iter_attachments()] == ["file"]
    assert str(header["Message-ID"]).endswith("@" + str(header["From"]).split("@")[1].strip(">") + ">")


def test_names_of_characters(site, tmp_path):
    """Each of HTML 4, but for blanks and marks that a plain text does not show."""
    site.say("[message]\ntext-alternative = yes\n")
    shown = {name: chr(code) for name, code in html.entities.name2codepoint.items() if chr(code).isprintable()}
    (tmp_path / "a.html").write_text("".join(f"<p>{name}: &{name};" for name in shown))
    with Watched() as server:
        assert site.send(server, "--html", site.product.path(tmp_path / "a.html")).code == 0
    plain = server.messages[0].parsed().get_body(("plain",)).get_content()
    assert len(shown) > 240 and [line for line in plain.splitlines() if line] == [f"{name}: {sign}" for name, sign in shown.items()]


# What readers, filters and servers of today like best, and the same message as it is without it.
@pytest.mark.parametrize("modern", [True, False])
def test_profile(site, tmp_path, modern):
    site.say("profile = modern\n" if modern else "")
    (tmp_path / "list.txt").write_bytes(b"one\ntwo\n")
    (tmp_path / "log\u00f3.png").write_bytes(b"\x89PNG\r\n")
    (tmp_path / "body.html").write_text("<html><body><p>words</p>{LOGO}</body></html>")
    with Watched() as server:
        done = site.send(server, "--html", site.product.path(tmp_path / "body.html"), "--logo",
                         site.product.path(tmp_path / "log\u00f3.png"), "--attach", site.product.path(tmp_path / "list.txt"))
    assert done.code == 0, done.err
    message = server.messages[0].parsed()
    parts = {part.get_filename() or part.get_param("name") or part.get_content_type(): part for part in message.walk()}
    text, logo = parts["list.txt"], next(part for part in message.walk() if part.get_content_type() == "image/png")
    assert not modern or logo.get_filename() == "log\u00f3.png"
    assert (b' filename="log_.png"\r\n' in server.messages[0].data) == modern
    assert (b"\r\nTo: <c@d.test>\r\n" in server.messages[0].data, message["Subject"]) == (modern, "" if modern else None)
    assert logo.get_content_disposition() == ("inline" if modern else None) and logo["Content-ID"]
    assert (text["Content-Transfer-Encoding"], text.get_param("charset")) == (
        ("base64", None) if modern else ("quoted-printable", "us-ascii"))
    assert message["Message-ID"].endswith("@b.test>") == modern


def test_folder_in_place_of_a_server(site, tmp_path):
    (tmp_path / "out box").mkdir()
    site.say("[message]\nbcc = e@f.test\n[test]\nfolder = out box\n")
    with Watched() as server:
        assert [site.send(server).code for _ in range(2)] == [0, 0] and server.connections == 0
    first, second = sorted((tmp_path / "out box").glob("*.eml"))
    message = email.message_from_bytes(first.read_bytes(), policy=email.policy.default)
    assert (message["Return-Path"], message.get_all("X-Envelope-To")) == ("<a@b.test>", ["<c@d.test>", "<e@f.test>"])
    assert message["To"] == "c@d.test" and message["Message-ID"] not in second.read_text()
    (tmp_path / "out box").rename(tmp_path / "gone")
    assert '"folder" of [test]' in site.send(server).err


def test_logs_of_sends_and_failures(site, tmp_path, certificates):
    (tmp_path / "bad").mkdir()
    (tmp_path / "bad" / "notes.log").write_text("not ours")
    site.say("[log]\nsends = sends.log\nsize = 3 KB\nfailures = bad\nkeep = 2\n")
    with Watched(certificates, "good", refuse=["no@d.test"]) as server:
        assert site.send(server, "--to", "no@d.test", "--subject", "x").code == 0
        for _ in range(3):
            assert site.send(server, to="no@d.test").code == 69
        lines = (tmp_path / "sends.log").read_text().splitlines()
        for _ in range(12):
            site.send(server)
    good, bad = shlex.split(lines[0]), shlex.split(lines[1])
    assert good[1:7] == ["outcome=sent", f"server=localhost:{server.port}", "address=127.0.0.1",
                         "tls=TLS 1.3 TLS_AES_256_GCM_SHA384", "sender=a@b.test", "to=c@d.test 250"]
    assert "to=no@d.test 550" in good and "reply=250 2.0.0 accepted" in good
    assert bad[1] == "outcome=refused" and "failure=No recipient was accepted." in lines[1].replace('"', "")
    datetime.datetime.fromisoformat(good[0].removeprefix("time="))
    assert len(lines) == 4 and 2000 < (tmp_path / "sends.log.1").stat().st_size <= 3072
    names = sorted(path.name for path in (tmp_path / "bad").iterdir())
    assert len(names) == 3 and names[-1] == "notes.log"
    assert "550 5.1.1 <no@d.test>: no such mailbox" in (tmp_path / "bad" / names[0]).read_text()


def test_every_attempt_has_its_line(site, tmp_path):
    """Also one that failed before a transaction: by the trial, without one, by the file, by an attachment."""
    said = "[log]\nsends = sends.log\nmessage-box = no\n[message]\nmissing-attachment = refuse\nfrom-always = d@e.test\n"
    def plan(_, command):
        return "554 5.3.2 not you\r\n" if command == "GREETING" else None
    with ScriptedServer(plan) as server, Host(
            site.product, tmp_path, EMAILSENDING_SETTINGS=site.product.path(site.file)) as host:
        site.say(said)
        host.Initialise()
        host.compose(server.port, "a@b.test", "c@d.test")
        for more in ("", "[server]\ntrial = never", "[certificate]\nverify = yes", "[nonsense]"):
            site.say(said + more)
            assert host.szBrisko() == 0
        site.say(said + "[server]\ntrial = never")
        host.setAttachment("not-there")
        assert host.szBrisko() == 0
    lines = [shlex.split(line) for line in (tmp_path / "sends.log").read_text().splitlines()]
    told = ["not you", "not you", 'needs "encryption"', "is no section", "not-there could not be read"]
    for line, word, outcome in zip(lines, told, ["refused"] * 2 + ["not-sent"] * 3, strict=True):
        assert line[1:3] == [f"outcome={outcome}", f"server=127.0.0.1:{server.port}"], line
        assert {"sender=d@e.test", "to=c@d.test"} < set(line) and line[-1].startswith("failure=") and word in line[-1]
        assert ("address=127.0.0.1" in line) == (outcome == "refused")


# What the file says, and what the host's setLogging and it leave; nothing that cannot be written stops the mail.
@pytest.mark.parametrize("said, files", [
    ("sent-mail = host", {"emailsending.log"}), ("sent-mail = off", set()),
    ("sent-mail = own.log\ndebug = debug.log", {"own.log", "debug.log"}),
    ("sent-mail = .\ndebug = none/x.log\nsends = .\nfailures = none", set())])
def test_files_of_logs(site, tmp_path, said, files):
    site.say(f"[log]\n{said}\n")
    with Watched() as server, Host(site.product, tmp_path, EMAILSENDING_SETTINGS=site.product.path(site.file)) as host:
        host.Initialise()
        host.setLogging()
        host.compose(server.port, "a@b.test", "c@d.test")
        assert (host.szBrisko(), host.error(), len(server.messages)) == (1, "", 1)
    assert {path.name for path in tmp_path.glob("*.log")} == files
    for name in files - {"debug.log"}:
        assert b"--BEGIN SENT TOLVANE EMAIL--" in (tmp_path / name).read_bytes()
    if "debug.log" in files:
        log = (tmp_path / "debug.log").read_text()
        assert "    DllDate: " in log
        assert log.startswith("VerifySmtpConnection:\n    DllDate: ") and "\nSendEmail:\n" in log


# What the server has heard when it is over, and what the program was told.
@pytest.mark.parametrize("said, refuse, code, heard, told", [
    ("check-size = yes", "-", 69, ["EHLO"], "takes 99 at most, as it announced (SIZE)"),
    ("check-size = no", "-", 0, ["EHLO", "MAIL", "RCPT", "RCPT", "DATA"], ""),
    ("all-recipients = yes", "<e@f.test>", 69, ["EHLO", "MAIL", "RCPT", "RCPT", "RSET"], "Not all recipients were accepted"),
    ("all-recipients = yes", "-", 0, ["EHLO", "MAIL", "RCPT", "RCPT", "DATA"], "")])
def test_message_rules(site, said, refuse, code, heard, told):
    def plan(_, command):
        if command == "EHLO":
            return "250-here\r\n250-PIPELINING\r\n250 SIZE 99\r\n"
        return "550 unknown\r\n" if command == "RCPT" and server.commands[-1][1].endswith(refuse) else None
    site.say(f"[server]\ntrial = never\n[message]\n{said}\n")
    with ScriptedServer(plan) as server:
        done = site.send(server, "--to", "e@f.test")
    commands = [line[:4] for _, line in server.commands if line and line != "QUIT"]
    assert (done.code, commands) == (code, heard) and told in done.err


def test_limits_that_the_server_announces(site):
    """RFC 9422: two recipients in a transaction, two transactions on a connection."""
    def plan(_, command):
        return "250-here\r\n250 LIMITS MAILMAX=2 RCPTMAX=2\r\n" if command == "EHLO" else None
    site.say("[server]\ntrial = never\n")
    with ScriptedServer(plan) as server:
        assert site.send(server, *(word for i in range(5) for word in ("--to", f"{i}@d.test"))).code == 0
    said = [(number, line[:4]) for number, line in server.commands if line[:4] in ("MAIL", "RCPT", "QUIT")]
    transaction = ["MAIL", "RCPT", "RCPT"]
    assert [line for _, line in said][:10] == [*transaction, *transaction, "QUIT", *transaction]
    assert {number for number, _ in said} == {0, 1}


# Connections of two sends, the second over the first one's connection unless that may not be.
@pytest.mark.parametrize("said, connections", [("trial = always", 3), ("trial = first", 2), ("trial = never", 1),
                                               ("trial = never\nreuse = no", 2)])
def test_trial(site, tmp_path, said, connections):
    site.say(f"[server]\n{said}\n[message]\nfrom = Desk <d@e.test>\n")
    with Watched() as server, Host(site.product, tmp_path, EMAILSENDING_SETTINGS=site.product.path(site.file)) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.port)
        for _ in range(2):
            assert host.setRecipient("c@d.test") and (host.szBrisko(), host.error()) == (1, "")
        assert (len(server.messages), server.connections) == (2, connections)
        assert (server.messages[1].sender, server.messages[1].parsed()["From"]) == ("d@e.test", "Desk <d@e.test>")
        # What was made under another reading is not used again; a file that is gone stops all.
        site.say("[server]\ntrial = never\n")
        assert host.setRecipient("c@d.test") and host.szBrisko() and server.connections == connections + 1
        site.file.unlink()
        assert host.setRecipient("c@d.test") and not host.szBrisko() and "it is gone" in host.error()
        site.say("[server]\ntrial = never\n")
        assert host.szBrisko() == 1, "the message was kept"


def test_corrections_do_not_take_tls_from_a_verified_server(site):
    """Implicit TLS at port 25 is corrected to none: nothing may leave in clear then."""
    site.say("[certificate]\nverify = yes\n")
    done = site.send(types.SimpleNamespace(port=25), "--tls", "implicit", host="127.0.0.1")
    assert done.code == 78 and '"verify" of [certificate] needs "encryption"' in done.err


def test_missing_attachment(site, tmp_path):
    site.say("[message]\nmissing-attachment = refuse\n[log]\nmessage-box = no\n")
    with Watched() as server, Host(site.product, tmp_path, EMAILSENDING_SETTINGS=site.product.path(site.file)) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.port)
        host.setFromAddress("a@b.test")
        host.setRecipient("c@d.test")
        host.setAttachment("not-there.pdf")
        assert host.szBrisko() == 0 and "attachment not-there.pdf could not be read" in host.error()
        host.setRecipient("c@d.test")
        assert host.szBrisko() == 1 and len(server.messages) == 1, "the next message is another one"
    assert "not-there" not in (tmp_path / "stderr.txt").read_text(), "what Windows shows in a box"


def test_file_and_host_of_a_secret(site):
    """The password goes to the file's server alone, whatever server the program names, and not in clear."""
    def plan(_, command):
        return "250-here\r\n250 AUTH PLAIN LOGIN\r\n" if command == "EHLO" else None
    with ScriptedServer(plan) as server, Watched() as stranger:
        site.say(f"[server]\nhost = localhost\nport = {server.port}\n[login]\nuser = anna\npassword = hidden-word\n")
        done = site.send(stranger, host="127.0.0.1")
        assert (done.code, stranger.connections) == (77, 0)
        assert not any("AUTH" in line for _, line in server.commands)
        assert "only-encrypted" in done.err and "hidden-word" not in done.err


# The order that the file says, what the server makes of the first, and the ways that were tried.
@pytest.mark.parametrize("methods, reply, tried", [
    ("CRAM-MD5, PLAIN", "504 not any more", ["CRAM-MD5", "PLAIN"]), ("CRAM-MD5, PLAIN", "535 no", ["CRAM-MD5"]),
    ("CRAM-MD5, PLAIN", "454 later", ["CRAM-MD5"]), ("xoauth2, scram-sha-1, plain", "235 yes", ["PLAIN"]),
    ("PLAIN, CRAM-MD5", "538 over TLS alone", ["PLAIN", "CRAM-MD5"]), ("NTLM", "235 yes", [])])
def test_order_of_methods(site, methods, reply, tried):
    def plan(_, command):
        if command == "EHLO":
            return "250-here\r\n250 AUTH XOAUTH2 LOGIN cram-md5 PLAIN\r\n"
        first = sum(line.startswith("AUTH") for _, line in server.commands) == 1
        return (reply if first else "535 enough") + "\r\n" if command == "AUTH" else None
    with ScriptedServer(plan) as server:
        site.say(f"[server]\ntrial = never\nhost = localhost\nport = {server.port}\n[login]\nuser = anna\n"
                 f"password = x\nonly-encrypted = no\nmethods = {methods}\n")
        done = site.send(server)
    assert [line.split()[1] for _, line in server.commands if line.startswith("AUTH")] == tried
    assert done.code == {"235": 0, "454": 75}.get(reply[:3], 77)


TLS12 = ssl.TLSVersion.TLSv1_2
LOGIN = "[server]\ntrial = {}\nencryption = {}\nhost = localhost\nport = {}\n[login]\nuser = anna\ndomain = EXAMPLE\n" \
        "password = Password\nonly-encrypted = no\nchannel-binding = {}\n"


# What the file says, whether the login is passed on over another certificate, and whether it is then taken and bound.
@pytest.mark.parametrize("binding, passed_on, logins, version", [
    ("no", False, [False], None), ("if-possible", False, [True], None), ("required", False, [True], None),
    ("required", False, [True], TLS12), ("no", True, [False], None), ("if-possible", True, [], None),
    ("required", True, [], None)])
def test_login_that_is_bound(site, tmp_path, binding, passed_on, logins, version):
    own = make_certificate(tmp_path / "own")
    with ntlm_judge.Judge(own, version) as judge:
        relay = ntlm_judge.Relay(make_certificate(tmp_path / "other"), judge) if passed_on else judge
        with relay if passed_on else contextlib.nullcontext():
            site.say(LOGIN.format("always", "starttls", relay.port, binding))
            done = site.send(relay)
    assert (done.code == 0, judge.logins) == (bool(logins), logins), done.err
    # Over the session of the trial; one of TLS 1.2 is dropped by a server that ends without a good-bye.
    assert relay.resumed == (version is None)
    assert logins or "535 5.7.8 bound to another certificate" in done.err


# The judge knows anna of EXAMPLE; the program says another domain than the file.
@pytest.mark.parametrize("domain, logins", [("EXAMPLE", [False]), ("OTHER", [])])
def test_domain(site, tmp_path, domain, logins):
    with ntlm_judge.Judge(make_certificate(tmp_path / "own")) as judge:
        site.say(LOGIN.format("never", "starttls", judge.port, "no").replace("EXAMPLE", domain))
        done = site.send(judge, "--domain", "EXAMPLE" if domain == "OTHER" else "OTHER")
    assert (done.code == 0, judge.logins) == (bool(logins), logins), done.err
    assert logins or "another user" in done.err


def test_login_after_a_new_certificate(site, tmp_path):
    """A resumed session shows the old one: that login is refused, and the next one is made over a new session."""
    own, env = make_certificate(tmp_path / "own"), {"EMAILSENDING_SETTINGS": site.product.path(site.file)}
    with ntlm_judge.Judge(own) as judge, Host(site.product, tmp_path, **env) as host:
        site.say(LOGIN.format("never\nreuse = no", "starttls", judge.port, "required"))
        host.Initialise()
        host.setFromAddress("a@b.test")
        for new, taken, resumed in ((False, 1, 0), (False, 1, 1), (True, 0, 2), (False, 1, 2)):
            if new:
                judge.show(make_certificate(tmp_path / "new"))
            host.setRecipient("c@d.test")
            assert (host.szBrisko(), judge.resumed) == (taken, resumed), host.error()


# What else the file says, what the server offers, what is told.
@pytest.mark.parametrize("encryption, said, offer, told", [
    ("if-offered", "", "NTLM LOGIN", "this one is not encrypted"),
    ("starttls", "", "LOGIN PLAIN", "NTLM with a password is no method"),
    ("starttls", "", "", "the server offers no login"),
    ("starttls", "methods = PLAIN, NTLM", "PLAIN", "NTLM with a password is no method"),
    ("starttls", "user = default", "NTLM", "that of the logged-on user cannot be")])
def test_login_that_cannot_be_bound(site, tmp_path, encryption, said, offer, told):
    def plan(_, command):
        first = "STARTTLS" if encryption == "starttls" else "HELP"
        return f"250-here\r\n250-{first}\r\n250 AUTH {offer}\r\n" if command == "EHLO" else None
    with ScriptedServer(plan, server_context(make_certificate(tmp_path / "own"))) as server:
        text = LOGIN.format("never", encryption, server.port, "required") + said
        site.say(text.replace("user = anna\n", "") if "user" in said else text)
        done = site.send(server)
    assert (done.code, server.taken) == (77, []) and told in done.err and '"channel-binding" of [login]' in done.err
    assert not [line for _, line in server.commands if line[:4] in ("AUTH", "MAIL")]


def test_protected_password(dll, tmp_path):
    """A line that this machine makes and reads."""
    (tmp_path / "typed").write_text("hidden-word\n")
    with open(tmp_path / "typed", "rb") as typed:
        made = run(dll, dll.program, "settings", "protect", stdin=typed)
    assert made.code == 0 and made.out.startswith("password = dpapi:") and "hidden" not in made.out
    def plan(_, command):
        return {"EHLO": "250-here\r\n250 AUTH PLAIN\r\n", "AUTH": "235 yes\r\n"}.get(command)
    with ScriptedServer(plan) as server:
        site = Site(dll, tmp_path)
        site.say(f"[server]\nhost = localhost\nport = {server.port}\n[login]\nuser = anna\nonly-encrypted = no\n"
                 + made.out)
        assert site.send(server).code == 0
        sent = [line.split()[2] for _, line in server.commands if line.startswith("AUTH")]
        assert base64.b64decode(sent[0]).endswith(b"\0anna\0hidden-word")
        site.say("[server]\nhost = a\n[login]\nuser = anna\npassword = dpapi:AAAA\n")
        assert "was protected on another machine" in site.send(server).err


@pytest.mark.parametrize("in_place", [True, False])
def test_a_file_that_is_being_written(site, tmp_path, in_place):
    """No send goes by half of it."""
    def write():
        for _ in range(4):
            path = site.file if in_place else tmp_path / "next.ini"
            with path.open("w") as file:
                for part in ("[message]\n", "bcc = e@f.test\n"):
                    file.write(part)
                    file.flush()
                    time.sleep(0.01)
            path.chmod(0o600)
            path.rename(site.file)
            time.sleep(0.5)
    site.say("[message]\nbcc = e@f.test\n")
    env = {"EMAILSENDING_SETTINGS": site.product.path(site.file)}
    with Watched() as server, Host(site.product, tmp_path, **env) as host:
        host.Initialise()
        writer = threading.Thread(target=write)
        writer.start()
        while writer.is_alive():
            host.ResetEmail()
            host.compose(server.port, "a@b.test", "c@d.test")
            assert host.szBrisko(), host.error()
        writer.join()
    assert {tuple(message.recipients) for message in server.messages} == {("c@d.test", "e@f.test")}


class Dripping(socketserver.BaseRequestHandler):
    """A greeting without end."""

    def handle(self):
        with contextlib.suppress(OSError):
            while True:
                self.request.sendall(b"220-wait\r\n")
                time.sleep(0.2)


@pytest.mark.parametrize("trial", ["always", "never"])
def test_a_server_without_end(site, tmp_path, trial):
    site.say(f"[server]\ntrial = {trial}\ntotal-timeout = 1 s\n[log]\nsends = sends.log\n")
    with socketserver.ThreadingTCPServer(("127.0.0.1", 0), Dripping) as server:
        server.daemon_threads, server.port = True, server.server_address[1]
        threading.Thread(target=server.serve_forever, daemon=True).start()
        began = time.monotonic()
        assert site.send(server).code == 69 and time.monotonic() - began < 10
        server.shutdown()
    assert shlex.split((tmp_path / "sends.log").read_text())[1] == "outcome=not-sent"


# What the file says, and whether the message goes out.
FULL_DISK = 'mount -t tmpfs -o size=8k none full && cp /dev/zero full/pad 2> /dev/null; "$@"; code=$?; ls full; exit $code'


@pytest.mark.parametrize("said, code", [("[log]\nsends = full/a\nsent-mail = full/b\n", 0), ("[log]\nsent-mail = pipe\n", 0),
                                        ("[test]\nfolder = full\n", 78)])
def test_what_cannot_be_written(so, tmp_path, said, code):
    """Logs stop no mail, be the disk full or their reader gone; half a message does not stay in a test folder."""
    def read():
        with open(tmp_path / "pipe", "rb") as pipe:
            pipe.read(1)
    site = Site(so, tmp_path)
    site.say(said)
    (tmp_path / "full").mkdir()
    (tmp_path / "a.html").write_text("words " * 100000)
    os.mkfifo(tmp_path / "pipe")
    threading.Thread(target=read, daemon=True).start()
    with Watched() as server:
        done = run(so, "unshare", "--mount", "--propagation", "private", "sh", "-c", FULL_DISK, "sh", so.program, "--host",
                   "127.0.0.1", "--port", server.port, "--from", "a@b.test", "--to", "c@d.test", "--html", "a.html",
                   cwd=tmp_path, env={"EMAILSENDING_SETTINGS": str(site.file)})
    assert (done.code, len(server.messages), ".eml" in done.out) == (code, int(code == 0), False), done.err


def test_rights(so, tmp_path):
    site = Site(so, tmp_path)
    site.say("[server]\nhost = localhost\n[login]\nuser = a\npassword = b\n", 0o604)
    with Watched() as server:
        assert "holds a password and can be read by anybody" in site.send(server).err
        site.say("", 0o602)
        assert "can be changed by anybody" in site.send(server).err
        site.file.unlink()
        assert "does not exist" in site.send(server).err


# The mode of the file, of which Wine makes a list of rights, and whether the password stands there as it is.
@pytest.mark.parametrize("mode, said, warned", [
    (0o644, "password = x", "mail.ini"), (0o600, "password = x", None), (0o644, "password-file = word.txt", "word.txt"),
    (0o644, "domain = x", None)])
def test_warning_of_readers(dll, tmp_path, mode, said, warned):
    site = Site(dll, tmp_path)
    site.say(f"[server]\nhost = localhost\n[login]\nuser = anna\n{said}\n", mode)
    (tmp_path / "word.txt").write_text("x")
    (tmp_path / "word.txt").chmod(mode)
    done = run(dll, dll.program, "settings", "check", dll.path(site.file))
    assert (done.code, "warning" in done.err) == (0, warned is not None), done.err
    assert not warned or (warned + " holds a secret" in done.err and "Everyone" in done.err)


def test_what_an_unchanged_file_costs(so, tmp_path):
    """One stat for it and one for each file that it names, and no other call."""
    trace, names = tmp_path / "trace", ("mail.ini", "word.txt", "hosts.txt")
    site = Site(so, tmp_path)
    traced = types.SimpleNamespace(env=so.env, driver=so.driver, library=so.library, path=so.path, command=lambda *words: [
        "strace", "-f", "-qq", "-e", "trace=%file,connect", "-o", str(trace), *so.command(*words)])
    for name, text in {"word.txt": "secret", "hosts.txt": "127.0.0.1 a.test"}.items():
        (tmp_path / name).write_text(text)
        (tmp_path / name).chmod(0o600)
    with Watched() as server, Host(traced, tmp_path, EMAILSENDING_SETTINGS=str(site.file)) as host:
        site.say(f"[server]\ntrial = never\nreuse = no\nhost = 127.0.0.1\nport = {server.port}\n[login]\nuser = anna\n"
                 "password-file = word.txt\nonly-encrypted = no\n[names]\nhosts = hosts.txt\n")
        host.Initialise()
        host.setFromAddress("a@b.test")
        for _ in range(2):
            assert host.setRecipient("c@d.test") and host.szBrisko() == 1, host.error()
    calls = trace.read_text().splitlines()
    first, second = (i for i, call in enumerate(calls) if f"htons({server.port})" in call)
    between = [(call.split()[1].split("(")[0], name) for call in calls[first:second] for name in names if name in call]
    assert all("stat" in call for call, _ in between) and [name for _, name in between] == list(names), between
    assert any("openat" in call and names[0] in call for call in calls[:first])


def test_beside_the_library(product, tmp_path):
    library = tmp_path / product.library.name
    shutil.copy(product.library, library)
    words = [product.program, "settings", "--library", product.path(library)]
    told = run(product, *words)
    assert (told.code, "There is none" in told.out) == (0, True) or os.path.exists("/etc/emailsending.ini")
    (tmp_path / "emailsending.ini.txt").write_text("")
    assert run(product, *words).code == 78
    (tmp_path / "emailsending.ini").write_text("[server]\nport = 587\n")
    assert "[server] port = 587" in run(product, *words).out
    with Watched() as server:  # another port than the file's
        done = run(product, product.program, "--library", product.path(library), "--host", "127.0.0.1", "--port",
                   server.port, "--from", "a@b.test", "--to", "c@d.test")
    assert done.code == 69 and "127.0.0.1:587" in done.err


def test_document_and_sample_say_the_keys(so, tmp_path):
    root = so.library.parents[2] / "docs/settings.md"
    table = run(so, so.program, "settings", "table").out
    assert root.read_text().endswith(table)
    sample = tmp_path / "sample.ini"
    text = run(so, so.program, "settings", "sample").out
    sample.write_text(text)
    sample.chmod(0o600)
    assert run(so, so.program, "settings", "check", sample).out.endswith("nothing\n")


@pytest.mark.parametrize("trial", ["always", "never"])
def test_the_first_line(site, trial):
    """What getLastError gives begins with the sentence, and is else as it was."""
    site.say(f"[server]\ntrial = {trial}\n[log]\nfirst-line = yes\n")
    nobody = types.SimpleNamespace(port=1)
    told = site.send(nobody, host="127.0.0.1").err.split("\n")
    assert told[0] == "emailsend: " + told[1] and "host and port" in told[0] and told[2] == "TolvaneLog:"
    replies = {"EHLO": "250-mail.example.test\r\n250 AUTH PLAIN\r\n", "AUTH": "235 2.7.0 welcome\r\n",
               "RCPT": "550 5.7.54 no relay\r\n"}
    with ScriptedServer(lambda _, command: replies.get(command)) as server:
        for words, change in [((), "Log in (user and password in [login])"), (("--user", "anna"), "The login stood")]:
            told = site.send(server, *words, host="127.0.0.1", EMAILSEND_PASSWORD="hidden").err.split("\n")
            assert told[0] == "emailsend: " + told[1] and change in told[0]
            assert told[2].startswith("220 ") and any(line.startswith("NoValidRecipients: ") for line in told[-3:])
