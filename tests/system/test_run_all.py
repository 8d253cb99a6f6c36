"""The test runner and its checks: nothing that went wrong may be counted as passed."""
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
import check_includes  # noqa: E402
import run_all  # noqa: E402

PASSED = '<testcase name="a" status="run" result="completed" classname="S"/>'
FAILED = '<testcase name="b" status="run" classname="S"><failure message="x != y"/></testcase>'
ERROR = '<testcase name="c"><error message="in a fixture"/></testcase>'
SKIPPED = '<testcase name="d" result="skipped" classname="S"><skipped message="../a.cpp:12&#10;{}"/></testcase>'
NO_SERVER, NO_VAES = SKIPPED.format("no server"), SKIPPED.format("this CPU has no VAES")
DISABLED = '<testcase name="e" status="notrun" result="suppressed" classname="S"/>'

# Name: the program, the cases of its report or None, what it does at its end, CI, counts.
PROGRAMS = {
    "all passed": ("unit_x", [PASSED, PASSED], "exit 0", "", "2 passed, 0 failed"),
    "one failed": ("unit_x", [PASSED, FAILED], "exit 1", "", "1 passed, 1 failed"),
    "an error": ("unit_x", [ERROR], "exit 0", "", "0 passed, 1 failed"),
    "passed, then a leak": ("unit_x", [PASSED], "exit 23", "", "1 passed, 1 failed"),
    "no report": ("unit_x", None, "exit 0", "", "0 passed, 1 failed"),
    "half a report": ("unit_x", ["<testcase>"], "exit 0", "", "0 passed, 1 failed"),
    "nothing was run": ("unit_x", [""], "exit 0", "", "0 passed, 1 failed"),
    "it hangs": ("unit_x", [PASSED], "sleep 600 & sleep 600", "", "1 passed, 1 failed"),
    "a skip": ("unit_x", [PASSED, NO_SERVER], "exit 0", "", "1 passed, 0 failed, 1 skipped"),
    "a skip in CI": ("unit_x", [PASSED, NO_SERVER], "exit 0", "1", "1 passed, 1 failed"),
    "a form of another CPU": ("unit_x", [NO_VAES], "exit 0", "1", "0 passed, 0 failed, 1 skipped"),
    "disabled in CI": ("unit_x", [DISABLED], "exit 0", "1", "0 passed, 1 failed"),
    "plain program": ("host_x", None, "exit 0", "", "1 passed, 0 failed"),
    "plain program fails": ("host_x", None, "exit 3", "", "0 passed, 1 failed"),
    "not built": ("unit_x", None, None, "", "0 passed, 1 failed"),
    "not registered": ("unit_y", [PASSED], "exit 0", "", "1 passed, 1 failed"),
}


@pytest.mark.parametrize("case", PROGRAMS)
def test_programs(case, tmp_path, monkeypatch):
    name, cases, end, in_ci, counts = PROGRAMS[case]
    for setting, value in {"RESULTS": tmp_path, "IN_CI": bool(in_ci), "PROGRAM_SECONDS": 1}.items():
        monkeypatch.setattr(run_all, setting, value)
    (tmp_path / "report").write_text(f"<testsuites>{''.join(cases or ())}</testsuites>")
    copy = f"mkdir native; cp report native/{name}.xml; " if cases else ""
    command = "/no/such" if end is None else f"/bin/sh -c [=[{copy}{end}]=]"
    (tmp_path / "CTestTestfile.cmake").write_text(f"add_test({name} {command})\n")
    due = ["unit_x"] if name.startswith("unit") else []
    results = run_all.run_programs("native", tmp_path, due, {"PATH": "/usr/bin:/bin"})
    assert run_all.line(results) == counts, results


def test_a_check_with_nothing_to_compare_with(tmp_path, monkeypatch):
    monkeypatch.setattr(run_all, "RESULTS", tmp_path)
    monkeypatch.setitem(run_all.CHECKS, "lint", ["sh", "-c", "echo no git history; exit 77"])
    results = run_all.run_part("lint", ["lint"], [], None)
    assert run_all.line(results) == "0 passed, 0 failed, 1 skipped"


@pytest.mark.parametrize("path, text, allowed", [
    ("mime/A.cpp", '// comment\n#include "mime/B.h"\n#include <string_view>', True),
    ("platform/posix/A.cpp", "#  include <sys/socket.h>", True),
    ("net/A.cpp", "#include <sys/socket.h>", False), ("mime/B.cpp", '#include "../net/B.h"', False),
    ("mime/A.cpp", "#include <iostream>", False)])
def test_includes(path, text, allowed, tmp_path):
    (tmp_path / "src" / path).parent.mkdir(parents=True)
    (tmp_path / "src" / path).write_text(text)
    assert (not list(check_includes.check(tmp_path))) == allowed
