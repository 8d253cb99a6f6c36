"""XOAUTH2 at a Dovecot that judges tokens itself; tokens come as such, or by client credentials over HTTPS."""
import contextlib
import http.server
import json
import ssl
import subprocess
import threading
import urllib.parse

import pytest

import dovecot
from probes import SendProbe
from receiver import Receiver

USER, SECRET = "tester", "pa55&word hidden"


@pytest.fixture(scope="module")
def server():
    try:
        with Receiver() as receiver, dovecot.Dovecot(receiver.port) as server:
            server.receiver = receiver
            yield server
    except dovecot.DovecotMissing as missing:
        pytest.fail(f"Dovecot: {missing}")


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    """Two servers' certificates for 127.0.0.1; the first one's is the anchor."""
    folder = tmp_path_factory.mktemp("certificates")
    for name in ("known", "unknown"):
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30",
                        "-subj", f"/CN={name} token server", "-addext", "subjectAltName=IP:127.0.0.1",
                        "-keyout", folder / f"{name}.key", "-out", folder / f"{name}.pem"],
                       check=True, capture_output=True)
    return folder


class TokenEndpoint:
    """Context manager; hands out the tokens in turn, and then the last one again."""

    def __init__(self, folder, name, tokens):
        self.forms, self.tokens = [], list(tokens)
        endpoint = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"])).decode()
                status, answer = endpoint.answer(dict(urllib.parse.parse_qsl(body)))
                content = json.dumps(answer).encode()
                self.send_response(status)
                self.send_header("Content-Type", "application/json")
                self.send_header("Transfer-Encoding", "chunked")
                self.end_headers()
                self.wfile.write(b"%x\r\n%s\r\n0\r\n\r\n" % (len(content), content))

            def log_message(self, *_):
                pass

        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(folder / f"{name}.pem", folder / f"{name}.key")
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.socket = context.wrap_socket(self._server.socket, server_side=True)
        self.url = f"https://127.0.0.1:{self._server.server_port}/oauth2/token"

    def answer(self, form):
        self.forms.append(form)
        if form.get("client_secret") != SECRET:
            return 401, {"error": "invalid_client", "error_description": "no such client"}
        token = self.tokens.pop(0) if len(self.tokens) > 1 else self.tokens[0]
        return 200, {"access_token": token, "token_type": "Bearer", "expires_in": 3600}

    def description(self, secret=SECRET):
        return json.dumps({"token_endpoint": self.url, "client_id": "mailer", "client_secret": secret,
                           "scope": "https://mail.test/.default", "tenant": "a b"})

    def __enter__(self):
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        return self

    def __exit__(self, *_):
        self._server.shutdown()
        self._server.server_close()


@contextlib.contextmanager
def prober(product, server, token, certificates, **words):
    with SendProbe(product, SmtpHost="127.0.0.1", SmtpPort=server.port, SmtpUsername=USER, log=1,
                   OAuth2AccessToken=token, TrustAnchorsFile=product.path(certificates / "known.pem"),
                   **words) as probe:
        def send(**more):
            before = len(server.receiver.messages)
            sent = probe.send(**more)
            assert len(server.receiver.messages) == before + sent["sent"]
            for text in (sent["log"], sent["transcript"]):
                assert not [word for word in ("hidden", "eyJhbGci", "YXV0aD1CZWFyZXI") if word in text]
            return sent
        yield send


def test_a_token(product, server, certificates):
    with prober(product, server, dovecot.token(USER), certificates) as send:
        assert send()["sent"]
    assert f"Login: user=<{USER}>, method=XOAUTH2" in server.log()


@pytest.mark.parametrize("token", [dovecot.token(USER, -100), dovecot.token("another"), "garbage"],
                         ids=["expired", "of another", "garbage"])
def test_a_refused_token_has_the_servers_account_in_the_log(product, server, certificates, token):
    with prober(product, server, token, certificates) as send:
        refused = send()
    assert refused["status"] == "AuthFailure"
    assert 'xoauth2Error: {"status":"401","schemes":"bearer","scope":"mail"}' in refused["log"]
    assert "535 5.7.8 Authentication failed." in refused["log"]
    assert "Failed to login using XOAUTH2 method" in refused["log"]


def test_client_credentials(product, server, certificates):
    expired, good = dovecot.token(USER, -100), dovecot.token(USER)
    with TokenEndpoint(certificates, "known", [good, expired, good]) as endpoint, \
            prober(product, server, endpoint.description(), certificates, keep=1) as send:
        assert send()["sent"]
        assert endpoint.forms == [{"grant_type": "client_credentials", "client_id": "mailer",
                                   "client_secret": SECRET, "scope": "https://mail.test/.default",
                                   "tenant": "a b"}]
        # Another connection of the same mail manager logs in with the token that it has.
        again = send(LoginDomain="ELSEWHERE")
        assert again["sent"] and "Using the access token that was fetched before." in again["log"]
        assert len(endpoint.forms) == 1


def test_what_stops_a_request_for_a_token(product, server, certificates):
    with TokenEndpoint(certificates, "unknown", ["none"]) as stranger, \
            prober(product, server, stranger.description(), certificates) as send:
        refused = send()
        assert refused["status"] == "AuthFailure"
        assert "SSL server certificate verification failed." in refused["log"]
        assert "unknown token server" in refused["log"]
        assert stranger.forms == []
    with TokenEndpoint(certificates, "known", ["none"]) as endpoint, \
            prober(product, server, endpoint.description("hidden wrong"), certificates) as send:
        assert "The token endpoint answered 401 invalid_client: no such client." in send()["log"]
    with prober(product, server, endpoint.description(), certificates) as send:
        assert "Failed to get SMTP OAuth2 access token by client credentials." in send()["log"]
