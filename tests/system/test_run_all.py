"""The test runner and its checks: nothing that went wrong may be counted as passed."""
import pathlib
import shutil
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
import check_includes  # noqa: E402
import run_all  # noqa: E402

PASSED = '<testcase name="a" status="run" result="completed" classname="S"/>'
FAILED = '<testcase name="b" status="run" classname="S"><failure message="x != y"/></testcase>'
SKIPPED = '<testcase name="d" result="skipped" classname="S"><skipped message="../a.cpp:12&#10;{}"/></testcase>'
NO_SERVER, NO_VAES = SKIPPED.format("no server"), SKIPPED.format("this CPU has no VAES")
DISABLED = '<testcase name="e" status="notrun" result="suppressed" classname="S"/>'

# Name: the program, the cases of its report or None, what it does at its end, CI, counts.
PROGRAMS = {
    "all passed": ("unit_x", [PASSED, PASSED], "exit 0", "", "2 passed, 0 failed"),
    "one failed": ("unit_x", [PASSED, FAILED], "exit 1", "", "1 passed, 1 failed"),
    "passed, then a leak": ("unit_x", [PASSED], "exit 23", "", "1 passed, 1 failed"),
    "no report": ("unit_x", None, "exit 0", "", "0 passed, 1 failed"),
    "half a report": ("unit_x", ["<testcase>"], "exit 0", "", "0 passed, 1 failed"),
    "a crash": ("unit_x", None, "kill -SEGV $$", "", "0 passed, 1 failed"),
    "it hangs": ("unit_x", None, "sleep 600 & sleep 600", "", "0 passed, 1 failed"),
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
    monkeypatch.setattr(run_all, "RESULTS", tmp_path)
    monkeypatch.setattr(run_all, "IN_CI", bool(in_ci))
    monkeypatch.setattr(run_all, "PROGRAM_SECONDS", 1)
    (tmp_path / "report").write_text(f"<testsuites>{''.join(cases or ())}</testsuites>")
    copy = f"cp {tmp_path}/report {name}.xml; " if cases else ""
    command = "/no/such" if end is None else f"/bin/sh -c [=[{copy}{end}]=]"
    (tmp_path / "CTestTestfile.cmake").write_text(f"add_test({name} {command})\n")
    due = ["unit_x"] if name.startswith("unit") else []
    count = run_all.run_programs("native", tmp_path, due, {"PATH": "/usr/bin:/bin"})
    assert count.line() == counts, count.failures


# Name: what the part prints and does at its end, its report or none, counts.
RUNS = {
    "a check passes": ("exit 0", None, "1 passed, 0 failed"),
    "a check fails": ("exit 1", None, "0 passed, 1 failed"),
    "nothing to compare with": ("echo no git history; exit 77", None, "0 passed, 0 failed, 1 skipped"),
    "nothing was run": ("exit 0", "<testsuites/>", "0 passed, 1 failed"),
    "an error in a fixture": ("exit 1", '<a><testcase name="c"><error message="x"/></testcase></a>', "0 passed, 1 failed"),
}


@pytest.mark.parametrize("case", RUNS)
def test_parts(case, tmp_path, monkeypatch):
    script, report, counts = RUNS[case]
    monkeypatch.setattr(run_all, "RESULTS", tmp_path)
    monkeypatch.setattr(run_all, "IN_CI", True)
    (tmp_path / "report").write_text(report or "")
    assert run_all.run_part("x", ["sh", "-c", script], report and tmp_path / "report").line() == counts


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


INCLUDES = {
    "mime/A.cpp": ('#include "mime/B.h"\n#include <string_view>', True),
    "platform/posix/A.cpp": ("#  include <sys/socket.h>", True),
    "net/A.cpp": ("#include <sys/socket.h>", False),
    "mime/B.cpp": ('#include "../net/B.h"', False),
    "log/A.cpp": ("#include <iostream>", False),
    "other/A.cpp": ("", False),
}


@pytest.mark.parametrize("path", INCLUDES)
def test_includes(path, tmp_path):
    text, allowed = INCLUDES[path]
    (tmp_path / "CMakeLists.txt").write_text("".join(f"tv_room({r})\n" for r in ("platform", "log", "mime", "net")))
    (tmp_path / "src" / path).parent.mkdir(parents=True)
    (tmp_path / "src" / path).write_text(f"// comment\n{text}\n")
    assert (check_includes.check(tmp_path) == []) == allowed
