"""The include check itself: what it lets through and what it refuses."""
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
import check_includes  # noqa: E402

ROOMS = """
tv_room(platform)
tv_room(base SEES platform)
tv_room(log SEES base)
tv_room(mime SEES log)
tv_room(net SEES log)
"""
CASES = {
    "own room": ("mime/A.cpp", '#include "mime/B.h"', True),
    "the room below": ("mime/A.cpp", '#include "log/B.h"', True),
    "two rooms below": ("mime/A.h", '#include "platform/B.h"', True),
    "the standard library": ("base/A.cpp", "#include <string_view>", True),
    "the system, in platform": ("platform/posix/A.cpp", "#  include <sys/socket.h>", True),
    "platform's own system folder": ("platform/win32/A.cpp", '#include "platform/win32/B.h"', True),
    "upwards": ("base/A.cpp", '#include "log/B.h"', False),
    "sideways": ("mime/A.cpp", '#include "net/B.h"', False),
    "platform looks up": ("platform/posix/A.cpp", '#include "base/B.h"', False),
    "a parent folder": ("mime/A.cpp", '#include "../net/B.h"', False),
    "no folder": ("mime/A.cpp", '#include "B.h"', False),
    "the system, elsewhere": ("net/A.cpp", "#include <sys/socket.h>", False),
    "a system folder of platform": ("base/A.cpp", '#include "platform/posix/B.h"', False),
    "iostreams": ("log/A.cpp", "#include <iostream>", False),
    "a file in no room": ("other/A.cpp", "", False),
}


@pytest.mark.parametrize("case", CASES)
def test_rule(case, tmp_path):
    path, text, allowed = CASES[case]
    (tmp_path / "CMakeLists.txt").write_text(ROOMS)
    source = tmp_path / "src" / path
    source.parent.mkdir(parents=True)
    source.write_text(f"// comment\n{text}\n")
    found = check_includes.check(tmp_path)
    assert (found == []) == allowed, found
