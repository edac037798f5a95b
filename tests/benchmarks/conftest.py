"""Has the tests find the package that ./bench runs."""
import sys

from places import SOURCE

sys.path.append(str(SOURCE))
