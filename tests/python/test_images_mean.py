"""Moving means against exact sums of the values of each box."""

from fractions import Fraction

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from test_images import masks

import kestrum as ks


def by_windows(values, sides):
    """Sums of the boxes in long double, from the values of each alone."""
    result = np.full(values.shape, np.nan)
    if all(side <= n for side, n in zip(sides, values.shape)):
        windows = np.lib.stride_tricks.sliding_window_view(values.astype(np.longdouble), sides)
        axes = tuple(range(values.ndim, 2 * values.ndim))
        known = np.isfinite(windows)
        count = known.sum(axes)
        with np.errstate(invalid="ignore", divide="ignore"):
            means = np.where(known, windows, 0).sum(axes) / count
        inner = tuple(slice(side // 2, n - side // 2) for side, n in zip(sides, values.shape))
        result[inner] = np.where(5 * count >= 4 * np.prod(sides), means, np.nan)
    return result


@given(masks(), st.data())
@settings(max_examples=300, deadline=None)
def test_means(image, data):
    values, _ = image
    sides = tuple(data.draw(st.sampled_from([1, 3, 5, 7] + [31, 63, 65] * (n > 60))) for n in values.shape)
    result = ks.box_mean(values, sides, threads=1)
    np.testing.assert_allclose(result, by_windows(values, sides), rtol=1e-13, atol=1e-12 * np.nanmax(np.abs(values.astype(float)), initial=0))
    assert result.dtype == np.float64 and result.flags.f_contiguous >= values.flags.f_contiguous
    for threads in (2, 3, 4):
        assert ks.box_mean(values, sides, threads=threads).tobytes() == result.tobytes()


@pytest.mark.parametrize("dtype, large, small", [("f8", 1.7e308, 1e-300), ("f8", 1e300, 1.0), ("f4", 3e38, 1e-38), ("f8", np.inf, 1.0)])
def test_large_values_stay_in_their_boxes(dtype, large, small):
    random = np.random.default_rng(5)
    values = (small * random.normal(size=(12, 40, 90))).astype(dtype)
    far = random.random(values.shape) < 2e-4
    values[far] = large
    values[:, :9] = large
    result = ks.box_mean(values, 5)
    for node in np.argwhere(~np.isnan(result))[::7]:
        box = [Fraction(float(value)) if np.isfinite(value) else value for value in values[tuple(slice(i - 2, i + 3) for i in node)].ravel()]
        mean = sum(box) / 125
        tolerance = np.inf if mean == np.inf else Fraction(1, 10**12) * max(map(abs, box))
        value = result[tuple(node)]
        assert value == mean or abs(Fraction(value) - mean) <= tolerance


def test_long_lines_and_kinds_of_input():
    random = np.random.default_rng(6)
    for shape, sides in (((5000, 40), (1001, 3)), ((70000, 3), (99, 3)), ((2, 70000), (1, 4097))):
        values = random.normal(size=shape)
        result = ks.box_mean(values, sides)
        inner = tuple(slice(side // 2, n - side // 2) for side, n in zip(sides, shape))
        sums = np.pad(values.astype(np.longdouble).cumsum(0).cumsum(1), ((1, 0), (1, 0)))
        w, v = sides
        expected = (sums[w:, v:] - sums[:-w, v:] - sums[w:, :-v] + sums[:-w, :-v]) / (w * v)
        np.testing.assert_allclose(result[inner], expected, rtol=0, atol=1e-13)
        assert np.isnan(result).sum() == result.size - expected.size
    frame = xr.DataArray([[1, 2], [3, 4]], {"x": [5, 6]}, ("y", "x"))
    result = ks.box_mean(frame, 1)
    assert result.name == "box_mean" and result.x.equals(frame.x) and np.array_equal(result, [[1.0, 2.0], [3.0, 4.0]])
    assert np.isnan(ks.box_mean(frame, (1, 10**15 + 1))).all() and ks.box_mean(np.ones((3, 0)), 3).shape == (3, 0)
    for size, error, text in ((2, ks.ArgumentError, "odd"), (0, ks.ArgumentError, "at least 1"), ((3, 3, 3), ks.ArgumentError, "2: one for each axis"),
                              (1.5, ks.ArgumentTypeError, "whole"), ((3, 4), ks.ArgumentError, "odd"), ([[3], [3, 3]], ks.ArgumentError, "lengths"), (None, ks.ArgumentTypeError, "whole")):
        with pytest.raises(error, match=text):
            ks.box_mean(frame, size)
    for image, error, text in ((np.array([[None, 1]]), ks.ArgumentTypeError, "object"), ([1, 2], ks.DataError, "1 axis")):
        with pytest.raises(error, match=text):
            ks.box_mean(image, 1)
