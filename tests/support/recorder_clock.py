"""What the recorder's clock shows; its zone need not be that of the tests' own process."""
import os
import time

from state_folder import ZONE

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
    """A day's folder. Noon of the same day, so that no change of the clocks skips one."""
    noon = time.mktime(time.strptime(local(time.time(), "%Y-%m-%d 12"), "%Y-%m-%d %H"))
    return local(noon - days_ago * 86400, "%Y-%m-%d")
