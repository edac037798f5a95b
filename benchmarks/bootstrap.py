"""How sure the ratio of two programs' times is: a bootstrap interval, and what it says in words."""
import random
import statistics

RESAMPLES = 2000
# Of one route's interval. Of fifteen routes of builds that are equal, one in seven comparisons has
# one that seems to differ.
SURE = 0.99


def ratios(first, second):
    """Of each round. What else the machine did in that round befell both, and cancels out."""
    return [after / before for before, after in zip(first, second, strict=True)]


def interval(found):
    """Between which numbers the median of such ratios lies."""
    dice = random.Random(1)  # the same figures say the same each time
    medians = sorted(statistics.median(dice.choices(found, k=len(found)))
                     for _ in range(RESAMPLES))
    left_out = round(RESAMPLES * (1 - SURE) / 2)
    return medians[left_out], medians[-1 - left_out]


def verdict(low, high):
    if high < 1:
        return "faster"
    return "slower" if low > 1 else "no difference seen"
