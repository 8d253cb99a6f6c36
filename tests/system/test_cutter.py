"""A good server behind a bad line: cuts at every 16th byte, both ways, in clear and under TLS.
Whatever happens, a send ends in time, leaves nothing behind, is called successful only if the server has
accepted the message, and is never accepted twice."""
import collections
import concurrent.futures
import contextlib
import itertools
import queue

import pytest

from cutter import CLIENT, SERVER, Fault, Line
from probes import Probe
from receiver import Receiver, self_signed

STEP, LIMIT_MS = 16, 300
# Nothing that waits for its own limit of 30 s gets below this; a loaded machine stays below.
IN_TIME_MS = 15000
WORKERS = 12
# Windows counts in pages, and its heap keeps what was freed; the soak looks closer.
KEPT_BYTES = {"so": 512, "dll": 256 * 1024}
ROADS = {"": {"StartTLSifPossible": 0}, "implicit": {"SmtpSsl": 1}, "starttls": {"StartTLS": 1}}


@pytest.fixture(params=ROADS)
def server(request, tmp_path):
    with Receiver(tls=request.param, certificate=self_signed(tmp_path)) as receiver:
        yield receiver, ROADS[request.param]


def faults(passed, is_clear):
    """Every second close and reset is one of all connections, the retry's too."""
    turn = itertools.cycle([False, True])
    for side, how in itertools.product((CLIENT, SERVER), ("close", "reset", "stall", "lose")):
        # In clear nobody can notice what a message has lost on its way.
        if how != "lose" or side == SERVER or not is_clear:
            for at in range(STEP, len(passed[side]) + 1, STEP):
                yield Fault(how, side, at, how in ("close", "reset") and next(turn))


def send(probe, server, fault=Fault(), **words):
    """What the probe says of it, and what has passed."""
    line = Line(server.port, fault)
    try:
        return {**probe.run(SmtpPort=line.port, **words), "passed": line.passed}
    finally:
        line.close()


def verdict(result, count):
    """What is wrong with the outcome, or None."""
    if count > 1:
        return f"{count} copies were accepted"
    if result["sent"] and count == 0:
        return "called sent, but not accepted"
    if not result["sent"] and not result["transcript"].strip():
        return "failed without a reason"
    if max(result["ms"], result["closeMs"]) > IN_TIME_MS:
        return "took too long"
    return None


def test_cuts(product, server):
    receiver, words = server
    idle = queue.SimpleQueue()

    def play(number, fault):
        probe = idle.get()
        try:
            return send(probe, receiver, fault, id=f"cut-{number}", ReadTimeout=LIMIT_MS,
                        ConnectTimeout=LIMIT_MS)
        finally:
            idle.put(probe)

    with contextlib.ExitStack() as stack:
        probes = [stack.enter_context(Probe(product, "send", RetryWait=10, SmtpHost="127.0.0.1", **words))
                  for _ in range(WORKERS)]
        before = [send(probe, receiver, id="whole") for probe in probes for _ in range(2)][1::2]
        for probe in probes:
            idle.put(probe)
        plan = list(faults(before[0]["passed"], words == ROADS[""]))
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            results = list(pool.map(play, range(len(plan)), plan))
        after = [send(probe, receiver, id="whole") for probe in probes]
    counts = collections.Counter(message.parsed()["Subject"] for message in receiver.messages)
    assert counts["whole"] == 3 * WORKERS
    wrong = [f"{fault}: {text}: {result}" for number, (fault, result) in enumerate(zip(plan, results))
             if (text := verdict(result, counts[f"cut-{number}"]))]
    assert not wrong, "\n".join(wrong[:20])
    failed = sum(not result["sent"] for result in results)
    assert len(results) / 4 < failed < len(results)
    for first, last in zip(before, after):
        assert last["handles"] <= first["handles"]
        assert last["memory"] - first["memory"] <= KEPT_BYTES[product.name]
