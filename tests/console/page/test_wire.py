"""The page's types are those of docs/openapi.json, as it is now."""
import subprocess

from places import SOURCE

PAGE = SOURCE / "console/page"


def test_the_types_are_made_from_the_document():
    made = subprocess.run([PAGE / "wire_types.py"], check=True, capture_output=True, text=True)
    assert made.stdout == (PAGE / "wire.ts").read_text(), "run wire_types.py >wire.ts there"
