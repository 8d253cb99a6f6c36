"""Names asked of real name servers by both builds, which see them as the only ones of the system. No
packet leaves the machine."""
import os
import subprocess

import pytest

from probes import Probe
from servers import Server, dnsmasq, make_certificate

ZONE, BROKEN = "dns.example", "broken.example"
ALIAS = f"cname=alias.{ZONE},one.{ZONE}"
MANY = [f"192.0.2.{i}" for i in range(1, 41)]
RECORDS = {"one": ["192.0.2.1"], "two": ["192.0.2.2", "2001:db8::2"], "six": ["2001:db8::6"],
           "many": MANY}
# By the certificate it speaks TLS on port 853, too.
UNBOUND = """server:
    interface: {address}@53
    interface: {address}@853
    tls-port: 853
    tls-service-pem: "{certificate[0]}"
    tls-service-key: "{certificate[1]}"
    pidfile: ""
    chroot: ""
    username: ""
    use-syslog: no
    do-not-query-localhost: no
    module-config: "iterator"
    local-zone: "{zone}." static
    {records}
forward-zone:
    name: "{broken}."
    forward-addr: {refuses}
"""
VIEW = 'mount --bind "$1" /etc/resolv.conf && mount --bind "$2" /etc/hosts && shift 2 && exec "$@"'
# Addresses of this process's own, for port 53.
PID = os.getpid()
SERVERS = {name: f"127.{64 * number + (PID >> 14) % 64}.{(PID >> 7) % 128}.{1 + PID % 128}"
           for number, name in enumerate(("dnsmasq", "unbound", "nobody"), 1)}


def view(folder, *servers, hosts=""):
    """Before a command: it finds these name servers in /etc/resolv.conf and the hosts in /etc/hosts."""
    settings, table = folder / "resolv.conf", folder / "hosts"
    # One try of the system's own resolver: it is not what is tested here.
    settings.write_text("options timeout:1 attempts:1\n" + "".join(f"nameserver {s}\n" for s in servers))
    table.write_text("127.0.0.1 localhost\n" + hosts)
    return ["unshare", "--mount", "--propagation", "private", "sh", "-c", VIEW, "sh", settings, table]


@pytest.fixture(scope="module")
def servers(tmp_path_factory):
    """dnsmasq and unbound, the latter with TLS."""
    folder = tmp_path_factory.mktemp("dns")
    done = subprocess.run([*view(folder), "true"], capture_output=True, text=True)
    if done.returncode:
        pytest.skip(f"name servers: private mount namespaces are refused: {done.stderr.strip()}")
    records = [f"local-data: '{name}.{ZONE}. 300 {'AAAA' if ':' in address else 'A'} {address}'"
               for name, addresses in RECORDS.items() for address in addresses]
    (folder / "unbound.conf").write_text(UNBOUND.format(
        address=SERVERS["unbound"], certificate=make_certificate(folder / "server"),
        zone=ZONE, records="\n    ".join(records), broken=BROKEN, refuses=SERVERS["dnsmasq"]))
    records = [f"host-record={name}.{ZONE},{address}" for name, addresses in RECORDS.items()
               for address in addresses]
    with dnsmasq(folder, SERVERS["dnsmasq"], ZONE, [*records, ALIAS, "local-ttl=300"]), Server(
            folder, ["unbound", "-d", "-c", folder / "unbound.conf"], "start of service"):
        yield SERVERS


SYSTEM, FAILED = "systemResolver: asking for IPv4 addresses", "DNS resolution failed."
ONE, TWO, SIX = f"one.{ZONE}", f"two.{ZONE}", f"six.{ZONE}"
# (name, addresses, what the log says, what it does not say)
COMMON = [
    (ONE, ["192.0.2.1"], ["nameserver: "], [SYSTEM, "fallbackToTcp"]),
    (ONE, ["192.0.2.1"], ["ip_from_dns_cache: 192.0.2.1"], ["nameserver:"]),
    (f"TWO.{ZONE}.", ["192.0.2.2"], ["nameserver: "], [SYSTEM]),
    (f"many.{ZONE}", MANY, ["nameserver: ", "fallbackToTcp"], [SYSTEM]),
    (SIX, ["2001:db8::6"], ["retry", SYSTEM, "No IPv4 address found, checking for IPv6..."], []),
    (f"gone.{ZONE}", [], ["NXDOMAIN", SYSTEM, FAILED], [])]
# case: (the name servers, words, names)
CASES = {
    "dnsmasq": (["dnsmasq"], {}, [*COMMON, (f"alias.{ZONE}", ["192.0.2.1"], ["nameserver: "], [SYSTEM])]),
    "unbound": (["unbound"], {}, [*COMMON, (
        f"mail.{BROKEN}", [], ["dnsResponseCode: 2", "failed to find an answer (SERVFAIL)."], [])]),
    "a server without TLS is left for one that has it": (["nobody"], {
        "servers": " ".join(f"tls://{SERVERS[name]}" for name in ("dnsmasq", "unbound"))}, [
        (ONE, ["192.0.2.1"], ["WSAECONNREFUSED", "SSL/TLS Channel Established."], [SYSTEM]),
        (f"many.{ZONE}", MANY, [], [SYSTEM, "fallbackToTcp"])]),
    "IPv6 first": (["dnsmasq"], {"six": 1}, [
        (TWO, ["2001:db8::2"], ["Looking for IPv6 addresses first..."], [])]),
    "nobody at the first address": (["nobody", "dnsmasq"], {}, [
        (ONE, ["192.0.2.1"], ["WSAECONN"], [SYSTEM])]),
    "nobody anywhere": (["nobody"], {}, [(ONE, [], [FAILED], [])]),
}


def play(product, prefix, names, server="", limit_ms=60000, **words):
    """Each name in turn, by one process."""
    with Probe(product, "resolve", prefix, **words) as probe:
        for name, found, log, absent in names:
            result = probe.run(name=name)
            assert sorted(result["found"].split()) == sorted(found), f"{name}: {result['log']}"
            assert result["ok"] == bool(found) and result["ms"] < limit_ms
            log = [text.replace("nameserver: ", f"nameserver: {server}") for text in log]
            assert [text for text in [*log, *absent] if text in result["log"]] == log, result["log"]


@pytest.mark.parametrize("case", CASES)
def test_names(product, servers, tmp_path, case):
    asked, words, names = CASES[case]
    asked = [servers[name] for name in asked]
    # A dead server is left at once: the first repetition would come after 1500 ms.
    limit_ms = 1000 if case == "nobody at the first address" else 60000
    play(product, view(tmp_path, *asked), names, asked[-1], limit_ms, **words)


def test_hosts_file(so, servers, tmp_path):
    prefix = view(tmp_path, servers["dnsmasq"], hosts=f"192.0.2.77 {ONE} short\n")
    play(so, prefix, [(name, ["192.0.2.77"], ["ip_from_hosts_file: 192.0.2.77"],
                       ["nameserver:", SYSTEM]) for name in (ONE, "short")])
