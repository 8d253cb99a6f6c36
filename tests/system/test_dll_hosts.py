"""The finished libraries in hosts of all kinds: odd stacks and floating-point states, NULL
everywhere, linked instead of loaded, unloaded with a connection open, without a desktop."""
import subprocess

import pytest

from products import Host
from programs import host_program, run, start
from receiver import Receiver
from scripted import silent_server

LEAVING_SECONDS = 5  # far below any time-out of a connection
IMAGE = bytes(range(256)) * 300  # enough for every path of the encoders

# Stack offset, x87 control word, MXCSR.
ENTRIES = {
    "aligned": (0, "37f", "1f80"),
    "offset 4": (4, "37f", "1f80"),
    "offset 8": (8, "37f", "1f80"),
    "offset 12": (12, "37f", "1f80"),
    "Delphi": (4, "1332", "1900"),
    "everything unmasked": (12, "300", "0"),
}


def run_host(product, name, *args, **options):
    return run(product, host_program(product, name), *args, **options)


def library(product):
    return product.path(product.library)


@pytest.mark.parametrize("entry", ENTRIES)
def test_odd_entry(dll, tmp_path, entry):
    (tmp_path / "image.png").write_bytes(IMAGE)
    with Receiver() as receiver:
        done = run_host(dll, "odd_host", library(dll), receiver.port, "image.png", *ENTRIES[entry],
                        cwd=tmp_path)
    assert (done.code, done.err) == (0, "")
    [message] = receiver.messages
    assert message.recipients == ["to@example.test", "cc@example.test", "bcc@example.test"]
    files = [part.get_content() for part in message.parsed().walk() if part.get_filename()]
    assert files == [IMAGE, IMAGE]


TEXT_SETTERS = ("setSmtpHost", "setSmtpUser", "setSmtpPassword", "setSmtpAuthMethod", "setLoginDomain",
                "setFromAddress", "setSubject", "setBody", "setLogo")
NUMBER_SETTERS = ("setSmtpPort", "setUseSSL", "setStartTls")


def call_all_with_null(host):
    for name in TEXT_SETTERS:
        assert host.call(name) is None
    for name in NUMBER_SETTERS:
        assert host.call(name, 0) is None
    for name in ("setRecipient", "setCC", "setBCC"):
        assert host.call(name) == 0
    assert (host.setDefaultNtlmVersion(-7), host.setDefaultNtlmVersion(2)) == (-7, 2)
    assert host.setNoopCount(-3) == -3
    host.setVerboseLogging()
    host.ResetEmail()


def test_null_everywhere_and_calls_before_initialise(host):
    assert host.error() == ""
    call_all_with_null(host)
    host.setLogging()
    host.setAttachment()
    assert host.setRecipient("reader@example.test") == 0
    assert host.szBrisko() == 0 and "Initialise" in host.error()
    assert host.Initialise() == 0 and "Initialise" in host.error()  # the state's strings stay
    call_all_with_null(host)
    assert host.setRecipient("reader@example.test") == 1
    assert host.szBrisko() == 0 and "VerifySmtpConnection" in host.error()  # no host name


def test_linked_host(product, tmp_path):
    folder = {"WINEPATH": product.path(product.library.parent)} if product.wine else {}
    with Receiver() as receiver:
        done = run_host(product, "linked_host", receiver.port, cwd=tmp_path, env=folder)
    assert (done.code, done.err) == (0, "")
    [message] = receiver.messages
    assert message.parsed()["Subject"] == "linked"
    assert message.sender == "host@example.test"


def test_unloading_with_a_connection_open_to_a_silent_server(product, tmp_path):
    with silent_server() as server:
        done = run_host(product, "leaving_host", library(product), server.port, "unload", cwd=tmp_path)
    assert (done.code, done.err) == (0, "")
    milliseconds, last = done.out.split()
    assert int(milliseconds) < 1000 * LEAVING_SECONDS and last == "leaving"
    assert len(server.accepted) == 2


def test_exit_with_a_connection_open_to_a_silent_server(product, tmp_path):
    program = host_program(product, "leaving_host")
    with silent_server() as server:
        with start(product, program, library(product), server.port, "exit", cwd=tmp_path,
                   stdout=subprocess.PIPE) as process:
            assert process.stdout.readline().strip() == b"leaving"
            assert process.wait(LEAVING_SECONDS) == 0
        assert len(server.accepted) == 1


def facts(done):
    return dict(line.split(" ", 1) for line in done.out.splitlines() if " " in line)


def test_message_box_of_a_missing_attachment(dll, tmp_path):
    done = run_host(dll, "dialog_host", library(dll), "hiányzó.txt", "desktop", cwd=tmp_path)
    assert (done.code, done.err) == (0, "")
    seen = facts(done)
    assert seen["title"] == "486962612074f67274e96e74"
    assert (seen["boxes"], seen["buttons"], seen["owner"]) == ("1", "1", "0")
    text = bytes.fromhex(seen["text"])
    assert "hiányzó.txt".encode("cp1252") in text  # converted from UTF-8
    assert b"AddFileAttachment" in text


def test_without_a_desktop_the_message_goes_to_the_debugger(dll, tmp_path):
    done = run_host(dll, "dialog_host", library(dll), "missing.txt", "service", cwd=tmp_path)
    assert (done.code, done.err) == (0, "")
    assert done.out.count("debugger ") == 1
    line = bytes.fromhex(facts(done)["debugger"])
    assert line.count(b"\n") == 1 and line.endswith(b"\n")
    assert line.startswith(b"emailsending: ") and b"missing.txt" in line
    assert facts(done)["boxes"] == "0"


def test_elsewhere_the_message_is_one_line_on_stderr(so, tmp_path):
    with Host(so, tmp_path) as host:
        host.Initialise()
        host.setAttachment("hiányzó.txt")
        [line] = host.errors().splitlines()
    assert line.startswith("emailsending: ") and "hiányzó.txt" in line
