"""Fixtures of the tests of what is delivered: dist/ as ./run package fills it, its archives unpacked."""
import pathlib
import subprocess
import sys
import tarfile
import zipfile

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tests" / "fixtures"), str(ROOT / "tools")]
import wine  # noqa: E402
from entered import entered, limit_time  # noqa: E402
from receiver import Receiver  # noqa: E402

PACKAGE = ("/usr/bin/python3", ROOT / "tools" / "package.py")


def pytest_configure(config):
    limit_time(config)
    if config.getoption("numprocesses", None):
        raise pytest.UsageError("dist/ is one: these tests run in one process")


def output(*command, **options):
    made = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, **options)
    assert made.returncode == 0, made.stdout[-4000:]
    return made.stdout


@pytest.fixture(scope="session")
def dist():
    output(*PACKAGE)
    return ROOT / "dist"


@pytest.fixture(scope="session")
def windows(dist, tmp_path_factory):
    """The unpacked zip: x86/, x64/, include/, ..."""
    folder = tmp_path_factory.mktemp("windows")
    archive, = dist.glob("*-windows.zip")
    zipfile.ZipFile(archive).extractall(folder)
    return folder / archive.stem


@pytest.fixture(scope="session")
def linux(dist, tmp_path_factory):
    """The unpacked tar: lib/, bin/, include/, ..."""
    folder = tmp_path_factory.mktemp("linux")
    archive, = dist.glob("*-linux-amd64.tar.gz")
    with tarfile.open(archive) as packed:
        packed.extractall(folder)
    return folder / archive.name.removesuffix(".tar.gz")


receiver = entered(Receiver, "function")
wine_session, wine64_session = (entered(lambda bits=bits: wine.WineSession(bits), "session") for bits in (32, 64))
