"""The fixture that starts recorder and share for each test."""
import pytest

from backup_house import House


@pytest.fixture
def house(tmp_path):
    with House(tmp_path, channels=3) as fresh:
        yield fresh
