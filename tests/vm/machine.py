"""One virtual machine with its own disk: started, told what to do, switched off, or unplugged."""
import base64
import json
import os
import select
import subprocess
import time
from pathlib import Path

import qemu

SECONDS = 1800  # for any one thing, also emulated on a busy machine: reached only by what hangs


def overlay(disk, backing, backing_format):
    """A disk that begins as another one is, which it leaves alone."""
    subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", "-b", Path(backing).resolve(),
                    "-F", backing_format, disk], check=True)


class Failed(AssertionError):
    """A script in the guest ended with another status than 0."""


class Machine:
    """`folder` has the kernel; `disk` is the machine's own, as qcow2."""

    def __init__(self, folder, disk):
        self.folder, self.disk = Path(folder), Path(disk)
        self.console = self.disk.with_suffix(".console")
        self.process, self.heard = None, b""

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process:
            self.pull_the_plug()

    # --- power ----------------------------------------------------------------------------------

    def start(self, clock=None):
        """Until it can be told what to do; `clock` is the moment that its clock shows then, UTC."""
        when = ["-rtc", f"base={clock:%Y-%m-%dT%H:%M:%S}"] if clock else []
        drive = str(self.disk).replace(",", ",,")
        self.heard = b""
        self.process = subprocess.Popen(
            qemu.command(self.folder / "vmlinuz", self.folder / "initrd",
                         "root=/dev/vda rw quiet",
                         "-drive", f"file={drive},format=qcow2,if=virtio",
                         "-device", "virtio-serial", "-chardev", "stdio,id=agent,signal=off",
                         "-device", "virtserialport,chardev=agent,name=agent",
                         "-device", "virtio-rng-pci", "-serial", f"file:{self.console}", *when),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self.answer() == {"ready": True}
        return self

    def pull_the_plug(self):
        self.process.kill()
        self.ended()

    def power_off(self):
        self.tell("systemctl poweroff")
        self.ended()

    def restart(self, clock=None):
        """As an administrator does it."""
        self.tell("systemctl reboot")
        self.ended()
        self.start(clock)

    def ended(self):
        process, self.process = self.process, None
        with process:
            process.wait(SECONDS)

    # --- work -----------------------------------------------------------------------------------

    def run(self, script, stdin="", fails=False):
        """What the script (of bash, as root in /root) says; it has to fail, or must not."""
        status, output = self.attempt(script, stdin)
        if (status != 0) != fails:
            raise Failed(f"{script}\nended with {status}, and said:\n{output}")
        return output

    def attempt(self, script, stdin=""):
        """The script's exit status, and what it says."""
        self.tell(script, stdin)
        answer = self.answer()
        return answer["status"], answer["output"]

    def put(self, path, content):
        """A file of the guest's, from text or bytes."""
        self.run(f"cat >'{path}'", content)

    def wait(self, condition, what):
        """Until the script succeeds; gives what it says then."""
        deadline = time.monotonic() + SECONDS
        while True:
            status, output = self.attempt(condition)
            if status == 0:
                return output
            assert time.monotonic() < deadline, f"waited in vain for {what}; last: {output}"
            time.sleep(0.1)

    def tell(self, script, stdin=""):
        content = stdin if isinstance(stdin, bytes) else stdin.encode()
        request = {"script": script, "input": base64.b64encode(content).decode()}
        self.process.stdin.write(json.dumps(request).encode() + b"\n")
        self.process.stdin.flush()

    def answer(self):
        """The guest's next line."""
        deadline = time.monotonic() + SECONDS
        while b"\n" not in self.heard:
            left = max(deadline - time.monotonic(), 0)
            ready, _, _ = select.select([self.process.stdout], [], [], left)
            more = os.read(self.process.stdout.fileno(), 1 << 20) if ready else b""
            assert more, f"the guest says nothing more; its console:\n{self.last_words()}"
            self.heard += more
        line, self.heard = self.heard.split(b"\n", 1)
        return json.loads(line)

    def last_words(self):
        return self.console.read_text(errors="replace")[-4000:] if self.console.exists() else ""
