"""How long tests wait for what must happen, and the one way to wait."""
import time

# Reached only by something that hangs, also where a hundred others have the machine's processors.
# The one limit of all tests; ctest's own (HANGING in tests/CMakeLists.txt) stands above it.
SECONDS = 900


def wait_until(condition, what, seconds=SECONDS):
    """`what` names what is waited for, in the failure; `seconds` is more where there is much to do
    until then."""
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.02)
