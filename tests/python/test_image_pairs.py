"""Two-point statistics of images of any type and order, against brute force over all pairs."""

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage

import kestrum as ks
from test_images import RANKS

DTYPES = ["?", "u1", "i2", "u4", "i4", "f2", "f4", "f8", ">f8"]


@st.composite
def images(draw):
    """An image of few values, rows of which may pass words of 64 nodes, with NaN; the same as doubles; lags below its sides."""
    shape = [draw(st.integers(1, 6)) for _ in range(draw(st.integers(1, 2)))] + [draw(st.sampled_from([1, 5, 63, 64, 65, 130]))]
    if draw(st.booleans()):
        shape = shape[::-1]
    random = np.random.default_rng(draw(st.integers(0, 2**32)))
    dtype = np.dtype(draw(st.sampled_from(DTYPES)))
    values = random.integers(0, draw(st.sampled_from([1, 2, 5, 14])), shape).astype(dtype)
    if dtype.kind == "f":
        values = values * dtype.type(-1.5)  # with -0.0
        values[random.random(shape) < draw(st.sampled_from([0.0, 0.3, 1.0]))] = np.nan
    values = np.asfortranarray(values) if draw(st.booleans()) else np.repeat(values, 2, axis=-1)[..., ::2] if draw(st.booleans()) else values
    values.flags.writeable = False
    return values, values.astype(np.float64), tuple(min(draw(st.integers(0, n - 1)), 70 if n > 70 else 3) for n in shape)


def by_pairs(lags, statistic, *arrays):
    """statistic(tails of each array, heads of each) at each lag."""
    results = []
    for place in np.ndindex(*(2 * lag + 1 for lag in lags)):
        h = [at - most for at, most in zip(place, lags)]
        shape = arrays[0].shape
        tails = tuple(slice(max(0, -k), n - max(0, k)) for k, n in zip(h, shape))
        heads = tuple(slice(max(0, k), n - max(0, -k)) for k, n in zip(h, shape))
        results.append(statistic(*(array[part] for array in arrays for part in (tails, heads))))
    return np.moveaxis(np.reshape(results, [2 * lag + 1 for lag in lags] + list(np.shape(results[0]))), range(len(lags)), range(-len(lags), 0))


def same(call, *arguments, **options):
    """The result on one thread, which is that on three."""
    result = call(*arguments, **options, threads=1)
    assert result.identical(call(*arguments, **options, threads=3))
    return result


def share(part, whole):
    return part / np.where(whole == 0, np.nan, whole)


@given(images())
@settings(max_examples=40, deadline=None)
def test_transitions_and_indicators(image):
    values, doubles, lags = image
    names = np.unique(doubles[doubles == doubles])

    def count(tails, heads):
        return [[np.count_nonzero((tails == a) & (heads == b)) for b in names] for a in names]

    if names.size:
        pairs = by_pairs(lags, count, doubles)
        found = same(ks.transiogram, values, lags)
        assert found.probability.dims == ("from", "to", "lag_z", "lag_y", "lag_x")[:2] + ("lag_z", "lag_y", "lag_x")[-values.ndim:]
        assert found["from"].dtype == values.dtype.newbyteorder("=") and found["to"].values.tolist() == names.tolist()
        np.testing.assert_array_equal(found.pairs, pairs.sum(1))
        np.testing.assert_array_equal(found.probability, share(pairs, pairs.sum(1)[:, None]))
        assert same(ks.transiogram, values, lags, method="fft").identical(found)
        variograms = same(ks.indicator_variogram_map, values, lags)
        assert same(ks.indicator_variogram_map, values, lags, method="fft").identical(variograms)
        np.testing.assert_array_equal(variograms.pairs, pairs.sum((0, 1)))
        for k, name in enumerate(names):
            # The package's other way to the same.
            indicator = np.where(np.isnan(doubles), np.nan, doubles == name)
            np.testing.assert_allclose(variograms.gamma[k], ks.variogram_map(indicator, lags).gamma, 1e-14)
        few = names[::-2]
        only = np.where(np.isin(doubles, few), doubles, np.nan)
        of_few, of_only = ks.transiogram(values, lags, few), ks.transiogram(only, lags).sel({"from": few, "to": few})
        np.testing.assert_array_equal(of_few.probability, of_only.probability)
    cuts = [0.5, -1.5, 3.0, 0.5, 0.0]
    found = same(ks.indicator_variogram_map, values, lags, thresholds=cuts)
    assert same(ks.indicator_variogram_map, values, lags, thresholds=cuts, method="fft").identical(found)
    assert found.threshold.values.tolist() == cuts
    for k, cut in enumerate(cuts):
        indicator = np.where(np.isnan(doubles), np.nan, doubles >= cut)
        np.testing.assert_allclose(found.gamma[k], ks.variogram_map(indicator, lags).gamma, 1e-14)


@given(images())
@settings(max_examples=40, deadline=None)
def test_connectivity_by_lag(image):
    values, doubles, lags = image
    mask = (doubles != 0) & (doubles == doubles)
    for connectivity, rank in RANKS[values.ndim].items():
        bodies, _ = ndimage.label(mask, ndimage.generate_binary_structure(values.ndim, rank))
        connected, both, tail, all_ = by_pairs(lags, lambda a, b: [np.sum((a == b) & (a > 0)), np.sum((a > 0) & (b > 0)), np.sum(a > 0), a.size], bodies)
        for condition, pairs in (("both", both), ("tail", tail), ("none", all_)):
            found = same(ks.connectivity_function, values, lags, connectivity, given=condition)
            np.testing.assert_array_equal(found.pairs, pairs)
            np.testing.assert_array_equal(found.probability, share(connected, pairs))


@given(images())
@settings(max_examples=40, deadline=None)
def test_covariances(image):
    values, doubles, lags = image
    doubles = doubles + 0.1 * np.arange(doubles.size).reshape(doubles.shape) % 1.7

    def statistics(tails, heads):
        known = ~np.isnan(tails + heads)
        a, b = tails[known], heads[known]
        if a.size == 0:
            return [np.nan, np.nan, np.nan, 0]
        covariance = np.mean(a * b) - a.mean() * b.mean()
        scale = a.std() * b.std()
        return [covariance, np.mean(a * b), covariance / scale if scale > 1e-9 else np.nan, a.size]

    covariance, product, correlation, pairs = by_pairs(lags, statistics, doubles)
    for statistic, name, expected in (("covariance", "covariance", covariance), ("noncentered", "covariance", product), ("correlogram", "correlogram", correlation)):
        for method in ("pairs", "fft"):
            found = same(ks.covariance_map, doubles, lags, statistic=statistic, method=method)
            np.testing.assert_array_equal(found.pairs, pairs)
            known = expected == expected
            np.testing.assert_allclose(found[name].values[known], expected[known], 1e-9, 1e-11)
    for method in ("pairs", "fft"):
        options = {"max_lag": lags, "method": method}
        np.testing.assert_allclose(ks.covariance_map(doubles + 1e7, **options).covariance, covariance, 0, 1e-8)  # far from 0
        for scale in (2.0**-600, 2.0**600):  # squares vanish, or overflow
            assert ks.covariance_map(doubles * scale, statistic="correlogram", **options).identical(ks.covariance_map(doubles, statistic="correlogram", **options))
        tails = ks.covariance_map([[5.1] * 9 + [7.3]], (0, 2), statistic="correlogram", method=method).correlogram.values[0]
        assert np.isnan(tails[[0, 1, 3, 4]]).all() and abs(tails[2] - 1.0) < 1e-12
    np.testing.assert_array_equal(ks.covariance_map(values, lags, statistic="noncentered").pairs, by_pairs(lags, lambda a, b: np.sum(a + b == a + b), values.astype(float)))


def test_pairs_where_the_data_lie(tmp_path):
    values = np.random.default_rng(3).integers(0, 3, (9, 70), np.uint8)
    np.save(tmp_path / "facies.npy", values)
    mapped = np.load(tmp_path / "facies.npy", mmap_mode="r")
    for tool in (ks.transiogram, ks.indicator_variogram_map, ks.connectivity_function, ks.covariance_map):
        assert tool(mapped, 4).identical(tool(values, 4))
        xr.testing.assert_allclose(tool(values.T, (4, 3)), tool(np.ascontiguousarray(values.T), (4, 3)), 1e-12, 1e-12)
    for method in ("pairs", "fft"):
        constant = {"image": np.full((4, 5), 0.1), "max_lag": 1, "method": method}
        assert (ks.covariance_map(**constant).covariance == 0).all() and np.isnan(ks.covariance_map(**constant, statistic="correlogram").correlogram).all()


@pytest.mark.parametrize("arguments, options, error, text", [
    (([1, 2], 1), {}, ks.DataError, "1 axis"), ((np.ones((2, 2, 2, 2)), 1), {}, ks.DataError, "4 axes"),
    ((np.array([[None]]), 0), {}, ks.ArgumentTypeError, "object"), ((np.ones((3, 3)), 3), {}, ks.ArgumentError, "3 along an axis of 3"),
    ((np.ones((3, 3)), (1, 1, 1)), {}, ks.ArgumentError, "2: one for each axis"), ((np.ones((3, 3)), -1), {}, ks.ArgumentError, "at least 0"),
    ((np.ones((3, 3)), 1), {"threads": 0}, ks.ArgumentError, "threads is 0"), ((np.ones((0, 3)), 0), {}, ks.DataError, "no nodes")])
def test_refusals_of_all(arguments, options, error, text):
    for tool in (ks.covariance_map, ks.transiogram, ks.indicator_variogram_map, ks.connectivity_function):
        with pytest.raises(error, match=text):
            tool(*arguments, **options)


@pytest.mark.parametrize("call, error, text", [
    (lambda: ks.covariance_map(np.full((2, 2), np.inf), 1), ks.DataError, "infinite"),
    (lambda: ks.covariance_map(np.eye(3), 1, statistic="madogram"), ks.ArgumentError, "madogram"),
    (lambda: ks.connectivity_function(np.eye(3), 1, 6), ks.ArgumentError, "4 or 8"),
    (lambda: ks.connectivity_function(np.eye(3), 1, given="head"), ks.ArgumentError, "head"),
    (lambda: ks.transiogram(np.arange(256.0).reshape(16, 16), 1), ks.DataError, "more than 255"),
    (lambda: ks.transiogram(np.arange(256.0).reshape(16, 16), 1, threads=3), ks.DataError, "more than 255"),
    (lambda: ks.transiogram(np.full((3, 3), np.nan), 1), ks.DataError, "no values"),
    (lambda: ks.transiogram(np.eye(3), 1, [1, 1]), ks.ArgumentError, "once"),
    (lambda: ks.transiogram(np.eye(3), 1, method="FFT"), ks.ArgumentError, "FFT"),
    (lambda: ks.indicator_variogram_map(np.eye(3), 1, method="dft"), ks.ArgumentError, "dft"),
    (lambda: ks.transiogram(np.eye(3), 1, []), ks.ArgumentError, "1 to 255"),
    (lambda: ks.indicator_variogram_map(np.eye(3), 1, thresholds=[np.nan]), ks.DataError, "thresholds"),
    (lambda: ks.indicator_variogram_map(np.eye(3), 1, thresholds=np.arange(255)), ks.ArgumentError, "1 to 254"),
    (lambda: ks.indicator_variogram_map(np.eye(3), 1, thresholds=[1], categories=[1]), ks.ArgumentError, "Leave one")])
def test_refusals(call, error, text):
    with pytest.raises(error, match=text):
        call()
