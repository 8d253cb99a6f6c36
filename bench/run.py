#!/usr/bin/env python3
"""Builds the benchmarks and prints their tables.

    run.py [NAME] [--repeat N] [--mode plain|implicit|starttls]... [--bits 32] [--chart]

smtp (bench/smtp) sends messages through SendEmail, libcurl and bare sockets ("floor"), small ones through the
exports, too, to a server that counts, all on loopback. Clients take turns, figures are medians, ratios are of
one run: other work on the machine moves the wall times, much less the CPU times, and not the counts. With
--bits 32 ours and the floor are 32-bit programs (build/bench32), libcurl stays what it is. Every other NAME is
a program of its own, bench/NAME.cpp. Without a NAME everything is run.

The last run of smtp is kept in build/bench/smtp.json, and --chart draws docs/performance.svg from that: alone
it measures nothing, with a NAME it draws after the run.
"""
import argparse
import json
import os
import pathlib
import platform
import random
import statistics
import subprocess
import sys
import tempfile
import time

import chart
import primitives

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ.get("TV_BUILD_NATIVE", ROOT / "build" / "native")).resolve()
BUILD32 = ROOT / "build" / "bench32"
CLIENTS = ("own", "curl", "floor")
KEPT = ROOT / "build" / "bench" / "smtp.json"
CHART = ROOT / "docs" / "performance.svg"
HOST = "host"  # our exports, with a trial connection where none is open
MB = 1 << 20
SETTLE_US = 20000


def build(target):
    if "TV_BUILD_NATIVE" not in os.environ:
        subprocess.run(["cmake", "--preset", "native"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(BUILD), "--target", target], cwd=ROOT, check=True,
                   stdout=sys.stderr)


def build32(target):
    subprocess.run(["cmake", "-B", BUILD32, "-S", ROOT, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    "-DCMAKE_CXX_FLAGS=-m32", "-DCMAKE_CXX_FLAGS_RELEASE=-O2"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD32, "--target", target], check=True, stdout=sys.stderr)


class Smtp:
    """The SMTP benchmark in one mode; its inputs lie in `folder`."""

    def __init__(self, folder, mode, repeat, bits):
        self.folder, self.mode, self.repeat, self.bits = folder, mode, repeat, bits
        self.html = folder / "body.html"
        words = "lorem ipsum dolor sit amet consectetur adipiscing elit".split()
        rng = random.Random(1)
        text = "".join("<p>" + " ".join(rng.choices(words, k=9)) + "</p>\r\n" for _ in range(32))
        self.html.write_text(f"<html><body>\r\n{text}</body></html>\r\n")

    def attachment(self, megabytes):
        path = self.folder / f"{megabytes}.bin"
        if not path.exists():
            path.write_bytes(random.Random(2).randbytes(megabytes * MB))
        return path

    def send(self, client, count, recipients=1, attachment=None, settle=0, connect=None):
        """One run against a server of its own: the client's report and the server's counts."""
        certificate = self.folder / "certificate.pem"
        sink = subprocess.Popen([BUILD / "bench" / "bench_smtp_sink", "--tls", self.mode, "--cert-out", certificate,
                                 "--settle-us", str(settle), "--key", "rsa" if connect else "ec"], stdout=subprocess.PIPE, text=True)
        try:
            port = sink.stdout.readline().strip()
            programs = BUILD32 if self.bits == 32 and client != "curl" else BUILD
            command = [programs / "bench" / f"bench_smtp_{client}", "--port", port, "--tls", self.mode, "--ca", certificate,
                       "--html", self.html, "--count", count, "--recipients", recipients]
            if attachment:
                command += ["--attach", attachment]
            if connect:
                command += ["--connect", connect]
            environment = dict(os.environ)
            if client == HOST:
                environment["EMAILSENDING_SETTINGS"] = str(self.settings(certificate))
            done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=300, env=environment)
            if done.returncode:
                sys.exit(f"{client} failed: {done.stderr.strip()[-2000:]}")
            report = json.loads(done.stdout)
        finally:
            sink.terminate()
            counts = sink.communicate()[0]
        return report, json.loads(counts.strip().splitlines()[-1])

    def settings(self, certificate):
        """The file that makes the exports verify as the others do, and try the server once."""
        path = self.folder / "settings.ini"
        verify = f"[certificate]\nverify = yes\nroots = {certificate}\n" if self.mode != "none" else ""
        path.write_text("[server]\ntrial = first\n" + verify)
        return path

    def turns(self, client, recipients):
        """Round trips of a further message on a connection that is already open."""
        counts = [self.send(client, n, recipients, settle=SETTLE_US)[1]["turns"] for n in (1, 5)]
        return (counts[1] - counts[0]) / 4

    def medians(self, count, attachment=None, connect=None, clients=CLIENTS):
        """Each client's median report, the clients taking turns."""
        runs = {client: [] for client in clients}
        for _ in range(self.repeat):
            for client in clients:
                runs[client].append(self.send(client, count, attachment=attachment, connect=connect)[0])
        return {client: {key: statistics.median(run[key] for run in reports) for key in reports[0]}
                for client, reports in runs.items()}

    def rows(self):
        """(what, value by client, better is more, how to write a value) for each line of the table."""
        for recipients in (1, 10):
            yield (f"round trips per message, {recipients} recipient{'s' * (recipients > 1)}",
                   {c: self.turns(c, recipients) for c in CLIENTS}, "{:g}")
        count = 400
        small = self.medians(count, clients=CLIENTS + (HOST,))
        yield "small messages/s", {c: count / r["seconds"] for c, r in small.items()}, "{:,.0f}"
        yield "small messages, CPU ms each", {c: r["cpu"] / count * 1e3 for c, r in small.items()}, "{:.3f}"
        rate, cpu = count / small[HOST]["seconds"], small[HOST]["cpu"] / count * 1e3
        self.exports = (f"Small messages by the exports, trial = first: {rate:,.0f}/s ({rate / count * small['floor']['seconds']:.2f} of "
                        f"the floor), CPU {cpu:.3f} ms each ({small[HOST]['cpu'] / small['own']['cpu']:.2f} of SendEmail)")
        for connect in ("fresh", "resumed") if self.mode != "none" else ("fresh",):
            count = 200
            runs = self.medians(count, connect=connect)
            yield (f"{connect} connection that greets and quits, CPU ms", {c: r["cpu"] / count * 1e3 for c, r in runs.items()},
                   "{:.2f}")
        megabytes, count = 25, 4
        large = self.medians(count, self.attachment(megabytes))
        sent = megabytes * count
        yield (f"{megabytes} MB attachment, MB/s", {c: sent / r["seconds"] for c, r in large.items()}, "{:,.0f}")
        yield ("client CPU per payload byte, ns", {c: r["cpu"] / sent / MB * 1e9 for c, r in large.items()}, "{:.2f}")
        yield ("peak memory over the idle process, times the attachment",
               {c: (r["peak_kb"] - r["idle_kb"]) / 1024 / megabytes for c, r in large.items()}, "{:.2f}")

    def print_table(self):
        """Prints the rows as they come and returns them."""
        table = {}
        print(f"\n### SMTP, {self.mode if self.mode != 'none' else 'plain'}, {self.bits} bits\n")
        print("| what | " + " | ".join(chart.TITLES[c] for c in CLIENTS) + " | ours / libcurl |")
        print("|---|" + "---|" * (len(CLIENTS) + 1))
        for what, values, form in self.rows():
            table[what] = {c: values[c] for c in CLIENTS}
            ratio = f"{values['own'] / values['curl']:.2f}" if values["curl"] > 0.05 else ""
            print(f"| {what} | " + " | ".join(form.format(values[c]) for c in CLIENTS) + f" | {ratio} |", flush=True)
        print(f"\n{self.exports}")
        return table


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 platform.machine())
    return f"{time.strftime('%d %B %Y')}, {os.cpu_count()} cores of {model}, Linux {platform.release()}"


def run_smtp(modes, repeat, bits):
    build("bench_smtp")
    if bits == 32:
        build32("bench_smtp")
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        tables = {mode: Smtp(pathlib.Path(folder), mode, repeat, bits).print_table() for mode in modes}
    chart.keep(KEPT, machine() + (", 32-bit code" if bits == 32 else ""), tables)


def draw():
    if not KEPT.exists():
        sys.exit("there is no run to draw: ./run bench smtp")
    CHART.write_text(chart.svg(json.loads(KEPT.read_text())))
    print(CHART.relative_to(ROOT))


def run_program(name):
    build(f"bench_{name}")
    print(f"\n### {name}\n", flush=True)
    if name in primitives.GOALS:
        build32(f"bench_{name}")
        primitives.run(name, BUILD, BUILD32)
    else:
        subprocess.run([BUILD / "bench" / f"bench_{name}"], check=True)


def main():
    programs = sorted(path.stem for path in (ROOT / "bench").glob("*.cpp"))
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("name", nargs="?", choices=["smtp"] + programs)
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--mode", action="append", choices=["plain", "implicit", "starttls"])
    parser.add_argument("--bits", type=int, choices=[32, 64], default=64)
    parser.add_argument("--chart", action="store_true", help="draw docs/performance.svg from the last run of smtp")
    args = parser.parse_args()
    if args.chart and not args.name:
        return draw()
    print(machine(), flush=True)
    if args.name in (None, "smtp"):
        run_smtp(["none" if mode == "plain" else mode for mode in args.mode or ["plain", "implicit"]], args.repeat,
                 args.bits)
    for name in programs:
        if args.name in (None, name):
            run_program(name)
    if args.chart:
        draw()


if __name__ == "__main__":
    main()
