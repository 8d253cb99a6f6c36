"""Two machines with a cable between them, made of network namespaces: what a send comes to when
hosts, ports, routes and cables fail. One table: the outcome, how many addresses were tried, the time
it took, and what the log says."""
import concurrent.futures
import contextlib
import copy
import ctypes
import os
import shutil
import socket
import subprocess
import threading
import time
import types

import pytest

import servers
from cutter import CLIENT, Line
from probes import Probe
from receiver import Receiver

CLONE_NEWNS, CLONE_NEWNET = 0x00020000, 0x40000000
FAR, FAR6 = "10.77.0.2", "fd77::2"
SILENT = "10.77.0.3"        # packets to it leave, and nobody takes them
NO_ROUTE = "10.78.0.1"      # a router would say: host unreachable
NO_NETWORK = "192.0.2.1"    # no route at all
NAMES = {"two.test": [SILENT, FAR], "six.test": [FAR6]}

SLICE_MS, CONNECT_MS, READ_MS = 333, 1000, 800
LARGE, CUT_AFTER = 30000000, 300000  # more than all buffers on the way hold, and some of it
TIMEOUT = ["failedWaitToConnect", "ConnectFailReason: Timeout",
           "A few possible causes for a connection timeout are:"]
REJECTED = ["ConnectFailReason: Connection rejected",
            "possible causes for a connection being rejected are:"]
PATIENT = {"ConnectTimeout": 8000}
# host, "Success" or the status word, addresses tried, at most so many ms, the log, settings
TABLE = {
    "refused port": (FAR, "ConnectFailed", 1, 0, ["WSAECONNREFUSED", *REJECTED], {"SmtpPort": "closed"}),
    "silent host": (SILENT, "ConnectFailed", 1, CONNECT_MS, [f"hostname: {SILENT}", *TIMEOUT], {}),
    "host unreachable": (NO_ROUTE, "ConnectFailed", 1, 0,
                         ["There is no route to the remote host.", *REJECTED], {}),
    "network unreachable": (NO_NETWORK, "ConnectFailed", 1, 0, ["WSAENETUNREACH", *REJECTED], {}),
    "dead first, live second": (
        "two.test", "Success", 2, 4000, [f"ipv4_address: {SILENT}", "failedWaitToConnect",
                                         f"ipv4_address: {FAR}"], PATIENT),
    "IPv6 alone": ("six.test", "Success", 1, 0, ["createSocket_ipv6"], {**PATIENT, "SmtpPort": "mail6"}),
    "the path dies within DATA": (
        FAR, "Timeout", 1, 5 * READ_MS, ["Timeout after partial send.", "numBytesUnsent"],
        {"SmtpPort": "watched", "bytes": LARGE}),
}


class Machine:
    """Context manager: a thread with a network and a mount table of its own. What it starts,
    processes and threads, lives there too."""

    def __enter__(self):
        self._thread = concurrent.futures.ThreadPoolExecutor(1)
        self.network = self.run(self._separate)
        self.run(servers.run, "mount", "--make-rprivate", "/")
        self.ip("link set lo up")
        return self

    def __exit__(self, *_):
        self._thread.shutdown()

    def run(self, function, *args, **options):
        """Calls the function in the machine's thread and gives what it gives."""
        return self._thread.submit(function, *args, **options).result(60)

    def ip(self, words):
        self.run(servers.run, "ip", *words.split())

    def _separate(self):
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.unshare(CLONE_NEWNET | CLONE_NEWNS):
            raise OSError(f"unshare: {os.strerror(ctypes.get_errno())}")
        return f"/proc/{os.getpid()}/task/{threading.get_native_id()}/ns/net"


def wait_for_cable(port):
    """A fresh link loses its first packets, or knows no way."""
    deadline = time.monotonic() + 30
    while True:
        try:
            return socket.create_connection((FAR, port), 5).close()
        except OSError:
            assert time.monotonic() < deadline
            time.sleep(0.05)


@pytest.fixture(scope="module")
def network(tmp_path_factory):
    """`near` has the plug-in and a name server; `far` has the `receivers`, `watched` and all `ports`."""
    folder = tmp_path_factory.mktemp("network")
    records = [f"host-record={name},{address}" for name in NAMES for address in NAMES[name]]
    (folder / "resolv.conf").write_text("nameserver 127.0.0.1\n")
    try:
        with contextlib.ExitStack() as stack:
            near, far = (stack.enter_context(Machine()) for _ in range(2))
            near.ip("link add tvnear type veth peer name tvfar")
            near.ip(f"link set tvfar netns {far.network}")
            for machine, end, address in ((near, "tvnear", 1), (far, "tvfar", 2)):
                machine.ip(f"addr add 10.77.0.{address}/24 dev {end}")
                machine.ip(f"-6 addr add fd77::{address}/64 dev {end} nodad")
                machine.ip(f"link set {end} up")
            near.ip(f"neigh add {SILENT} lladdr 02:00:00:00:00:09 dev tvnear nud permanent")
            near.ip(f"route add unreachable {NO_ROUTE}/32")
            near.run(servers.run, "mount", "--bind", folder / "resolv.conf", "/etc/resolv.conf")
            near.run(stack.enter_context, servers.dnsmasq(folder, "127.0.0.1", "test", records))
            receivers = [far.run(stack.enter_context, Receiver(host=host)) for host in (FAR, FAR6)]
            port = receivers[0].port
            watched = far.run(stack.enter_context, Line(port, host=FAR))
            ports = {"closed": 9, "mail": port, "mail6": receivers[1].port, "watched": watched.port}
            yield types.SimpleNamespace(near=near, far=far, receivers=receivers, ports=ports,
                                        passed=watched.passed[CLIENT])
    except (OSError, RuntimeError) as refused:
        pytest.skip(f"this system does not allow networks of our own: {refused}")


@pytest.fixture(scope="module")
def near_product(network, product, tmp_path_factory):
    """The build as a program of the near machine sees it. Wine's sockets are made by its server."""
    if not product.wine:
        yield product
        return
    prefix = tmp_path_factory.mktemp("wine") / "prefix"
    subprocess.run(["cp", "-a", "--reflink=auto", product.wine.prefix, prefix], check=True)
    near = copy.copy(product)
    near.env = {**product.env, "WINE_PREFIX_DIR": str(prefix), "WINEPREFIX": str(prefix)}
    network.near.run(subprocess.run, ["wineserver", "-p"], env=near.env, check=True)
    yield near
    subprocess.run(["wineserver", "-k"], env=near.env, check=True)
    shutil.rmtree(prefix)


@pytest.mark.parametrize("case", TABLE)
def test_table(network, near_product, case):
    host, status, attempts, limit_ms, log, settings = TABLE[case]
    words = {"ConnectTimeout": CONNECT_MS, "ReadTimeout": READ_MS, "SmtpPort": "mail", **settings}
    words["SmtpPort"] = network.ports[words["SmtpPort"]]
    before = sum(len(receiver.messages) for receiver in network.receivers)
    network.passed.clear()
    network.far.ip("link set tvfar up")  # the row before may have cut the cable
    network.far.ip(f"-6 addr replace {FAR6}/64 dev tvfar nodad")
    network.near.run(wait_for_cable, network.ports["mail"])
    with network.near.run(Probe, near_product, "send", SmtpHost=host, **words) as probe:
        probe.start()
        if "bytes" in words:
            while len(network.passed) < CUT_AFTER:
                time.sleep(0.002)
            network.far.ip("link set tvfar down")
        result = probe.answer()
    assert result["status"] == status, result["log"]
    assert result["log"].count("  createSocket_ipv") == attempts
    assert result["ms"] <= limit_ms + SLICE_MS, result["log"]
    assert [text for text in log if text not in result["log"]] == [], result["log"]
    copies = sum(len(receiver.messages) for receiver in network.receivers) - before
    assert copies == (status == "Success")
