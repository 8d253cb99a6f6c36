"""The TLS client against servers of others, each held to one version, certificate, suite and group:
sessions used again, a client certificate asked for, renegotiation, key updates, small records."""
import collections
import concurrent.futures
import itertools
import os
import re

import pytest

from probes import Probe
from servers import Server, free_port, make_certificate, run

VERSIONS, KINDS = ("1.0", "1.1", "1.2", "1.3"), ("rsa", "P-256", "P-384", "P-521")
GROUPS = ("x25519", "secp256r1", "secp384r1", "secp521r1")
BRAINPOOL = {"brainpoolP256r1": {"options": "brainpool_supported_group"},
             "brainpoolP384r1": {"morecurves": 1}, "brainpoolP512r1": {"morecurves": 1}}
# feature: plain and identity (a fresh connection and one resumed, by a ticket or without any),
# request (a client certificate is asked for), renegotiate, keyupdate, limitN (record_size_limit)
Cell = collections.namedtuple("Cell", "peer version certificate group suite feature")


def when(condition, *words):
    return words if condition else ()


class OpenSsl(Server):
    groups, lacks = (*GROUPS, *BRAINPOOL), "DES_|RC4"  # a pattern of suites
    features = {"identity": VERSIONS, "request": VERSIONS, "renegotiate": VERSIONS[:3],
                "keyupdate": VERSIONS[3:]}
    end = r">>> .*, Alert .*close_notify"  # stands in its output once for each connection, last

    def __init__(self, folder, cell):
        self.port, new = free_port(), cell.version == "1.3"
        self.dictated = cell.feature in ("renegotiate", "keyupdate")
        self.talk = {"talk": "words"} if self.dictated else {"talk": "echo", "lines": 125}
        name = cell.suite.replace("_WITH", "").replace("AES_", "AES").replace("_CBC", "")
        name = name.replace("1305_SHA256", "1305").replace("_", "-").removeprefix("RSA-")
        super().__init__(folder, [
            "openssl", "s_server", "-accept", f"127.0.0.1:{self.port}", "-msg",
            "-cert", f"{cell.certificate}.pem", "-key", f"{cell.certificate}.key",
            "-tls" + cell.version.replace(".0", "").replace(".", "_"),
            *when(new, "-ciphersuites", f"TLS_{cell.suite}"),
            *when(not new, "-cipher", f"{name}:@SECLEVEL=0"),
            *when(cell.group != "-", "-groups", cell.group.replace("secp256r1", "P-256")),
            *when(not self.dictated, "-rev"), *when(cell.feature == "identity", "-no_ticket"),
            *when(cell.feature == "request", "-verify", "1")], "ACCEPT")
        retried = new and cell.group in ("secp384r1", "secp521r1")
        handshakes = 2 if cell.feature in ("plain", "identity", "renegotiate") else 1
        self.marks = {
            r"<<< .*, Finished": handshakes, r">>> .*, ServerHello\n": handshakes * (1 + retried),
            r">>> .*, Certificate\n": 2 if cell.feature == "renegotiate" else 1,
            r"<<< .*\[length 000[78]\], Certificate\n": cell.feature == "request"}  # an empty list
        if cell.feature == "identity" and not new:
            self.marks[">>> .*, NewSessionTicket"] = 0

    def dictate(self, feature):
        """Orders at standard input, each carried out before the next; then a megabyte each way."""
        self.wait(r"eady\n")  # TLS 1.0 sends the first letter in a record of its own
        for order, pattern, times in {
                "renegotiate": [("r\n", "<<< .*, Finished", 2), ("", ">>> .*, Finished", 2)],
                "keyupdate": [("k\n", ">>> .*, KeyUpdate", 1), ("K\n", "<<< .*, KeyUpdate", 1)],
                }[feature]:
            self.write(order)
            self.wait(pattern, times)
        self.write(("x" * 7999 + "\n") * 125 + "end\n")


class GnuTls(Server):
    groups, lacks = GROUPS, "_DES_"
    features = {"request": VERSIONS, "renegotiate": VERSIONS[:3], "limit64": VERSIONS[2:],
                "limit512": VERSIONS[2:]}
    end, dictated = "- Channel bindings", False

    def __init__(self, folder, cell):
        self.port, feature = free_port(), cell.feature
        limit, request = feature.startswith("limit"), feature == "request"
        self.talk = {"talk": "echo", "lines": 125,
                     "before": "**REHANDSHAKE**" if feature == "renegotiate" else ""}
        exchange, cipher, mac = re.fullmatch(r"(?:(.+)_WITH_)?(.+)_(SHA\d*|MD5)", cell.suite).groups()
        mac = {"SHA": "SHA1"}.get(mac, mac) if re.search("CBC|RC4", cipher) else "AEAD"
        exchange = (exchange or "ECDHE-RSA:+ECDHE-ECDSA").replace("_", "-")
        cipher = cipher.replace("_", "-").replace("3DES-EDE", "3DES").replace("RC4", "ARCFOUR")
        priority = [f"NONE:+VERS-TLS{cell.version}:+{cipher}:+{mac}",
                    f"+{exchange}:+SIGN-ALL:+COMP-NULL:+CTYPE-X509",
                    *when(limit, "%ALLOW_SMALL_RECORDS"),
                    *when(cell.group != "-", f"+GROUP-{cell.group.upper()}")]
        super().__init__(folder, [
            "stdbuf", "-o0", "gnutls-serv", "--port", self.port, "--echo", "--dhparams", "dh.pem",
            "--x509certfile", f"{cell.certificate}.pem",
            "--x509keyfile", f"{cell.certificate}.key", "--priority", ":".join(priority),
            *when(limit, "--recordsize", feature[5:]),
            *(["-d", "4"] if request else ["--disable-client-cert"])], "IPv4 .*done")
        self.marks = {"This is a resumed session": feature == "plain",
                      "Received hello message": feature == "renegotiate",
                      r"HSK.*: CERTIFICATE \(11\) was received\. Length [34]\[": request}


PEERS = {"openssl": OpenSsl, "gnutls": GnuTls}
ROWS = list(itertools.product(PEERS, VERSIONS, KINDS))


def cells(suites, peer, version, certificate):
    """Those that the server can fill."""
    server = PEERS[peer]
    for name, oldest in suites.items():
        fits = version == "1.3" or ("_ECDSA_" in name) == (certificate != "rsa")
        lacks = re.search(server.lacks, name) or oldest > version
        if lacks or (oldest < "1.3" == version) or not fits:
            continue
        curves = version == "1.3" or name.startswith("ECDHE")
        groups = GROUPS if version == "1.3" else server.groups if curves else ["-"]
        plain = [Cell(peer, version, certificate, group, name, "plain") for group in groups]
        yield from plain
        for feature, versions in server.features.items():
            if version in versions and (certificate == "rsa" or "limit" not in feature):
                yield plain[0]._replace(feature=feature)


@pytest.fixture(scope="module")
def suites(so):
    with Probe(so, "tls") as probe:
        lines = [line.split() for line in probe.run(list=1)["suites"].splitlines()]
    return {name.removeprefix("TLS_"): oldest for name, _, oldest, _ in lines}


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    """Certificates, and what servers say."""
    folder = tmp_path_factory.mktemp("tls")
    for kind in KINDS:
        make_certificate(folder / kind, kind=kind)
    run("openssl", "genpkey", "-genparam", "-algorithm", "DH", "-pkeyopt", "group:ffdhe2048",
        "-out", folder / "dh.pem")
    return folder


def play(product, folder, cells):
    """On each processor and one more; nothing may be wrong."""
    def fill(first):
        with Probe(product, "tls") as probe:
            for cell in cells[first::workers]:
                try:
                    faults.extend(f"{' '.join(cell)}: {fault}" for fault in faults_of(cell, folder, probe))
                except (AssertionError, OSError, ValueError) as error:
                    faults.append(f"{' '.join(cell)}: {error!r}")
                    return  # the probe may still be at the job

    workers, faults = (os.cpu_count() or 1) + 1, []
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        list(pool.map(fill, range(workers)))
    assert cells and not faults, f"{len(faults)} faults\n" + "\n".join(faults)


def faults_of(cell, folder, probe):
    before13, resumes = cell.version != "1.3", cell.feature in ("plain", "identity")
    with PEERS[cell.peer](folder, cell) as server:
        for resumed in range(1 + resumes):
            probe.start(port=server.port, slot="-".join(cell), **server.talk,
                        **BRAINPOOL.get(cell.group, {}))
            if server.dictated:
                server.dictate(cell.feature)
            result = probe.answer()
            if not result["ok"]:
                yield f"failed\n{result['log'][-4000:]}\nthe server said\n{server.said()[-2000:]}"
                return
            group = "unknown group" if cell.group == "-" or (resumed and before13) else cell.group
            if cell.suite.startswith("DHE") and not resumed:
                group = result["group"]  # that of a fresh DHE has no name
            found = tuple(result[name] for name in ("version", "suite", "group", "resumed"))
            expected = f"TLS {cell.version}", f"TLS_{cell.suite}", group, resumed
            if found != expected:
                yield f"expected {expected}, the client says {found}"
            said = server.wait(server.end, 1 + resumed)
    for pattern, times in server.marks.items():
        if (count := len(re.findall(pattern, said))) != times:
            yield f"the server says {pattern!r} {count} times"


def test_no_cell_is_missing(suites):
    counts = collections.Counter(cell.peer for row in ROWS for cell in cells(suites, *row))
    assert counts == {"openssl": 608, "gnutls": 517}


@pytest.mark.parametrize("row", ROWS, ids="-".join)
def test_cells(so, folder, suites, row):
    play(so, folder, list(cells(suites, *row)))


@pytest.mark.parametrize("version", VERSIONS)
def test_cells_of_the_windows_build(dll, folder, suites, version):
    """Each suite with each feature, and each group, once."""
    seen, chosen = set(), []
    for cell in (cell for row in ROWS if row[1] == version for cell in cells(suites, *row)):
        marks = {(cell.suite, cell.feature), cell.group}
        chosen += [] if marks <= seen else [cell]
        seen |= marks
    play(dll, folder, chosen)
