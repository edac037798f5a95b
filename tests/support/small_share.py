"""A house whose share is soon full."""
import shutil
import subprocess

from backup_house import MIB, House


class SmallShare(House):
    """The share is a file system of `size` MiB."""

    size = 40

    def __enter__(self):
        self.share.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={self.size}m", "small", self.share],
                       check=True)
        return super().__enter__()

    def resize(self, size):
        """To so many MiB, or as few as what lies there lets."""
        used = shutil.disk_usage(self.share).used // MIB + 1
        size = max(size, used)
        subprocess.run(["mount", "-o", f"remount,size={size}m", self.share], check=True)
