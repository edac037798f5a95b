"""A real Samba server on 127.0.0.1 with one share, everything in a folder of its own."""
import os
import signal
import socket
import subprocess
import time
from pathlib import Path

SECONDS = 60  # generous: reached only by something that hangs
USER = "backup"  # a user that every Debian machine has

CONFIG = """
[global]
    server role = standalone server
    interfaces = 127.0.0.1/8
    bind interfaces only = yes
    smb ports = {port}
    passdb backend = smbpasswd:{folder}/smbpasswd
    private dir = {folder}/private
    lock directory = {folder}/lock
    state directory = {folder}/state
    cache directory = {folder}/cache
    pid directory = {folder}/pid
    ncalrpc dir = {folder}/ncalrpc
    log file = {folder}/log
    max log size = 0
    disable netbios = yes
    load printers = no
    printcap name = /dev/null
    disable spoolss = yes
    server min protocol = SMB2
    map to guest = never
{further}
[{share}]
    path = {path}
    read only = no
    force user = root
"""


class SambaServer:
    """`path` is the shared folder; it need not be empty."""

    def __init__(self, folder, path=None, share="backup", password="secret of the share",
                 further=""):
        self.folder = Path(folder)
        self.path = Path(path) if path else self.folder / "shared"
        self.share = share
        self.password = password
        self.further = further  # settings of the whole server
        self.port = free_port()
        self.process = None

    @property
    def config(self):
        return self.folder / "smb.conf"

    def start(self):
        for name in ("private", "lock", "state", "cache", "pid", "ncalrpc"):
            (self.folder / name).mkdir(parents=True, exist_ok=True)
        self.path.mkdir(parents=True, exist_ok=True)
        self.write_config()
        self.set_password(self.password)
        self.process = subprocess.Popen(
            ["/usr/sbin/smbd", "--foreground", "--no-process-group", "-s", self.config],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        self.wait_for_port()
        return self

    def write_config(self, further=""):
        """`further`: settings of the share."""
        self.config.write_text(CONFIG.format(port=self.port, folder=self.folder, share=self.share,
                                             path=self.path, further=self.further) + further)

    def set_password(self, password):
        self.password = password
        subprocess.run(["/usr/bin/smbpasswd", "-c", self.config, "-a", "-s", USER], text=True,
                       input=f"{password}\n{password}\n", check=True, stdout=subprocess.DEVNULL)

    def reload(self):
        """Has the running processes read the configuration again."""
        subprocess.run(["/usr/bin/smbcontrol", "-s", self.config, "smbd", "reload-config"],
                       check=True, timeout=SECONDS)

    def wait_for_port(self):
        deadline = time.monotonic() + SECONDS
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                assert self.process.poll() is None, (self.folder / "log").read_text()
                assert time.monotonic() < deadline, "smbd does not listen"
                time.sleep(0.05)

    def stop(self):
        """Ends the server and every connection of its."""
        if self.process and self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()

    def __enter__(self):
        return self.start()

    def __exit__(self, *unused):
        self.stop()


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]
