"""A network with nothing but a 127.0.0.1 of its own, where services find their fixed ports free."""
import subprocess


class OwnNetwork:
    """Ends with the context; what was started inside keeps it until that ends, too."""

    def __enter__(self):
        self.holder = subprocess.Popen(
            ["/usr/bin/unshare", "--net", "/bin/sh", "-c",
             "/usr/sbin/ip link set lo up && echo up && exec sleep infinity"],
            stdout=subprocess.PIPE)
        assert self.holder.stdout.readline() == b"up\n"
        return self

    def __exit__(self, *unused):
        self.holder.kill()
        self.holder.communicate()

    def inside(self, *command):
        """The command that runs this one there."""
        return ["/usr/bin/nsenter", f"--net=/proc/{self.holder.pid}/ns/net", *map(str, command)]
