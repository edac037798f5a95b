"""The fixture that starts a recorder of its own for each test."""
import pytest

from stand_alone_recorder import Recorder


@pytest.fixture
def recorder():
    fresh = Recorder()
    try:
        yield fresh.start()
    finally:
        fresh.clean_up()
