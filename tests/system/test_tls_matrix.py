"""The TLS client against servers of others: every version, certificate, suite and group they have, sessions
used again, a request for a client certificate, renegotiation. What was agreed is what the server says."""
import collections
import concurrent.futures
import contextlib
import os
import threading

import pytest

import products
import tls_servers
from tls_servers import PEERS, Cell

LIST = products.ROOT / "tests" / "data" / "tls_cells.txt"
OPTIONS = {"brainpoolP256r1": {"options": "brainpool_supported_group"},
           "brainpoolP384r1": {"morecurves": 1}, "brainpoolP512r1": {"morecurves": 1}}
LINES = 125  # of 8000 characters, each way, where words go through the server's standard input


def listed():
    """The cells of the list, by peer, version and certificate."""
    table = collections.defaultdict(list)
    for line in LIST.read_text().splitlines():
        peer, version, certificate, group, feature, *suites = line.split()
        table[peer, version, certificate] += [Cell(peer, version, certificate, group, name, feature)
                                              for name in suites]
    return table


CELLS = listed()


class Bench:
    """A probe for each of a few threads, and the certificates."""

    def __init__(self, folder, command, env):
        self.certificates = tls_servers.Certificates(folder)
        self._command, self._env = command, env
        self._probes, self._own = [], threading.local()
        self._pool = concurrent.futures.ThreadPoolExecutor((os.cpu_count() or 1) + 1)
        self.suites = tls_servers.our_suites(self.probe())
        self.theirs = {}
        self.filled = 0

    def probe(self):
        if not hasattr(self._own, "probe"):
            self._own.probe = tls_servers.Probe(self._command, self._env)
            self._probes.append(self._own.probe)
        return self._own.probe

    def close(self):
        self._pool.shutdown()
        for probe in self._probes:
            probe.close()

    def knows(self, peer):
        if peer not in self.theirs:
            self.theirs[peer] = set(tls_servers.cells_of(peer, self.suites))
        return self.theirs[peer]

    def fill(self, cells):
        """Runs the cells side by side; gives what was wrong."""
        def one(cell):
            try:
                return [f"{' '.join(cell)}: {fault}" for fault in run(cell, self)]
            except (AssertionError, OSError, LookupError, AttributeError, TypeError) as error:
                del self._own.probe  # it may still be at the job
                return [f"{' '.join(cell)}: {error!r}"]

        self.filled += len(cells)
        return [fault for faults in self._pool.map(one, cells) for fault in faults]


def run(cell, bench):
    suite = bench.suites[cell.suite]
    job = {"slot": cell, "policy": "", **OPTIONS.get(cell.group, {})}
    if cell.peer == "botan":
        job["policy"] = f"TLS {cell.version} or lower"  # it resumes only what the hello's version names
    with PEERS[cell.peer](bench.certificates, cell, suite) as server:
        job.update(server.talk, port=server.port)
        results = []
        for resumed in (False, True) if cell.feature == "plain" else (False,):
            bench.probe().start(**job)
            if job["talk"] == "words":
                dictate(server, cell)
            result = bench.probe().result()
            results.append(result)
            if not result["ok"]:
                return [f"failed\n{result['log'][-4000:]}\nthe server said\n{server.said()[-2000:]}"]
            reports = server.reports(len(results))
        return [fault for resumed, (result, report) in enumerate(zip(results, reports))
                for fault in faults_of(cell, suite, bool(resumed), result, report, job)]


def dictate(server, cell):
    """Orders at s_server's standard input, each carried out before the next; then a megabyte each way."""
    server.wait(r"eady\n")  # TLS 1.0 sends the first letter in a record of its own
    if cell.feature == "renegotiate":
        server.write("r\n")
        server.wait(r"<<< .*, Finished", 2)
        server.wait(r">>> .*, Finished", 2)
    else:
        server.write("k\n")
        server.wait(r">>> .*, KeyUpdate")
        server.write("K\n")
        server.wait(r"<<< .*, KeyUpdate")
    server.write(("x" * 7999 + "\n") * LINES)
    server.write("end\n")


def faults_of(cell, suite, resumed, result, report, job):
    before13 = cell.version != "1.3"
    group = None if cell.group == "-" or (resumed and before13) else cell.group
    handshakes = 2 if cell.feature == "renegotiate" else 1
    asked = cell.feature == "request"
    if cell.peer == "nss":
        asked = None
    retry = None
    if cell.peer == "openssl":
        retry = not before13 and cell.group in ("secp384r1", "secp521r1")
    wanted = {"version": cell.version, "suite": suite.id, "group": group, "resumed": resumed,
              "asked": asked, "handshakes": handshakes, "retry": retry}
    ours = {"version": f"TLS {cell.version}", "suite": f"TLS_{suite.name}", "group": group or "unknown group",
            "resumed": resumed}
    if suite.name.startswith("DHE_") and not resumed:
        del ours["group"]
    if "bytes" in job:
        ours["received"] = job["bytes"]
    for name, value in wanted.items():
        if value is not None or name == "group":
            if name == "group" and resumed and (before13 or cell.peer == "gnutls"):
                continue  # some name the session's, or none
            if getattr(report, name) != value:
                yield f"{name}: expected {value}, the server says {getattr(report, name)}"
    for name, value in ours.items():
        if result[name] != value:
            yield f"{name}: expected {value}, the client says {result[name]}"


@pytest.fixture(scope="module")
def bench(tmp_path_factory):
    program = products.build_folder("native") / "tests" / "probes" / "tls_probe"
    with contextlib.closing(Bench(tmp_path_factory.mktemp("tls"), [program], None)) as bench:
        yield bench


@pytest.mark.parametrize("peer", PEERS)
def test_the_list_has_every_cell_that_the_server_can_fill(bench, peer):
    cells = {cell for row in CELLS.values() for cell in row if cell.peer == peer}
    assert cells == bench.knows(peer)


@pytest.mark.parametrize("row", CELLS, ids="-".join)
def test_cells(bench, row):
    bench.knows(row[0])
    faults = bench.fill(CELLS[row])
    assert not faults, f"{len(faults)} faults\n" + "\n".join(faults)


def windows_cells():
    """Each suite of each version with each feature, and each group of each version, once."""
    seen = set()
    for cell in (cell for row in CELLS.values() for cell in row):
        marks = {(cell.version, cell.suite, cell.feature), (cell.version, cell.group)}
        if not marks <= seen:
            seen |= marks
            yield cell


def test_cells_of_the_windows_build(wine_session, tmp_path, capsys):
    program = products.build_folder("win32") / "tests" / "probes" / "tls_probe.exe"
    assert program.exists(), "not built"
    cells = list(windows_cells())
    with contextlib.closing(Bench(tmp_path, wine_session.command(program), wine_session.env)) as bench:
        for peer in PEERS:
            bench.knows(peer)
        faults = bench.fill(cells)
    with capsys.disabled():
        print(f"\n{len(cells) - len(faults)} of {len(cells)} cells of TLS servers were filled from Windows")
    assert not faults, f"{len(faults)} faults\n" + "\n".join(faults)


def test_all_cells_were_filled(bench, capsys, request):
    wanted = sum(map(len, CELLS.values()))
    with capsys.disabled():
        print(f"\n{bench.filled} of {wanted} cells of TLS servers were filled")
    assert bench.filled == wanted or request.config.option.keyword
