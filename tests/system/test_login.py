"""Logins at a Postfix with Cyrus SASL, through the exports alone: accepted, refused, nothing shown."""
import base64
import contextlib
import copy
import hmac
import pathlib
import re
import socket
import threading

import pytest

import sasl
from postfix import PostfixMissing
from probes import SendProbe
from products import Host
from programs import run

WRONG = "pa55-wrong hidden"


@pytest.fixture(scope="module")
def server():
    try:
        with sasl.SaslPostfix() as server:
            yield server
    except PostfixMissing as missing:
        pytest.fail(f"Postfix: {missing}")


@pytest.fixture(scope="module")
def tls_server():
    try:
        with sasl.SaslPostfix(tls=True, settings={"smtpd_tls_auth_only": "yes"}) as server:
            yield server
    except PostfixMissing as missing:
        pytest.fail(f"Postfix: {missing}")


def send(product, folder, server, method, password, user=sasl.USER, domain="", version=None, tls=""):
    """Sends one message; gives the error text, empty for a success."""
    with Host(product, folder) as host:
        host.Initialise()
        host.setSmtpHost("127.0.0.1")
        host.setSmtpPort(server.tls_port if tls == "implicit" else server.port)
        host.setUseSSL(int(tls == "implicit"))
        host.setStartTls(int(tls == "starttls"))
        host.setSmtpAuthMethod(method)
        host.setSmtpUser(ansi(product, user))
        host.setSmtpPassword(ansi(product, password))
        if domain:
            host.setLoginDomain(domain)
        if version is not None:
            host.setDefaultNtlmVersion(version)
        host.setFromAddress("anna@example.test")
        assert host.setRecipient("bela@example.test")
        host.setSubject(f"login by {method or 'whatever is offered'}")
        host.setBody("<p>body</p>")
        host.setLogo("")
        host.setVerboseLogging()
        host.setLogging()
        success = host.szBrisko()
        error = host.error()
        assert bool(success) == (error == "")
    for path in folder.iterdir():
        if path.is_file():
            assert_hidden(path.read_bytes().decode("utf-8", "replace"), user, password)
    assert_hidden(error, user, password)
    return error


def ansi(product, text):
    """Server settings are text of the host's code page: Windows-1252 under Wine, UTF-8 elsewhere."""
    return text.encode("cp1252" if product.name == "dll" else "utf-8")


def assert_hidden(text, user, password):
    if user == password:
        return  # the user name shows
    word = password.encode()
    plain = b"\0".join([user.encode(), user.encode(), word])
    for secret in (password, base64.b64encode(word).decode(), base64.b64encode(plain).decode()):
        assert secret not in text


@pytest.mark.parametrize("method", ["", *sasl.MECHANISMS])
def test_accepted_and_delivered(product, tmp_path, server, method):
    before = len(server.messages(0))
    assert send(product, tmp_path, server, method, sasl.PASSWORD) == ""
    message = server.messages(before + 1)[-1]
    assert b"login by" in message
    logins = [line for line in server.log().splitlines() if "sasl_method=" in line]
    assert f"sasl_method={method or 'LOGIN'}" in logins[-1]
    assert f"sasl_username={sasl.USER}" in logins[-1]


@pytest.mark.parametrize("method", sasl.MECHANISMS)
def test_a_wrong_password_is_refused(product, tmp_path, server, method):
    before = len(server.messages(0))
    error = send(product, tmp_path, server, method, WRONG)
    assert f"AUTH {method}" in error or "{PasswordOrCredentials}" in error
    assert "535 5.7.8" in error
    assert len(server.messages(0)) == before


@pytest.mark.parametrize("tls", ["starttls", "implicit"])
@pytest.mark.parametrize("method", sasl.MECHANISMS)
def test_over_tls(product, tmp_path, tls_server, method, tls):
    before = len(tls_server.messages(0))
    assert "535 5.7.8" in send(product, tmp_path, tls_server, method, WRONG, tls=tls)
    assert len(tls_server.messages(0)) == before
    assert send(product, tmp_path, tls_server, method, sasl.PASSWORD, tls=tls) == ""
    assert len(tls_server.messages(before + 1)) == before + 1


def relay(front, port):
    """Passes connections on to the port until the listening socket is closed."""
    def copy(source, target):
        with contextlib.suppress(OSError):
            while data := source.recv(65536):
                target.sendall(data.replace(b"250-STARTTLS\r\n", b""))
            target.shutdown(socket.SHUT_WR)

    with contextlib.suppress(OSError):
        while True:
            client, _ = front.accept()
            server = socket.create_connection(("127.0.0.1", port))
            for source, target in ((client, server), (server, client)):
                threading.Thread(target=copy, args=(source, target), daemon=True).start()


@pytest.fixture(scope="module")
def reluctant_server():
    """Wants STARTTLS before anything else; what stands before it hides the announcement."""
    try:
        with sasl.SaslPostfix(tls=True, settings={"smtpd_tls_security_level": "encrypt"}) as server, \
                socket.create_server(("127.0.0.1", 0)) as front:
            threading.Thread(target=relay, args=(front, server.port), daemon=True).start()
            server.port = front.getsockname()[1]
            yield server
            front.shutdown(socket.SHUT_RDWR)
    except PostfixMissing as missing:
        pytest.fail(f"Postfix: {missing}")


@pytest.mark.parametrize("method", ["LOGIN", "PLAIN", "CRAM-MD5"])
def test_a_login_that_must_wait_for_starttls(product, tmp_path, reluctant_server, method):
    assert send(product, tmp_path, reluctant_server, method, sasl.PASSWORD) == ""
    error = send(product, tmp_path, reluctant_server, method, WRONG)
    assert "530 5.7.0" in error and "STARTTLS<CRLF>" in error and "535 5.7.8" in error


@pytest.mark.parametrize("version", [1, 2])
@pytest.mark.parametrize("domain", ["", "EXAMPLE"])
def test_ntlm_versions(product, tmp_path, server, version, domain):
    assert send(product, tmp_path, server, "NTLM", sasl.PASSWORD, domain=domain, version=version) == ""


def test_without_a_login_nothing_is_taken(product, tmp_path, server):
    error = send(product, tmp_path, server, "NONE", sasl.PASSWORD)
    assert "AUTH" not in error.replace("250-AUTH", "")
    assert "554 5.7.1" in error


def test_a_login_by_the_companion_program(product, tmp_path, server):
    (tmp_path / "secret").write_text(sasl.PASSWORD + "\n")
    for password, code in ((tmp_path / "secret", 0), (tmp_path / "wrong", 1)):
        (tmp_path / "wrong").write_text(WRONG)
        before = len(server.messages(0))
        done = run(product, product.program, "--host", "127.0.0.1", "--port", server.port,
                   "--auth", "NTLM", "--domain", "EXAMPLE", "--user", sasl.USER,
                   "--password-file", product.path(password), "--from", "anna@example.test",
                   "--to", "bela@example.test", "--subject", "login")
        assert done.code == code, done.err
        assert len(server.messages(before + 1 - code)) == before + 1 - code
        for word in (sasl.PASSWORD, WRONG):
            assert_hidden(done.out + done.err, sasl.USER, word)
    assert "535 5.7.8" in done.err


def test_the_security_package_with_given_credentials(dll, tmp_path, server):
    """Wine's package answers by NTLMv2 alone unless told otherwise, and Cyrus SASL has no target information."""
    (tmp_path / "smb.conf").write_text("[global]\nclient ntlmv2 auth = no\n")
    env = {"SMB_CONF_PATH": str(tmp_path / "smb.conf")}
    probe = dll.probe("login_probe")
    done = run(dll, probe, server.port, sasl.USER, sasl.PASSWORD, "", env=env)
    assert done.code == 0, done.out
    assert "smtpAuth.ntlmImpl: microsoftSspi" in done.out and "235 2.7.0" in done.out
    refused = run(dll, probe, server.port, sasl.USER, WRONG, "", env=env)
    assert refused.code == 1
    assert "Logon denied.  Check username, password, and domain" in refused.out
    for word in (sasl.PASSWORD, WRONG):
        assert_hidden(done.out + refused.out, sasl.USER, word)


def test_without_the_security_package_the_logged_on_user_is_asked_by_login(dll, tmp_path, server):
    """Wine's package is a program that it looks for in the path."""
    (tmp_path / "bin").mkdir()
    for program in pathlib.Path("/usr/bin").iterdir():
        if program.name != "ntlm_auth":
            (tmp_path / "bin" / program.name).symlink_to(program)
    bare = copy.copy(dll)
    bare.env = {**dll.env, "PATH": str(tmp_path / "bin")}
    (tmp_path / "host").mkdir()
    error = send(bare, tmp_path / "host", server, "NTLM", "default", user="default")
    commands = [line for line in error.splitlines() if line.endswith("<CRLF>")]
    first = commands.index("AUTH NTLM<CRLF>")
    assert commands[first + 1:first + 3] == ["*<CRLF>", "AUTH LOGIN<CRLF>"]
    assert error.splitlines()[-1].startswith("535 5.7.8")


def test_the_logged_on_user_goes_through_the_security_package(product, tmp_path, server):
    error = send(product, tmp_path, server, "NTLM", "default", user="default")
    commands = [line for line in error.splitlines() if line.endswith("<CRLF>")]
    first = commands.index("AUTH NTLM<CRLF>")
    if product.name == "dll":
        # Wine's package has no password of this user: its first message goes out, no second one.
        assert commands[first + 1].startswith("TlRMTVNTUAAB")
        assert commands[first + 2:] == ["*<CRLF>"]
        assert error.splitlines()[-1].startswith("501 ")
    else:
        assert commands[first + 1:first + 3] == ["*<CRLF>", "AUTH LOGIN<CRLF>"]
        assert error.splitlines()[-1].startswith("535 5.7.8")


@pytest.mark.parametrize("method", sasl.MECHANISMS)
@pytest.mark.parametrize("password", [sasl.PASSWORD, WRONG], ids=["right", "wrong"])
def test_no_text_and_no_file_holds_what_was_sent_in_secret(product, tmp_path, server, method, password):
    files = {"DebugLogFilePath": "debug", "SentMailLogFile": "sent"}
    with SendProbe(product, SmtpHost="127.0.0.1", SmtpPort=server.port, SmtpUsername=sasl.USER,
                   SmtpPassword=password, SmtpAuthMethod=method, VerboseLogging=1, log=1,
                   **{key: product.path(tmp_path / name) for key, name in files.items()}) as probe:
        sent = probe.send()
    assert sent["sent"] == (password == sasl.PASSWORD)
    written = {name: (tmp_path / name).read_bytes().decode("utf-8", "replace")
               for name in files.values() if (tmp_path / name).exists()}
    assert "AUTH" in written["debug"]
    for text in [sent["log"], sent["transcript"], *written.values()]:
        assert "{PasswordOrCredentials}" in text or text is written.get("sent")
        for secret in secrets_of(password, sent["log"]):
            assert secret not in text


def secrets_of(password, log):
    """The password in its forms, and the beginnings of the lines that were computed from it."""
    for word in (password.encode(), password.encode("utf-16-le")):
        for shift in range(3):  # base64 of it at any place in a longer text
            yield base64.b64encode(b"\0" * shift + word)[4 * bool(shift):-4].decode()
    yield password
    yield "TlRMTVNTUAAD"  # NTLM's last message
    challenge = re.search(r"334 (PD\S+)", log)  # CRAM-MD5's
    if challenge:
        digest = hmac.new(password.encode(), base64.b64decode(challenge[1]), "md5").hexdigest()
        yield digest
        yield base64.b64encode(f"{sasl.USER} {digest}".encode()).decode()
