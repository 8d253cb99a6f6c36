"""Whom the TLS client believes: chains from a PEM anchor and from the system's, sessions of verified and
unverified connections, and what a server said in clear before STARTTLS."""
import contextlib
import os
import shutil
import ssl
import time

import pytest

import products
import receiver
import tls_servers
from products import Host
from scripted import ScriptedServer

CONFIG = """
[ca]
default_ca = d
[d]
dir = {folder}
database = {folder}/index
serial = {folder}/serial
new_certs_dir = {folder}
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
[authority]
basicConstraints = critical,CA:TRUE
[leaf]
subjectAltName = {names}
[signing]
subjectAltName = {names}
keyUsage = digitalSignature
[encrypting]
subjectAltName = {names}
keyUsage = keyEncipherment
"""
BUNDLES = ["/etc/ssl/certs/ca-certificates.crt", "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",
           "/etc/ssl/ca-bundle.pem", "/etc/ssl/cert.pem"]
YEARS = {"now": ("20200101000000Z", "21000101000000Z"), "past": ("20000101000000Z", "20010101000000Z"),
         "future": ("20990101000000Z", "21000101000000Z"),
         "soon": ("20200101000000Z", time.strftime("%Y%m%d%H%M%SZ", time.gmtime(time.time() + 3000)))}


class Chain:
    """An authority, one below it and server certificates of the latter, made by openssl."""

    def __init__(self, folder):
        self.folder = folder
        (folder / "index").write_text("")
        (folder / "serial").write_text("01")
        self.issue("root", "root", "authority")
        self.issue("stranger", "stranger", "authority")
        self.issue("between", "root", "authority")
        for leaf, names, years in (("good", "DNS:localhost,IP:127.0.0.1", "now"),
                                   ("other", "DNS:other.test,DNS:*.localhost", "now"),
                                   ("expired", "DNS:localhost", "past"), ("early", "DNS:localhost", "future"),
                                   ("ending", "DNS:localhost", "soon")):
            self.issue(leaf, "between", "leaf", names, years)
        self.issue("lonely", "lonely", "leaf", "DNS:localhost")
        for usage in ("signing", "encrypting"):
            self.issue(usage, "between", usage, "DNS:localhost", key=["rsa:2048"])

    def path(self, name, kind="pem"):
        return self.folder / f"{name}.{kind}"

    def issue(self, name, issuer, section, names="DNS:x", years="now",
              key=("ec", "-pkeyopt", "ec_paramgen_curve:P-256")):
        config = self.folder / "ca.cnf"
        config.write_text(CONFIG.format(folder=self.folder, names=names))
        tls_servers.run("openssl", "req", "-new", "-newkey", *key, "-nodes", "-subj", f"/CN=the {name} one",
                        "-keyout", self.path(name, "key"), "-out", self.path(name, "csr"))
        how = ["-selfsign"] if name == issuer else ["-cert", self.path(issuer)]
        tls_servers.run("openssl", "ca", "-batch", "-config", config, *how, "-keyfile", self.path(issuer, "key"),
                        "-in", self.path(name, "csr"), "-extensions", section, "-startdate", YEARS[years][0],
                        "-enddate", YEARS[years][1], "-notext", "-out", self.path(name))


class TrustServer(tls_servers.Server):
    """s_server with a certificate of the chain and the one above it, unless that is left out."""

    def __init__(self, chain, leaf, above=True, words=()):
        self.chain, self.leaf, self.above, self.words = chain, leaf, above, words
        super().__init__(chain, leaf, None)

    def command(self):
        above = ["-cert_chain", self.chain.path("between")] if self.above else []
        return ["openssl", "s_server", "-accept", f"127.0.0.1:{self.port}", "-rev", "-msg", "-cert",
                self.chain.path(self.leaf), "-key", self.chain.path(self.leaf, "key"), *above, *self.words]


@pytest.fixture(scope="module")
def chain(tmp_path_factory):
    return Chain(tmp_path_factory.mktemp("chain"))


@pytest.fixture(scope="module", params=["so", "dll"])
def probe(request):
    if request.param == "so":
        program, wine = products.build_folder("native") / "tests" / "probes" / "tls_probe", None
        command, env = [program], None
    else:
        wine = request.getfixturevalue("wine_session")
        program = products.build_folder("win32") / "tests" / "probes" / "tls_probe.exe"
        command, env = wine.command(program), wine.env
    assert program.exists(), "not built"
    with contextlib.closing(tls_servers.Probe(command, env)) as probe:
        probe.path = lambda path: "Z:" + str(path).replace("/", "\\") if wine else str(path)
        yield probe


EXPIRED, EARLY = "The certificate has expired.", "The certificate is not valid yet."
OTHER = "The certificate was issued for another host."
NOBODY = "The issuer of the certificate is not known or not trusted."
# server, anchor, host, the rule that is broken, whose certificate breaks it, who issued that, the alert
VERDICTS = {
    "good": ("good", "root", "localhost", None, None, None, None),
    "good by its address": ("good", "root", "127.0.0.1", None, None, None, None),
    "the one between is the anchor": ("good", "between", "localhost", None, None, None, None),
    "signed by itself and trusted": ("lonely", "lonely", "localhost", None, None, None, None),
    "another name": ("other", "root", "localhost", OTHER, "other", "between", "bad_certificate"),
    "another address": ("other", "root", "127.0.0.1", OTHER, "other", "between", "bad_certificate"),
    "expired": ("expired", "root", "localhost", EXPIRED, "expired", "between", "certificate_expired"),
    "not yet valid": ("early", "root", "localhost", EARLY, "early", "between", "certificate_expired"),
    "unknown issuer": ("good", "stranger", "localhost", NOBODY, "between", "root", "unknown_ca"),
    "nothing between": ("good -", "root", "localhost", NOBODY, "good", "between", "unknown_ca"),
    "signed by itself": ("lonely", "root", "localhost", NOBODY, "lonely", "lonely", "unknown_ca"),
}


@pytest.mark.parametrize("name", VERDICTS)
def test_a_chain_and_its_anchor(chain, probe, name):
    server, anchor, host, rule, subject, issuer, alert = VERDICTS[name]
    leaf, _, alone = server.partition(" ")
    with TrustServer(chain, leaf, above=not alone and leaf != "lonely") as server:
        result = probe.run(port=server.port, host=host, anchors=probe.path(chain.path(anchor)), log=1,
                           talk="rev", bytes=1000)
        if alert:
            server.wait(f"<<< .* Alert .*, fatal {alert}\n")
    log = result["log"]
    assert result["ok"] == (rule is None), log
    assert "Verifying server certificate..." in log
    if rule is None:
        assert result["received"] == 1000
        assert "Server certificate is verified.\n" in log and "revoked is not checked" in log
    else:
        assert result["reason"] == 106
        for text in ("SSL server certificate verification failed.", rule, f"certificate: CN=the {subject} one",
                     f"issuedBy: CN=the {issuer} one", "Server certificate verification failed. (3)",
                     "ConnectFailReason: Server certificate validation failed"):
            assert text + "\n" in log, text


def test_without_verification_an_expired_certificate_is_taken(chain, probe):
    with TrustServer(chain, "expired") as server:
        result = probe.run(port=server.port, log=1, talk="rev", bytes=1000)
    assert result["ok"] and result["received"] == 1000
    assert "Not verifying server certificate...\n" in result["log"]


KEY_EXCHANGES = {"TLS 1.3": ("-tls1_3",), "ECDHE": ("-tls1_2", "-cipher", "ECDHE-RSA-AES128-GCM-SHA256"),
                 "DHE": ("-tls1_2", "-cipher", "DHE-RSA-AES128-GCM-SHA256"),
                 "RSA": ("-tls1_2", "-cipher", "AES128-GCM-SHA256")}


@pytest.mark.parametrize("exchange", KEY_EXCHANGES)
@pytest.mark.parametrize("usage", ["signing", "encrypting"])
def test_a_key_does_what_its_usage_says(chain, probe, usage, exchange):
    fits = (usage == "encrypting") == (exchange == "RSA")
    with TrustServer(chain, usage, words=KEY_EXCHANGES[exchange]) as server:
        job = {"port": server.port, "host": "localhost", "talk": "rev", "bytes": 1000, "log": 1}
        checked, unchecked = probe.run(**job, anchors=probe.path(chain.path("root"))), probe.run(**job)
        if not fits:
            server.wait("<<< .* Alert .*, fatal unsupported_certificate\n")
    assert checked["ok"] == fits and unchecked["ok"], checked["log"]
    lacking = f"its key usage lacks {'keyEncipherment' if exchange == 'RSA' else 'digitalSignature'}, which TLS_"
    assert (f"detail: {lacking}" in checked["log"]) != fits
    assert (f"does not fit the key exchange: {lacking}" in unchecked["log"]) != fits


def test_sessions_stay_among_their_kind(chain, probe):
    """One of an unverified connection is not offered where the chain has to be verified."""
    with TrustServer(chain, "good") as server:
        job = {"port": server.port, "host": "localhost", "slot": "s", "talk": "rev", "bytes": 1000, "log": 1}
        anchors = {"anchors": probe.path(chain.path("root"))}
        results = [probe.run(**job, **more) for more in ({}, anchors, anchors, {})]
    assert all(result["ok"] for result in results)
    assert [result["resumed"] for result in results] == [False, False, True, False]
    text = "Not verifying server certificate because this TLS session is a resumption."
    assert text in results[2]["log"] and text not in results[1]["log"]


def test_a_session_stays_with_its_anchors_and_rules(chain, probe, tmp_path):
    anchors = tmp_path / "anchors.pem"
    shutil.copy(chain.path("root"), anchors)
    other = {"anchors": probe.path(chain.path("root"))}
    steps = [({}, False), ({}, True), (other, False), (other, True), ({}, False), ({"options": "TLS_NO_GCM"}, False),
             ({}, False), ({}, True), ("rewritten", None), ({}, False), ({}, True)]
    with TrustServer(chain, "good") as server:
        for number, (more, resumed) in enumerate(steps):
            if more == "rewritten":
                anchors.write_text(chain.path("stranger").read_text() + chain.path("root").read_text())
                continue
            job = {"anchors": probe.path(anchors), "slot": "rules", "talk": "rev", "bytes": 1000, **more}
            result = probe.run(port=server.port, host="localhost", **job)
            assert result["ok"] and result["resumed"] == resumed, (number, result)


def test_a_session_ends_in_time(chain, probe):
    """With its certificate; and after a week, though each ticket is a new one and lasts two hours."""
    job = {"host": "localhost", "anchors": probe.path(chain.path("root")), "talk": "rev", "bytes": 1000}
    with TrustServer(chain, "ending") as server:
        before, at_end = (probe.run(port=server.port, slot="ending", later=later, **job) for later in (0, 3600))
    assert before["ok"] and not at_end["ok"] and EXPIRED in at_end["log"], at_end
    with TrustServer(chain, "good") as server:
        results = [probe.run(port=server.port, slot="week", later=7100 * hop, **job) for hop in range(87)]
    assert all(result["ok"] for result in results)
    assert [result["resumed"] for result in results] == [False] + [True] * 85 + [False]


def test_a_session_is_taken_whatever_the_order_of_the_suites(chain, probe):
    """The server takes the client's first suite, and a session only with a suite of the same hash."""
    with TrustServer(chain, "good") as server:
        results = [probe.run(port=server.port, slot="order", talk="rev", bytes=1000) for _ in range(12)]
    assert [result["resumed"] for result in results] == [False] + [True] * 11
    assert {result["version"] for result in results} == {"TLS 1.3"}


def test_anchors_of_the_distribution(chain):
    """The bundle is replaced for one process, in a mount namespace of its own."""
    bundle = next(filter(os.path.exists, BUNDLES), None)
    if not bundle:
        pytest.skip("this machine has no bundle of trust anchors")
    program = products.build_folder("native") / "tests" / "probes" / "tls_probe"
    results = []
    with TrustServer(chain, "good") as server:
        for anchor in ("root", "stranger"):
            script = f"mount --bind {chain.path(anchor)} {bundle} && exec {program}"
            with contextlib.closing(tls_servers.Probe(["unshare", "-rm", "sh", "-c", script])) as probe:
                results.append(probe.run(port=server.port, host="localhost", anchors="system", log=1))
    assert [result["ok"] for result in results] == [True, False], results
    assert f"trustAnchors: {bundle}\n" in results[0]["log"]
    assert NOBODY in results[1]["log"]


POISON = ("250-mx\r\n250-PIPELINING\r\n250-CHUNKING\r\n250-8BITMIME\r\n250-SMTPUTF8\r\n250-DSN\r\n250-AUTH\r\n"
          "250 STARTTLS\r\n")
HONEST = "250-mx\r\n250 AUTH PLAIN\r\n"


@pytest.mark.parametrize("demanded", [False, True])
@pytest.mark.parametrize("refused", [False, True])
def test_what_was_said_in_clear_is_forgotten(product, tmp_path, demanded, refused):
    """The first EHLO is answered by somebody on the way, the second, inside TLS, by the server."""
    def plan(_, command, count):
        if command == "EHLO":
            return HONEST if count else POISON
        if command == "MAIL" and refused:
            return "550 5.7.1 not you\r\n"
        return {"STAR": "220 go\r\n", "AUTH": "235 welcome\r\n"}.get(command)

    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(*receiver.self_signed(tmp_path))
    with ScriptedServer(plan, context) as server, Host(product, tmp_path) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.port)
        if demanded:
            host.setStartTls(1)
        host.setSmtpUser("tester")
        host.setSmtpPassword("secret")
        host.setFromAddress("anna@example.test")
        assert host.setRecipient("bela@example.test")
        host.setSubject("\u00e1rv\u00edz")
        host.setBody("<p>\u0151sz</p>")
        host.setLogo("")
        assert bool(host.szBrisko()) != refused, host.error()
    last = max(number for number, _ in server.commands)
    lines = [line for number, line in server.commands if number == last]
    inside = lines[lines.index("STARTTLS") + 1:]
    verbs = [line.split()[0] for line in inside]
    # No word of the first reply counts: there is a login, and commands wait for each other.
    expected = ["EHLO", "AUTH", "MAIL"] if refused else ["EHLO", "AUTH", "MAIL", "RCPT", "DATA", "."]
    assert verbs[:len(expected)] == expected and not (refused and "RCPT" in verbs)
    assert inside[2] == "MAIL FROM:<anna@example.test>"
