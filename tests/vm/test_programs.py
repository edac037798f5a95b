"""What ./package compiles has all that deploy/hardening.cmake asks for, as other builds have."""
import shutil

import pytest

from debian_package import ALL_PROGRAMS, run
from hardening import (STATIC, check_by_debians_means, missing_in_code, missing_in_file,
                       needs_nothing_loaded, own_functions)


@pytest.fixture(scope="module", name="programs")
def unpacked(package, tmp_path_factory):
    """A folder with the package's programs, and in .debug their functions' names."""
    folder = tmp_path_factory.mktemp("programs")
    for made in package.parent.glob("*.deb"):
        run("dpkg-deb", "-x", made, folder / "packages")
    (folder / ".debug").mkdir()
    for names in (folder / "packages/usr/lib/debug/.build-id").rglob("*.debug"):
        shutil.copy(names, folder / ".debug")
    for place in ("lib/recorder/*", "sbin/*"):
        for program in (folder / "packages/usr").glob(place):
            shutil.copy(program, folder)
    return folder


@pytest.mark.parametrize("program", ALL_PROGRAMS)
def test_a_packaged_program_lacks_nothing(programs, program):
    path = programs / program
    assert missing_in_file(path) | missing_in_code(path, own_functions()) == set()


@pytest.mark.parametrize("program", STATIC)
def test_a_packaged_cgi_program_needs_nothing_to_be_loaded(programs, program):
    assert needs_nothing_loaded(programs / program)


@pytest.mark.parametrize("program", [name for name in ALL_PROGRAMS if name not in STATIC])
def test_debians_own_check_finds_nothing_in_the_package(programs, program):
    check_by_debians_means(programs / program)
