"""The test runner itself: nothing that went wrong may be counted as passed."""
import pathlib
import shutil
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
import run_all  # noqa: E402

PASSED = '<testcase name="a" status="run" result="completed" classname="S"/>'
FAILED = '<testcase name="b" status="run" classname="S"><failure message="x != y"/></testcase>'
ERROR = '<testcase name="c" classname="S"><error message="fixture"/></testcase>'
SKIPPED = ('<testcase name="d" result="skipped" classname="S">'
           '<skipped message="../a.cpp:12&#10;{reason}"/></testcase>')
DISABLED = '<testcase name="e" status="notrun" result="suppressed" classname="S"/>'


def report(*cases):
    return f"<testsuites><testsuite>{''.join(cases)}</testsuite></testsuites>"


# name: (name of the program, its report or None, its exit code or "crash", CI, counts)
PROGRAMS = {
    "all passed": ("unit_x", report(PASSED, PASSED), 0, False, (2, 0, 0)),
    "one failed": ("unit_x", report(PASSED, FAILED), 1, False, (1, 1, 0)),
    "an error in a fixture": ("unit_x", report(PASSED, ERROR), 1, False, (1, 1, 0)),
    "passed, then a leak": ("unit_x", report(PASSED), 23, False, (1, 1, 0)),
    "no report": ("unit_x", None, 0, False, (0, 1, 0)),
    "half a report": ("unit_x", "<testsuites>", 1, False, (0, 1, 0)),
    "a crash": ("unit_x", None, "crash", False, (0, 1, 0)),
    "a skip": ("unit_x", report(PASSED, SKIPPED.format(reason="no server")), 0, False, (1, 0, 1)),
    "a skip in CI": ("unit_x", report(PASSED, SKIPPED.format(reason="no server")), 0, True, (1, 1, 0)),
    "a form of another CPU": ("unit_x", report(SKIPPED.format(reason="this CPU has no VAES")), 0, True, (0, 0, 1)),
    "disabled in CI": ("unit_x", report(DISABLED), 0, True, (0, 1, 0)),
    "plain program": ("host_x", None, 0, False, (1, 0, 0)),
    "plain program fails": ("host_x", None, 3, False, (0, 1, 0)),
    "not registered with a command": ("unit_x", None, None, False, (0, 1, 0)),
    "not built": ("unit_x", None, "no program", False, (0, 1, 0)),
}


@pytest.mark.parametrize("case", PROGRAMS)
def test_counts(case, tmp_path, monkeypatch):
    name, text, code, in_ci, counts = PROGRAMS[case]
    monkeypatch.setattr(run_all, "RESULTS", tmp_path)
    monkeypatch.setattr(run_all, "IN_CI", in_ci)
    (tmp_path / "native").mkdir()
    (tmp_path / "report").write_text(text or "")
    script = f"cp {tmp_path}/report {name}.xml; " if text else ""
    script += "kill -SEGV $$" if code == "crash" else f"exit {code}"
    command = None if code is None else ["sh", "-c", script, "program"]
    if code == "no program":
        command = [str(tmp_path / "unit_x")]
    _, count, _ = run_all.run_registered("native", name, command, {}, {"PATH": "/usr/bin:/bin"})
    assert (count.passed, count.failed, count.skipped) == counts
    assert len(count.failures) == count.failed
    assert count.line() == f"{counts[0]} passed, {counts[1]} failed" + (f", {counts[2]} skipped" if counts[2] else "")


def test_a_hanging_program_is_ended(tmp_path, monkeypatch):
    code = run_all.run(["sh", "-c", "sleep 600 & sleep 600"], tmp_path / "log", seconds=0.2)
    assert code is None


@pytest.mark.parametrize("code, counts", [(0, (1, 0, 0)), (1, (0, 1, 0)), (77, (0, 0, 1))])
def test_checks(code, counts, tmp_path, monkeypatch):
    monkeypatch.setattr(run_all, "RESULTS", tmp_path)
    monkeypatch.setattr(run_all, "IN_CI", True)
    monkeypatch.setitem(run_all.CHECKS, "lint", ["sh", "-c", f"echo no git history; exit {code}"])
    count = run_all.Count()
    run_all.run_check("lint", count)
    assert (count.passed, count.failed, count.skipped) == counts


# A fault in a header is seen where sources see the header: through a link of a view.
@pytest.mark.parametrize("body, code", [("p == 0", 1), ("p == nullptr", 0)])
def test_lint_sees_headers(body, code, tmp_path):
    view = tmp_path / "build" / "native" / "views" / "tv_net_tls" / "net" / "tls"
    view.mkdir(parents=True)
    shutil.copy(run_all.ROOT / ".clang-tidy", tmp_path)
    (tmp_path / "Fault.h").write_text(f"#pragma once\ninline bool none(const char* p) {{ return {body}; }}\n")
    (view / "Fault.h").symlink_to(tmp_path / "Fault.h")
    (tmp_path / "Fault.cpp").write_text('#include "net/tls/Fault.h"\n')
    result = subprocess.run(["clang-tidy-14", "--quiet", "Fault.cpp", "--", f"-I{view.parents[1]}"], cwd=tmp_path,
                            capture_output=True, text=True)
    assert result.returncode == code, result.stdout + result.stderr
