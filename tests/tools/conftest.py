"""The fixture of a recorder's state that has just been made."""
import pytest

from state_folder import StateFolder


@pytest.fixture
def state(tmp_path):
    return StateFolder(tmp_path / "state").init()
