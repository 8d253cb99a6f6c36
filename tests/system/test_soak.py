"""Thousands of sends through the exports, with reconnects, refusals, resets and dead ports mixed in:
memory and handles stay where they are, and what was called sent is what the server has."""
import socket
import subprocess

import products
import pytest
from programs import host_program

COUNTS = {"so": 20000, "dll": 2000}
# Linux: exactly what is in use; the text of the longest error yet is kept. Windows counts pages.
KEPT_BYTES = {"so": 4096, "dll": 100 * 1024}
SOAK_SECONDS = 240


class Sink:
    """Context manager; its end gives what the server counted."""

    def __enter__(self):
        program = products.build_folder("native") / "tests" / "hosts" / "sink"
        self._process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = int(self._process.stdout.readline())
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()

    def finish(self):
        out, _ = self._process.communicate("", timeout=30)
        return [int(number) for number in out.split()]


@pytest.mark.timeout(SOAK_SECONDS + 60)
def test_soak(product):
    count = COUNTS[product.name]
    env = {**product.env, "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0"}
    with Sink() as sink, socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))  # and nobody listens
        command = product.command(host_program(product, "soak_host"), product.path(product.library),
                                  str(sink.port), str(closed.getsockname()[1]), str(count))
        done = subprocess.run(command, env=env, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=SOAK_SECONDS)
        assert done.returncode == 0, done.stderr
        accepted, repeated, connections = sink.finish()
    samples = [[int(number) for number in line.split()] for line in done.stdout.splitlines()]
    assert [sample[0] for sample in samples] == [count // 10 * (i + 1) for i in range(10)]
    assert samples[-1][1] == accepted and repeated == 0
    assert 0.8 * count < accepted < 0.98 * count  # the mishaps did happen
    assert connections > count
    handles = [sample[2] for sample in samples[1:]]
    memory = [sample[3] for sample in samples[1:]]
    assert max(handles) == min(handles)
    assert max(memory) - memory[0] <= KEPT_BYTES[product.name], memory
