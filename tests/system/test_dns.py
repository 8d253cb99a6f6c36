"""Names asked of real name servers by both builds, which see them as the only ones of the system. No
packet leaves the machine."""
import contextlib
import dataclasses
import struct

import pytest

import dns
from receiver import self_signed

ZONE, BROKEN = "dns.example", "broken.example"
FORGED = "6.6.6.6"
MANY = [f"192.0.2.{i}" for i in range(1, 41)]
ALIASES = 8
DNSMASQ_RECORDS = [
    f"host-record=one.{ZONE},192.0.2.1", f"host-record=two.{ZONE},192.0.2.2,2001:db8::2",
    f"host-record=six.{ZONE},2001:db8::6", f"host-record=end.{ZONE},192.0.2.9",
    *(f"host-record=many.{ZONE},{ip}" for ip in MANY),
    *(f"cname=c{i}.{ZONE},{f'c{i + 1}' if i < ALIASES else 'end'}.{ZONE}" for i in range(1, ALIASES + 1)),
    "local-ttl=300"]
UNBOUND_RECORDS = [
    f"one.{ZONE}. 300 A 192.0.2.1", f"two.{ZONE}. 300 A 192.0.2.2", f"two.{ZONE}. 300 AAAA 2001:db8::2",
    f"six.{ZONE}. 300 AAAA 2001:db8::6", *(f"many.{ZONE}. 300 A {ip}" for ip in MANY)]


@pytest.fixture(scope="module")
def servers(tmp_path_factory):
    """dnsmasq and unbound, the latter with TLS."""
    folder = tmp_path_factory.mktemp("dns")
    try:
        dns.View(folder, [])
    except dns.ViewRefused as refused:
        pytest.skip(f"name servers: {refused}")
    with contextlib.ExitStack() as stack:
        dnsmasq = stack.enter_context(dns.Dnsmasq(folder, ZONE, DNSMASQ_RECORDS))
        yield dnsmasq, stack.enter_context(dns.Unbound(
            folder, ZONE, UNBOUND_RECORDS, (BROKEN, dnsmasq.address), self_signed(folder)))


@dataclasses.dataclass
class Name:
    name: str
    found: list
    log: list = dataclasses.field(default_factory=list)
    absent: list = dataclasses.field(default_factory=list)


SYSTEM = "systemResolver: asking for IPv4 addresses"
COMMON = [
    Name(f"one.{ZONE}", ["192.0.2.1"], [], [SYSTEM, "fallbackToTcp"]),
    Name(f"one.{ZONE}", ["192.0.2.1"], ["ip_from_dns_cache: 192.0.2.1"], ["nameserver:"]),
    Name(f"TWO.{ZONE}.", ["192.0.2.2"], [], [SYSTEM]),
    Name(f"many.{ZONE}", MANY, ["fallbackToTcp"], [SYSTEM]),
    Name(f"six.{ZONE}", ["2001:db8::6"], ["retry", SYSTEM, "No IPv4 address found, checking for IPv6..."]),
    Name(f"gone.{ZONE}", [], ["NXDOMAIN", SYSTEM, "DNS resolution failed."]),
]
DNSMASQ_NAMES = COMMON + [Name(f"c1.{ZONE}", ["192.0.2.9"], [], [SYSTEM])]
UNBOUND_NAMES = COMMON + [
    Name(f"mail.{BROKEN}", [], ["dnsResponseCode: 2", "The name server failed to find an answer (SERVFAIL)."])]


def check(name, result):
    assert sorted(result["found"]) == sorted(name.found), f"{name.name}: {result['log']}"
    assert result["ok"] == bool(name.found)
    for text in name.log:
        assert text in result["log"], f"{name.name}: {result['log']}"
    for text in name.absent:
        assert text not in result["log"], f"{name.name}: {result['log']}"


@pytest.mark.parametrize("which, names", [(0, DNSMASQ_NAMES), (1, UNBOUND_NAMES)], ids=["dnsmasq", "unbound"])
def test_names(product, servers, tmp_path, which, names):
    view = dns.View(tmp_path, [servers[which].address])
    results = view.resolve(product, *(name.name for name in names))
    assert len(results) == len(names)
    for name, result in zip(names, results):
        check(name, result)
        if "ip_from_dns_cache" not in "".join(name.log):
            assert f"nameserver: {servers[which].address}" in result["log"]


def test_tls(product, servers, tmp_path):
    """A server without TLS is left for one that has it, and nothing is asked in the clear."""
    view = dns.View(tmp_path, [servers[0].address, servers[1].address])
    names = [Name(f"one.{ZONE}", ["192.0.2.1"], ["WSAECONNREFUSED", "SSL/TLS Channel Established."], [SYSTEM]),
             Name(f"many.{ZONE}", MANY, [], [SYSTEM, "fallbackToTcp"])]
    for name, result in zip(names, view.resolve(product, "tls=1", *(name.name for name in names))):
        check(name, result)
    view = dns.View(tmp_path, [servers[0].address])
    check(Name("", [], ["none of the nameservers support DoT", "DNS resolution failed."], [SYSTEM]),
          view.resolve(product, "tls=1", f"one.{ZONE}")[0])


def test_ipv6_first(product, servers, tmp_path):
    view = dns.View(tmp_path, [servers[0].address])
    both, four = view.resolve(product, "six=1", f"two.{ZONE}", f"one.{ZONE}")
    assert both["found"] == ["2001:db8::2"], both["log"]
    assert "Looking for IPv6 addresses first..." in both["log"]
    assert four["found"] == ["192.0.2.1"], four["log"]


def test_dead_servers(product, servers, tmp_path):
    """Nobody at the first address: the second is asked at once. Nobody anywhere: an end in time."""
    view = dns.View(tmp_path, [dns.own_address(), servers[0].address])
    result, = view.resolve(product, f"one.{ZONE}")
    check(Name("", ["192.0.2.1"], ["WSAECONN"], [SYSTEM]), result)
    assert result["ms"] < 1000  # the first repetition would come after 1500
    view = dns.View(tmp_path, [dns.own_address()])
    result, = view.resolve(product, f"one.{ZONE}")
    check(Name("", [], ["DNS resolution failed."]), result)


def test_hosts_file(so, servers, tmp_path):
    view = dns.View(tmp_path, [servers[0].address], f"127.0.0.1 localhost\n192.0.2.77 one.{ZONE} short\n")
    for result in view.resolve(so, f"one.{ZONE}", "short"):
        check(Name("", ["192.0.2.77"], ["ip_from_hosts_file: 192.0.2.77"], ["nameserver:", SYSTEM]), result)


def forged(reply):
    """The reply with another address: the last four bytes of the only record."""
    return reply[:-4] + bytes(map(int, FORGED.split(".")))


def other_id(reply):
    return struct.pack(">H", struct.unpack(">H", reply[:2])[0] ^ 1) + reply[2:]


def other_question(reply):
    return reply[:13] + bytes([reply[13] ^ 2]) + reply[14:]


@dataclasses.dataclass
class Trick:
    handle: object
    datagrams: int  # how many the forwarder sees
    log: list = dataclasses.field(default_factory=list)
    timeout: int = 7400  # three quarters are the name server's


TRICKS = {
    "passed on": Trick(lambda n, query, reply: [(reply, False)], 1),
    "the first lost": Trick(lambda n, query, reply: [(reply, False)] if n > 1 else [], 2),
    "three lost": Trick(lambda n, query, reply: [(reply, False)] if n > 3 else [], 4),
    "forged before the true one": Trick(
        lambda n, query, reply: [(other_id(forged(reply)), False), (other_question(forged(reply)), False),
                                 (forged(reply), True), (reply[:-3], False), (b"?", False), (query, False),
                                 (reply, False)],
        1, ["Response ID not equal to request ID.", "A DNS reply to another question was ignored.",
            "A malformed DNS reply was ignored."]),
    # So short a time is all for the name server, and the system's resolver is not asked any more.
    "only forged": Trick(lambda n, query, reply: [(other_id(forged(reply)), False), (forged(reply), True)], 3,
                         ["Waited, but no data ready on UDP socket.", "Response ID not equal to request ID."], 3999),
}


@pytest.mark.parametrize("trick", TRICKS)
def test_bad_roads(product, servers, tmp_path, trick):
    row = TRICKS[trick]
    with dns.Forwarder(servers[0].address, row.handle) as forwarder:
        view = dns.View(tmp_path, [forwarder.address])
        result, = view.resolve(product, f"timeout={row.timeout}", f"one.{ZONE}")
    check(Name(trick, [] if trick == "only forged" else ["192.0.2.1"], row.log, [SYSTEM, FORGED]), result)
    assert forwarder.received == row.datagrams
    if trick == "only forged":
        assert result["reason"] == 3 and result["ms"] >= row.timeout


def test_a_late_reply_to_another_question_is_never_used(product, servers, tmp_path):
    """The reply to the first name comes with the second one's, under its own id."""
    kept = []

    def handle(number, query, reply):
        kept.append(reply)
        return [] if number == 1 else [(forged(kept[0]), False), (reply, False)]

    with dns.Forwarder(servers[0].address, handle) as forwarder:
        view = dns.View(tmp_path, [forwarder.address])
        first, second = view.resolve(product, "timeout=1200", f"two.{ZONE}", f"one.{ZONE}")
    check(Name("first", [], ["DNS timeout."]), first)
    check(Name("second", ["192.0.2.1"], [], [FORGED]), second)
