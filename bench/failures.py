#!/usr/bin/python3
"""What five programs say to the same failures: msmtp, swaks, Nodemailer, Python's smtplib and emailsend.

    failures.py [--only NAME]... [--limit SECONDS]

Needed: root, the packages msmtp, swaks, openssl, dnsmasq-base and python3-aiosmtpd, nodejs, and Nodemailer below the
folder that NODEMAILER names. Each failure is a server of a few lines in a network of its own. Every program says it
with its own time-outs, until the limit (100 s), and verifies certificates where there is TLS: emailsend by a settings
file. Of swaks the errors are heard alone (--silent 2), of a library's exception name and text. Printed are the exit code,
the seconds, and the first line.
"""
import argparse
import concurrent.futures
import contextlib
import dataclasses
import os
import pathlib
import ssl
import subprocess
import sys
import tempfile
import time
import warnings

import peers
from scripted import CUT, GOOD, ScriptedServer
from servers import dnsmasq, free_port, make_certificate, run

PROGRAMS = {"msmtp": ["msmtp", "--version"], "swaks": ["swaks", "--version"],
            "Node.js": ["node", "-p", "'Node.js ' + process.version"],
            "Nodemailer": [*peers.NODEMAILER, "--version"], "Python": [sys.executable, "--version"],
            "dnsmasq": ["dnsmasq", "--version"]}
WIDTH = 100
SENDER, TO, USER, PASSWORD = "anna@example.com", "bela@example.org", "anna", "secret"
SUBJECT, TEXT = "Report", "The report is ready.\r\n"

EHLO = GOOD["EHLO"]
STARTTLS = {"EHLO": EHLO.replace("250 8BITMIME", "250-STARTTLS\r\n250 8BITMIME"), "STAR": "220 2.0.0 ready\r\n"}
AUTH = {**STARTTLS, "EHLO": STARTTLS["EHLO"].replace("250-STARTTLS", "250-STARTTLS\r\n250-AUTH PLAIN")}


@dataclasses.dataclass
class Failure:
    """replies: what the server says to a command in place of a good server's, each after `thinks` seconds. client: how
    the programs are told to connect, to a server that must then prove itself; server: how it is, where otherwise."""
    name: str
    replies: dict = dataclasses.field(default_factory=dict)
    client: str = "none"
    server: str = ""
    certificate: str = "good"
    host: str = "localhost"
    login: bool = False
    listens: bool = True
    thinks: float = 0


FAILURES = [
    Failure("closed port", listens=False),
    Failure("silent port", {"GREETING": ""}),
    Failure("unknown host", host="nowhere.example.com", listens=False),
    Failure("TLS on a clear port", client="implicit", server="none"),
    Failure("clear on a TLS port", server="implicit"),
    Failure("expired certificate", STARTTLS, "starttls", certificate="expired"),
    Failure("self-signed certificate", STARTTLS, "starttls", certificate="self-signed"),
    Failure("certificate of another name", STARTTLS, "starttls", certificate="other-name"),
    Failure("TLS 1.0 only", STARTTLS, "starttls", certificate="old"),
    Failure("STARTTLS refused", {**STARTTLS, "STAR": "454 4.7.0 TLS not available due to local problem\r\n"}, "starttls"),
    Failure("no AUTH offered", STARTTLS, "starttls", login=True),
    Failure("wrong password", {**AUTH, "AUTH": "535 5.7.8 Error: authentication failed\r\n"}, "starttls", login=True),
    Failure("basic authentication disabled",
            {**AUTH, "AUTH": "535 5.7.139 Authentication unsuccessful, basic authentication is disabled.\r\n"}, "starttls",
            login=True),
    Failure("relay denied", {"RCPT": f"554 5.7.1 <{TO}>: Relay access denied\r\n"}),
    Failure("sender refused", {"MAIL": f"550 5.7.60 Client does not have permission to send as {SENDER}\r\n"}),
    Failure("greylisting", {"RCPT": f"451 4.7.1 <{TO}>: Greylisted, please try again later\r\n"}),
    Failure("mailbox full", {"RCPT": f"452 4.2.2 <{TO}>: Mailbox full\r\n"}),
    Failure("message too big", {".": "552 5.3.4 Message size exceeds fixed limit\r\n"}),
    Failure("too many connections", {"GREETING": "421 4.7.0 Too many connections from your address\r\n"}),
    Failure("connection lost after the final dot", {".": CUT}),
    Failure("tarpit", thinks=25),
]


class Server(ScriptedServer):
    """Does what a failure's row tells."""

    def __init__(self, failure, contexts):
        self.context = contexts[failure.certificate]
        self.implicit = (failure.server or failure.client) == "implicit"

        def plan(_, command):
            time.sleep(failure.thinks)
            return failure.replies.get(command)

        super().__init__(plan, self.context)

    def get_request(self):
        accepted, address = super().get_request()
        if self.implicit:  # the handshake is made where the connection is served
            accepted = self.context.wrap_socket(accepted, server_side=True, do_handshake_on_connect=False)
        return accepted, address


def certificates(folder):
    """TLS contexts by name, and the file of the authority that the programs trust."""
    root = make_certificate(folder / "root", "-addext", "basicConstraints=critical,CA:TRUE", subject="Example Root")
    issued = ["-CA", root[0], "-CAkey", root[1], "-addext", "basicConstraints=CA:FALSE", "-addext"]
    names = "subjectAltName=DNS:localhost"
    good = make_certificate(folder / "good", *issued, names)
    run("openssl", "req", "-new", "-key", good[1], "-subj", "/CN=localhost", "-addext", names, "-out", folder / "request")
    run("openssl", "x509", "-req", "-in", folder / "request", "-copy_extensions", "copy", "-CA", root[0], "-CAkey", root[1],
        "-CAcreateserial", "-days", "-1", "-out", folder / "expired.pem")
    files = {"good": good, "expired": (folder / "expired.pem", good[1]),
             "self-signed": make_certificate(folder / "self", "-addext", names),
             "other-name": make_certificate(folder / "other", *issued, "subjectAltName=DNS:mail.example.com",
                                            subject="mail.example.com")}
    contexts = {}
    for name, (certificate, key) in {**files, "old": files["good"]}.items():
        contexts[name] = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        contexts[name].load_cert_chain(certificate, key)
    warnings.simplefilter("ignore", DeprecationWarning)  # as old is what it is to be
    contexts["old"].set_ciphers("ALL:@SECLEVEL=0")
    contexts["old"].minimum_version = contexts["old"].maximum_version = ssl.TLSVersion.TLSv1
    return contexts, root[0]


@dataclasses.dataclass
class Task:
    """One failure as a program sees it."""
    failure: Failure
    port: int
    root: str
    folder: pathlib.Path

    def msmtp(self):
        tls = {"none": ["--tls=off"], "starttls": ["--tls=on", "--tls-starttls=on"],
               "implicit": ["--tls=on", "--tls-starttls=off"]}[self.failure.client]
        login = ["--auth=on", f"--user={USER}", f"--passwordeval=echo {PASSWORD}"] if self.failure.login else []
        return (["msmtp", f"--host={self.failure.host}", f"--port={self.port}", f"--from={SENDER}", *tls,
                 f"--tls-trust-file={self.root}", *login, TO],
                f"From: {SENDER}\r\nTo: {TO}\r\nSubject: {SUBJECT}\r\n\r\n{TEXT}".encode())

    def swaks(self):
        tls = {"none": [], "starttls": ["--tls"], "implicit": ["--tls-on-connect"]}[self.failure.client]
        tls += ["--tls-verify", "--tls-ca-path", self.root] if tls else []
        login = ["--auth", "--auth-user", USER, "--auth-password", PASSWORD] if self.failure.login else []
        return ["swaks", "--silent", "2", "--server", self.failure.host, "--port", self.port, "--from", SENDER, "--to", TO,
                "--header", f"Subject: {SUBJECT}", "--body", TEXT.strip(), *tls, *login], b""

    def nodemailer(self):
        transport = {"host": self.failure.host, "port": self.port, "secure": self.failure.client == "implicit",
                     "ignoreTLS": self.failure.client == "none", "requireTLS": self.failure.client == "starttls",
                     "tls": {"ca": pathlib.Path(self.root).read_text()}}
        if self.failure.login:
            transport["auth"] = {"user": USER, "pass": PASSWORD}
        mail = {"from": SENDER, "to": TO, "subject": SUBJECT, "text": TEXT}
        return peers.NODEMAILER, peers.nodemailer_input(transport, mail)

    def smtplib(self):
        login = [USER, PASSWORD] if self.failure.login else []
        return [sys.executable, "-c", SMTPLIB, self.failure.host, self.port, self.failure.client, self.root, SENDER, TO,
                *login], f"Subject: {SUBJECT}\r\n\r\n{TEXT}".encode()

    def emailsend(self):
        for name, text in ("body.html", TEXT), ("password", PASSWORD), ("settings.ini", SETTINGS.format(root=self.root)):
            (self.folder / name).write_text(text)
            (self.folder / name).chmod(0o600)
        login = ["--user", USER, "--password-file", self.folder / "password"] if self.failure.login else []
        settings = [] if self.failure.client == "none" else [f"EMAILSENDING_SETTINGS={self.folder / 'settings.ini'}"]
        return ["env", *settings, peers.EMAILSEND, "--host", self.failure.host, "--port", self.port, "--tls",
                self.failure.client, "--from", SENDER, "--to", TO, "--subject", SUBJECT, "--html", self.folder / "body.html",
                *login], b""


SENDERS = {"msmtp": Task.msmtp, "swaks": Task.swaks, "Nodemailer": Task.nodemailer, "smtplib": Task.smtplib,
           "emailsend": Task.emailsend}
SETTINGS = "[certificate]\nverify = yes\nroots = {root}\n[tls]\nlowest = 1.2\n"
SMTPLIB = """
import smtplib, ssl, sys
host, port, tls, root, sender, to, *login = sys.argv[1:]
context = ssl.create_default_context(cafile=root)
try:
    if tls == "implicit":
        server = smtplib.SMTP_SSL(host, int(port), context=context)
    else:
        server = smtplib.SMTP(host, int(port))
    if tls == "starttls":
        server.starttls(context=context)
    if login:
        server.login(*login)
    server.sendmail(sender, to, sys.stdin.read())
    server.quit()
except Exception as error:
    sys.exit(f"{type(error).__name__}: {error}")
"""


def first_line(done):
    lines = [" ".join(line.split()) for stream in (done.stderr, done.stdout)
             for line in stream.decode("utf-8", "replace").splitlines() if line.strip()]
    return lines[0] if lines else ""


def measure(failure, name, contexts, root, limit):
    """The cells of one row: exit code, seconds, what was said."""
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="failures-")))
        port = stack.enter_context(Server(failure, contexts)).port if failure.listens else free_port()
        command, stdin = SENDERS[name](Task(failure, port, root, folder))
        begin = time.monotonic()
        try:
            done = subprocess.run([str(word) for word in command], input=stdin, capture_output=True, timeout=limit,
                                  cwd=folder, env={**os.environ, "LC_ALL": "C.UTF-8", "HOME": str(folder)})
        except subprocess.TimeoutExpired:
            return "", f"> {limit}", "(still at it)"
        said = first_line(done).replace(str(folder), "FOLDER").replace(str(port), "PORT").replace("|", "\\|")
        said = said if len(said) <= WIDTH else said[:WIDTH - 3] + "..."
        return str(done.returncode), f"{time.monotonic() - begin:.1f}", said or "(nothing)"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", choices=SENDERS, metavar="NAME", help="of " + ", ".join(SENDERS))
    parser.add_argument("--limit", type=int, default=100)
    args = parser.parse_args()
    told = peers.versions(PROGRAMS)
    peers.ours()
    peers.alone()
    print(told + "\n\n| failure | program | code | seconds | says |\n|---|---|---|---|---|")
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="failures-")))
        peers.lay("/etc/resolv.conf", "nameserver 127.0.0.1\n", folder)
        stack.enter_context(dnsmasq(folder, "127.0.0.1", "com", []))
        contexts, root = certificates(folder)
        # Most of the time is waiting; the quick ones take turns.
        pool = stack.enter_context(concurrent.futures.ThreadPoolExecutor(8))
        rows = [(failure, name, pool.submit(measure, failure, name, contexts, root, args.limit))
                for failure in FAILURES for name in args.only or SENDERS]
        for failure, name, cells in rows:
            first = name == (args.only or list(SENDERS))[0]
            print(f"| {failure.name if first else ''} | {name} | " + " | ".join(cells.result()) + " |", flush=True)


if __name__ == "__main__":
    main()
