"""The interval of a ratio holds what it should, and the verdict says what it means."""
import random

import pytest

from benchmarks.bootstrap import interval, ratios, verdict

ROUNDS = 100


def noisy(dice, middle, spread=0.1):
    """As times are: seldom much shorter, now and then much longer."""
    return middle * dice.lognormvariate(0, spread) + (middle if dice.random() < 0.05 else 0)


def samples(seed, first, second):
    """Of rounds, in which the machine's mood slows both alike."""
    dice = random.Random(seed)
    moods = [dice.choice((1, 1, 1, 3)) for _ in range(ROUNDS)]
    return [[mood * noisy(dice, middle) for mood in moods] for middle in (first, second)]


def verdict_of(seed, first, second):
    return verdict(*interval(ratios(*samples(seed, first, second))))


def test_what_never_varies_has_an_interval_of_one_number():
    assert interval(ratios([2.0] * 10, [3.0] * 10)) == (1.5, 1.5)


def test_the_same_samples_have_the_same_interval_each_time():
    found = ratios(*samples(7, 100, 110))
    assert interval(found) == interval(found)


def test_the_interval_holds_the_ratio():
    low, high = interval(ratios(*samples(3, 100, 200)))
    assert 1.8 < low < 2 < high < 2.2


@pytest.mark.parametrize("second, said", [(80, "faster"), (125, "slower")])
def test_a_clear_difference_is_seen_each_time(second, said):
    assert {verdict_of(seed, 100, second) for seed in range(20)} == {said}


def test_no_difference_is_seldom_taken_for_one():
    verdicts = [verdict_of(seed, 100, 100) for seed in range(100)]
    assert verdicts.count("no difference seen") >= 96


def test_a_difference_far_below_the_noise_is_not_claimed():
    assert verdict_of(1, 100, 100.5) == "no difference seen"


def test_what_befalls_both_of_a_round_alike_does_not_count():
    first = [float(number) for number in range(1, 50)]
    found = ratios(first, [1.1 * one for one in first])
    assert interval(found) == pytest.approx((1.1, 1.1))


def test_samples_of_different_length_are_refused():
    with pytest.raises(ValueError):
        ratios([1.0], [1.0, 2.0])


@pytest.mark.parametrize("low, high, said", [
    (0.8, 0.9, "faster"), (1.1, 1.2, "slower"), (0.9, 1.1, "no difference seen"),
    (1.0, 1.2, "no difference seen"), (0.8, 1.0, "no difference seen")])
def test_the_verdict_needs_all_of_the_interval_on_one_side(low, high, said):
    assert verdict(low, high) == said
