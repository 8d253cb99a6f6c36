"""Whom the TLS client believes: chains from a PEM anchor and from the system's, sessions of verified and
unverified connections, and what a server said in clear before STARTTLS."""
import itertools
import os
import shutil
import ssl

import pytest

import receiver
import tls_servers
from probes import Probe
from products import Host
from scripted import ScriptedServer

BUNDLES = ["/etc/ssl/certs/ca-certificates.crt", "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",
           "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"]
AUTHORITY, HERE = "basicConstraints=critical,CA:TRUE", "subjectAltName=DNS:localhost,IP:127.0.0.1"
DAY = 86400
# name: (who issued it, days, extensions)
CERTIFICATES = {
    "root": ("root", 90, [AUTHORITY]), "stranger": ("stranger", 90, [AUTHORITY]),
    "between": ("root", 90, [AUTHORITY]), "good": ("between", 30, [HERE]), "lonely": ("lonely", 30, [HERE]),
    "other": ("between", 30, ["subjectAltName=DNS:other.test,DNS:*.localhost"]),
    "signing": ("between", 30, [HERE, "keyUsage=digitalSignature"]),
    "encrypting": ("between", 30, [HERE, "keyUsage=keyEncipherment"])}


class Chain:
    """Authorities and server certificates in a folder, made by openssl."""

    def __init__(self, folder):
        self.folder = folder
        for name, (issuer, days, extensions) in CERTIFICATES.items():
            options = [word for extension in extensions for word in ("-addext", extension)]
            if issuer != name:
                options += ["-CA", self.path(issuer), "-CAkey", self.path(issuer, "key")]
            tls_servers.make_certificate(folder / name, f"/CN=the {name} one", *options, days=days,
                                         kind="rsa" if "keyUsage" in extensions[-1] else "p256")

    def path(self, name, ending="pem"):
        return self.folder / f"{name}.{ending}"


class Server(tls_servers.Server):
    """s_server with a certificate of the chain and the one above it, unless that is left out."""

    def __init__(self, chain, leaf, above=True, words=()):
        super().__init__(chain)
        self.leaf, self.above, self.words = leaf, above, words

    def command(self):
        chain = self.certificates
        above = ["-cert_chain", chain.path("between")] if self.above else []
        return ["openssl", "s_server", "-accept", f"127.0.0.1:{self.port}", "-rev", "-msg", "-cert",
                chain.path(self.leaf), "-key", chain.path(self.leaf, "key"), *above, *self.words]


@pytest.fixture(scope="module")
def chain(tmp_path_factory):
    return Chain(tmp_path_factory.mktemp("chain"))


@pytest.fixture(scope="module")
def probe(product, chain):
    """Runs jobs; the anchor is a name of the chain, or a file."""
    with Probe(product, "tls", host="localhost", talk="echo", lines=2) as probe:
        def run(server, anchor=None, **job):
            anchors = {"anchors": product.path(chain.path(anchor))} if anchor else {}
            return probe.run(port=server.port, **anchors, **job)
        yield run


EXPIRED, EARLY = "The certificate has expired.", "The certificate is not valid yet."
OTHER = "The certificate was issued for another host."
NOBODY = "The issuer of the certificate is not known or not trusted."
# server, anchor, more words, the rule that is broken, who breaks it, the alert, the server's words
VERDICTS = {
    "good": ("good", "root", {}, None, None, None, ()),
    "good by its address": ("good", "root", {"host": "127.0.0.1"}, None, None, None, ()),
    "the one between is the anchor": ("good", "between", {}, None, None, None, ()),
    "signed by itself and trusted": ("lonely", "lonely", {}, None, None, None, ()),
    "another name": ("other", "root", {}, OTHER, "other", "bad_certificate", ()),
    "another address": ("other", "root", {"host": "127.0.0.1"}, OTHER, "other", "bad_certificate", ()),
    "expired": ("good", "root", {"later": 31 * DAY}, EXPIRED, "good", "certificate_expired", ()),
    "not yet valid": ("good", "root", {"later": -DAY}, EARLY, "good", "certificate_expired", ()),
    "unknown issuer": ("good", "stranger", {}, NOBODY, "between", "unknown_ca", ()),
    "nothing between": ("good -", "root", {}, NOBODY, "good", "unknown_ca", ()),
    "signed by itself": ("lonely", "root", {}, NOBODY, "lonely", "unknown_ca", ()),
}
EXCHANGES = {"TLS 1.3": "-tls1_3", "ECDHE": "-tls1_2 -cipher ECDHE-RSA-AES128-GCM-SHA256",
             "DHE": "-tls1_2 -cipher DHE-RSA-AES128-GCM-SHA256", "RSA": "-tls1_2 -cipher AES128-GCM-SHA256"}
for usage, exchange in itertools.product(("signing", "encrypting"), EXCHANGES):
    fits = (usage == "encrypting") == (exchange == "RSA")
    needed = "keyEncipherment" if exchange == "RSA" else "digitalSignature"
    broken = (f"its key usage lacks {needed}, which TLS_", usage, "unsupported_certificate")
    VERDICTS[f"{usage}, {exchange}"] = (
        usage, "root", {}, *((None, None, None) if fits else broken), EXCHANGES[exchange].split())


@pytest.mark.parametrize("name", VERDICTS)
def test_a_chain_and_its_anchor(chain, probe, name):
    leaf, anchor, job, rule, subject, alert, words = VERDICTS[name]
    leaf, _, alone = leaf.partition(" ")
    with Server(chain, leaf, not alone and leaf != "lonely", words) as server:
        checked, unchecked = probe(server, anchor, **job), probe(server, **job)
        if alert:
            server.wait(f"<<< .* Alert .*, fatal {alert}\n")
    log = checked["log"]
    assert checked["ok"] == (rule is None) and unchecked["ok"], log
    assert "Not verifying server certificate...\n" in unchecked["log"]
    misfit = f"does not fit the key exchange: {rule}"
    assert (misfit in unchecked["log"]) == (alert == "unsupported_certificate")
    expected = ["Server certificate is verified.", "revoked is not checked"] if rule is None else [
        "SSL server certificate verification failed.\n", rule, f"certificate: CN=the {subject} one\n",
        f"issuedBy: CN=the {CERTIFICATES[subject][0]} one\n", "Server certificate verification failed. (3)\n",
        "ConnectFailReason: Server certificate validation failed\n"]
    assert [text for text in expected if text not in log] == [], log


def test_a_session_stays_with_its_anchors_and_rules(chain, probe):
    """One of an unverified connection is not offered where the chain has to be verified; the file of
    anchors counts by what is in it; whatever the order of the suites, the server takes a session."""
    copy = chain.path("copy")
    shutil.copy(chain.path("root"), copy)
    new, again, other = ({}, False), ({}, True), ({"options": "TLS_NO_GCM"}, False)
    steps = [(None, *new), *[(None, *again)] * 9, ("root", *new), ("root", *again), (None, *new),
             ("copy", *new), ("copy", *again), ("copy", *other), ("copy", *new), ("copy", *again),
             ("rewritten", *new), ("copy", *new), ("copy", *again)]
    with Server(chain, "good") as server:
        for number, (anchor, more, resumed) in enumerate(steps):
            if anchor == "rewritten":
                copy.write_text(chain.path("stranger").read_text() + copy.read_text())
                continue
            result = probe(server, anchor, slot="rules", **more)
            assert result["ok"] and result["resumed"] == resumed, (number, result)
            unverified = "Not verifying server certificate because this TLS session is a resumption."
            assert not anchor or (unverified in result["log"]) == resumed


def test_a_session_ends_in_time(chain, probe):
    """With its certificate; and after a week, though each ticket is a new one and lasts two hours."""
    with Server(chain, "good") as server:
        before, at_end = (probe(server, "root", slot="end", later=30 * DAY + more) for more in (-3600, 60))
        week = [probe(server, "root", slot="week", later=7100 * hop)["resumed"] for hop in range(87)]
    assert before["ok"] and not at_end["ok"] and EXPIRED in at_end["log"], at_end
    assert week == [False] + [True] * 85 + [False]


def test_anchors_of_the_distribution(so, chain):
    """The bundle is replaced for one process, in a mount namespace of its own."""
    bundle = next(filter(os.path.exists, BUNDLES), None)
    if not bundle:
        pytest.skip("this machine has no bundle of trust anchors")
    with Server(chain, "good") as server:
        for anchor in ("root", "stranger"):
            script = f'mount --bind {chain.path(anchor)} {bundle} && exec "$0" "$@"'
            with Probe(so, "tls", ["unshare", "-rm", "sh", "-c", script]) as probe:
                result = probe.run(port=server.port, host="localhost", anchors="system")
            assert result["ok"] == (anchor == "root") and f"trustAnchors: {bundle}\n" in result["log"], result


POISON = "".join(f"250-{word}\r\n" for word in "mx PIPELINING CHUNKING 8BITMIME SMTPUTF8 DSN AUTH".split())
POISON += "250 STARTTLS\r\n"
HONEST, WELCOME = "250-mx\r\n250 AUTH PLAIN\r\n", "235 2.7.0 welcome\r\n"
FORGOTTEN = {"EHLO": [POISON, HONEST], "AUTH": [WELCOME], "MAIL": ["550 5.7.1 not you\r\n"]}
# whether STARTTLS is demanded, the replies, and the commands that have to come
CLEAR = {
    # No word of the first reply counts: there is a login, and commands wait for each other.
    "what was said in clear is forgotten": (0, FORGOTTEN, "EHLO STARTTLS EHLO AUTH MAIL"),
    "demanded": (1, FORGOTTEN, "EHLO STARTTLS EHLO AUTH MAIL"),
    "a login that must wait for STARTTLS": (
        0, {"EHLO": [HONEST] * 3, "AUTH": ["530 5.7.0 Must issue a STARTTLS command first\r\n", WELCOME]},
        "EHLO AUTH EHLO STARTTLS EHLO AUTH MAIL RCPT DATA ."),
}


@pytest.mark.parametrize("case", CLEAR)
def test_before_and_after_starttls(so, tmp_path, case):
    """The first EHLO is answered by somebody on the way, the second, inside TLS, by the server."""
    demanded, replies, expected = CLEAR[case]
    replies, expected = {"STAR": ["220 go\r\n"], **replies}, expected.split()
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(*receiver.self_signed(tmp_path))
    with ScriptedServer(lambda _, command, count: dict(enumerate(replies.get(command, []))).get(count),
                        context) as server, Host(so, tmp_path) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.port)
        host.setStartTls(demanded)
        host.setSmtpUser("tester")
        host.setSmtpPassword("secret")
        host.setFromAddress("anna@example.test")
        host.setRecipient("bela@example.test")
        host.setSubject("\u00e1rv\u00edz")
        host.setLogo("")
        assert host.szBrisko() == (expected[-1] == "."), host.error()
    last = [line for number, line in server.commands if number == server.connections - 1 and line]
    verbs = [line.split()[0] for line in last]
    assert verbs[:len(expected)] == expected and ("RCPT" in verbs) == ("RCPT" in expected)
    assert "MAIL FROM:<anna@example.test>" in last
