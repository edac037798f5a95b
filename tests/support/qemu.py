"""How virtual machines are started: Debian's kernel, no network, the processor's help if any."""
from pathlib import Path


def accelerators():
    """Software emulation is what always works. /dev/kvm alone promises less than its name says:
    where neither of these stands behind it, stock kernels may hang."""
    own = any(Path("/sys/module", name).exists() for name in ("kvm_intel", "kvm_amd"))
    return ["-accel", "kvm", "-accel", "tcg"] if own else ["-accel", "tcg"]


def command(kernel, initrd, append, *devices, memory=1024):
    """QEMU's command line; `append` is the kernel's, besides its console, the first serial port.

    However the process that starts it ends, the virtual machine ends with it. It ends when the
    guest powers off or restarts."""
    return ["setpriv", "--pdeathsig", "KILL", "--", "qemu-system-x86_64", *accelerators(),
            "-cpu", "max", "-m", str(memory), "-smp", "1",
            "-nodefaults", "-no-user-config", "-no-reboot", "-display", "none", "-nic", "none",
            "-kernel", kernel, "-initrd", initrd,
            "-append", f"console=ttyS0 panic=-1 {append}", *devices]
