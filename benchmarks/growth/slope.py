"""A straight line through what was measured, and how far from one it is."""
from dataclasses import dataclass
from itertools import pairwise


@dataclass
class Slope:
    """`bend` is the last step's slope in that of the first one: 1 on a straight line, 10 where the
    last of 100, 1,000 and 10,000 has cost their square."""
    fixed: float
    each: float
    r_squared: float
    bend: float


def fit(points):
    """The least squares' line through (size, value) of three different sizes or more."""
    points = sorted(points)
    if len({size for size, _ in points}) < 3:
        raise ValueError("a slope needs three sizes")
    sizes, values = zip(*points)
    size, value = mean(sizes), mean(values)
    across = sum((one - size) ** 2 for one in sizes)
    each = sum((one - size) * (other - value) for one, other in points) / across
    spread = sum((other - value) ** 2 for other in values)
    r_squared = each**2 * across / spread if spread else 1.0
    return Slope(value - each * size, each, r_squared, bend(points))


def mean(numbers):
    return sum(numbers) / len(numbers)


def bend(points):
    """Not a number where the first step is flat, or one of them goes down."""
    steps = [(after - before) / (more - less)
             for (less, before), (more, after) in pairwise(points)]
    return steps[-1] / steps[0] if steps[0] > 0 and steps[-1] > 0 else float("nan")
