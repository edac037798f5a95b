"""Runs in the guest, as root: carries out the scripts that the host sends, one after the other."""
import base64
import json
import os
import subprocess

port = os.open("/dev/virtio-ports/agent", os.O_RDWR)
hears, speaks = os.fdopen(os.dup(port), "rb"), os.fdopen(port, "wb")


def say(**line):
    speaks.write(json.dumps(line).encode() + b"\n")
    speaks.flush()


say(ready=True)
while True:
    request = json.loads(hears.readline())
    done = subprocess.run(["bash", "-euo", "pipefail", "-c", request["script"]], check=False,
                          input=base64.b64decode(request["input"]), stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    say(status=done.returncode, output=done.stdout.decode(errors="replace"))
