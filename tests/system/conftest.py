"""Fixtures of the system tests: the products, the servers, a folder with the sample message."""
import functools
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "fixtures"))
import products  # noqa: E402
import samples  # noqa: E402
import wine  # noqa: E402
from entered import entered, limit_time  # noqa: E402
from postfix import serve  # noqa: E402
from receiver import Receiver  # noqa: E402


def pytest_configure(config):
    limit_time(config)


def pytest_collection_modifyitems(items):
    """The longest file first: the others go beside it."""
    items.sort(key=lambda item: "test_tls_matrix" not in item.nodeid)


receiver = entered(Receiver, "function")
postfix = entered(serve, "session")
wine_session, wine64_session = (entered(functools.partial(wine.WineSession, bits), "session") for bits in (32, 64))
WINE = {"dll": "wine_session", "dll64": "wine64_session"}


def _product(name):
    def product(request):
        return products.Product(name, request.getfixturevalue(WINE[name]) if name in WINE else None)
    return pytest.fixture(scope="session")(product)


so, native32, dll, dll64, asan = map(_product, ("so", "native32", "dll", "dll64", "asan"))


# One of each system; a test that 64-bit Windows is to have as well names the products itself (indirect).
@pytest.fixture(scope="session", params=["so", "dll"])
def product(request):
    return request.getfixturevalue(request.param)


@pytest.fixture
def host(product, tmp_path):
    with products.Host(product, tmp_path) as host:
        yield host


@pytest.fixture(scope="session")
def sample(tmp_path_factory):
    """The sample message's files, in a folder with letters outside ASCII in its name."""
    return samples.Sample(tmp_path_factory.mktemp("minta") / "mappa ő")
