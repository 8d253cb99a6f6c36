"""The finished libraries in hosts of all kinds: odd stacks and floating-point states, NULL
everywhere, linked instead of loaded, unloaded with a connection open, crashing, without a desktop."""
import concurrent.futures
import ctypes
import re
import threading

import pytest

from products import DELIVERED, EXPORTS, Host
from programs import run
from receiver import Receiver
from scripted import ScriptedServer, silent_server

# Stack offset, x87 control word, MXCSR; none as the compiler of the host does it.
ENTRIES = {
    "so as it comes": "", "native32 as it comes": "", "dll aligned": "0 37f 1f80", "dll offset 4": "4 37f 1f80",
    "dll offset 8": "8 37f 1f80", "dll offset 12": "12 37f 1f80", "dll in Delphi": "4 1332 1900",
    "dll everything unmasked": "12 300 0", "dll64 as it comes": "0 37f 1f80", "dll64 in Delphi": "0 1332 1900",
    "dll64 everything unmasked": "0 300 0"}
everywhere = pytest.mark.parametrize("product", DELIVERED, indirect=True)


@pytest.mark.parametrize("entry", ENTRIES)
def test_every_export_in_every_state(entry, request, tmp_path, sample):
    with Receiver() as receiver, Host(request.getfixturevalue(entry.split()[0]), tmp_path) as host:
        if ENTRIES[entry]:
            host.enter(ENTRIES[entry])
        assert host.error() == ""
        special = {"Initialise", "szBrisko", "getLastError", "setAttachment"}
        for initialised in range(2):
            assert [host.call(name) or 0 for name in sorted(EXPORTS.keys() - special)] == [0] * 20
            assert (host.setDefaultNtlmVersion(-7), host.setDefaultNtlmVersion(2), host.setNoopCount(-3)) == (-7, 2, -3)
            assert host.setRecipient("reader@example.test") == initialised and host.szBrisko() == 0
            assert ("Application did not provide an SMTP hostname." if initialised else "Initialise") in host.error()
            if not initialised:  # later it would be told to the user
                host.setAttachment()
            error = host.error()
            assert host.Initialise() == 0 and host.error() == error  # the state's strings stay
        sample.send(host, receiver.port)
    sample.check(receiver.messages[0].parsed())


@pytest.mark.parametrize("cuts", [{}, {"CUTS": "1"}], ids=["fails", "cuts"])
@pytest.mark.parametrize(("now", "date"), [(2224800000, "Mon, 02 Jul 2040 02:00:00 +0200"),
                                           (2466631800, "Sun, 01 Mar 2048 00:30:00 +0100")])
def test_a_32_bit_host_after_2038(native32, now, date, cuts, receiver, tmp_path, sample):
    clock = {"LD_PRELOAD": str(native32.driver.with_name("liblater.so")), "NOW": str(now),
             "TZ": "CET-1CEST,M3.5.0,M10.5.0/3", **cuts}
    with Host(native32, tmp_path, **clock) as host:
        sample.send(host, receiver.port)
    assert receiver.messages[-1].parsed()["Date"] == date


@everywhere
def test_linked_host(product, receiver, tmp_path):
    folder = {"WINEPATH": product.path(product.library.parent)} if product.wine else {}
    done = run(product, product.host_program("linked_host"), receiver.port, cwd=tmp_path, env=folder)
    assert (done.code, done.err) == (0, "")
    [message] = receiver.messages
    assert message.parsed()["Subject"] == "linked" and message.sender == "host@example.test"
    assert message.recipients == ["to@example.test", "cc@example.test", "bcc@example.test"]


@pytest.mark.timeout(30)  # a thread that is not woken
def test_threads_wait_for_their_turns(so):
    busy, let_go = threading.Event(), threading.Event()

    def plan(_, command):
        if command == ".":
            busy.set()
            let_go.wait(20)

    library = ctypes.CDLL(str(so.library))
    with ScriptedServer(plan) as server, concurrent.futures.ThreadPoolExecutor(4) as pool:
        library.Initialise()
        library.setSmtpHost(b"127.0.0.1")
        library.setSmtpPort(server.port)
        library.setFromAddress(b"host@example.test")
        assert library.setRecipient(b"to@example.test") == 1
        sending = pool.submit(library.szBrisko)
        assert busy.wait(20)
        others = [pool.submit(library.setRecipient, b"next@example.test") for _ in range(3)]
        assert concurrent.futures.wait(others, 0.2).done == set()
        let_go.set()
        assert [call.result() for call in (sending, *others)] == [1] * 4
        library.Initialise()


@everywhere
@pytest.mark.timeout(25)  # less than any time-out of a connection
def test_leaving_with_a_connection_open_to_a_silent_server(product, tmp_path, sample):
    with silent_server() as server, Host(product, tmp_path) as host:
        sample.send(host, server.port)
        assert host.unload() == 1
        host.load()
        sample.send(host, server.port)
        assert host.close() == 0 and len(server.taken) == 2


@pytest.mark.parametrize("handler", ["frame", "filter"])
@pytest.mark.parametrize("product", ["dll", "dll64"], indirect=True)
def test_a_crash_within_a_send_reaches_the_handlers_of_the_host(product, handler, tmp_path):
    with Host(product, tmp_path) as host:
        host.Initialise()
        assert host.unload() == 1  # nothing of it stays behind among the handlers
        host.load()
        host.Initialise()
        host.compose(9, "anna@example.test", "bela@example.test")
        assert host.crash(handler) == 1 and host.errors() == f"{handler}: c0000005\r\n"


# The watch that the host keeps, what stands before the log that the user is told and behind it.
BOX = "nobody's box\n#32770 Hiba t\ufffdrt\ufffdnt\nStatic \nButton OK\nStatic "
MISSING = {
    **{f"{name} {where}": (watch, before, "\n\n") for name in ("dll", "dll64")
       for where, watch, before in (("desktop", 1, BOX), ("service", 0, "emailsending: "))},
    "so stderr": (None, "emailsending: ", "\n"),
}


@pytest.mark.parametrize("where", MISSING)
def test_a_missing_attachment_is_told_to_the_user(where, request, tmp_path):
    watch, before, behind = MISSING[where]
    product = request.getfixturevalue(where.split()[0])
    with Host(product, tmp_path) as host:
        if product.wine:
            host.watch(watch)
        host.Initialise()
        host.setAttachment("hiányzó.txt")
        told = host.errors().replace("\r\n", "\n")
        assert re.match(f"{before}TolvaneLog:\\s+AddFileAttachment", told) and told.endswith(f"--TolvaneLog{behind}")
        # In the ANSI code page, and one line but in a box.
        assert ("hi\ufffdnyz\ufffd.txt" if product.wine else "hiányzó.txt") in told and host.error() == ""
        assert ("\n" in told.removeprefix(before).strip()) == (watch == 1)
