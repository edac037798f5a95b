"""A real Samba server on 127.0.0.1, with everything of its own in one folder."""
import os
import signal
import subprocess
from pathlib import Path

from loopback import free_port, listens
from waiting import SECONDS, wait_until

USER = "backup"  # an account that every Debian machine has
PASSWORD = "p@ss, 100% wörd"

GLOBAL = {
    "server role": "standalone server", "interfaces": "127.0.0.1/8",
    "bind interfaces only": "yes", "disable netbios": "yes", "server min protocol": "SMB2",
    "map to guest": "never", "load printers": "no", "printing": "bsd",
    "printcap name": "/dev/null", "max log size": "0",
}
FOLDERS = {"private dir": "private", "lock directory": "lock", "state directory": "state",
           "cache directory": "cache", "pid directory": "pid", "ncalrpc dir": "ncalrpc"}


def section(name, settings):
    return f"[{name}]\n" + "".join(f"    {key} = {settings[key]}\n" for key in settings)


class SambaServer:
    """`shares` maps a share's name to its settings, as smb.conf(5) has them; `settings` are of the
    whole server. Both may be changed at any time, and hold from the next start() or reload()."""

    def __init__(self, folder, shares, settings=None, port=None):
        self.folder = Path(folder)
        self.shares = shares
        self.settings = settings or {}
        self.port = port or free_port()
        self.config = self.folder / "smb.conf"
        self.password = PASSWORD
        self.process = None

    def start(self):
        for name in FOLDERS.values():
            (self.folder / name).mkdir(parents=True, exist_ok=True)
        self.write_config()
        self.set_password(self.password)
        self.process = subprocess.Popen(
            ["/usr/sbin/smbd", "--foreground", "--no-process-group", "-s", self.config],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True)
        wait_until(self.answers, "smbd's port")
        return self

    def write_config(self):
        own = {"smb ports": self.port, "passdb backend": f"smbpasswd:{self.folder}/smbpasswd",
               "log file": self.folder / "log",
               **{key: self.folder / name for key, name in FOLDERS.items()}}
        sections = {"global": {**GLOBAL, **own, **self.settings}, **self.shares}
        self.config.write_text("".join(section(*one) for one in sections.items()))

    def set_password(self, password):
        """The user's from now on; connections that stand go on."""
        self.password = password
        self.add_user(USER, password)

    def add_user(self, user, password):
        """An account of the machine's, with a password of its own here."""
        subprocess.run(["/usr/bin/smbpasswd", "-c", self.config, "-s", "-a", user],
                       input=f"{password}\n{password}\n".encode(), check=True, timeout=SECONDS,
                       capture_output=True)

    def reload(self):
        """Has the running processes take up changed settings; the one that takes connections has
        done so when this returns, since it answers messages in their order."""
        self.write_config()
        for who, *message in ("smbd", "reload-config"), (str(self.process.pid), "ping"):
            subprocess.run(["/usr/bin/smbcontrol", "-s", self.config, f"--timeout={SECONDS}", who,
                            *message], check=True, timeout=SECONDS, stdout=subprocess.DEVNULL)

    def answers(self):
        assert self.process.poll() is None, self.log()
        return listens(self.port)

    def log(self):
        return "".join(path.read_text(errors="replace") for path in self.folder.glob("log*")
                       if path.is_file())

    def stop(self):
        """Ends the server and every connection of its."""
        if self.process and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()

    def __enter__(self):
        return self.start()

    def __exit__(self, *unused):
        self.stop()
