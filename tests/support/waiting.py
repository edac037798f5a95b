"""How long tests wait for what must happen, and the one way to wait."""
import time

SECONDS = 200  # generous, also on a busy machine: reached only by something that hangs


def wait_until(condition, what, seconds=SECONDS):
    """`what` names what is waited for, in the failure; `seconds` is more where a busy machine has
    much to do until then."""
    deadline = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.02)
