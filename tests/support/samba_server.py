"""A real Samba server on a loopback port, for the tests that need somebody else's shares."""
import os
import socket
import subprocess
import time

SECONDS = 60  # generous: reached only by something that hangs
USER = "backup"  # an account that every Debian machine has
PASSWORD = "p@ss, 100% wörd"

GLOBAL = """[global]
    interfaces = 127.0.0.1
    bind interfaces only = yes
    smb ports = {port}
    disable netbios = yes
    load printers = no
    printing = bsd
    printcap name = /dev/null
    passdb backend = tdbsam
    map to guest = never
    log level = 0
    log file = {folder}/log
    pid directory = {folder}
    lock directory = {folder}
    state directory = {folder}
    cache directory = {folder}
    private dir = {folder}
    ncalrpc dir = {folder}/ncalrpc
"""


class SambaServer:
    """`shares` maps a share's name to its settings, as smb.conf(5) has them."""

    def __init__(self, folder, port, shares):
        self.folder = folder
        self.port = port
        self.settings = folder / "smb.conf"
        folder.mkdir()
        text = GLOBAL.format(folder=folder, port=port)
        for name, settings in shares.items():
            text += f"[{name}]\n" + "".join(f"    {key} = {settings[key]}\n" for key in settings)
        self.settings.write_text(text)
        self.process = None

    def start(self):
        self.add_user(USER, PASSWORD)
        self.process = subprocess.Popen(
            ["/usr/sbin/smbd", "--foreground", "--no-process-group", "-s", self.settings],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True)
        deadline = time.monotonic() + SECONDS
        while not self.answers():
            assert self.process.poll() is None and time.monotonic() < deadline, self.log()
            time.sleep(0.05)
        return self

    def add_user(self, name, password):
        subprocess.run(["/usr/bin/smbpasswd", "-c", self.settings, "-s", "-a", name],
                       input=f"{password}\n{password}\n".encode(), check=True, timeout=SECONDS,
                       capture_output=True)

    def answers(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def log(self):
        return "".join(path.read_text(errors="replace") for path in self.folder.glob("log*"))

    def stop(self):
        """Ends the server and the processes that serve its connections."""
        os.killpg(self.process.pid, 15)
        self.process.wait(SECONDS)
