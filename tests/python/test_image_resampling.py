"""Resampled images of any type and order, against sums over all old cells."""

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st

import kestrum as ks
from test_image_pairs import images


def parts(n, m):
    """The part of each new cell (a row) that each old one has."""
    old, new = np.arange(n + 1) / n, np.arange(m + 1) / m
    return np.clip(np.minimum.outer(new[1:], old[1:]) - np.maximum.outer(new[:-1], old[:-1]), 0, None) * m


def over_areas(values, shape):
    for axis, m in enumerate(shape):
        values = np.moveaxis(np.tensordot(parts(values.shape[axis], m), values, (1, axis)), 0, axis)
    return values


@given(images(), st.data(), st.integers(1, 3))
@settings(max_examples=80, deadline=None)
def test_means_nearest_and_modes(image, data, threads):
    values, doubles, _ = image
    shape = tuple(data.draw(st.sampled_from([1, 2, 3, 5, 7, n, 2 * n])) for n in values.shape)
    known = over_areas((doubles == doubles).astype(float), shape)
    sure = np.abs(known - 0.5) > 1e-9
    means = ks.resample(values, shape, threads=threads)
    with np.errstate(invalid="ignore", divide="ignore"):
        expected = np.where(known > 0.4999999, over_areas(np.nan_to_num(doubles), shape) / known, np.nan)
    np.testing.assert_allclose(means[sure], expected[sure], 1e-12, 1e-12)
    assert means.dtype == np.float64
    centers = [((np.arange(m) + 0.5) * n / m + 1e-9).astype(int) for m, n in zip(shape, values.shape)]
    nearest = ks.resample(values, shape, method="nearest")
    np.testing.assert_array_equal(nearest, doubles[np.ix_(*centers)])
    assert nearest.dtype == values.dtype
    names = np.unique(doubles[doubles == doubles])
    if names.size:
        shares = np.stack([over_areas((doubles == name).astype(float), shape) for name in names])
        modes = ks.resample(values, shape, method="mode", threads=threads)
        assert (np.isnan(modes) == (known < 0.5))[sure].all() if values.dtype.kind == "f" else known.min() > 0.9
        there = sure & (known > 0.5)
        mine = shares[np.searchsorted(names, modes[there].astype(float)), *np.nonzero(there)]
        np.testing.assert_allclose(mine, shares.max(0)[there], 1e-9)


def test_frames_and_refusals():
    frame = xr.DataArray(np.arange(12.0).reshape(3, 4), {"y": [30.0, 20.0, 10.0], "x": [0, 1, 5, 6], "when": 3}, ("y", "x"), "porosity")
    coarse = ks.resample(frame, (6, 2))
    assert coarse.y.values.tolist() == [32.5, 27.5, 22.5, 17.5, 12.5, 7.5] and "x" not in coarse.coords and coarse.name == "porosity"
    assert coarse.mean().item() == pytest.approx(frame.mean().item()) and coarse[0].values.tolist() == [0.5, 2.5]
    assert ks.resample([[1, 1, 2, 2]], (1, 1), method="mode").tolist() == [[1]] and ks.resample([[7]], 3).tolist() == [[7.0] * 3] * 3
    for given, expected in ((np.array([5, 4, 3, 2], "u2"), [4.5, 2.5]), (np.array([-100, -50, 0, 50], "i1"), [-75.0, 25.0]), ([0.0, 1e-9, 5e-9, 9e-9], None),
                            ([2.0] * 4, None), (1e6 + 0.1 * np.arange(4), [1e6 + 0.05, 1e6 + 0.25])):
        places = ks.resample(xr.DataArray(np.ones((1, 4)), {"x": given}, ("y", "x")), (1, 2)).coords
        assert "x" not in places if expected is None else np.allclose(places["x"], expected, rtol=1e-14)
    assert np.isnan(ks.resample([[1, np.nan, np.nan]], (1, 1))).all() and ks.resample([[1, np.nan]], (1, 1)).tolist() == [[1.0]]
    for call, error, text in ((lambda: ks.resample([1, 2], 2), ks.DataError, "1 axis"), (lambda: ks.resample(np.eye(3), 0), ks.ArgumentError, "at least 1"),
                              (lambda: ks.resample(np.eye(3), (2, 2, 2)), ks.ArgumentError, "2: one"), (lambda: ks.resample(np.eye(3), 2, method="cubic"), ks.ArgumentError, "method"),
                              (lambda: ks.resample(np.ones((0, 2)), 2), ks.DataError, "no nodes"), (lambda: ks.resample([[None]], 2), ks.ArgumentTypeError, "object"),
                              (lambda: ks.resample(np.eye(3), 2, threads=0), ks.ArgumentError, "threads"), (lambda: ks.resample(np.eye(3), 10**6), ks.ArgumentError, "cells"),
                              (lambda: ks.resample(np.arange(400.0).reshape(20, 20), 2, method="mode"), ks.DataError, "255")):
        with pytest.raises(error, match=text):
            call()
