"""Tools that stand in for the system's own: they note how they were called, then do as scripted."""
import base64
import json
import shutil
from pathlib import Path
from urllib.parse import quote_from_bytes

from places import CREDENTIALS, DEBUG_FILE, STORAGE

LOCAL_FILE = STORAGE / "rec_bak_test"
MOUNTS = Path("/mnt")
TEN_MEBIBYTES = 10 * 1024 * 1024

# In a process that sees the stand-ins in the tools' places; everybody else sees the real tools.
UNSHARE = ["/usr/bin/unshare", "--mount", "--propagation", "private", "/bin/sh", "-ec"]

STAND_IN = """#!{interpreter}
import json, os, signal, stat, subprocess, sys, time
from pathlib import Path

def text(name):
    return Path("/proc/self", name).read_bytes().decode("latin-1").split("\\0")[:-1]

call = dict(tool={name!r}, arguments=text("cmdline")[3:], environment=text("environ"),
            input=sys.stdin.buffer.read().decode("latin-1"), files=len(os.listdir("/proc/self/fd")),
            users=os.getresuid())
credentials = Path("/tmp/.recording_backup_mnt_info")
if credentials.exists():
    found = credentials.lstat()
    call.update(credentials=credentials.read_bytes().decode("latin-1"),
                credentials_mode=oct(found.st_mode), credentials_owner=found.st_uid,
                credentials_links=found.st_nlink)
with open({calls!r}, "a") as calls:
    calls.write(json.dumps(call) + "\\n")
arguments = sys.argv[1:]

def say(what):
    sys.stdout.buffer.write(what.encode("latin-1"))
    sys.stdout.buffer.flush()

"""

# A mount tool that really mounts, and an unmount tool that can do without the real one.
REAL_MOUNT = """
point = Path(arguments[1])
subprocess.run(["/bin/mount", "-t", "tmpfs", "share", point], check=True)
"""
REAL_UNMOUNT = """
import ctypes
sys.exit(-ctypes.CDLL(None).umount2(arguments[0].encode(), 0))
"""

PLACES = {"mount.cifs": "/usr/sbin/mount.cifs", "umount": "/bin/umount",
          "smbclient": "/usr/bin/smbclient"}
MISSING = None  # a script for install(): a tool that cannot be started


class StandInTools:
    """Stand-ins for the three tools; each notes its calls in one common file, in order."""

    def __init__(self, folder):
        self.folder = folder
        self.calls_file = folder / "calls"
        folder.mkdir()
        for name in PLACES:
            self.install(name, "")

    def install(self, name, script):
        """Python text: what the tool does once it has noted its call. It knows `arguments` and
        say(text), which writes each character as one byte."""
        interpreter = "/no/such/interpreter" if script is MISSING else "/usr/bin/python3 -I"
        tool = self.folder / name
        tool.write_text(STAND_IN.format(interpreter=interpreter, name=name,
                                        calls=str(self.calls_file)) + (script or ""))
        tool.chmod(0o755)

    def around(self, command):
        """The command that runs `command` with the stand-ins in the tools' places."""
        return [*UNSHARE, self.bind_all() + 'exec "$0"', *command]

    def below_a_shell(self, command):
        """The same, the command's parent being a shell that sees the stand-ins, too."""
        return [*UNSHARE, self.bind_all() + '"$0"; exit $?', *command]

    def bind_all(self):
        return "".join(f"/bin/mount --bind '{self.folder / name}' {place}; "
                       for name, place in PLACES.items())

    def calls(self, name=None):
        """What was noted, in order; of one tool or of all."""
        if not self.calls_file.exists():
            return []
        noted = map(json.loads, self.calls_file.read_text().splitlines())
        return [call for call in noted if name in (None, call["tool"])]


def leftovers():
    """The files of requests in /tmp, without the credentials file, which always stays."""
    return sorted(path.name for pattern in (".recording_backup*", "smb_share*")
                  for path in Path("/tmp").glob(pattern)
                  if path != CREDENTIALS)


def empty_places():
    """Takes away what requests leave behind."""
    for place in (*MOUNTS.iterdir(), LOCAL_FILE, CREDENTIALS, DEBUG_FILE):
        if place.is_dir() and not place.is_symlink():
            shutil.rmtree(place)
        else:
            place.unlink(missing_ok=True)


def list_shares(remote, ip="192.0.2.7", port="445", user="backup", password="the password"):
    values = {"ip": ip, "port": port, "user": user,
              "pwd": base64.b64encode(password.encode()).decode()}
    query = "&".join(f"{name}={quote_from_bytes(value.encode())}"
                     for name, value in values.items())
    return remote.request("GET", "/share", query=f"sid={remote.sid}&{query}")
