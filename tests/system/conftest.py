"""Fixtures of the system tests: the products, the servers, a folder with the sample message."""
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "fixtures"))
import products  # noqa: E402
import samples  # noqa: E402
import wine  # noqa: E402
from postfix import Postfix  # noqa: E402
from receiver import Receiver  # noqa: E402


def pytest_configure(config):
    # Nothing may hang a whole run, whatever it waits for.
    if config.pluginmanager.hasplugin("timeout") and not config.getoption("timeout"):
        config.option.timeout = 300


@pytest.fixture(scope="session")
def wine_session():
    try:
        with wine.WineSession() as session:
            yield session
    except wine.WineMissing as missing:
        pytest.fail(f"Wine: {missing}")


def _product(name):
    def product(request):
        wine_session = request.getfixturevalue("wine_session") if name == "dll" else None
        product = products.Product(name, wine_session)
        for path in (product.library, product.driver, product.program):
            if not path.exists():
                pytest.fail(f"not built: {os.path.relpath(path, products.ROOT)}")
        return product
    return pytest.fixture(scope="session")(product)


so, dll, asan = map(_product, ("so", "dll", "asan"))


@pytest.fixture(scope="session", params=["so", "dll"])
def product(request):
    return request.getfixturevalue(request.param)


@pytest.fixture
def host(product, tmp_path):
    with products.Host(product, tmp_path) as host:
        yield host


@pytest.fixture
def receiver():
    with Receiver() as server:
        yield server


@pytest.fixture(scope="session")
def postfix():
    with Postfix() as server:
        yield server


@pytest.fixture(scope="session")
def sample(tmp_path_factory):
    """The sample message's files, in a folder with letters outside ASCII in its name."""
    return samples.Sample(tmp_path_factory.mktemp("minta") / "mappa ő")
