"""The TLS client against servers of others: every version, certificate, suite and group they have, sessions
used again, a request for a client certificate, renegotiation, key updates, small records."""
import collections
import concurrent.futures
import contextlib
import itertools
import os
import queue
import re

import pytest

import tls_servers
from probes import Probe
from tls_servers import KINDS, PEERS, VERSIONS

ROWS = [row for row in itertools.product(PEERS, VERSIONS, KINDS) if row[1] in PEERS[row[0]].versions]
COUNTS = {"openssl": 531, "gnutls": 517, "nss": 334, "botan": 356}
OPTIONS = {"brainpoolP256r1": {"options": "brainpool_supported_group"},
           "brainpoolP384r1": {"morecurves": 1}, "brainpoolP512r1": {"morecurves": 1}}


class Bench:
    """Context manager: probes that wait for work, certificates, the suites that are offered."""

    def __init__(self, folder, product):
        self.product, self.certificates = product, tls_servers.Certificates(folder)
        self.idle = queue.SimpleQueue()

    def __enter__(self):
        self._stack = contextlib.ExitStack()
        workers = (os.cpu_count() or 1) + 1
        self._pool = self._stack.enter_context(concurrent.futures.ThreadPoolExecutor(workers))
        for _ in range(workers):
            self._add_probe()
        probe = self.idle.get()
        lines = [line.split() for line in probe.run(list=1)["suites"].splitlines()]
        self.suites = {name.removeprefix("TLS_"): (oldest, int(number)) for name, _, oldest, number in lines}
        self.idle.put(probe)
        return self

    def __exit__(self, *error):
        self._stack.__exit__(*error)

    def _add_probe(self):
        self.idle.put(self._stack.enter_context(Probe(self.product, "tls")))

    def cells(self, row):
        return list(PEERS[row[0]].cells(*row, self.suites))

    def fill(self, cells):
        """Runs the cells side by side; nothing may be wrong."""
        def one(cell):
            probe = self.idle.get()
            try:
                faults = list(faults_of(cell, self, probe))
                self.idle.put(probe)
            except (AssertionError, OSError, ValueError) as error:
                faults = [repr(error)]
                self._add_probe()  # the other may still be at the job
            return [f"{' '.join(cell)}: {fault}" for fault in faults]

        faults = [fault for found in self._pool.map(one, cells) for fault in found]
        assert cells and not faults, f"{len(faults)} faults\n" + "\n".join(faults)


def faults_of(cell, bench, probe):
    before13, plain = cell.version != "1.3", cell.feature == "plain"
    with PEERS[cell.peer](bench.certificates, cell, bench.suites[cell.suite][1]) as server:
        for resumed in range(1 + plain):
            probe.start(port=server.port, slot="-".join(cell), **server.talk, **OPTIONS.get(cell.group, {}),
                        # Botan resumes only what the hello's version names.
                        policy=f"TLS {cell.version} or lower" if cell.peer == "botan" else "")
            if server.talk["talk"] == "words":
                dictate(server, cell)
            result = probe.answer()
            if not result["ok"]:
                yield f"failed\n{result['log'][-4000:]}\nthe server said\n{server.said()[-2000:]}"
                return
            group = "unknown group" if cell.group == "-" or (resumed and before13) else cell.group
            expected = {"version": f"TLS {cell.version}", "suite": f"TLS_{cell.suite}", "group": group,
                        "resumed": resumed}
            for name, value in expected.items():
                # The group of a fresh DHE has no name.
                if result[name] != value and (name != "group" or not cell.suite.startswith("DHE") or resumed):
                    yield f"{name}: expected {value}, the client says {result[name]}"
            said = server.wait(server.end, 1 + resumed)
    for pattern, times in server.marks().items():
        if (found := len(re.findall(pattern, said))) != times:
            yield f"the server says {pattern!r} {found} times"


def dictate(server, cell):
    """Orders at s_server's standard input, each carried out before the next; then a megabyte each way."""
    server.wait(r"eady\n")  # TLS 1.0 sends the first letter in a record of its own
    orders = {"renegotiate": [("r\n", "<<< .*, Finished", 2), ("", ">>> .*, Finished", 2)],
              "keyupdate": [("k\n", ">>> .*, KeyUpdate", 1), ("K\n", "<<< .*, KeyUpdate", 1)]}
    for order, pattern, times in orders[cell.feature]:
        server.write(order)
        server.wait(pattern, times)
    server.write(("x" * 7999 + "\n") * 125 + "end\n")


@pytest.fixture(scope="module")
def bench(so, tmp_path_factory):
    with Bench(tmp_path_factory.mktemp("tls"), so) as bench:
        yield bench


def test_no_cell_is_missing(bench):
    assert collections.Counter(cell.peer for row in ROWS for cell in bench.cells(row)) == COUNTS


@pytest.mark.parametrize("row", ROWS, ids="-".join)
def test_cells(bench, row):
    bench.fill(bench.cells(row))


@pytest.mark.parametrize("version", VERSIONS)
def test_cells_of_the_windows_build(dll, tmp_path, version):
    """Each suite with each feature, and each group, once."""
    with Bench(tmp_path, dll) as bench:
        seen, cells = set(), []
        for cell in (cell for row in ROWS if row[1] == version for cell in bench.cells(row)):
            marks = {(cell.suite, cell.feature), cell.group}
            cells += [] if marks <= seen else [cell]
            seen |= marks
        bench.fill(cells)
