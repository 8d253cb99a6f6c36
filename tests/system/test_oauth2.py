"""XOAUTH2 at a private Dovecot that judges tokens itself (JWT, RFC 7519) and hands accepted mail on; the
tokens come as such, or by client credentials over HTTPS."""
import base64
import contextlib
import hashlib
import hmac
import http.server
import json
import threading
import time
import urllib.parse

import pytest

import dovecot
from probes import Probe
from receiver import server_context
from servers import make_certificate

USER, SECRET, KEY = "tester", "pa55&word hidden", b"the key that signs access tokens"
FORM = {"client_id": "mailer", "scope": "https://mail.test/.default", "tenant": "a b"}
DOVECOT = """
ssl = no
auth_mechanisms = xoauth2
passdb {{
  driver = oauth2
  mechanisms = xoauth2
  args = {home}/oauth2.conf
}}
"""
TOKENS = """
introspection_mode = local
local_validation_key_dict = fs:posix:prefix={home}/keys/
username_attribute = sub
"""


def token(user, lifetime=3600):
    """By it the user may log in for so many seconds."""
    def part(data):
        return base64.urlsafe_b64encode(data).rstrip(b"=")

    now = int(time.time())
    claims = {"sub": user, "iat": now - 10, "exp": now + lifetime, "scope": "mail"}
    head = b".".join(part(json.dumps(data).encode()) for data in ({"alg": "HS256", "typ": "JWT"}, claims))
    return (head + b"." + part(hmac.new(KEY, head, hashlib.sha256).digest())).decode()


@pytest.fixture(scope="module")
def server():
    key = base64.b64encode(KEY).decode()
    with dovecot.serve(DOVECOT, {"oauth2.conf": TOKENS, "keys/default/HS256/default": key}) as server:
        yield server


@pytest.fixture(scope="module")
def certificates(tmp_path_factory):
    """Two servers' certificates for 127.0.0.1; the first one's is the anchor."""
    folder = tmp_path_factory.mktemp("certificates")
    return {name: make_certificate(folder / name, "-addext", "subjectAltName=IP:127.0.0.1",
                                   subject=f"{name} token server") for name in ("known", "unknown")}


class Handler(http.server.BaseHTTPRequestHandler):
    """Hands out the user's tokens."""
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        form = dict(urllib.parse.parse_qsl(self.rfile.read(int(self.headers["Content-Length"])).decode()))
        self.server.forms.append(form)
        answer = {"access_token": token(USER), "token_type": "Bearer", "expires_in": 3600}
        content = json.dumps(answer).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        self.wfile.write(b"%x\r\n%s\r\n0\r\n\r\n" % (len(content), content))


@contextlib.contextmanager
def token_endpoint(certificate):
    """Gives what came to it, and the description that a host has of it."""
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as endpoint:
        endpoint.socket = server_context(certificate).wrap_socket(endpoint.socket, server_side=True)
        endpoint.forms = []
        threading.Thread(target=endpoint.serve_forever, daemon=True).start()
        yield endpoint.forms, json.dumps({
            **FORM, "client_secret": SECRET,
            "token_endpoint": f"https://127.0.0.1:{endpoint.server_port}/oauth2/token"})
        endpoint.shutdown()


@pytest.fixture
def send(product, server, certificates):
    def send(token, **more):
        before = len(server.receiver.messages)
        result = probe.run(OAuth2AccessToken=token, **more)
        assert len(server.receiver.messages) == before + result["sent"]
        assert not [word for word in ("hidden", "eyJhbGci", "YXV0aD1CZWFyZXI") if word in str(result)]
        return result

    with Probe(product, "send", SmtpHost="127.0.0.1", SmtpPort=server.port, SmtpUsername=USER,
               TrustAnchorsFile=product.path(certificates["known"][0])) as probe:
        yield send


def test_client_credentials(send, server, certificates):
    with token_endpoint(certificates["known"]) as (forms, description):
        assert send(description, keep=1)["sent"]
        assert forms == [{**FORM, "grant_type": "client_credentials", "client_secret": SECRET}]
        # Another connection of the same mail manager logs in with the token that it has.
        again = send(description, keep=1, LoginDomain="ELSEWHERE")
        assert again["sent"] and "Using the access token that was fetched before." in again["log"]
        assert len(forms) == 1
    server.wait(f"Login: user=<{USER}>, method=XOAUTH2", 2)


def refusal(result, *texts):
    assert result["status"] == "AuthFailure"
    assert [text for text in texts if text not in result["log"]] == [], result["log"]


def test_no_token_is_asked_of_a_stranger(send, certificates):
    with token_endpoint(certificates["unknown"]) as (forms, description):
        refusal(send(description), "SSL server certificate verification failed.", "unknown token server")
    assert forms == []


def test_a_refused_token_has_the_servers_account_in_the_log(send):
    refusal(send(token(USER, -100)), "535 5.7.8 Authentication failed.", "Failed to login using XOAUTH2 method",
            'xoauth2Error: {"status":"401","schemes":"bearer","scope":"mail"}')
