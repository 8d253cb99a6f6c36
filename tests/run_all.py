#!/usr/bin/env python3
"""Builds and runs every test, adds up what they counted and ends with "N passed, N failed".

    run_all.py [PART|ROOM...]    parts: includes format lint native asan asan32 tsan win32 win64 system
                                 delivery (all by default); rooms: the folders of tests/unit, as net/tls

includes is check_includes.py; format is whether clang-format would change a file; lint is clang-tidy
over what changed in src/ since the last tag. Of each preset (native to win64) CTest runs the programs
that are registered with it, the Windows ones under Wine. system drives the products of native, native32,
asan, win32 and win64 against mail servers on loopback. delivery packs what goes out (tools/package.py,
which builds what it packs) and judges that. A room is the one native program of the tests in that
folder: nothing else is built. Reports and logs stay in build/results.

A program that crashes, hangs, is not built or leaves no count is a failure. So is a skipped test where
CI is set in the environment, unless its reason names the CPU or machine (which cannot run every
accelerated form), vectors that lie outside the repository, or a checkout without git history.
"""
import argparse
import collections
import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
import wine  # noqa: E402

RESULTS = ROOT / "build" / "results"
PRESETS = ("native", "asan", "asan32", "tsan", "win32", "win64")
LIBRARIES = ("native32",)  # presets without test programs
CHECKS = {
    "includes": [sys.executable, "tests/check_includes.py"],
    "format": ["./run", "format", "--check"],
    "lint": ["./run", "lint", "--changed"],
}
NO_HISTORY = 77  # exit code of a check that had nothing to compare with
PYTEST = [sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-o", "junit_family=xunit2"]
SYSTEM_NEEDS = ("native", *LIBRARIES, "asan", "win32", "win64")
WINDOWS = {"win32": 32, "win64": 64}
# Options of each. Servers are waited for more than computed with: one process more than there are processors.
SUITES = {"system": ["-n", str(os.cpu_count() + 1), "--dist", "loadfile"], "delivery": []}
PARTS = (*CHECKS, *PRESETS, *SUITES)
PROGRAM_SECONDS, PART_SECONDS = 900, 3600
MAY_SKIP = re.compile("CPU|this machine|vectors|git history")
IN_CI = os.environ.get("CI", "").lower() in ("1", "true", "yes")
Result = collections.namedtuple("Result", "name outcome why", defaults=("",))


def skipped(name, why):
    if IN_CI and not MAY_SKIP.search(why):
        return Result(name, "failed", f"skipped in CI: {why}")
    return Result(name, "skipped", why)


def result_of(label, case):
    """Of what GoogleTest or pytest reported."""
    name = f"{label} {case.get('classname', '')}.{case.get('name', '')}"
    for bad in (*case.iter("failure"), *case.iter("error")):
        return Result(name, "failed", bad.get("message", "").strip()[:300])
    for skip in case.iter("skipped"):
        # GoogleTest puts the place of the skip before the reason.
        return skipped(name, re.sub(r"^\S+:\d+\s+", "", " ".join(skip.get("message", "").split())))
    return skipped(name, "disabled") if case.get("status") == "notrun" else Result(name, "passed")


def line(results):
    count = collections.Counter(result.outcome for result in results)
    skips = f", {count['skipped']} skipped" if count["skipped"] else ""
    return f"{count['passed']} passed, {count['failed']} failed{skips}"


def tell(label, results, seconds):
    print(f"  {label}: {line(results)} ({float(seconds):.1f} s)", flush=True)
    reasons = collections.Counter(result.why for result in results if result.outcome == "skipped")
    for why, number in sorted(reasons.items()):
        print(f"    skipped {number}: {why[:200]}")
    return results


def testcases(report):
    with contextlib.suppress(OSError, ET.ParseError):
        return list(ET.parse(report).iter("testcase"))
    return []


def run(command, log, env=None):
    """Exit code of the command and its output, which goes to a file as well."""
    path = RESULTS / f"{log}.log"
    with open(path, "wb") as out:
        code = subprocess.run(["timeout", "-k", "9", str(PART_SECONDS), *command], stdin=subprocess.DEVNULL,
                              stdout=out, stderr=subprocess.STDOUT, env=env, cwd=ROOT).returncode
    return code, path.read_text(errors="replace")


def judge(label, code, output, report=None):
    """The results of a program that has ended, by its report or else one."""
    results = [result_of(label, case) for case in testcases(report)] if report else []
    if code == 0 and not report:
        return [Result(label, "passed")]
    if code == NO_HISTORY and not report:
        return [skipped(label, output.strip())]
    if (code == 0 and results) or any(result.outcome == "failed" for result in results):
        return results
    # For instance a leak found at the end, after every test had passed.
    how = f"ended with {code}{' and no report' if report and not results else ''}"
    return [*results, Result(label, "failed", f"{how}\n{output[-3000:]}")]


def run_programs(preset, folder, due, env, only=()):
    """What the build folder registered with CTest, or only some of it; due are names that have to be
    among it. GoogleTest counts its cases itself, any other program is one."""
    reports, listing = RESULTS / preset, RESULTS / f"{preset}.xml"
    drive = "Z:" if preset in WINDOWS else ""
    run(["ctest", "--test-dir", folder, "-j", str(os.cpu_count()), "--timeout", str(PROGRAM_SECONDS),
         "-R", f"^({'|'.join(only) or '.*'})$", "--output-junit", listing],
        preset, {**env, "GTEST_OUTPUT": f"xml:{drive}{reports}/"})
    tests = {test.get("name"): test for test in testcases(listing)}
    results = [Result(f"{preset} {name}", "failed", "not registered") for name in sorted({*due} - {*tests})]
    for name, test in tests.items():
        bad, label = test.find("failure"), f"{preset} {name}"
        code = 0 if test.get("status") == "run" else "nothing" if bad is None else bad.get("message")
        report = reports / f"{name}.xml" if name.startswith("unit_") else None
        results += tell(label, judge(label, code, test.findtext("system-out") or "", report), test.get("time"))
    return results


def rooms():
    """Room -> its test program."""
    unit = ROOT / "tests" / "unit"
    # A folder "peer" belongs to the program of the folder above, where OpenSSL is.
    names = {p.parent.relative_to(unit).as_posix().removesuffix("/peer") for p in unit.rglob("*.cpp")}
    return {name: "unit_" + name.replace("/", "_") for name in sorted(names)}


def run_part(part, parts, chosen, env):
    """What comes of it where it is asked for; a preset is built where the system's tests need it."""
    only = chosen if part == "native" and part not in parts else []
    whole = part in parts or ("system" in parts and part in SYSTEM_NEEDS)
    if part in (*PRESETS, *LIBRARIES) and (whole or only):
        targets = [] if whole else ["--target", *only]
        for command in (["cmake", "--preset", part], ["cmake", "--build", "--preset", part, *targets]):
            code, output = run(command, f"build-{part}")
            if code:
                return [Result(part, "failed", f"does not build\n{output[-3000:]}")]
    if part in CHECKS and part in parts:
        return judge(part, *run(CHECKS[part], part))
    if part in SUITES and part in parts:
        report = RESULTS / f"{part}.xml"
        return judge(part, *run([*PYTEST, *SUITES[part], f"tests/{part}", f"--junitxml={report}"], part, env), report)
    if part in parts or only:
        due = only or [name for room, name in rooms().items() if part != "tsan" or room == "plugin"]
        return run_programs(part, ROOT / "build" / part, due, env, only)
    return []


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("parts", nargs="*", metavar="PART|ROOM", help=", ".join([*PARTS, *rooms()]))
    parts = parser.parse_args().parts or list(PARTS)
    if unknown := set(parts) - {*PARTS, *rooms()}:
        parser.error(f"no such part or room: {', '.join(sorted(unknown))}")
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    results, env, chosen = [], dict(os.environ), [rooms()[part] for part in parts if part in rooms()]
    with contextlib.ExitStack() as stack:
        for part in (*LIBRARIES, *PARTS):
            if part in WINDOWS and {part, *SUITES} & {*parts}:
                try:
                    env = stack.enter_context(wine.WineSession(WINDOWS[part], env)).env
                except wine.WineMissing as missing:
                    results.append(Result("Wine", "failed", str(missing)))
                    continue
            started = time.monotonic()
            if found := run_part(part, parts, chosen, env):
                results += tell(part, found, time.monotonic() - started)
    for result in results:
        if result.outcome == "failed":
            print(f"- {result.name}: {result.why}")
    print(line(results), flush=True)
    return {result.outcome for result in results} not in ({"passed"}, {"passed", "skipped"})


if __name__ == "__main__":
    sys.exit(main())
