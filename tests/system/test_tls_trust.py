"""Whom the TLS client believes: chains from a PEM anchor and from the system's, sessions of verified and
unverified connections, and what a server said in clear before STARTTLS."""
import os
import shutil

import pytest

from probes import Probe
from products import Host
from receiver import server_context
from scripted import ScriptedServer
from servers import Server, free_port, make_certificate

BUNDLE, DAY = "/etc/ssl/certs/ca-certificates.crt", 86400
AUTHORITY, HERE = "basicConstraints=critical,CA:TRUE", "subjectAltName=DNS:localhost,IP:127.0.0.1"
# name: (who issued it, days, extensions)
CERTIFICATES = {
    "root": ("root", 90, [AUTHORITY]), "stranger": ("stranger", 90, [AUTHORITY]),
    "between": ("root", 90, [AUTHORITY]), "good": ("between", 30, [HERE]),
    "other": ("between", 30, ["subjectAltName=DNS:other.test,DNS:*.localhost"]),
    "signing": ("between", 30, [HERE, "keyUsage=digitalSignature"]),
    "encrypting": ("between", 30, [HERE, "keyUsage=keyEncipherment"])}


@pytest.fixture(scope="module")
def chain(tmp_path_factory):
    """Authorities and server certificates in a folder, made by openssl."""
    folder = tmp_path_factory.mktemp("chain")
    for name, (issuer, days, extensions) in CERTIFICATES.items():
        options = [word for extension in extensions for word in ("-addext", extension)]
        if issuer != name:
            options += ["-CA", folder / f"{issuer}.pem", "-CAkey", folder / f"{issuer}.key"]
        make_certificate(folder / name, *options, subject=f"the {name} one", days=days,
                         kind="rsa" if "keyUsage" in extensions[-1] else "P-256")
    return folder


def serve(chain, leaf, words=""):
    """s_server with a certificate of the chain and the one above it."""
    port = free_port()
    server = Server(chain, ["openssl", "s_server", "-accept", f"127.0.0.1:{port}", "-rev", "-msg",
                            "-cert", f"{leaf}.pem", "-key", f"{leaf}.key", "-cert_chain", "between.pem",
                            *words.split()], "ACCEPT")
    server.port = port
    return server


@pytest.fixture(scope="module")
def probe(product, chain):
    """Runs jobs; the anchor is a name of the chain, or a file."""
    with Probe(product, "tls", host="localhost", talk="echo", lines=2) as probe:
        def run(server, anchor=None, **job):
            anchors = {"anchors": product.path(chain / f"{anchor}.pem")} if anchor else {}
            return probe.run(port=server.port, **anchors, **job)
        yield run


EXPIRED, EARLY = "The certificate has expired.", "The certificate is not valid yet."
OTHER = "The certificate was issued for another host."
NOBODY = "The issuer of the certificate is not known or not trusted."
LACKS, MISFIT = "its key usage lacks {}, which TLS_", "unsupported_certificate"
ECDHE, RSA = ("-tls1_2 -cipher " + suite for suite in ("ECDHE-RSA-AES128-GCM-SHA256", "AES128-GCM-SHA256"))
# server, anchor, more words, the rule that is broken, who breaks it, the alert, the server's words
VERDICTS = {
    "good": ("good", "root", {}, "", "", "", ""),
    "the one between is the anchor": ("good", "between", {}, "", "", "", ""),
    "another name": ("other", "root", {}, OTHER, "other", "bad_certificate", ""),
    "expired": ("good", "root", {"later": 31 * DAY}, EXPIRED, "good", "certificate_expired", ""),
    "not yet valid": ("good", "root", {"later": -DAY}, EARLY, "good", "certificate_expired", ""),
    "unknown issuer": ("good", "stranger", {}, NOBODY, "between", "unknown_ca", ""),
    "signing, ECDHE": ("signing", "root", {}, "", "", "", ECDHE),
    "signing, RSA": ("signing", "root", {}, LACKS.format("keyEncipherment"), "signing", MISFIT, RSA),
    "encrypting, RSA": ("encrypting", "root", {}, "", "", "", RSA),
    **{f"encrypting, {words or 'TLS 1.3'}": (
        "encrypting", "root", {}, LACKS.format("digitalSignature"), "encrypting", MISFIT, words)
        for words in ("", ECDHE, ECDHE.replace("ECDHE", "DHE"))},
}


@pytest.mark.parametrize("name", VERDICTS)
def test_a_chain_and_its_anchor(chain, probe, name):
    leaf, anchor, job, rule, subject, alert, words = VERDICTS[name]
    with serve(chain, leaf, words) as server:
        checked, unchecked = probe(server, anchor, **job), probe(server, **job)
        if alert:
            server.wait(f"<<< .* Alert .*, fatal {alert}\n")
    log = checked["log"]
    assert checked["ok"] == (not rule) and unchecked["ok"], log
    assert "Not verifying server certificate...\n" in unchecked["log"]
    assert (f"does not fit the key exchange: {rule}" in unchecked["log"]) == (alert == MISFIT)
    expected = ["SSL server certificate verification failed.\n", rule,
                f"certificate: CN=the {subject} one\n",
                f"issuedBy: CN=the {CERTIFICATES[subject][0]} one\n",
                "Server certificate verification failed. (3)\n",
                "ConnectFailReason: Server certificate validation failed\n"] if rule else [
        "Server certificate is verified.", "revoked is not checked"]
    assert [text for text in expected if text not in log] == [], log


def test_a_session_stays_with_its_anchors_and_rules(chain, probe):
    """One of an unverified connection is not offered where the chain has to be verified; the file of
    anchors counts by what is in it."""
    copy = chain / "copy.pem"
    shutil.copy(chain / "root.pem", copy)
    steps = [(None, {}, False), (None, {}, True), ("root", {}, False), ("root", {}, True),
             (None, {}, False), ("copy", {}, False), ("copy", {}, True),
             ("copy", {"options": "TLS_NO_GCM"}, False), ("copy", {}, False), ("rewritten", {}, False),
             ("copy", {}, False), ("copy", {}, True)]
    with serve(chain, "good") as server:
        for number, (anchor, more, resumed) in enumerate(steps):
            if anchor == "rewritten":
                copy.write_text((chain / "stranger.pem").read_text() + copy.read_text())
                continue
            result = probe(server, anchor, slot="rules", **more)
            assert result["ok"] and result["resumed"] == resumed, (number, result)
            unverified = "Not verifying server certificate because this TLS session is a resumption."
            assert not anchor or (unverified in result["log"]) == resumed


def test_a_session_ends_in_time(chain, probe):
    """With its certificate; and after a week, though each ticket is a new one and lasts two hours."""
    with serve(chain, "good") as server:
        before, at_end = (probe(server, "root", slot="end", later=30 * DAY + more) for more in (-3600, 60))
        week = [probe(server, "root", slot="week", later=7100 * hop)["resumed"] for hop in range(87)]
    assert before["ok"] and not at_end["ok"] and EXPIRED in at_end["log"], at_end
    assert week == [False] + [True] * 85 + [False]


@pytest.mark.parametrize("anchor", ["root", "stranger"])
def test_anchors_of_the_distribution(so, chain, anchor):
    """The bundle is replaced for one process, in a mount namespace of its own."""
    if not os.path.exists(BUNDLE):
        pytest.skip("this machine has no bundle of trust anchors")
    script = f'mount --bind {chain}/{anchor}.pem {BUNDLE} && exec "$0" "$@"'
    with serve(chain, "good") as server, Probe(so, "tls", ["unshare", "-rm", "sh", "-c", script]) as probe:
        result = probe.run(port=server.port, host="localhost", anchors="system")
    assert result["ok"] == (anchor == "root") and f"trustAnchors: {BUNDLE}\n" in result["log"], result


POISON = "".join(f"250-{word}\r\n" for word in "mx PIPELINING CHUNKING 8BITMIME SMTPUTF8 DSN AUTH".split())
POISON += "250 STARTTLS\r\n"
HONEST, WELCOME = "250-mx\r\n250 AUTH PLAIN\r\n", "235 2.7.0 welcome\r\n"
WAIT = "530 5.7.0 Must issue a STARTTLS command first\r\n"


@pytest.mark.parametrize("demanded, replies, expected", [
    # What somebody on the way said in clear is forgotten: there is a login, and commands wait for
    # each other.
    *((demanded, {"EHLO": [POISON, HONEST], "AUTH": [WELCOME], "MAIL": ["550 5.7.1 not you\r\n"]},
       "EHLO STARTTLS EHLO AUTH MAIL RSET") for demanded in (0, 1)),
    # A login that must wait for STARTTLS.
    (0, {"EHLO": [HONEST] * 3, "AUTH": [WAIT, WELCOME]}, "EHLO AUTH EHLO STARTTLS EHLO AUTH MAIL RCPT DATA")])
def test_before_and_after_starttls(so, tmp_path, demanded, replies, expected):
    plans = {}

    def plan(connection, command):
        script = plans.setdefault(connection, {name: list(texts) for name, texts in replies.items()})
        return script[command].pop(0) if script.get(command) else {"STAR": "220 go\r\n"}.get(command)

    context = server_context(make_certificate(tmp_path / "server"))
    with ScriptedServer(plan, context) as server, Host(so, tmp_path) as host:
        host.Initialise()
        host.compose(server.port, "anna@example.test", "bela@example.test")
        host.setStartTls(demanded)
        host.setSmtpUser("tester")
        host.setSmtpPassword("secret")
        host.setSubject("\u00e1rv\u00edz")
        host.setLogo("")
        assert host.szBrisko() == ("DATA" in expected), host.error()
    last = [line for number, line in server.commands if number == server.connections - 1]
    assert " ".join(line.split()[0] for line in last).startswith(expected), last
    assert "MAIL FROM:<anna@example.test>" in last
