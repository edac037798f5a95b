"""The Debian package of this tree, with the programs that the build folder has."""
import os
import re
import shutil
import subprocess
from pathlib import Path

from places import BUILD, BUNDLE, PROGRAMS, SOURCE

ALL_PROGRAMS = ("recorderctl", "recorder-logd", "recording-backupd", "recording_backup.cgi",
                "console.cgi")


def run(*command, **options):
    """What a command says that can do this."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False, **options)
    assert done.returncode == 0, done.stdout[-3000:]
    return done.stdout


def put_built_programs(tree):
    """As if debian/rules had compiled them there: it does all that comes before and after."""
    run("debian/rules", "override_dh_auto_configure", cwd=tree,
        env={**os.environ, "DH_OPTIONS": "--buildsystem=cmake+ninja"})
    [objects] = tree.glob("obj-*")
    (objects / "bin").mkdir(exist_ok=True)
    for program in ALL_PROGRAMS:
        shutil.copy(PROGRAMS / program, objects / "bin")
        shutil.copy(BUILD / f"docs/man/{program}.8", objects / "docs/man")
    shutil.copytree(BUNDLE, objects / BUNDLE.relative_to(BUILD), dirs_exist_ok=True)
    (tree / "debian/debhelper-build-stamp").write_text("recorder\n")


def build_package(folder):
    """Leaves package and list of changes in the folder.
    @return the package"""
    tree = folder / "recorder"
    run(SOURCE / "scripts/debian_source", tree)
    put_built_programs(tree)
    run("dpkg-buildpackage", "--build=binary", "--no-sign", "--no-pre-clean", cwd=tree,
        env={**os.environ, "DEB_BUILD_OPTIONS": "noautodbgsym"})
    shutil.rmtree(tree)
    [package] = folder.glob("recorder_*.deb")
    return package


def with_version(package, version):
    """The same package under another version, beside it."""
    folder = package.parent / version
    run("dpkg-deb", "--raw-extract", package, folder)
    control = folder / "DEBIAN/control"
    control.write_text(re.sub(r"(?m)^Version: .*$", f"Version: {version}", control.read_text()))
    other = Path(f"{folder}.deb")
    run("dpkg-deb", "--build", "--root-owner-group", "-Znone", folder, other)
    shutil.rmtree(folder)
    return other
