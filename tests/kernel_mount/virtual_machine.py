"""Boots Debian's kernel over this machine's own files, read-only; gives what the guest reports."""
import json
import subprocess
from pathlib import Path

import qemu

HERE = Path(__file__).resolve().parent
BOOT_SECONDS = 3000  # software emulation on a busy machine; about 40 s when it has a processor


def initrd(kernel, scratch):
    """The modules, and the init script as it is now: the kernel unpacks one behind the other."""
    archive = subprocess.run(["busybox", "cpio", "-o", "-H", "newc"], input=b"init\n", cwd=HERE,
                             capture_output=True, check=True).stdout
    whole = scratch / "initrd"
    whole.write_bytes((kernel / "initrd").read_bytes() + archive)
    return whole


def shared(tag, folder):
    """QEMU's arguments for a folder the guest can read. A comma ends a value unless doubled."""
    path = str(folder).replace(",", ",,")
    return ["-virtfs", f"local,path={path},mount_tag={tag},security_model=none,readonly=on,"
                       "multidevs=remap"]


def boot(kernel, build, source, scratch):
    """Runs the guest to its end.

    :return: the reports by case
    """
    reports, console = scratch / "reports", scratch / "console"
    command = qemu.command(
        kernel / "vmlinuz", initrd(kernel, scratch), "quiet",
        "-serial", f"file:{console}", "-serial", f"file:{reports}",
        *shared("root", "/"), *shared("build", build), *shared("source", source))
    try:
        said = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=BOOT_SECONDS, check=False).stderr
    except subprocess.TimeoutExpired:
        said = f"the guest did not end within {BOOT_SECONDS} seconds"
    lines = reports.read_text().splitlines() if reports.exists() else []
    cases = {line.pop("case"): line for line in map(json.loads, lines)}
    seen = console.read_text(errors="replace")[-4000:] if console.exists() else ""
    assert "end" in cases, f"{said}\nthe guest's console:\n{seen}"
    return cases
