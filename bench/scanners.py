#!/usr/bin/python3
"""What SpamAssassin and rspamd say to the same messages by the library without a settings file, with
profile = modern, and by Nodemailer.

    scanners.py [--keep FOLDER]

Needed: root, the packages spamassassin, rspamd, dnsmasq-base and python3-aiosmtpd, nodejs, and Nodemailer below the folder
that NODEMAILER names. Nothing is asked of any network: all runs in one of its own. A server receives the messages
and puts the lines before them that a mail exchanger would: who connected, and what it called itself. The
scanners learn nothing and ask no lists; names are answered by a name server on loopback. Exit code 1: a message with
profile = modern has a worse score than Nodemailer's.
"""
import argparse
import contextlib
import dataclasses
import email.utils
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time

import peers
from receiver import Receiver
from samples import PNG
from servers import Server, dnsmasq

WORTH_TELLING = 0.2
# The machine that sends, as the exchanger sees it: an address of documentation, whose name leads back to it.
ADDRESS, NAME, PORT = "198.51.100.7", "office.example.com", 11333
TO = "bela@example.org"
SCANNERS = "SpamAssassin", "rspamd"
CLIENTS = {"classic": "without file", "modern": "`profile = modern`", "nodemailer": "Nodemailer"}
PROGRAMS = {"SpamAssassin": ["spamassassin", "--version"], "rspamd": ["rspamd", "--version"],
            "Node.js": ["node", "-p", "'Node.js ' + process.version"],
            "Nodemailer": [*peers.NODEMAILER, "--version"], "dnsmasq": ["dnsmasq", "--version"]}
RECORDS = [f"host-record={NAME},{ADDRESS}", "mx-host=example.com,office.example.com", "mx-host=example.org,mx.example.org",
           "host-record=mx.example.org,192.0.2.25"]

# Modules that ask others or remember.
MODULES = ("antivirus arc asn bimi dcc dkim dkim_signing dmarc fuzzy_check greylist history_redis milter_headers multimap "
           "mx_check neural p0f phishing ratelimit rbl redis replies reputation rspamd_update spf surbl url_redirector "
           "whitelist").split()
OPTIONS = 'filters = "chartable,regexp"; disable_hyperscan = true; url_tld = "%s"; dns { nameserver = ["127.0.0.1"]; }\n'

LETTER = ("Hello Béla,\r\n\r\nthe figures for November are ready. Please have a look before Friday.\r\n\r\n"
          "Best regards\r\nAnna\r\n")
PARAGRAPH = ("The new opening hours begin on the first of December. From then on the office is open from Monday to "
             "Thursday between eight and five, and on Friday until noon.")
NEWS_HTML = ('<html><head><title>News</title></head><body>\r\n{LOGO}<h1>News from the office</h1>\r\n'
             f"<p>Dear customer,</p>\r\n<p>{PARAGRAPH}</p>\r\n<ul><li>Orders until noon leave the same day</li>"
             "<li>Returns are free for thirty days</li></ul>\r\n"
             '<p>More is told <a href="https://www.example.com/news">on our page</a>.</p>\r\n'
             '<p><a href="https://www.example.com/leave">Unsubscribe</a></p>\r\n</body></html>\r\n')
NEWS_TEXT = (f"News from the office\r\n\r\nDear customer,\r\n\r\n{PARAGRAPH}\r\n\r\n- Orders until noon leave the same day\r\n"
             "- Returns are free for thirty days\r\n\r\nMore is told on our page <https://www.example.com/news>.\r\n\r\n"
             "Unsubscribe <https://www.example.com/leave>\r\n")
BILL_HTML = f"<html><body><p>Dear customer,</p><p>attached is your invoice. {PARAGRAPH}</p><p>Anna</p></body></html>\r\n"
BILL_TEXT = f"Dear customer,\r\n\r\nattached is your invoice. {PARAGRAPH}\r\n\r\nAnna\r\n"
PROTOCOL = "22:10 The pump of the north hall was switched on.\n23:45 Zoltán had a look at it, all is well.\n06:00 Off.\n"
PDF = (b"%PDF-1.4\n1 0 obj\n<</Type/Catalog/Pages 2 0 R>>\nendobj\n2 0 obj\n<</Type/Pages/Kids[3 0 R]/Count 1>>\nendobj\n"
       b"3 0 obj\n<</Type/Page/Parent 2 0 R/MediaBox[0 0 595 842]>>\nendobj\ntrailer\n<</Root 1 0 R>>\n%%EOF\n")


@dataclasses.dataclass
class Content:
    """A message that every client sends: an HTML body with the text that says the same, or a text alone."""
    title: str
    text: str
    html: str = ""
    subject: str = "Figures for November"
    sender: str = "Anna Kovacs <anna@example.com>"
    logo: bool = False
    files: dict = dataclasses.field(default_factory=dict)


CONTENTS = [
    Content("short text", LETTER.replace("é", "e")),
    Content("newsletter with a logo", NEWS_TEXT, NEWS_HTML, "News from the office", logo=True),
    Content("invoice as a PDF", BILL_TEXT, BILL_HTML, "Your invoice", files={"invoice.pdf": PDF}),
    Content("letters outside ASCII", LETTER, f"<html><body><p>{LETTER}</p></body></html>\r\n".replace("\r\n\r\n", "</p>\r\n<p>"),
            "Árvíztűrő tükörfúrógép", "Kovács Őrs <anna@example.com>"),
    Content("text file of UTF-8, bare LF", BILL_TEXT, BILL_HTML, "Protocol of the night",
            files={"protocol.txt": PROTOCOL.encode()}),
]


class Exchanger(Receiver):
    """Puts before each message what a mail exchanger writes."""

    async def handle_DATA(self, server, session, envelope):
        head = (f"Return-Path: <{envelope.mail_from}>\r\nReceived: from {session.host_name} ({NAME} [{ADDRESS}])\r\n"
                f"\tby mx.example.org (Postfix) with ESMTP id 4C7Xq21bzVz9sT\r\n\tfor <{TO}>; {email.utils.formatdate()}\r\n")
        envelope.content = head.encode() + envelope.content
        self.greeted = session.host_name
        return await super().handle_DATA(server, session, envelope)


class Senders:
    """Each client's way to send a content to the exchanger; its files lie in `folder`."""

    def __init__(self, folder, exchanger):
        self.folder, self.exchanger = folder, exchanger
        (folder / "modern.ini").write_text("profile = modern\n")
        (folder / "modern.ini").chmod(0o600)
        (folder / "logo.png").write_bytes(PNG)

    def send(self, client, content):
        """The message as the exchanger hands it on, and what the client called itself."""
        for name, data in content.files.items():
            (self.folder / name).write_bytes(data)
        before = len(self.exchanger.messages)
        self.by_nodemailer(content) if client == "nodemailer" else self.by_library(client, content)
        assert len(self.exchanger.messages) == before + 1, f"{client} sent no message"
        return self.exchanger.messages[-1].data, self.exchanger.greeted

    def by_library(self, client, content):
        body = self.folder / "body.html"
        body.write_bytes((content.html or content.text).encode())
        command = [peers.EMAILSEND, "--host", "127.0.0.1", "--port", self.exchanger.port, "--from", content.sender, "--to", TO,
                   "--subject", content.subject, "--html", body]
        command += ["--logo", self.folder / "logo.png"] if content.logo else []
        for name in content.files:
            command += ["--attach", self.folder / name]
        settings = {"EMAILSENDING_SETTINGS": str(self.folder / "modern.ini")} if client == "modern" else {}
        subprocess.run([str(word) for word in command], env={**os.environ, "LC_ALL": "C.UTF-8", **settings}, check=True)

    def by_nodemailer(self, content):
        attachments = [{"path": str(self.folder / name)} for name in content.files]
        mail = {"from": content.sender, "to": TO, "subject": content.subject, "text": content.text, "attachments": attachments}
        if content.html:
            mail["html"] = content.html.replace("{LOGO}", '<img title="logo" src="cid:logo" style="width: 100%; height: auto;">')
        if content.logo:
            attachments.append({"path": str(self.folder / "logo.png"), "cid": "logo"})
        subprocess.run(peers.NODEMAILER, check=True, input=peers.nodemailer_input(
            {"host": "127.0.0.1", "port": self.exchanger.port, "secure": False}, mail))


def spamassassin(message):
    """Score, and {rule: score} of all that count; nothing is asked of the network (-L). An address of
    documentation is legal here."""
    said = ("use_bayes 0", "use_txrep 0", "use_auto_welcomelist 0", "score RCVD_ILLEGAL_IP 0",
            "add_header all Rules _SCORE_;_TESTSSCORES_")
    done = subprocess.run(["spamassassin", "-L", "-t", "-x", *(f"--cf={line}" for line in said)], input=message,
                          capture_output=True, check=True)
    text = re.sub(r"\n\s+", "", done.stdout.decode("utf-8", "replace"))
    score, rules = re.search(r"^X-Spam-Rules: (.*?);(.*)$", text, re.M).groups()
    costs = (rule.split("=") for rule in rules.split(",") if "=" in rule)
    return float(score), {name.strip(): float(value) for name, value in costs}


@contextlib.contextmanager
def rspamd(folder):
    """The daemon, with nothing on that asks others; gives what judges a message."""
    local = folder / "rspamd"
    (local / "local.d").mkdir(parents=True)
    for module in MODULES:
        (local / "local.d" / f"{module}.conf").write_text("enabled = false;\n")
    for worker in ("controller", "proxy", "fuzzy"):
        (local / "local.d" / f"worker-{worker}.inc").write_text("enabled = false;\n")
    (local / "tld").write_text("com\norg\n")
    (local / "local.d" / "options.inc").write_text(OPTIONS % (local / "tld"))
    shutil.chown(local, "_rspamd")
    command = ["rspamd", "-f", "-u", "_rspamd", "-g", "_rspamd", "-c", "/etc/rspamd/rspamd.conf"]
    for variable in ("LOCAL_CONFDIR", "DBDIR", "RUNDIR", "LOGDIR"):
        command += ["--var", f"{variable}={local}"]
    with Server(folder, command, ""):
        yield judge


def judge(message, greeted):
    command = ["rspamc", "-h", f"127.0.0.1:{PORT}", "--ip", ADDRESS, "--hostname", NAME, "--helo", greeted,
               "--from", "anna@example.com", "--rcpt", TO, "-j", "symbols"]
    deadline = time.monotonic() + 120
    while (done := subprocess.run(command, input=message, capture_output=True)).returncode:  # it is still starting
        assert time.monotonic() < deadline, done.stderr
        time.sleep(0.5)
    said = json.loads(done.stdout)
    return said["score"], {name: rule["score"] for name, rule in said["symbols"].items()}


def told(verdicts):
    """The rules that cost something worth telling, with the messages where it was not all."""
    costs, titles = {}, {}
    for title, (_, rules) in verdicts.items():
        for name, value in rules.items():
            if value >= WORTH_TELLING:
                costs[name] = max(value, costs.get(name, 0))
                titles.setdefault(name, []).append(title)
    return ", ".join(f"{name} {costs[name]:.1f}" + ("" if len(titles[name]) == len(verdicts) else f" ({', '.join(titles[name])})")
                     for name in sorted(costs, key=costs.get, reverse=True)) or "none"


def compare(folder, senders, judge_rspamd):
    """One machine's tables; true where modern is nowhere worse than Nodemailer."""
    verdicts, greeted = {scanner: {client: {} for client in CLIENTS} for scanner in SCANNERS}, {}
    for content in CONTENTS:
        for client in CLIENTS:
            message, greeted[client] = senders.send(client, content)
            (folder / f"{content.title} {client}.eml").write_bytes(message)
            verdicts["SpamAssassin"][client][content.title] = spamassassin(message)
            verdicts["rspamd"][client][content.title] = judge_rspamd(message, greeted[client])
    print("HELO: " + ", ".join(f"{CLIENTS[client]} `{name}`" for client, name in greeted.items()) + ".\n")
    print("| message | " + " | ".join(f"{scanner}: {', '.join(CLIENTS.values())}" for scanner in SCANNERS) + " |\n|---|---|---|")
    for content in CONTENTS:
        scores = [", ".join(f"{verdicts[scanner][client][content.title][0]:.1f}" for client in CLIENTS) for scanner in SCANNERS]
        print(f"| {content.title} | {' | '.join(scores)} |")
    print(f"| rules of {WORTH_TELLING} and more | " + " | ".join("<br>".join(
        f"{title}: {told(verdicts[scanner][client])}" for client, title in CLIENTS.items()) for scanner in SCANNERS) + " |")
    return all(round(by["modern"][content.title][0], 1) <= round(by["nodemailer"][content.title][0], 1)
               for by in verdicts.values() for content in CONTENTS)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--keep", type=pathlib.Path, help="a folder that gets the messages as they were judged")
    args = parser.parse_args()
    told = peers.versions(PROGRAMS)
    peers.ours()
    peers.alone()
    print(told)
    with contextlib.ExitStack() as stack:
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="scanners-")))
        folder.chmod(0o755)
        peers.lay("/etc/resolv.conf", "nameserver 127.0.0.1\n", folder)
        stack.enter_context(dnsmasq(folder, "127.0.0.1", "com", ["local=/org/", *RECORDS]))
        senders = Senders(folder, stack.enter_context(Exchanger()))
        scanner = stack.enter_context(rspamd(folder))
        good = True
        for what, name in (("A machine whose name has a domain", NAME), ("A machine whose name has none", "office")):
            subprocess.run(["hostname", name], check=True)
            kept = (args.keep or folder) / what
            kept.mkdir(parents=True, exist_ok=True)
            print(f"\n{what}. ", end="", flush=True)
            good = compare(kept, senders, scanner) and good
    print("\n" + ("modern is nowhere worse than Nodemailer" if good else "modern is worse than Nodemailer somewhere"))
    return 0 if good else 1


if __name__ == "__main__":
    raise SystemExit(main())
