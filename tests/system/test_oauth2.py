"""XOAUTH2 at a Dovecot that judges tokens itself; they come as such, or by client credentials over HTTPS."""
import contextlib
import http.server
import json
import ssl
import threading
import urllib.parse

import pytest

import dovecot
import tls_servers
from probes import Probe
from receiver import Receiver

USER, SECRET = "tester", "pa55&word hidden"
FORM = {"client_id": "mailer", "scope": "https://mail.test/.default", "tenant": "a b"}


@pytest.fixture(scope="module")
def server():
    with Receiver() as receiver, dovecot.Dovecot(receiver.port) as server:
        server.receiver = receiver
        yield server


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    """Two servers' certificates for 127.0.0.1; the first one's is the anchor."""
    folder = tmp_path_factory.mktemp("certificates")
    for name in ("known", "unknown"):
        tls_servers.make_certificate(folder / name, f"/CN={name} token server", "-addext",
                                     "subjectAltName=IP:127.0.0.1")
    return folder


class Handler(http.server.BaseHTTPRequestHandler):
    """Hands out the tokens of its server to who knows the secret."""

    protocol_version = "HTTP/1.1"

    def do_POST(self):
        form = dict(urllib.parse.parse_qsl(self.rfile.read(int(self.headers["Content-Length"])).decode()))
        self.server.forms.append(form)
        good = form.get("client_secret") == SECRET
        answer = {"error": "invalid_client", "error_description": "no such client"}
        if good:
            answer = {"access_token": self.server.token, "token_type": "Bearer", "expires_in": 3600}
        content = json.dumps(answer).encode()
        self.send_response(200 if good else 401)
        self.send_header("Content-Type", "application/json")
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        self.wfile.write(b"%x\r\n%s\r\n0\r\n\r\n" % (len(content), content))

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def token_endpoint(folder, name, token=""):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / f"{name}.pem", folder / f"{name}.key")
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as endpoint:
        endpoint.socket = context.wrap_socket(endpoint.socket, server_side=True)
        endpoint.forms, endpoint.token = [], token
        threading.Thread(target=endpoint.serve_forever, daemon=True).start()
        yield endpoint
        endpoint.shutdown()


def description(endpoint, secret=SECRET):
    return json.dumps({**FORM, "client_secret": secret,
                       "token_endpoint": f"https://127.0.0.1:{endpoint.server_port}/oauth2/token"})


@contextlib.contextmanager
def prober(product, server, token, certificates, **words):
    anchors = product.path(certificates / "known.pem")
    with Probe(product, "send", SmtpHost="127.0.0.1", SmtpPort=server.port, SmtpUsername=USER,
               OAuth2AccessToken=token, TrustAnchorsFile=anchors, **words) as probe:
        def send(**more):
            before = len(server.receiver.messages)
            sent = probe.run(**more)
            assert len(server.receiver.messages) == before + sent["sent"]
            assert not [word for word in ("hidden", "eyJhbGci", "YXV0aD1CZWFyZXI") if word in str(sent)]
            return sent
        yield send


@pytest.mark.parametrize("token", [dovecot.token(USER, -100), dovecot.token("another"), "garbage"],
                         ids=["expired", "of another", "garbage"])
def test_a_refused_token_has_the_servers_account_in_the_log(product, server, certificates, token):
    with prober(product, server, token, certificates) as send:
        refused = send()
    assert refused["status"] == "AuthFailure"
    for text in ('xoauth2Error: {"status":"401","schemes":"bearer","scope":"mail"}',
                 "535 5.7.8 Authentication failed.", "Failed to login using XOAUTH2 method"):
        assert text in refused["log"]


def test_client_credentials(product, server, certificates):
    with token_endpoint(certificates, "known", dovecot.token(USER)) as endpoint, \
            prober(product, server, description(endpoint), certificates, keep=1) as send:
        assert send()["sent"]
        assert endpoint.forms == [{**FORM, "grant_type": "client_credentials", "client_secret": SECRET}]
        # Another connection of the same mail manager logs in with the token that it has.
        again = send(LoginDomain="ELSEWHERE")
        assert again["sent"] and "Using the access token that was fetched before." in again["log"]
        assert len(endpoint.forms) == 1
    assert f"Login: user=<{USER}>, method=XOAUTH2" in server.log()


def test_what_stops_a_request_for_a_token(product, server, certificates):
    with token_endpoint(certificates, "unknown") as stranger, \
            prober(product, server, description(stranger), certificates) as send:
        refused = send()
        assert refused["status"] == "AuthFailure" and stranger.forms == []
        assert "SSL server certificate verification failed." in refused["log"]
        assert "unknown token server" in refused["log"]
    with token_endpoint(certificates, "known") as endpoint, \
            prober(product, server, description(endpoint, "hidden wrong"), certificates) as send:
        assert "The token endpoint answered 401 invalid_client: no such client." in send()["log"]
