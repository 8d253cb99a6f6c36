"""Mail through the exports to a Postfix that speaks one version of TLS, at once or after STARTTLS; what was
agreed is what Postfix writes down."""
import itertools
import re

import pytest

import tls_servers
from postfix import Postfix, PostfixMissing, free_port
from products import Host

NAMES = {"1.0": "TLSv1", "1.1": "TLSv1.1", "1.2": "TLSv1.2", "1.3": "TLSv1.3"}
KINDS = ("rsa", "p256")
SERVICE = """127.0.0.1:{port} inet n - n - - smtpd
  -o smtpd_tls_wrappermode={wrapper}
  -o smtpd_tls_security_level={level}
  -o smtpd_tls_protocols={version}
  -o smtpd_tls_mandatory_protocols={version}
  -o smtpd_tls_chain_files={chain}
"""
SETTINGS = {"smtpd_tls_loglevel": "1", "smtpd_tls_ciphers": "medium", "smtpd_tls_mandatory_ciphers": "medium",
            "tls_medium_cipherlist": "ALL:@SECLEVEL=0",
            "smtpd_tls_session_cache_database": "btree:${data_directory}/tls",
            "import_environment": "MAIL_CONFIG MAIL_DEBUG MAIL_LOGTAG TZ LANG=C POSTLOG_SERVICE POSTLOG_HOSTNAME "
                                  "OPENSSL_CONF=/dev/null"}


@pytest.fixture(scope="module")
def server(tmp_path_factory):
    certificates = tls_servers.Certificates(tmp_path_factory.mktemp("tls"))
    services, ports = "tlsmgr unix - - n 1000? 1 tlsmgr\n", {}
    for version, kind, start in itertools.product(NAMES, KINDS, ("implicit", "starttls")):
        chain = certificates.folder / f"{kind}.chain"
        chain.write_bytes(certificates.key(kind).read_bytes() + certificates.pem(kind).read_bytes())
        port = ports[version, kind, start] = free_port()
        services += SERVICE.format(port=port, chain=chain, version=NAMES[version],
                                   wrapper="yes" if start == "implicit" else "no",
                                   level="encrypt" if start == "implicit" else "may")
    try:
        with Postfix(settings=SETTINGS, services=services) as server:
            server.ports = ports
            yield server
    except PostfixMissing as missing:
        pytest.fail(f"Postfix: {missing}")


@pytest.mark.parametrize("start", ["implicit", "starttls"])
@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("version", NAMES)
def test_a_mail_goes_through(product, tmp_path, server, version, kind, start):
    before, read = len(server.messages(0)), len(server.log())
    with Host(product, tmp_path) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.ports[version, kind, start])
        host.setUseSSL(int(start == "implicit"))
        if start == "starttls":
            host.setStartTls(1)
        host.setSmtpAuthMethod("NONE")
        host.setFromAddress("anna@example.test")
        assert host.setRecipient("bela@example.test")
        host.setSubject(f"over TLS {version}")
        host.setBody("<p>line</p>\r\n" * 20000)
        host.setLogo("")
        assert host.szBrisko(), host.error()
    message = server.messages(before + 1)[-1]
    assert f"over TLS {version}".encode() in message and len(message) > 200000
    found = re.findall(r"TLS connection established from .*: (TLSv[\d.]+) with cipher (\S+)(.*)", server.log()[read:])
    # The trial connection and the send, which uses its session.
    assert [name for name, _, _ in found] == [NAMES[version]] * 2
    assert found[0][1] == found[1][1]
    if version == "1.3":
        assert ("server-signature RSA" if kind == "rsa" else "server-signature ECDSA") in found[0][2]
        assert ["server-digest" in rest for _, _, rest in found] == [True, False]
    elif found[0][1].startswith("ECDHE-"):
        assert found[0][1].startswith("ECDHE-RSA-" if kind == "rsa" else "ECDHE-ECDSA-")
