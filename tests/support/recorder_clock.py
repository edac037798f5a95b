"""What the recorder's clock shows; its zone need not be that of the tests' own process."""
import os
import time

from state_folder import ZONE

# A zone where it is about noon when a test begins, and not UTC: no day ends before the test does,
# and nobody changes clocks. For who names folders by days, or needs a time that does not come.
NOON = f"<noon>{time.gmtime().tm_hour - 12 or 1:+}"
FAR_HOUR = 0  # of a schedule there

CLOCK_REALTIME_COARSE = 5  # clock_gettime(2), <linux/time.h>; Python does not name it


def local(seconds, form, zone=ZONE):
    """What strftime() makes of a time in the recorder's zone."""
    os.environ["TZ"] = zone
    time.tzset()
    return time.strftime(form, time.localtime(seconds))


def clock_second():
    """The second that time(2) tells: just after time.time() has begun one it may be that before."""
    return int(time.clock_gettime(CLOCK_REALTIME_COARSE))


def day_name(days_ago):
    """A day's folder."""
    return local(time.time() - days_ago * 86400, "%Y-%m-%d", NOON)
