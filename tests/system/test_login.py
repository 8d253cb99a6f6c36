"""Logins at a Postfix with Cyrus SASL, in clear, under TLS from the start and after STARTTLS: accepted,
refused, nothing shown. What was agreed is what Postfix writes down."""
import base64
import hmac
import re

import pytest

from postfix import LOGIN, MECHANISMS, PASSWORD, USER, serve
from probes import Probe
from products import Host
from programs import run
from servers import free_port, make_certificate

WRONG = "pa55-wrong hidden"
VERSIONS = {"implicit": "TLSv1.3", "starttls": "TLSv1.2"}
SETTINGS = """smtpd_tls_loglevel = 1
smtpd_tls_session_cache_database = btree:$data_directory/tls
smtpd_tls_cert_file = {}
smtpd_tls_key_file = {}
"""
SERVICE = """127.0.0.1:{port} inet n - n - - smtpd
  -o smtpd_tls_wrappermode={wrapper}
  -o smtpd_tls_security_level=may
  -o smtpd_tls_auth_only=yes
  -o smtpd_tls_protocols={version}
"""


@pytest.fixture(scope="module")
def server(tmp_path_factory):
    ports = {start: free_port() for start in VERSIONS}
    services = [SERVICE.format(port=ports[start], version=VERSIONS[start],
                               wrapper="yes" if start == "implicit" else "no") for start in VERSIONS]
    settings = SETTINGS.format(*make_certificate(tmp_path_factory.mktemp("tls") / "server"))
    with serve(LOGIN + settings, "".join(services)) as server:
        server.ports = {**ports, "": server.port}
        yield server


def send(product, folder, port, method, password, user=USER, domain="", version=2, start=""):
    """Sends one message; gives the error text, empty for a success."""
    with Host(product, folder) as host:
        host.Initialise()
        host.compose(port, "anna@example.test", "bela@example.test")
        host.setUseSSL(int(start == "implicit"))
        host.setStartTls(int(start == "starttls"))
        host.setSmtpAuthMethod(method)
        host.setSmtpUser(user)
        host.setSmtpPassword(password)
        host.setLoginDomain(domain)
        host.setDefaultNtlmVersion(version)
        host.setSubject(f"login by {method}")
        host.setBody("<p>line</p>\r\n" * (20000 if start else 1))
        host.setLogo("")
        host.setVerboseLogging()
        host.setLogging()
        success, error = host.szBrisko(), host.error()
        assert bool(success) == (error == "")
    if password != user:  # which shows
        expect_hidden(password, error, *(path.read_bytes().decode("utf-8", "replace")
                                         for path in folder.iterdir() if path.is_file()))
    return error


def expect_hidden(password, log, *written):
    """Neither the password in its forms, nor the beginnings of the lines that were computed from it."""
    secrets = [password, "TlRMTVNTUAAD"]  # NTLM's last message
    for word in (password.encode(), password.encode("utf-16-le")):
        for shift in range(3):  # base64 of it at any place in a longer text
            secrets.append(base64.b64encode(b"\0" * shift + word)[4 * bool(shift):-4].decode())
    if challenge := re.search(r"334 (PD\S+)", log):  # CRAM-MD5's
        digest = hmac.new(password.encode(), base64.b64decode(challenge[1]), "md5").hexdigest()
        secrets += [digest, base64.b64encode(f"{USER} {digest}".encode()).decode()]
    assert not [secret for secret in secrets for text in (log, *written) if secret in text]


ROWS = [(method, start, {}) for method in ("", *MECHANISMS) for start in ("", *VERSIONS)]
ROWS += [("NTLM", "", {"version": version, "domain": domain})
         for version, domain in ((1, ""), (1, "EXAMPLE"), (2, "EXAMPLE"))]
ROWS = [(name, *row) for name in ("so", "dll") for row in ROWS]
ROWS += [("dll64", "LOGIN", "", {}), ("dll64", "CRAM-MD5", "implicit", {}), ("dll64", "NTLM", "starttls", {})]


@pytest.mark.parametrize("product, method, start, words", ROWS, indirect=["product"])
def test_refused_and_accepted(product, tmp_path, server, method, start, words):
    before, read = len(server.messages(0)), len(server.log())
    words = {**words, "start": start, "port": server.ports[start], "method": method}
    error = send(product, tmp_path, password=WRONG, **words)
    assert "535 5.7.8" in error and (f"AUTH {method}" in error or "{PasswordOrCredentials}" in error)
    assert len(server.messages(0)) == before
    assert send(product, tmp_path, password=PASSWORD, **words) == ""
    message = server.messages(before + 1)[-1]
    assert b"login by" in message and (len(message) > 200000) == bool(start)
    log = server.log()[read:]
    assert f"sasl_method={method or 'LOGIN'}, sasl_username={USER}" in log
    # Each time the trial connection and the send, which uses its session: TLS 1.3 shows it.
    found = re.findall(r"TLS connection established from .*: (TLSv[\d.]+) with(.*)", log)
    assert [version for version, _ in found] == ([VERSIONS[start]] * 4 if start else [])
    assert start != "implicit" or ["server-digest" in rest for _, rest in found] == [True, False] * 2


@pytest.mark.parametrize("password", [PASSWORD, WRONG], ids=["right", "wrong"])
def test_a_login_by_the_companion_program(product, tmp_path, server, password):
    (tmp_path / "secret").write_text(password + "\n")
    before, right = len(server.messages(0)), password == PASSWORD
    done = run(product, product.program, "--host", "127.0.0.1", "--port", server.port,
               "--auth", "NTLM", "--domain", "EXAMPLE", "--user", USER,
               "--password-file", product.path(tmp_path / "secret"), "--from", "anna@example.test",
               "--to", "bela@example.test", "--subject", "login")
    assert done.code == (0 if right else 77) and ("535 5.7.8" in done.err) != right, done.err
    assert len(server.messages(before + right)) == before + right
    expect_hidden(password, done.err, done.out)


in_windows = pytest.mark.parametrize("product", ["dll", "dll64"], indirect=True)


@in_windows
def test_the_security_package_with_given_credentials(product, tmp_path, server):
    """Wine's package answers by NTLMv2 alone unless told otherwise; Cyrus SASL has no target information."""
    (tmp_path / "smb.conf").write_text("[global]\nclient ntlmv2 auth = no\n")
    env = {"SMB_CONF_PATH": str(tmp_path / "smb.conf")}
    with Probe(product, "login", env=env, port=server.port, user=USER) as probe:
        taken, refused = probe.run(password=PASSWORD), probe.run(password=WRONG)
    assert taken["ok"] and "235 2.7.0" in taken["transcript"]
    assert "smtpAuth.ntlmImpl: microsoftSspi" in taken["log"]
    assert not refused["ok"] and "Logon denied.  Check username, password, and domain" in refused["log"]
    for password in (PASSWORD, WRONG):
        expect_hidden(password, "", str(taken), str(refused))


@in_windows
def test_the_logged_on_user_goes_through_the_security_package(product, tmp_path, server):
    error = send(product, tmp_path, server.port, "NTLM", "default", user="default")
    commands = [line for line in error.splitlines() if line.endswith("<CRLF>")]
    # Wine's package has no password of this user: its first message goes out, no second one.
    first = commands.index("AUTH NTLM<CRLF>")
    assert commands[first + 1].startswith("TlRMTVNTUAAB") and commands[first + 2:] == ["*<CRLF>"]
    assert error.splitlines()[-1].startswith("501 ")
