"""The chance that a test of the long run goes by, and the seed that brings it back."""
import os
import random

import pytest


@pytest.fixture
def chance():
    """By LONG_RUN_SEED, or by a seed of its own; what the test prints begins with it."""
    seed = os.environ.get("LONG_RUN_SEED") or str(random.SystemRandom().randrange(10**9))
    print(f"\nLONG_RUN_SEED={seed}")
    return random.Random(seed)
