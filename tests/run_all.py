#!/usr/bin/env python3
"""Builds and runs every test, adds up what they counted and ends with "N passed, N failed".

    run_all.py [PART|ROOM...]    parts: includes format lint native asan asan32 tsan win32 system
                                 (all by default); rooms: the folders of tests/unit, as net/tls

includes is check_includes.py; format is whether clang-format would change a file; lint is clang-tidy
over what changed in src/ since the last tag. Of each preset (native to win32) the programs that it
registers with CTest are run, the Windows ones under Wine. system drives the products of native, asan
and win32 against mail servers on loopback. A room is the one native program of the tests in that
folder: nothing else is built. Reports and logs stay in build/results.

A program that crashes, hangs, is not built or leaves no count is a failure. So is a skipped test where
CI is set in the environment, unless its reason names the CPU or machine (which cannot run every
accelerated form), vectors that lie outside the repository, or a checkout without git history.
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

    def take(self, label, report):
        """Adds what GoogleTest or pytest reported; false where there is no whole report with a case in it."""
        cases = []
        with contextlib.suppress(OSError, ET.ParseError):
            cases = list(ET.parse(report).iter("testcase"))
        for case in cases:
            name = f"{label} {case.get('classname', '')}.{case.get('name', '')}"
            bad, skipped = case.find("failure"), case.find("skipped")
            bad = case.find("error") if bad is None else bad
            if bad is not None:
                self.failures.append(f"{name}: {bad.get('message', '').strip()[:300]}")
            elif skipped is not None or case.get("status") == "notrun":
                reason = "disabled" if skipped is None else skipped.get("message", "")
                # GoogleTest puts the place of the skip before the reason.
                self.skip(name, re.sub(r"^\S+:\d+\s+", "", " ".join(reason.split())))
            else:
                self.passed += 1
        return bool(cases)

    def add(self, label, other, started):
        print(f"  {label}: {other.line()} ({time.monotonic() - started:.1f} s)", flush=True)
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


def tail(log, lines=40):
    return "\n".join(log.read_text(errors="replace").splitlines()[-lines:])


def judge(label, code, log, report=None):
    """The count of a program that has ended, by its report or else as one."""
    count = Count()
    whole = not report or count.take(label, report)
    if code == NO_HISTORY and not report:
        count.skip(label, tail(log, 1))
    elif not count.failures and not (whole and code == 0):
        # For instance a leak found at the end, after every test had passed.
        how = "hung" if code is None else f"ended with code {code}"
        count.failures.append(f"{label}: {how}{'' if whole else ' and no report'}\n{tail(log)}")
    elif not report:
        count.passed = 1
    return count


def run_part(part, command, report=None, env=None):
    log = RESULTS / f"{part}.log"
    return judge(part, run(command, log, env), log, report)


def run_program(preset, test, env):
    """One test that CTest knows. GoogleTest counts its cases itself, any other program is one."""
    name, folder, started = test["name"], RESULTS / preset, time.monotonic()
    log, report = folder / f"{name}.log", folder / f"{name}.xml" if name.startswith("unit_") else None
    given = {p["name"]: p["value"] for p in test.get("properties", [])}
    code = run(test.get("command", ["false"]), log, {
        **env, **dict(v.split("=", 1) for v in given.get("ENVIRONMENT", [])),
        "GTEST_OUTPUT": f"xml:{name}.xml"},  # a relative path means the same to Windows programs
        folder if report else given.get("WORKING_DIRECTORY", folder), PROGRAM_SECONDS)
    return f"{preset} {name}", judge(f"{preset} {name}", code, log, report), started


def run_programs(preset, build_folder, due, env, only=()):
    """What the build folder registered with CTest, or only some of it; due are names that have to be among it."""
    total = Count()
    (RESULTS / preset).mkdir(parents=True)
    listing = subprocess.run(["ctest", "--test-dir", build_folder, "--show-only=json-v1"], capture_output=True,
                             text=True, check=True).stdout
    tests = [test for test in json.loads(listing)["tests"] if not only or test["name"] in only]
    missing = set(due) - {test["name"] for test in tests}
    total.failures += [f"{preset} {name}: not registered" for name in sorted(missing)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(run_program, preset, test, env) for test in tests]
        for job in concurrent.futures.as_completed(jobs):
            total.add(*job.result())
    return total


def build(preset, targets):
    started, log = time.monotonic(), RESULTS / f"build-{preset}.log"
    for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset, *targets]):
        if run(command, log) != 0:
            print(tail(log), flush=True)
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
    count, env = Count(), dict(os.environ)
    chosen = [rooms()[part] for part in parts if part in rooms()]
    in_full = {*parts, *(SYSTEM_NEEDS if "system" in parts else ())}
    with contextlib.ExitStack() as stack:
        for part in (*CHECKS, *PRESETS, "system"):
            started = time.monotonic()
            only = chosen if part == "native" and part not in parts else []
            report = RESULTS / "system.xml"
            if part in CHECKS and part in parts:
                count.add(part, run_part(part, CHECKS[part]), started)
            elif part == "system" and part in parts:
                count.add(part, run_part(part, [*SYSTEM, f"--junitxml={report}"], report, env), started)
            elif part in PRESETS and (part in in_full or only):
                if not build(part, [] if part in in_full else ["--target", *only]):
                    count.failures.append(f"{part}: does not build")
                    continue
                try:
                    env = stack.enter_context(wine.WineSession()).env if part == "win32" else env
                except wine.WineMissing as missing:
                    count.failures.append(f"Wine: {missing}")
                    continue
                due = only or [name for room, name in rooms().items() if part != "tsan" or room == "plugin"]
                if part in parts or only:
                    started = time.monotonic()
                    count.add(part, run_programs(part, ROOT / "build" / part, due, env, only), started)
    for text in count.failures:
        print(f"- {text}")
    print(count.line(), flush=True)
    return 1 if count.failures or not count.passed else 0


if __name__ == "__main__":
    sys.exit(main())
