"""The table of a scene: each figure at each size, and the line through them."""
from benchmarks.growth.slope import fit

NAME, VALUE = 46, 13  # columns' widths


def head(scene):
    sizes = "".join(f"{size:>{VALUE},}" for size in scene.sizes)
    return (f"{scene.name:<{NAME}}{sizes}{'each':>12}{'fixed':>12}{'R2':>8}{'bend':>9}"
            f"  (each {scene.one})")


def row(figure, sizes, values):
    line = fit(zip(sizes, values))
    measured = "".join(f"{value:>{VALUE},.{digits(value)}f}" for value in values)
    return (f"{figure:<{NAME}}{measured}{line.each:>12.4g}{line.fixed:>12.4g}"
            f"{line.r_squared:>8.4f}{line.bend:>9.2g}")


def digits(value):
    return 0 if value >= 100 else 2


def rows(scene, measured):
    """`measured` has the values of all figures, for one size after the other."""
    return [row(figure, scene.sizes, values)
            for figure, values in zip(scene.figures, zip(*measured, strict=True), strict=True)]
