"""The line through what was measured."""
import math

import pytest

from benchmarks.growth.slope import fit

SIZES = (100, 1_000, 10_000)


def test_a_straight_line_is_found():
    line = fit([(size, 50 + 3 * size) for size in SIZES])
    assert line.each == pytest.approx(3)
    assert line.fixed == pytest.approx(50)
    assert line.r_squared == pytest.approx(1)
    assert line.bend == pytest.approx(1)


def test_the_order_of_points_does_not_matter():
    points = [(1, 2), (2, 5), (4, 7)]
    assert fit(points) == fit(reversed(points))


def test_what_lies_off_the_line_lowers_the_fit():
    line = fit([(1, 1), (2, 5), (3, 3)])
    assert line.each == pytest.approx(1)
    assert line.fixed == pytest.approx(1)
    assert line.r_squared == pytest.approx(0.25)


def test_a_square_bends():
    assert fit([(size, size**2) for size in SIZES]).bend == pytest.approx(10)


def test_what_does_not_grow_has_no_slope_and_no_bend():
    line = fit([(size, 7) for size in SIZES])
    assert (line.each, line.fixed, line.r_squared) == (0, 7, 1)
    assert math.isnan(line.bend)


@pytest.mark.parametrize("points", [[], [(1, 1)], [(1, 1), (2, 2)], [(1, 1), (2, 2), (2, 3)]])
def test_fewer_than_three_sizes_are_refused(points):
    with pytest.raises(ValueError, match="three sizes"):
        fit(points)
