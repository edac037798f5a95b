"""recorderctl state beside the recorder's services: they are copied under, and never replaced."""
from failures import refused
from service_process import running
from state_folder import StateFolder


def test_a_running_daemons_state_is_copied_and_checked_and_not_replaced(state, tmp_path):
    state.add_tasks(1)
    with running("recording-backupd", state), running("recorder-logd", state):
        state.ctl("state", "backup", tmp_path / "copy")
        assert state.ctl("state", "check").splitlines()[3].startswith("backupd.db\tschema ")
        assert state.ctl("state", "check").count("\tsound\n") == 4
        assert "config.db is in use" in refused(state, "state", "restore", tmp_path / "copy")
    assert len(StateFolder(tmp_path / "copy").stored_tasks()) == 1
    state.add_tasks(1)
    state.ctl("state", "restore", tmp_path / "copy")
    with running("recording-backupd", state), running("recorder-logd", state):
        assert len(state.stored_tasks()) == 1
        assert state.ctl("state", "check").count("\tsound\n") == 4
