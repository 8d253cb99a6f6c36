"""Names asked of real name servers by both builds, which see them as the only ones of the system. No
packet leaves the machine."""
import contextlib

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
        dns.View(folder)
    except dns.ViewRefused as refused:
        pytest.skip(f"name servers: {refused}")
    with contextlib.ExitStack() as stack:
        dnsmasq = stack.enter_context(dns.dnsmasq(folder, ZONE, DNSMASQ_RECORDS))
        unbound = stack.enter_context(dns.unbound(folder, ZONE, UNBOUND_RECORDS, (BROKEN, dnsmasq.address),
                                                  self_signed(folder)))
        yield {"dnsmasq": dnsmasq.address, "unbound": unbound.address, "nobody": dns.own_address()}


SYSTEM, FAILED = "systemResolver: asking for IPv4 addresses", "DNS resolution failed."
# (name, addresses, what the log says, what it does not say)
COMMON = [
    (f"one.{ZONE}", ["192.0.2.1"], ["nameserver: "], [SYSTEM, "fallbackToTcp"]),
    (f"one.{ZONE}", ["192.0.2.1"], ["ip_from_dns_cache: 192.0.2.1"], ["nameserver:"]),
    (f"TWO.{ZONE}.", ["192.0.2.2"], ["nameserver: "], [SYSTEM]),
    (f"many.{ZONE}", MANY, ["nameserver: ", "fallbackToTcp"], [SYSTEM]),
    (f"six.{ZONE}", ["2001:db8::6"], ["retry", SYSTEM, "No IPv4 address found, checking for IPv6..."], []),
    (f"gone.{ZONE}", [], ["NXDOMAIN", SYSTEM, FAILED], [])]
# case: (the name servers, words, names)
CASES = {
    "dnsmasq": (["dnsmasq"], {}, [*COMMON, (f"c1.{ZONE}", ["192.0.2.9"], ["nameserver: "], [SYSTEM])]),
    "unbound": (["unbound"], {}, [*COMMON, (
        f"mail.{BROKEN}", [], ["dnsResponseCode: 2", "failed to find an answer (SERVFAIL)."], [])]),
    "a server without TLS is left for one that has it": (["dnsmasq", "unbound"], {"tls": 1}, [
        (f"one.{ZONE}", ["192.0.2.1"], ["WSAECONNREFUSED", "SSL/TLS Channel Established."], [SYSTEM]),
        (f"many.{ZONE}", MANY, [], [SYSTEM, "fallbackToTcp"])]),
    "nothing is asked in the clear": (["dnsmasq"], {"tls": 1}, [
        (f"one.{ZONE}", [], ["none of the nameservers support DoT", FAILED], [SYSTEM])]),
    "IPv6 first": (["dnsmasq"], {"six": 1}, [
        (f"two.{ZONE}", ["2001:db8::2"], ["Looking for IPv6 addresses first..."], []),
        (f"one.{ZONE}", ["192.0.2.1"], [], [])]),
    "nobody at the first address": (["nobody", "dnsmasq"], {}, [
        (f"one.{ZONE}", ["192.0.2.1"], ["WSAECONN"], [SYSTEM])]),
    "nobody anywhere": (["nobody"], {}, [(f"one.{ZONE}", [], [FAILED], [])]),
}


def check(expected, result):
    name, found, log, absent = expected
    assert sorted(result["found"].split()) == sorted(found), f"{name}: {result['log']}"
    assert result["ok"] == bool(found)
    assert [text for text in [*log, *absent] if text in result["log"]] == log, f"{name}: {result['log']}"


@pytest.mark.parametrize("case", CASES)
def test_names(product, servers, tmp_path, case):
    asked, words, names = CASES[case]
    view = dns.View(tmp_path, *(servers[name] for name in asked))
    results = view.resolve(product, *(name[0] for name in names), **words)
    for name, result in zip(names, results, strict=True):
        check(name, result)
        if "nameserver: " in name[2]:
            assert f"nameserver: {servers[asked[-1]]}" in result["log"]
        # A dead server is left at once: the first repetition would come after 1500 ms.
        assert asked[0] != "nobody" or not name[1] or result["ms"] < 1000


def test_hosts_file(so, servers, tmp_path):
    view = dns.View(tmp_path, servers["dnsmasq"], hosts=f"192.0.2.77 one.{ZONE} short\n")
    for result in view.resolve(so, f"one.{ZONE}", "short"):
        check(("", ["192.0.2.77"], ["ip_from_hosts_file: 192.0.2.77"], ["nameserver:", SYSTEM]), result)


def test_forged_replies_before_the_true_one(product, servers, tmp_path):
    def replies(query, reply):
        forged = reply[:-4] + bytes(map(int, FORGED.split(".")))  # the address ends the only record
        other_id, other_question = (forged[:at] + bytes([forged[at] ^ 2]) + forged[at + 1:] for at in (1, 13))
        return [(other_id, False), (other_question, False), (forged, True), (reply[:-3], False),
                (query, False), (reply, False)]

    with dns.Forwarder(servers["dnsmasq"], replies) as forwarder:
        result, = dns.View(tmp_path, forwarder.address).resolve(product, f"one.{ZONE}")
    check(("", ["192.0.2.1"], [
        "Response ID not equal to request ID.", "A DNS reply to another question was ignored.",
        "A malformed DNS reply was ignored."], [SYSTEM, FORGED]), result)
