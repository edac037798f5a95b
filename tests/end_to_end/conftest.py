"""The fixture that starts a recorder of its own for each test."""
import pytest

from stand_alone_recorder import Recorder


@pytest.fixture
def recorder():
    with Recorder() as fresh:
        yield fresh
