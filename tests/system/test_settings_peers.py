"""Keys of the settings file at servers that speak for themselves: logins at Dovecot, the rest at Postfix."""
import http.server
import json
import re
import threading
import urllib.parse

import pytest

import dovecot
import postfix
from servers import free_port, make_certificate
from test_oauth2 import USER, token, token_endpoint
from test_settings import site  # noqa: F401 (a fixture)

PASSWORD, BEYOND = "pa55-word, =hidden", "pa55-word \u0151 hidden"
DOVECOT = """
ssl = required
ssl_cert = <{home}/server.pem
ssl_key = <{home}/server.key
auth_mechanisms = plain login cram-md5 scram-sha-1 scram-sha-256 xoauth2
submission_max_mail_size = 64k
passdb {{
  driver = passwd-file
  mechanisms = plain login cram-md5 scram-sha-1 scram-sha-256
  args = username_format=%u {home}/users
}}
passdb {{
  driver = oauth2
  mechanisms = xoauth2
  args = {home}/oauth2.conf
}}
"""
TOKENS = """
introspection_mode = post
introspection_url = http://127.0.0.1:{port}/introspect
force_introspection = yes
active_attribute = active
active_value = true
username_attribute = sub
"""


class Introspection(http.server.BaseHTTPRequestHandler):
    """Whose a token is (RFC 7662)."""

    def do_POST(self):
        form = dict(urllib.parse.parse_qsl(self.rfile.read(int(self.headers["Content-Length"])).decode()))
        self.server.tokens.append(form["token"])
        content = json.dumps({"active": "." in form["token"], "sub": self.server.user}).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)


@pytest.fixture(scope="module")
def submission(tmp_path_factory):
    """Each user's password is stored for one method alone."""
    folder = tmp_path_factory.mktemp("submission")
    pem, key = make_certificate(folder / "server", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1")
    users = "".join(f"{user}:{dovecot.stored(scheme, PASSWORD)}\n" for user, scheme in (
        ("new", "SCRAM-SHA-256"), ("old", "SCRAM-SHA-1"), ("plain", "SHA512-CRYPT"), ("cram", "CRAM-MD5")))
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Introspection) as introspection:
        introspection.tokens, introspection.user = [], USER
        threading.Thread(target=introspection.serve_forever, daemon=True).start()
        files = {"users": users, "oauth2.conf": TOKENS.format(port=introspection.server_port),
                 "server.pem": open(pem).read(), "server.key": open(key).read()}
        with dovecot.serve(DOVECOT, files) as server:
            server.introspection, server.files = introspection, (pem, key)
            yield server
        introspection.shutdown()


def say(site, server, login, more=""):  # noqa: F811
    root = site.product.path(server.files[0])
    site.say(f"[server]\ntrial = never\nhost = localhost\nport = {server.port}\nencryption = starttls\n[login]\n{login}\n"
             f"[certificate]\nroots = {root}\n{more}")


# User, password, the methods of the file, the one that Dovecot knows the user by, or None and what is told.
LOGINS = {
    "SCRAM-SHA-256": ("new", PASSWORD, "SCRAM-SHA-256", "SCRAM-SHA-256", ""),
    "SCRAM-SHA-1": ("old", PASSWORD, "SCRAM-SHA-1", "SCRAM-SHA-1", ""),
    "the first one on offer": ("new", PASSWORD, "NTLM, SCRAM-SHA-256, PLAIN", "SCRAM-SHA-256", ""),
    "a password in another form": ("plain", PASSWORD, "PLAIN", "PLAIN", ""),
    "CRAM-MD5": ("cram", PASSWORD, "CRAM-MD5", "CRAM-MD5", ""),
    "without an order": ("plain", PASSWORD, None, "LOGIN", ""),
    "wrong password": ("new", "pa55-wrong hidden", "SCRAM-SHA-256, PLAIN", None, "535 5.7.8"),
    "wrong for SCRAM-SHA-1": ("old", "pa55-wrong hidden", "SCRAM-SHA-1", None, "535 5.7.8"),
    "nobody": ("nobody", PASSWORD, "SCRAM-SHA-256", None, "535 5.7.8"),
    "stored in another form": ("plain", PASSWORD, "SCRAM-SHA-256, PLAIN", None, "535 5.7.8"),
    "more than ASCII": ("new", BEYOND, "SCRAM-SHA-256", None, "ASCII characters alone"),
    "none on offer": ("new", PASSWORD, "NTLM", None, "no mechanism of the server works here with a password"),
}


@pytest.mark.parametrize("case", LOGINS)
def test_logins(site, submission, case):  # noqa: F811
    user, password, methods, known, told = LOGINS[case]
    say(site, submission, f'user = {user}\npassword = "{password}"' + (f"\nmethods = {methods}" if methods else ""))
    read, before = len(submission.said()), len(submission.receiver.messages)
    done = site.send(submission, host="stranger.test")
    assert (done.code == 0, len(submission.receiver.messages) - before) == (bool(known), int(bool(known))), done.err
    assert told in done.err and "hidden" not in done.err
    if known:
        assert re.search(f"Login: user=<{user}>, method={known}.*TLS", submission.said()[read:])


def test_a_token(site, submission, tmp_path):  # noqa: F811
    """The description's endpoint gives the token, which Dovecot lets be judged elsewhere."""
    with token_endpoint(submission.files) as (forms, description):
        (tmp_path / "token.json").write_text(description)
        (tmp_path / "token.json").chmod(0o600)
        say(site, submission, f"user = {USER}\noauth2 = token.json\nmethods = XOAUTH2")
        seen, before = len(submission.introspection.tokens), len(submission.receiver.messages)
        done = site.send(submission)
        assert (done.code, len(forms), len(submission.introspection.tokens) - seen) == (0, 1, 1), done.err
        submission.introspection.user = "somebody-else"
        refused = site.send(submission)
        submission.introspection.user = USER
    assert refused.code == 77 and "535 5.7.8" in refused.err and token(USER)[:30] not in done.err + refused.err
    assert len(submission.receiver.messages) == before + 1


# Services of one Postfix, with what master.cf says of each; all write down what clients say.
CHOOSY = "smtpd_recipient_restrictions=check_recipient_access,inline:{{no@example.test=REJECT}}"
KINDS = {"plain": [], "no DSN": ["smtpd_discard_ehlo_keywords=dsn", CHOOSY], "small": ["message_size_limit=2000"],
         "known": ["smtpd_helo_restrictions=reject_unknown_helo_hostname", "smtpd_delay_reject=no"],
         "full": ["smtpd_helo_restrictions=reject_non_fqdn_helo_hostname"],
         "choosy": [CHOOSY], "new IP": []}
REPORTS = "".join(f"{name} unix - - n - 0 bounce\n" for name in ("bounce", "defer", "trace"))


@pytest.fixture(scope="module")
def relay():
    ports = {kind: free_port() for kind in KINDS}
    services = "".join(f"{'[::1]' if kind == 'new IP' else '127.0.0.1'}:{ports[kind]} inet n - n - - smtpd -v\n"
                       + "".join(f"  -o {option}\n" for option in options) for kind, options in KINDS.items())
    with postfix.serve("inet_protocols = all\n", services + REPORTS) as server:
        server.ports = ports
        yield server


# The service, what the file says, further recipients, the code, what is told, what Postfix has heard or not.
RELAYED = {
    "reports": ("plain", "[message]\ndelivery-report = success, Delay\ndelivery-report = success", (), 0, "",
                r"RCPT.* NOTIFY=SUCCESS,DELAY\n"),
    "no reports asked for": ("plain", "", (), 0, "", "!NOTIFY="),
    "too large": ("small", "[message]\ncheck-size = yes", (), 69, "takes 2000 at most", "!MAIL FROM"),
    "too large, not looked at": ("small", "", (), 69, "552 5.3.4", "MAIL FROM"),
    "a name that nobody knows": ("known", "[server]\nhelo = pc17.invalid", (), 75, "450 4.7.1 <pc17.invalid>", "!MAIL FROM"),
    "an address": ("full", "[server]\nhelo = [127.0.0.9]", (), 0, "", r"EHLO \[127\.0\.0\.9\]"),
    "half a name": ("full", "[server]\nhelo = pc17", (), 69, "504 5.5.2 <pc17>", "EHLO pc17"),
    "a full name": ("full", "[server]\nhelo = pc17.example.test", (), 0, "", "EHLO pc17.example.test"),
    "all or nobody": ("choosy", "[message]\nall-recipients = yes", ("no@example.test",), 69, "554 5.7.1", "!DATA"),
    "who can have it": ("choosy", "", ("no@example.test",), 0, "", "DATA"),
    "from another address": ("plain", "[server]\nlocal-address = 127.0.0.9", (), 0, "", r"client=unknown\[127.0.0.9\]"),
    "by IPv4": ("new IP", "[server]\nfamily = ipv4", (), 69, "", "!EHLO"),
    "by IPv6": ("new IP", "[server]\nfamily = ipv6", (), 0, "", r"client=unknown\[::1\]"),
    "from an address of IPv6": ("new IP", "[server]\nlocal-address = ::1", (), 0, "", r"client=unknown\[::1\]"),
    "an address of IPv4": ("plain", "[server]\nhost = 127.0.0.1\nfamily = ipv6", (), 68, "has no IPv6 address", "!EHLO"),
    "the sender of all": ("plain", "[message]\nenvelope-sender = bounces@example.test", (), 0, "", "MAIL FROM:<bounces@example.test>"),
    "a trial": ("plain", "[server]\ntrial = always", (), 0, "", "(?s)EHLO.*EHLO"),
    "no trial": ("plain", "[server]\ntrial = never", (), 0, "", "!(?s)EHLO.*EHLO"),
}


@pytest.mark.parametrize("case", RELAYED)
def test_relay(site, relay, case):  # noqa: F811
    kind, said, more, code, told, heard = RELAYED[case]
    site.say(said)
    read, relay.port = len(relay.log()), relay.ports[kind]
    words = [word for name in more for word in ("--to", name)]
    done = site.send(relay, *words, "--subject", "x" * 1500, sender="anna@example.test", to="bela@example.test")
    log = relay.log()[read:]
    assert done.code == code and told in done.err, done.err
    assert bool(re.search(heard.strip("!"), log)) != heard.startswith("!"), log[-3000:]


def test_a_report_that_was_asked_for(site, relay):  # noqa: F811
    before, relay.port = len(relay.messages(0)), relay.ports["plain"]
    site.say("[message]\ndelivery-report = success\n")
    assert site.send(relay, sender="anna@example.test", to="bela@example.test").code == 0
    assert [b"Successful Mail Delivery Report" in text for text in relay.messages(before + 2)[before:]] == [False, True]


def test_a_report_that_is_not_on_offer(site, relay, tmp_path):  # noqa: F811
    relay.port = relay.ports["no DSN"]
    site.say("[message]\ndelivery-report = success\nall-recipients = yes\n[log]\nfailures = .\n")
    assert site.send(relay, "--to", "no@example.test", sender="anna@example.test", to="bela@example.test").code == 69
    [log] = tmp_path.glob("*.log")
    assert "Warning: No delivery report is asked for: the server does not offer DSN." in log.read_text()
    assert "NOTIFY=" not in log.read_text()
