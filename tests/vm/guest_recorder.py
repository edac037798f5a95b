"""The recorder in a virtual machine: requests, a share of real Samba beside it, and recordings."""
import json

from sample_task import task

SERVICES = ("recorder-httpd", "recorder-logd", "recording-backupd")
SHARE_USER, SHARE_PASSWORD = "nvr", "p@ss, 100% wörd"
ADMIN_PASSWORD = "long enough for it"

SHARES = """
[backup]
path = /srv/backup
read only = no
valid users = nvr
sync always = yes
[read-only]
path = /srv/backup
read only = yes
valid users = nvr
"""

MAKE_SHARES = f"""
useradd --no-create-home {SHARE_USER}
install -d -o {SHARE_USER} /srv/backup
cat >>/etc/samba/smb.conf
printf '%s\\n' '{SHARE_PASSWORD}' '{SHARE_PASSWORD}' | smbpasswd -s -a {SHARE_USER}
systemctl restart smbd
"""

# Recordings of the last days; those that are there stay.
MAKE_RECORDINGS = """
for day in 1 2; do
    for ((number = 0; number < {count}; ++number)); do
        file={folder}/$(date -d "$day days ago 08:00 $((number * 10)) minutes" +%F/%H-%M-%S).mp4
        mkdir -p "${{file%/*}}"
        [ -e "$file" ] || head -c {size} /dev/urandom >"$file"
    done
done
"""

HASHES = "find {} -name '*.mp4' -exec sha256sum {{}} + | cut -d ' ' -f 1 | sort"


class GuestRecorder:
    def __init__(self, machine):
        self.machine = machine

    # --- around it ------------------------------------------------------------------------------

    def make_shares(self):
        self.machine.run(MAKE_SHARES, SHARES)

    def make_recordings(self, folder, count=3, size=300_000):
        """So many on each of two days."""
        self.machine.run(MAKE_RECORDINGS.format(folder=folder, count=count, size=size))

    def hashes(self, folder):
        """Those of all recordings, or copies of recordings, in a folder."""
        return self.machine.run(HASHES.format(folder)).split()

    # --- services -------------------------------------------------------------------------------

    def main_process(self, service):
        return int(self.machine.run(f"systemctl show --property MainPID --value {service}"))

    def wait_for_services(self):
        """Until all are up, and the web server has the program answer."""
        # Of several, systemctl is content with one that is up.
        self.machine.wait(" && ".join(f"systemctl is-active {name}" for name in SERVICES),
                          "the services")
        self.machine.wait("curl -sS http://127.0.0.1:8080/cgi-bin/recording_backup.cgi/fuse | "
                          "grep 'SID authorization fail'", "the CGI program's answer")

    # --- requests -------------------------------------------------------------------------------

    def ask(self, method, path, body=None):
        """The reply to a request of the administrator's."""
        sent = "" if body is None else "--data-binary @-"
        return json.loads(self.machine.run(
            f'curl -sS -X {method} {sent} -H "Cookie: sid=$(recorderctl session open admin)" '
            f"http://127.0.0.1:8080/cgi-bin/recording_backup.cgi/{path}",
            "" if body is None else json.dumps(body)))

    def create(self, **changes):
        """A task that copies to the share beside the recorder; gives its identifier."""
        reply = self.ask("PUT", "task", task(
            serverIP="127.0.0.1", port=445, username=SHARE_USER, password=SHARE_PASSWORD,
            **changes))
        assert reply["ret_code"] == 0, reply
        return self.ask("GET", "task")["task_list"][-1]["taskID"]

    def start(self, number):
        reply = self.ask("POST", f"task/{number}/active", {"is_active": True})
        assert (reply["ret_code"], reply["has_running_task"]) == (0, False), reply

    def wait_for_success(self, number):
        """Of a task's first run."""
        said = self.machine.wait(
            f"recorderctl task list | awk -F'\\t' '$1 == {number} {{ print $3 }}' | "
            "grep -xE 'success|failed'", f"the end of task {number}'s run")
        assert said.strip() == "success", self.machine.run("recorderctl event list --limit 5")
