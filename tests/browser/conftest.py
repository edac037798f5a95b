"""One browser for all tests of a file, and a recorder of its own for each test."""
import pytest

from chromium import Chromium
from stand_alone_recorder import Recorder


@pytest.fixture(scope="session")
def browser(tmp_path_factory):
    with Chromium(tmp_path_factory.mktemp("browser")) as started:
        yield started


@pytest.fixture
def recorder():
    with Recorder() as fresh:
        yield fresh
