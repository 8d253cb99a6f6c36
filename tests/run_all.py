#!/usr/bin/env python3
"""Builds and runs every test, adds up what they counted and ends with "N passed, N failed".

    run_all.py [PART|ROOM...]    parts: includes format lint native asan asan32 tsan win32 system
                                 (all by default); rooms: the folders of tests/unit, as net/tls

includes is check_includes.py; format is whether clang-format would change a file; lint is clang-tidy
over what changed in src/ since the last tag. native, asan, asan32, tsan and win32 are presets: each
is built and the programs that it registers with CTest are run, the Windows ones under Wine. system
drives the products of native, asan and win32 against mail servers on loopback. A room is the one
native program of the tests in that folder: nothing else is built. What each program printed stays in
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
ROOMS_OF = {"tsan": ["plugin"]}  # all rooms elsewhere
CHECKS = {
    "includes": [sys.executable, "tests/check_includes.py"],
    "format": ["./run", "format", "--check"],
    "lint": ["./run", "lint", "--changed"],
}
NO_HISTORY = 77  # exit code of a check that had nothing to compare with
PARTS = tuple(CHECKS) + PRESETS + ("system",)
SYSTEM_NEEDS = ("native", "asan", "win32")
PROGRAM_SECONDS = 900
MAY_SKIP = re.compile("CPU|this machine|vectors|git history")
IN_CI = os.environ.get("CI", "").lower() in ("1", "true", "yes")


class Count:
    """What was counted so far, with a line for every failure."""

    def __init__(self):
        self.passed = self.failed = self.skipped = 0
        self.failures = []
        self.reasons = collections.Counter()

    def fail(self, text):
        self.failed += 1
        self.failures.append(text)

    def skip(self, name, reason):
        if IN_CI and not MAY_SKIP.search(reason):
            self.fail(f"{name}: skipped in CI: {reason}")
        else:
            self.skipped += 1
            self.reasons[reason] += 1

    def line(self):
        skipped = f", {self.skipped} skipped" if self.skipped else ""
        return f"{self.passed} passed, {self.failed} failed{skipped}"

    def add_report(self, label, path):
        """Adds a JUnit-like report (GoogleTest's and pytest's both); false if there is none."""
        try:
            cases = ET.parse(path).getroot().iter("testcase")
        except (OSError, ET.ParseError):
            return False
        for case in cases:
            name = f"{label} {case.get('classname', '')}.{case.get('name', '')}"
            bad = case.findall("failure") + case.findall("error")
            skipped = case.find("skipped")
            if bad:
                self.fail(f"{name}: {(bad[0].get('message') or '').strip()[:300]}")
            elif skipped is not None or case.get("status") == "notrun":
                reason = "disabled" if skipped is None else skipped.get("message") or ""
                # GoogleTest puts the place of the skip before the reason.
                self.skip(name, re.sub(r"^\S+:\d+\s+", "", " ".join(reason.split())))
            else:
                self.passed += 1
        return True

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped
        self.failures += other.failures


def run(command, log, env=None, cwd=ROOT, seconds=PROGRAM_SECONDS):
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


def tail(path, lines=40):
    return "\n".join(path.read_text(errors="replace").splitlines()[-lines:])


def rooms():
    """Room -> its test program."""
    folders = {p.parent for p in (ROOT / "tests" / "unit").rglob("*.cpp")}
    # A folder "peer" belongs to the program of the folder above, where OpenSSL is.
    names = [f.relative_to(ROOT / "tests" / "unit").as_posix() for f in folders if f.name != "peer"]
    return {name: "unit_" + name.replace("/", "_") for name in sorted(names)}


def build(preset, count, targets=()):
    started = time.monotonic()
    log = RESULTS / f"build-{preset}.log"
    only = ["--target", *targets] if targets else []
    for command in (["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset, *only]):
        if run(command, log, seconds=3600) != 0:
            count.fail(f"{preset}: does not build")
            print(tail(log), flush=True)
            return False
    print(f"{preset}: built in {time.monotonic() - started:.0f} s", flush=True)
    return True


def registered_tests(preset):
    """(name, command, properties) of each test that the preset registered with CTest."""
    listing = subprocess.run(["ctest", "--preset", preset, "--show-only=json-v1"], cwd=ROOT,
                             capture_output=True, text=True, check=True).stdout
    for test in json.loads(listing)["tests"]:
        properties = {p["name"]: p["value"] for p in test.get("properties", [])}
        yield test["name"], test.get("command"), properties


def run_registered(preset, name, command, properties, env):
    count = Count()
    label = f"{preset} {name}"
    folder = RESULTS / preset
    report, log = folder / f"{name}.xml", folder / f"{name}.log"
    if not command:
        count.fail(f"{label}: not built")
        return name, count, 0
    is_unit = name.startswith("unit_")
    cwd = folder if is_unit else properties.get("WORKING_DIRECTORY", folder)
    # A relative path means the same to Windows programs.
    options = [f"--gtest_output=xml:{report.name}"] if is_unit else []
    env = {**env, **dict(v.split("=", 1) for v in properties.get("ENVIRONMENT", []))}
    started = time.monotonic()
    try:
        code = run(command + options, log, env, cwd)
    except OSError as error:
        count.fail(f"{label}: {error}")
        return name, count, 0
    if not is_unit and code == 0:
        count.passed += 1
    elif is_unit and not count.add_report(label, report):
        ended = "hung" if code is None else f"ended with code {code} and no report"
        count.fail(f"{label}: {ended}\n{tail(log)}")
    elif code != 0 and not (is_unit and count.failed):
        # For instance a leak found at the end, after every test had passed.
        count.fail(f"{label}: {'hung' if code is None else f'exit code {code}'}\n{tail(log)}")
    return name, count, time.monotonic() - started


def print_result(name, result, seconds):
    print(f"  {name}: {result.line()} ({seconds:.1f} s)", flush=True)
    for reason, number in sorted(result.reasons.items()):
        print(f"    skipped {number}: {reason[:200]}")


def run_preset(preset, count, env, programs=()):
    """Runs what the preset registered, or only the named programs of it."""
    folder = RESULTS / preset
    folder.mkdir(parents=True)
    tests = [test for test in registered_tests(preset) if not programs or test[0] in programs]
    due = programs or [name for room, name in rooms().items() if room in ROOMS_OF.get(preset, [room])]
    for name in set(due) - {test[0] for test in tests}:
        count.fail(f"{preset} {name}: not registered")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = [pool.submit(run_registered, preset, *test, env) for test in tests]
        for job in concurrent.futures.as_completed(jobs):
            name, result, seconds = job.result()
            print_result(f"{preset} {name}", result, seconds)
            count.add(result)


def run_check(part, count):
    log = RESULTS / f"{part}.log"
    started = time.monotonic()
    code = run(CHECKS[part], log, seconds=3600)
    result = Count()
    if code == 0:
        result.passed += 1
    elif code == NO_HISTORY:
        result.skip(part, tail(log, 1))
    else:
        result.fail(f"{part}: {'hung' if code is None else f'exit code {code}'}\n{tail(log)}")
    print_result(part, result, time.monotonic() - started)
    count.add(result)


def run_system(count, env):
    report, log = RESULTS / "system.xml", RESULTS / "system.log"
    if not list((ROOT / "tests" / "system").glob("test_*.py")):
        return
    started = time.monotonic()
    code = run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-o", "junit_family=xunit2",
                f"--junitxml={report}", "tests/system"], log, env, seconds=3600)
    result = Count()
    reported = result.add_report("system", report)
    if not reported or (code != 0 and not result.failed):
        result.fail(f"system: ended with code {code}")
    if result.failed:
        print(tail(log, 120))
    print_result("system", result, time.monotonic() - started)
    count.add(result)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("parts", nargs="*", metavar="PART|ROOM", help=", ".join([*PARTS, *rooms()]))
    parts = parser.parse_args().parts or list(PARTS)
    programs = [rooms()[part] for part in parts if part in rooms()]
    unknown = set(parts) - set(PARTS) - set(rooms())
    if unknown:
        parser.error(f"no such part or room: {', '.join(sorted(unknown))}")
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    count = Count()
    for part in CHECKS:
        if part in parts:
            run_check(part, count)
    wanted = {preset: () for preset in PRESETS if preset in parts}  # () is every program
    if programs:
        wanted.setdefault("native", programs)
    in_full = SYSTEM_NEEDS if "system" in parts else ()
    built = [preset for preset in PRESETS if (preset in wanted or preset in in_full) and
             build(preset, count, () if preset in in_full else wanted[preset])]
    with contextlib.ExitStack() as stack:
        env = dict(os.environ)
        if "win32" in built:
            try:
                env = stack.enter_context(wine.WineSession()).env
            except wine.WineMissing as missing:
                count.fail(f"Wine: {missing}")
                built = [preset for preset in built if preset != "win32"]
        for preset in built:
            if preset in wanted:
                run_preset(preset, count, env, wanted[preset])
        if "system" in parts:
            run_system(count, env)
    if count.failures:
        print("\nFailed:")
        for text in count.failures:
            print(f"- {text}")
    print(count.line(), flush=True)
    return 1 if count.failed or not count.passed else 0


if __name__ == "__main__":
    sys.exit(main())
