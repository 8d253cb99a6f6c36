#!/usr/bin/env python3
"""Builds and runs every test, adds up what they counted and ends with "N passed, N failed".

    run_all.py [PART|ROOM...]    parts: includes format lint native asan asan32 tsan win32 system
                                 (all by default); rooms: the folders of tests/unit, as net/tls

includes is check_includes.py; format is whether clang-format would change a file; lint is clang-tidy
over what changed in src/ since the last tag. native, asan, asan32, tsan and win32 are presets: each
is built and the programs that it registers with CTest are run, the Windows ones under Wine. system
drives the products of native, asan and win32 against mail servers on loopback. A room is the one
native program of the tests in that folder: nothing else is built. Reports and logs stay in
build/results.

A program that crashes, hangs, is not built or leaves no count is a failure. A skipped test is
counted as skipped. Where CI is set in the environment it is a failure, unless its reason names the
CPU or machine (which cannot run every accelerated form), vectors that lie outside the repository, or
a checkout without git history.
"""
import argparse
import collections
import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
import wine  # noqa: E402

RESULTS = ROOT / "build" / "results"
PRESETS = ("native", "asan", "asan32", "tsan", "win32")
CHECKS = {
    "includes": [sys.executable, "tests/check_includes.py"],
    "format": ["./run", "format", "--check"],
    "lint": ["./run", "lint", "--changed"],
}
NO_HISTORY = 77  # exit code of a check that had nothing to compare with
SYSTEM = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-o", "junit_family=xunit2", "tests/system"]
PARTS = (*CHECKS, *PRESETS, "system")
SYSTEM_NEEDS = ("native", "asan", "win32")
PROGRAM_SECONDS, PART_SECONDS = 900, 3600
MAY_SKIP = re.compile("CPU|this machine|vectors|git history")
IN_CI = os.environ.get("CI", "").lower() in ("1", "true", "yes")


class Count:
    """What was counted so far, with a line for every failure and the reasons of what was skipped."""

    def __init__(self):
        self.passed, self.failures, self.reasons = 0, [], collections.Counter()

    def skip(self, name, reason):
        if IN_CI and not MAY_SKIP.search(reason):
            self.failures.append(f"{name}: skipped in CI: {reason}")
        else:
            self.reasons[reason] += 1

    def take(self, label, cases):
        """Cases of a report as GoogleTest, pytest and CTest write it."""
        for case in cases:
            name = f"{label} {case.get('classname', '')}.{case.get('name', '')}"
            bad = [*case.iter("failure"), *case.iter("error")]
            skipped = case.find("skipped")
            if bad:
                self.failures.append(f"{name}: {(bad[0].get('message') or '').strip()[:300]}")
            elif skipped is not None or case.get("status") == "notrun":
                reason = "disabled" if skipped is None else skipped.get("message") or ""
                # GoogleTest puts the place of the skip before the reason.
                self.skip(name, re.sub(r"^\S+:\d+\s+", "", " ".join(reason.split())))
            else:
                self.passed += 1

    def add(self, label, other, seconds):
        print(f"  {label}: {other.line()} ({seconds:.1f} s)", flush=True)
        for reason, number in sorted(other.reasons.items()):
            print(f"    skipped {number}: {reason[:200]}")
        self.passed += other.passed
        self.failures += other.failures
        self.reasons += other.reasons

    def line(self):
        skipped = f", {self.reasons.total()} skipped" if self.reasons else ""
        return f"{self.passed} passed, {len(self.failures)} failed{skipped}"


def run(command, log, env=None, cwd=ROOT, seconds=PART_SECONDS):
    """Exit code of the command, or None after a time-out; its output goes to the file log."""
    with open(log, "wb") as out:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out,
                                   stderr=subprocess.STDOUT, env=env, cwd=cwd, start_new_session=True)
        try:
            return process.wait(seconds)
        except subprocess.TimeoutExpired:
            return None
        finally:
            with contextlib.suppress(ProcessLookupError):  # its own group only
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()


def tail(text, lines=40):
    return "\n".join(text.splitlines()[-lines:])


def cases_of(report):
    """None where there is no whole report."""
    with contextlib.suppress(OSError, ET.ParseError):
        return list(ET.parse(report).iter("testcase"))


def run_program(label, test, folder, env):
    """One test that CTest knows. GoogleTest counts its cases itself, any other program is one."""
    name, count, started = test["name"], Count(), time.monotonic()
    log, is_unit = folder / f"{name}.log", name.startswith("unit_")
    given = {p["name"]: p["value"] for p in test.get("properties", [])}
    code = run(test.get("command", ["false"]), log, {
        **env, **dict(v.split("=", 1) for v in given.get("ENVIRONMENT", [])),
        "GTEST_OUTPUT": f"xml:{name}.xml"},  # a relative path means the same to Windows programs
        folder if is_unit else given.get("WORKING_DIRECTORY", folder), PROGRAM_SECONDS)
    cases = cases_of(folder / f"{name}.xml") if is_unit else []
    count.take(label, cases or ())
    if code == 0 and cases is not None:
        count.passed += not cases
    elif not count.failures:
        # For instance a leak found at the end, after every test had passed.
        how = "hung" if code is None else f"ended with code {code}{'' if cases is None else ' and no report'}"
        count.failures.append(f"{label}: {how}\n{tail(log.read_text(errors='replace'))}")
    return label, count, time.monotonic() - started


def run_programs(preset, build_folder, due, env, only=()):
    """What the build folder registered with CTest, or only some of it; due are names that have to be among it."""
    folder, total = RESULTS / preset, Count()
    folder.mkdir(parents=True)
    listing = subprocess.run(["ctest", "--test-dir", build_folder, "--show-only=json-v1"], capture_output=True,
                             text=True, check=True).stdout
    tests = [test for test in json.loads(listing)["tests"] if not only or test["name"] in only]
    missing = set(due) - {test["name"] for test in tests}
    total.failures += [f"{preset} {name}: not registered" for name in sorted(missing)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(run_program, f"{preset} {test['name']}", test, folder, env) for test in tests]
        for job in concurrent.futures.as_completed(jobs):
            total.add(*job.result())
    return total


def run_part(part, command, report=None, env=None):
    """A check, which counts once, or a program that leaves a report."""
    log, count, started = RESULTS / f"{part}.log", Count(), time.monotonic()
    code = run(command, log, env)
    said = log.read_text(errors="replace")
    count.take(part, report and cases_of(report) or ())
    if not report:
        count.passed += code == 0
        if code == NO_HISTORY:
            count.skip(part, tail(said, 1))
    if not count.failures and (code not in (0, NO_HISTORY) or not count.passed and not count.reasons):
        count.failures.append(f"{part}: ended with code {code}")
    if count.failures:
        print(tail(said, 120))
    return count, time.monotonic() - started


def build(preset, targets):
    started, log = time.monotonic(), RESULTS / f"build-{preset}.log"
    for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset, *targets]):
        if run(command, log) != 0:
            print(tail(log.read_text(errors="replace")), flush=True)
            return False
    print(f"{preset}: built in {time.monotonic() - started:.0f} s", flush=True)
    return True


def rooms():
    """Room -> its test program."""
    unit = ROOT / "tests" / "unit"
    # A folder "peer" belongs to the program of the folder above, where OpenSSL is.
    names = {p.parent.relative_to(unit).as_posix().removesuffix("/peer") for p in unit.rglob("*.cpp")}
    return {name: "unit_" + name.replace("/", "_") for name in sorted(names)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("parts", nargs="*", metavar="PART|ROOM", help=", ".join([*PARTS, *rooms()]))
    parts = parser.parse_args().parts or list(PARTS)
    unknown = set(parts) - set(PARTS) - set(rooms())
    if unknown:
        parser.error(f"no such part or room: {', '.join(sorted(unknown))}")
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    count = Count()
    for part in [check for check in CHECKS if check in parts]:
        count.add(part, *run_part(part, CHECKS[part]))
    in_full = {*parts, *(SYSTEM_NEEDS if "system" in parts else ())}
    chosen = [rooms()[part] for part in parts if part in rooms()]
    env = dict(os.environ)
    with contextlib.ExitStack() as stack:
        for preset in PRESETS:
            only = chosen if preset == "native" and preset not in parts else []
            if preset not in in_full and not only:
                continue
            if not build(preset, ["--target", *only] if preset not in in_full else []):
                count.failures.append(f"{preset}: does not build")
                continue
            try:
                if preset == "win32":
                    env = stack.enter_context(wine.WineSession()).env
            except wine.WineMissing as missing:
                count.failures.append(f"Wine: {missing}")
                continue
            due = only or [name for room, name in rooms().items() if preset != "tsan" or room == "plugin"]
            if preset in parts or only:
                started = time.monotonic()
                result = run_programs(preset, ROOT / "build" / preset, due, env, only)
                count.add(preset, result, time.monotonic() - started)
        if "system" in parts:
            report = RESULTS / "system.xml"
            count.add("system", *run_part("system", [*SYSTEM, f"--junitxml={report}"], report, env))
    for text in count.failures:
        print(f"- {text}")
    print(count.line(), flush=True)
    return 1 if count.failures or not count.passed else 0


if __name__ == "__main__":
    sys.exit(main())
