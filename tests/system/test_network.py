"""A network of its own: what a send comes to when hosts, ports, routes and cables fail. One table:
the outcome, how many addresses were tried, the time it took, and what the log says."""
import contextlib
import copy
import dataclasses
import shutil
import subprocess
import time

import pytest

from cutter import CLIENT, SERVER, Fault, Line
from netns import FAR, FAR6, NO_NETWORK, NO_ROUTE, SILENT, Network, NetworkMissing
from probes import Probe
from receiver import Receiver

SLICE_MS = 333
CONNECT_MS, READ_MS = 1000, 800
NAMES = {"two.test": [SILENT, FAR], "late.test": [SILENT, SILENT[:-1] + "4", FAR], "six.test": [FAR6]}
LARGE = 30000000  # more than all buffers on the way hold
CUT_AFTER = 300000


@dataclasses.dataclass
class Row:
    host: str
    status: str  # "Success", or the status word
    attempts: int  # addresses that were tried
    limit_ms: int
    log: list
    port: str = "mail"
    words: dict = dataclasses.field(default_factory=dict)


TIMEOUT = ["failedWaitToConnect", "ConnectFailReason: Timeout",
           "A few possible causes for a connection timeout are:"]
REJECTED = ["ConnectFailReason: Connection rejected", "possible causes for a connection being rejected are:"]
PATIENT = {"ConnectTimeout": 8000}
TABLE = {
    "a good host": Row(FAR, "Success", 1, 0, ["socket connect successful."]),
    "refused port": Row(FAR, "ConnectFailed", 1, 0, ["WSAECONNREFUSED", *REJECTED], port="closed"),
    "silent host": Row(SILENT, "ConnectFailed", 1, CONNECT_MS, [f"hostname: {SILENT}", *TIMEOUT]),
    "host unreachable": Row(
        NO_ROUTE, "ConnectFailed", 1, 0, ["There is no route to the remote host.", *REJECTED]),
    "network unreachable": Row(NO_NETWORK, "ConnectFailed", 1, 0, ["WSAENETUNREACH", *REJECTED]),
    "no such name": Row(
        "gone.test", "ConnectFailed", 0, 0, ["ConnectFailReason: DNS lookup failed"], words=PATIENT),
    "dead first, live second": Row(
        "two.test", "Success", 2, 4000, [f"ipv4_address: {SILENT}", "failedWaitToConnect",
                                         f"ipv4_address: {FAR}"], words=PATIENT),
    "two dead, the live one too late": Row(
        "late.test", "ConnectFailed", 1, 2000,
        ["Failed to make TCP connection before applications max wait time to connect.", *TIMEOUT],
        words={"ConnectTimeout": 2000}),
    "IPv6 alone, by address": Row(FAR6, "Success", 1, 0, ["createSocket_ipv6"], "mail6"),
    "IPv6 alone, by name": Row("six.test", "Success", 1, 0, ["createSocket_ipv6"], "mail6", PATIENT),
    "200 ms of delay": Row(FAR, "Success", 1, 1600, ["Success."], "slow"),
    "the end of the greeting is lost": Row(
        FAR, "Timeout", 2, 2 * READ_MS,
        ["Will re-try one time...", "(a line without its end had come: 220 mail.example"], "lossy"),
    "the path dies within DATA": Row(
        FAR, "Timeout", 1, 5 * READ_MS, ["Timeout after partial send.", "numBytesUnsent"], "watched",
        {"bytes": LARGE}),
}


@pytest.fixture(scope="module")
def network(tmp_path_factory):
    """With everything that listens on the far machine: `receivers`, `lines`, and `ports` by name."""
    try:
        with Network(tmp_path_factory.mktemp("network"), NAMES) as network, contextlib.ExitStack() as stack:
            far = network.far.run
            network.receivers = [far(stack.enter_context, Receiver(host=host)) for host in (FAR, FAR6)]
            port, port6 = (receiver.port for receiver in network.receivers)
            kept = len(b"220 mail.example.test Python SMTP 1.4.")  # the line never ends
            network.lines = {"slow": far(Line, port, host=FAR, delay=0.1, listen=FAR),
                             "lossy": far(Line, port, Fault("lose", SERVER, kept, True), FAR, listen=FAR),
                             "watched": far(Line, port, host=FAR, listen=FAR)}
            network.ports = {"closed": 9, "mail": port, "mail6": port6}
            for name, line in network.lines.items():
                network.ports[name] = line.port
                stack.callback(line.close)
            yield network
    except NetworkMissing as missing:
        pytest.skip(f"this system does not allow networks of our own: {missing}")


@pytest.fixture(scope="module")
def near_product(network, product, tmp_path_factory):
    """The build as a program of the near machine sees it. Wine's sockets are made by its server."""
    if not product.wine:
        yield product
        return
    prefix = tmp_path_factory.mktemp("wine") / "prefix"
    subprocess.run(["cp", "-a", "--reflink=auto", product.wine.prefix, prefix], check=True)
    near = copy.copy(product)
    near.env = {**product.env, "WINE_PREFIX_DIR": str(prefix)}
    wineserver = ["wineserver", "-p"]
    env = {**near.env, "WINEPREFIX": str(prefix), "WINEARCH": "win32"}
    network.near.run(subprocess.run, wineserver, env=env, check=True)
    yield near
    subprocess.run(["wineserver", "-k"], env=env, check=True)
    shutil.rmtree(prefix)


def send(network, product, row):
    words = {"ConnectTimeout": CONNECT_MS, "ReadTimeout": READ_MS, **row.words}
    words.update(SmtpHost=row.host, SmtpPort=network.ports[row.port])
    with network.near.run(Probe, product, "send", **words) as probe:
        passed = network.lines["watched"].passed[CLIENT]
        passed.clear()
        probe.start()
        while row.port == "watched" and len(passed) < CUT_AFTER:
            time.sleep(0.002)
        if row.port == "watched":
            network.cut_cable()
        try:
            return probe.answer()
        finally:
            network.join_cable()


@pytest.mark.parametrize("case", TABLE)
def test_table(network, near_product, case):
    row = TABLE[case]
    before = sum(len(receiver.messages) for receiver in network.receivers)
    result = send(network, near_product, row)
    assert result["status"] == row.status, result["log"]
    assert result["log"].count("  createSocket_ipv") == row.attempts
    assert result["ms"] <= row.limit_ms + SLICE_MS, result["log"]
    assert [text for text in row.log if text not in result["log"]] == [], result["log"]
    copies = sum(len(receiver.messages) for receiver in network.receivers) - before
    assert copies == (row.status == "Success")
