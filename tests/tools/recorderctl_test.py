"""recorderctl as its users meet it: what it prints, and how it fails."""

import json
import os
import re
import stat
import subprocess
import sys
import tempfile
import unittest

PROGRAM = sys.argv.pop()


class RecorderctlTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.state = os.path.join(self.folder.name, "state")

    def run_tool(self, *arguments, typed=""):
        environment = dict(os.environ, RECORDER_STATE=self.state)
        return subprocess.run([PROGRAM, *arguments], input=typed, env=environment,
                              capture_output=True, text=True, check=False)

    def output(self, *arguments, typed=""):
        done = self.run_tool(*arguments, typed=typed)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def objects(self, *arguments):
        return [json.loads(line) for line in self.output(*arguments).splitlines()]

    def assert_fails(self, *arguments, typed="", says):
        done = self.run_tool(*arguments, typed=typed)
        self.assertNotEqual(done.returncode, 0, arguments)
        self.assertEqual(done.stdout, "")
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertIn(says, done.stderr)

    def init(self):
        self.output("init")

    def add_task(self):
        """There is no command that creates a task, so the row is put in directly."""
        import sqlite3
        database = sqlite3.connect(os.path.join(self.state, "config.db"))
        columns = [row[1:3] for row in database.execute("PRAGMA table_info(task)")][1:]
        values = ["n" if kind == "TEXT" else 0 for _, kind in columns]
        names = ",".join(name for name, _ in columns)
        places = ",".join("?" * len(values))
        with database:
            database.execute(f"INSERT INTO task ({names}) VALUES ({places})", values)
        database.close()


class Init(RecorderctlTest):
    def test_makes_a_private_folder_and_is_safe_to_repeat(self):
        self.init()
        self.output("config", "set", "s", "k", "v")
        self.init()
        self.assertEqual(self.output("config", "get", "s", "k"), "v\n")
        self.assertEqual(stat.S_IMODE(os.stat(self.state).st_mode), 0o700)
        for name in os.listdir(self.state):
            mode = os.stat(os.path.join(self.state, name)).st_mode
            self.assertEqual(stat.S_IMODE(mode), 0o600, name)

    def test_other_commands_ask_for_it(self):
        for command in (["user", "list"], ["config", "get", "a", "b"], ["event", "list"],
                        ["task", "list"], ["channel", "list"], ["session", "close", "x"]):
            self.assert_fails(*command, says="run recorderctl init")

    def test_takes_the_folder_as_an_option(self):
        other = os.path.join(self.folder.name, "other")
        self.assertEqual(self.output("--state", other, "init"), other + "\n")
        self.output("config", "set", "s", "k", "v", "--state", other)
        self.assertEqual(self.output("--state", other, "config", "get", "s", "k"), "v\n")


class UsersAndSessions(RecorderctlTest):
    def setUp(self):
        super().setUp()
        self.init()

    def test_adds_lists_and_removes_users(self):
        self.output("user", "add", "admin", typed="secret\n")
        self.output("user", "add", "guest", "--level", "3", typed="secret\n")
        self.assertEqual(self.output("user", "list"), "admin\t11\nguest\t3\n")
        self.assertEqual(self.objects("user", "list", "--json")[1], {"name": "guest", "level": 3})
        self.output("user", "remove", "admin")
        self.assertEqual(self.output("user", "list"), "guest\t3\n")

    def test_refuses_a_second_user_of_a_name_and_an_empty_password(self):
        self.output("user", "add", "admin", typed="secret\n")
        self.assert_fails("user", "add", "admin", typed="other\n", says="already")
        self.assert_fails("user", "add", "guest", typed="", says="no password")
        self.assert_fails("user", "add", "guest", typed="\n", says="no password")
        self.assert_fails("user", "remove", "nobody", says="no user nobody")

    def test_opens_and_closes_sessions(self):
        self.output("user", "add", "admin", typed="secret\n")
        sid = self.output("session", "open", "admin", "--minutes", "5").strip()
        self.assertTrue(re.fullmatch("[0-9a-f]{32}", sid), sid)
        self.output("session", "close", sid)
        self.assert_fails("session", "close", sid, says="no such session")
        self.assert_fails("session", "open", "nobody", says="no user nobody")


class Configuration(RecorderctlTest):
    def setUp(self):
        super().setUp()
        self.init()

    def test_sets_gets_and_unsets_keys(self):
        self.output("config", "set", "fuse", "fuse_enabled", "1")
        self.assertEqual(self.output("config", "get", "fuse", "fuse_enabled"), "1\n")
        self.output("config", "unset", "fuse", "fuse_enabled")
        self.assert_fails("config", "get", "fuse", "fuse_enabled", says="no key fuse_enabled")
        self.assert_fails("config", "unset", "fuse", "fuse_enabled", says="no key fuse_enabled")

    def add_channel(self, index, guid, **changes):
        options = {"ip": "10.0.0.1", "name": "Door", "brand": "B", "model": "M", "streams": "2",
                   "recordings": "/recordings"} | changes
        arguments = [text for key, value in options.items() for text in (f"--{key}", value)]
        return self.run_tool("channel", "add", "--index", index, "--guid", guid, *arguments)

    def test_adds_pins_and_removes_channels(self):
        self.assertEqual(self.add_channel("3", "g3").returncode, 0)
        self.output("channel", "state", "3", "0,7")
        [channel] = self.objects("channel", "list", "--json")
        self.assertEqual(channel, {"index": 3, "guid": "g3", "ip": "10.0.0.1", "name": "Door",
                                   "brand": "B", "model": "M", "streams": 2,
                                   "recordings": "/recordings", "removed": False,
                                   "state": [0, 7]})
        self.output("channel", "state", "3", "auto")
        self.output("channel", "remove", "3")
        [channel] = self.objects("channel", "list", "--json")
        self.assertTrue(channel["removed"])
        self.assertNotIn("state", channel)

    def test_refuses_channels_out_of_range_or_in_use(self):
        self.assertEqual(self.add_channel("3", "g3").returncode, 0)
        self.assertNotEqual(self.add_channel("3", "other").returncode, 0)
        self.assertNotEqual(self.add_channel("4", "g3").returncode, 0)
        self.assertNotEqual(self.add_channel("128", "g").returncode, 0)
        self.assertNotEqual(self.add_channel("5", "g", streams="17").returncode, 0)
        self.assert_fails("channel", "state", "9", "0", says="no channel 9")
        self.assert_fails("channel", "state", "3", "x", says="a state is a number")
        self.assertEqual(len(self.objects("channel", "list", "--json")), 1)

    def test_sets_fields_of_a_task_and_never_takes_a_password_as_argument(self):
        self.add_task()
        self.output("task", "set", "1", "status=6", "enable=true", "taskName=a=b")
        [task] = self.objects("task", "list", "--json")
        self.assertEqual((task["taskID"], task["status"], task["enable"], task["taskName"]),
                         ("1", 6, True, "a=b"))
        self.assertEqual(len(task), 30)
        self.assertEqual(self.output("task", "list"), "1\tenabled\tfailed\ta=b\n")
        self.assert_fails("task", "set", "1", "password=x", says="standard input")
        self.output("task", "set", "1", "password=-", typed="new\n")
        self.assertEqual(self.objects("task", "list", "--json")[0]["password"], "new")
        self.assert_fails("task", "set", "1", "status=8", says="nothing was changed")
        self.assert_fails("task", "set", "2", "status=1", says="no task 2")
        self.assert_fails("task", "set", "1", "status", says="FIELD=VALUE")

    def test_lists_no_events_of_a_new_recorder(self):
        self.assertEqual(self.output("event", "list", "--json"), "")


if __name__ == "__main__":
    unittest.main()
