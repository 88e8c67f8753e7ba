"""Variogram maps, pyramids, thresholds and clusters of arrays of any type and order, against NumPy, SciPy and brute force."""

import itertools

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage

import kestrum as ks

DTYPES = ["?", "u1", "i2", "i4", "f2", "f4", "f8", ">f8"]


@st.composite
def images(draw, largest=9):
    """An image and its values as doubles, with NaN, of any type and layout."""
    shape = [draw(st.integers(1, largest)) for _ in range(draw(st.integers(2, 3)))]
    random = np.random.default_rng(draw(st.integers(0, 2**32)))
    dtype = np.dtype(draw(st.sampled_from(DTYPES)))
    values = (random.normal(size=shape) * 40 + 50 + draw(st.sampled_from([0, 1e3]))).astype(dtype)
    if dtype.kind == "f":
        if draw(st.booleans()):
            values[random.random(shape) < draw(st.sampled_from([0.1, 0.5, 1.0]))] = np.nan
        if dtype.itemsize > 2:
            values[random.random(shape) < 0.05] = -9999999.0
    layout = draw(st.sampled_from("CFS"))
    values = np.asfortranarray(values) if layout == "F" else np.repeat(values, 2, axis=-1)[..., ::2] if layout == "S" else values
    values.flags.writeable = False
    return values, values.astype(np.float64)


@pytest.mark.filterwarnings("ignore:image is NaN everywhere")
@given(images(), st.data())
@settings(max_examples=100, deadline=None)
def test_variogram_maps(image, data):
    values, doubles = image
    lags = tuple(data.draw(st.integers(0, n - 1)) for n in values.shape)
    gamma, pairs = (np.full([2 * lag + 1 for lag in lags], fill) for fill in (np.nan, 0))
    for lag in np.ndindex(gamma.shape):
        h = [place - most for place, most in zip(lag, lags)]
        tail = doubles[tuple(slice(max(0, -k), n - max(0, k)) for k, n in zip(h, values.shape))]
        head = doubles[tuple(slice(max(0, k), n - max(0, -k)) for k, n in zip(h, values.shape))]
        squares = (tail - head) ** 2
        pairs[lag] = np.count_nonzero(squares == squares)
        gamma[lag] = np.nansum(squares) / (2 * pairs[lag]) if pairs[lag] else np.nan
    found = ks.variogram_map(values, lags, threads=1)
    assert found.gamma.dims == ("lag_z", "lag_y", "lag_x")[-values.ndim:] and found.pairs.dtype == np.int64
    assert found.lag_x.values.tolist() == list(range(-lags[-1], lags[-1] + 1))
    np.testing.assert_array_equal(found.pairs, pairs)
    np.testing.assert_allclose(found.gamma, gamma, 1e-12)
    assert ks.variogram_map(values, lags, threads=3).identical(found)
    by_fft = ks.variogram_map(values, lags, method="fft", threads=2)
    np.testing.assert_array_equal(by_fft.pairs, pairs)
    np.testing.assert_array_equal(np.isnan(by_fft.gamma), pairs == 0)
    known = doubles[doubles == doubles]
    bound = 1e-12 * known.var() * known.size / np.maximum(pairs, 1) if known.size else 0.0
    assert not (np.abs(by_fft.gamma - gamma) > bound).any()


def test_transforms_of_many_nodes_do_not_depend_on_threads():
    image = np.random.default_rng(6).normal(size=(300, 331))
    found = [ks.variogram_map(image, (4, 5), method="fft", threads=threads) for threads in (1, 2, 7)]
    assert found[0].identical(found[1]) and found[0].identical(found[2])


@pytest.mark.parametrize("shape", [(40, 33), (13, 12, 50)])
def test_transforms_of_images_far_from_0_and_of_any_unit(shape):
    values = ndimage.gaussian_filter(np.random.default_rng(5).normal(size=shape), 2.0)
    values[3, 5] += 1e4
    for scale, shift in ((1.0, 0.0), (1.0, 1e6), (1e-150, 0.0), (1e140, 0.0)):
        image = values * scale + shift
        image[2, 2] = np.nan
        for threads in (1, 2, 3):
            found = ks.variogram_map(image, 6, method="fft", threads=threads)
            if threads == 1:
                first = found
            assert found.identical(first)
        # Over powers of two, so that pairs, too, are summed in a unit near 1.
        unit = 2.0 ** np.round(np.log2(scale))
        expected = ks.variogram_map(image / unit, 6)
        error = np.abs(found.gamma / unit / unit - expected.gamma) * expected.pairs
        assert np.array_equal(found.pairs, expected.pairs) and error.max() < 1e-12 * np.nanvar(image / unit) * image.size


@pytest.mark.parametrize("value", [0.1, 1e300, -1.7e308])
def test_transforms_of_constant_and_of_huge_images(value):
    image = np.full((6, 7), value)
    assert (ks.variogram_map(image, 3, method="fft").gamma == 0).all()
    image[2, 3] = -value
    by_fft, by_pairs = (ks.variogram_map(image, 2, method=method).gamma for method in ("fft", "pairs"))
    assert np.array_equal(np.isfinite(by_fft), np.isfinite(by_pairs)) and abs(value) > 1 or np.allclose(by_fft, by_pairs, 1e-12, 1e-16)


def reduced(image):
    """By filters of SciPy's on values and on weights."""
    known, kernel = image == image, np.array([1, 4, 6, 4, 1]) / 16
    values, weights = np.where(known, image, 0.0), known.astype(float)
    for axis, n in enumerate(image.shape):
        if n > 2:
            even = (slice(None),) * axis + (slice(None, None, 2),)
            values, weights = (ndimage.correlate1d(part, kernel, axis, mode="nearest")[even] for part in (values, weights))
    with np.errstate(invalid="ignore", divide="ignore"):
        # Weights of an axis that stays are 1; those of sums that lost a missing one before are as they are.
        return values / weights, weights


@given(images(40))
@settings(max_examples=80, deadline=None)
def test_pyramids(image):
    values, doubles = image
    levels = ks.pyramid(values, 3, threads=2)
    assert all(np.array_equal(a, b, equal_nan=True) for a, b in zip(levels, ks.pyramid(values, 3, threads=1)))
    assert [level.shape for level in levels[:1]] == [tuple((n + 1) // 2 if n > 2 else n for n in values.shape)]
    for before, level in zip((doubles, *levels), levels):
        expected, weights = reduced(before)
        surely = np.abs(weights - 0.6) > 1e-9
        np.testing.assert_array_equal(np.isnan(level[surely]), weights[surely] < 0.6)
        there = surely & (weights > 0.6)
        np.testing.assert_allclose(level[there], expected[there], 1e-12, 1e-8)


@given(images(40), st.integers(0, 7))
@settings(max_examples=80, deadline=None)
def test_expansion(image, choice):
    """Beside zeros put between the nodes, and the same filter."""
    values, doubles = image
    sides = [n if n < 2 else (2 * n - 1, 2 * n)[choice >> axis & 1] for axis, n in enumerate(values.shape)]
    sums, known = np.nan_to_num(doubles), (doubles == doubles).astype(float)
    for axis, (side, n) in enumerate(zip(sides, values.shape)):
        if side == n:
            continue

        def filtered(values):
            ends = np.take(values, np.clip(np.arange(-1, n + 1), 0, n - 1), axis)
            spread = np.zeros([2 * (n + 2) if k == axis else m for k, m in enumerate(ends.shape)])
            spread[(slice(None),) * axis + (slice(0, None, 2),)] = ends
            result = ndimage.correlate1d(spread, np.array([1, 4, 6, 4, 1]) / 8, axis)
            return np.take(result, np.arange(2, side + 2), axis)

        sums, known = filtered(sums), filtered(known)
    found = ks.expand(values, sides, threads=2)
    assert found.shape == tuple(sides) and np.array_equal(found, ks.expand(values, sides, threads=1), equal_nan=True)
    surely = np.abs(known - 0.6) > 1e-9
    there = surely & (known > 0.6)
    np.testing.assert_array_equal(np.isnan(found[surely]), known[surely] < 0.6)
    np.testing.assert_allclose(found[there], sums[there] / known[there], 1e-12, 1e-8)


def test_expansion_of_a_frame():
    frame = xr.DataArray(np.arange(6.0).reshape(2, 3), {"y": ["a", "b"], "x": [0, 10, 20]}, ("y", "x"), "porosity")
    finer = ks.expand(frame, (2, 6))
    assert finer.x.values.tolist() == [0.0, 5.0, 10.0, 15.0, 20.0, 25.0] and finer.y.values.tolist() == ["a", "b"] and finer.name == "porosity"
    assert np.array_equal(finer, ks.expand(frame.values, (2, 6))) and list(ks.expand(frame, (3, 3)).coords) == ["x"]


def between(values, cuts):
    """The sum of squares between classes."""
    values = values[values == values]
    classes = np.digitize(values, cuts)
    mean = values.mean()
    return sum((part := values[classes == k]).size * (part.mean() - mean) ** 2 for k in np.unique(classes))


@given(st.integers(2, 5), st.integers(0, 2**32), st.sampled_from(DTYPES), st.sampled_from(["normal", "far", "few"]))
@settings(max_examples=80, deadline=None)
def test_thresholds(classes, seed, dtype, law):
    random = np.random.default_rng(seed)
    values = random.normal(size=random.integers(8, 40)) * 40 + 50
    if law == "far":
        values = np.concatenate((values, np.exp(8 * np.abs(random.normal(size=4)))))
    if law == "few":
        values = np.round(values / 20) * 20
    with np.errstate(all="ignore"):
        values = values.astype(dtype)
    doubles = values.astype(np.float64)
    doubles = doubles[np.isfinite(doubles)]
    values = values[np.isfinite(values.astype(np.float64))]
    distinct = np.unique(doubles)
    if len(distinct) < classes:
        with pytest.raises(ks.DataError, match="too few"):
            ks.otsu(values, classes)
        return
    best = max(between(doubles, choice) for choice in itertools.combinations(distinct[1:], classes - 1))
    # By sorting, and by bins where they are exact enough.
    for same in (values, np.tile(values, 4096 // values.size + 1)):
        cuts = ks.otsu(same, classes)
        assert cuts.dtype == np.float64 and len(cuts) == classes - 1 and (np.diff(cuts) > 0).all() and np.isin(cuts, doubles).all()
        assert between(doubles, cuts) >= (1 - 1e-3) * best


def test_thresholds_of_many_values():
    random = np.random.default_rng(2)
    image = random.normal(size=(100, 110, 110)) + 4.0 * random.integers(0, 3, (100, 110, 110))
    image[random.random(image.shape) < 0.1] = np.nan
    expected = ks.otsu(image, 3, threads=1)
    np.testing.assert_allclose(expected, [2.0, 6.0], atol=0.05)
    for given_ in (np.asfortranarray(image), image[::-1], image.ravel()):
        for threads in (2, 3):
            assert np.array_equal(ks.otsu(given_, 3, threads=threads), expected)
    # A histogram would have all but two values in its first bin.
    far = np.append(image, [1e9, 2e9])
    cuts = ks.otsu(far, 4)
    assert cuts[1:].tolist() == [1e9, 2e9] and abs(cuts[0] - 4.0) < 2.0 and between(far, cuts) >= 0.999 * between(far, [*expected[:1], *cuts[1:]])
    assert ks.otsu(np.array([-1.7e308, 1.7e308, 1.6e308])).tolist() == [1.6e308]
    assert ks.otsu(np.array([0.0, 5e-324, 1e-323])).tolist() in ([5e-324], [1e-323])


def lloyd(samples, centers, iterations, tolerance):
    """Plain steps, without clusters that lose all samples."""
    limit, labels = tolerance * samples.var(axis=0).mean(), None
    for _ in range(iterations):
        before = labels
        labels = ((samples[:, None] - centers) ** 2).sum(-1).argmin(1)
        if before is not None and np.array_equal(labels, before):
            break
        moved = np.array([samples[labels == k].mean(0) for k in range(len(centers))])
        shift, centers = ((moved - centers) ** 2).sum(), moved
        if shift <= limit:
            break
    distances = ((samples[:, None] - centers) ** 2).sum(-1)
    return centers, distances.argmin(1), distances.min(1).sum()


@pytest.mark.parametrize("n, features, clusters", [(50, 1, 3), (700, 2, 7), (20_000, 5, 4), (9_000, 9, 10)])
def test_clusters_from_given_centres(n, features, clusters):
    random = np.random.default_rng(n)
    samples = random.normal(size=(clusters, features))[random.integers(clusters, size=n)] + 0.4 * random.normal(size=(n, features))
    start = samples[:clusters].copy()
    for iterations, tolerance in ((1, 0.0), (7, 0.0), (300, 0.0), (300, 1e-2)):
        centers, labels, inertia = ks.kmeans(samples, start, max_iterations=iterations, tolerance=tolerance, threads=1)
        expected = lloyd(samples, start, iterations, tolerance)
        np.testing.assert_allclose(centers, expected[0], atol=1e-12)
        assert labels.dtype == np.int32 and np.array_equal(labels, expected[1]) and abs(inertia / expected[2] - 1) < 1e-12
        for given_, threads in ((samples, 2), (np.asfortranarray(samples), 3)):
            again = ks.kmeans(given_, start, max_iterations=iterations, tolerance=tolerance, threads=threads)
            assert np.array_equal(again[0], centers) and np.array_equal(again[1], labels) and again[2] == inertia
    sklearn = pytest.importorskip("sklearn.cluster")
    theirs = sklearn.KMeans(clusters, init=start, n_init=1, algorithm="lloyd").fit(samples)
    centers, labels, inertia = ks.kmeans(samples, start)
    np.testing.assert_allclose(centers, theirs.cluster_centers_, atol=1e-9)
    assert np.array_equal(labels, theirs.labels_) and abs(inertia / theirs.inertia_ - 1) < 1e-9


def test_clusters_from_drawn_centres():
    random = np.random.default_rng(4)
    samples = 10.0 * random.normal(size=(8, 3))[random.integers(8, size=10_000)] + random.normal(size=(10_000, 3))
    found = [ks.kmeans(samples, 8, seed=seed, restarts=restarts, threads=threads) for seed, restarts, threads in ((1, 1, 1), (1, 1, 2), (2, 1, 1), (1, 20, 2))]
    assert np.array_equal(found[0][0], found[1][0]) and found[0][2] == found[1][2]
    assert not np.array_equal(found[0][0], found[2][0])
    assert found[3][2] <= found[0][2] and abs(found[3][2] / (3 * 10_000) - 1) < 0.05
    for centers, labels, inertia in found:
        distances = ((samples[:, None] - centers) ** 2).sum(-1)
        assert np.array_equal(labels, distances.argmin(1)) and abs(inertia / distances.min(1).sum() - 1) < 1e-12
    # Each as likely as its squared distance from the first: with the first at one of three places, the other ones.
    second = np.array([sorted(ks.kmeans([0.0, 1.0, 3.0], 2, seed=seed, max_iterations=1, tolerance=1e9)[0].ravel()) for seed in range(3000)])
    assert {tuple(row) for row in second.round(9)} <= {(0.0, 2.0), (0.5, 3.0)}
    # 1 of the first, 9 / 10; of 1, 4 / 5; of 3, 9 / 13 and 4 / 13, both with the pair 0 and 1 left.
    share = np.mean(second[:, 1] == 3.0)
    assert abs(share - (9 / 10 + 4 / 5 + 1) / 3) < 0.03


def test_clusters_without_samples():
    samples = np.array([[0.0], [1.0], [2.0], [30.0]])
    centers, labels, inertia = ks.kmeans(samples, [[0.0], [1e6], [2e6]])
    assert sorted(centers.ravel()) == [0.5, 2.0, 30.0] or sorted(centers.ravel()) == [0.0, 1.5, 30.0]
    assert inertia == 0.5 and len(set(labels)) == 3
    centers, labels, inertia = ks.kmeans(np.ones((5, 2)), 3)
    assert inertia == 0.0 and (labels == 0).all() and (centers == 1.0).all()
    centers, labels, inertia = ks.kmeans([[1.0, 2.0]], 1)
    assert centers.tolist() == [[1.0, 2.0]] and labels.tolist() == [0] and inertia == 0.0


def test_arrays_with_coordinates():
    frame = xr.DataArray(np.arange(35.0).reshape(5, 7), {"y": np.arange(5) + 0.5}, ("y", "x"), "porosity")
    first, second = ks.pyramid(frame, 2)
    assert first.dims == frame.dims and first.y.values.tolist() == [0.5, 2.5, 4.5] and second.y.values.tolist() == [0.5, 4.5]
    assert first.shape == (3, 4) and np.array_equal(first, ks.pyramid(frame.values)[0])
    assert ks.variogram_map(frame, (1, 2)).sizes == {"lag_y": 3, "lag_x": 5}
    assert ks.otsu(frame) == ks.otsu(frame.values) and ks.kmeans(frame, 2)[1].shape == (5,)


def test_refusals():
    flat = np.arange(6.0).reshape(2, 3)
    infinite = np.where(flat == 3, np.inf, flat)
    cases = (
        (ks.variogram_map, (flat, 2), ks.ArgumentError, "max_lag is 2 along an axis of 2"),
        (ks.variogram_map, (flat, (1, 1, 1)), ks.ArgumentError, "one for each axis"), (ks.variogram_map, (flat, -1), ks.ArgumentError, "at least 0"),
        (ks.variogram_map, (flat, 0.5), ks.ArgumentTypeError, "whole"), (ks.variogram_map, (infinite, 1), ks.DataError, "infinite"),
        (ks.variogram_map, (flat.astype(object), 1), ks.ArgumentTypeError, "astype"), (ks.variogram_map, (flat[0], 1), ks.DataError, "axis"),
        (ks.pyramid, (flat, 0), ks.ArgumentError, "at least 1"), (ks.pyramid, (flat.astype(complex),), ks.ArgumentTypeError, "complex"),
        *((tool, (2**60 + np.arange(8).reshape(2, 4), *more), ks.DataError, "2\\^53") for tool, more in (
            (ks.variogram_map, (1,)), (ks.covariance_map, (1,)), (ks.pyramid, ()), (ks.expand, ((2, 7),)), (ks.kmeans, (1,)), (ks.proportion_cuts, ([0.5, 0.5],)))),
        (ks.connectivity_curve, (xr.DataArray(np.ones((2, 3, 3, 3)), dims=("threshold", "z", "y", "x")),), ks.DataError, "Rename"),
        (ks.proportion_map, (xr.DataArray(np.ones((3, 3)), dims=("category", "x")), 3), ks.DataError, "Rename"),
        (ks.pyramid, (np.ones((0, 3)),), ks.DataError, "no nodes"), (ks.expand, (flat, (3,)), ks.ArgumentError, "2 n - 1"),
        (ks.expand, ([[1.0, 2.0]], (1, 5)), ks.ArgumentError, "step by step"), (ks.expand, ([[np.inf, 2.0]], (1, 3)), ks.DataError, "infinite"), (ks.otsu, (flat, 1), ks.ArgumentError, "at least 2"),
        (ks.otsu, (flat, 7), ks.DataError, "6 distinct numbers, too few for 7"), (ks.otsu, (infinite,), ks.DataError, "infinite"),
        (ks.otsu, ([np.nan],), ks.DataError, "0 distinct"), (ks.otsu, (np.array(["a"]),), ks.ArgumentTypeError, "numbers"),
        (ks.kmeans, (flat, 3), ks.ArgumentError, "2 rows only"), (ks.kmeans, (flat, 10**30), ks.ArgumentError, "2 rows only"),
        (ks.kmeans, (flat * 1e-200, 2), ks.DataError, "unit"), (ks.kmeans, (flat, [[1], [1, 2]]), ks.ArgumentError, "lengths"),
        (ks.variogram_map, (flat, [[1], [1, 2]]), ks.ArgumentError, "lengths"), (ks.kmeans, (flat, 0), ks.ArgumentError, "at least 1"),
        (ks.kmeans, (np.where(flat == 3, np.nan, flat), 1), ks.DataError, "row 1"), (ks.kmeans, (flat, flat[:, :2]), ks.ArgumentError, "columns"),
        (ks.kmeans, (np.ones((2, 2, 2)), 1), ks.DataError, "3 axes"), (ks.kmeans, (flat * 1e200, 1), ks.DataError, "unit"),
        (ks.kmeans, (np.ones((0, 2)), 1), ks.DataError, "0 rows"))
    for tool, arguments, error, text in cases:
        with pytest.raises(error, match=text):
            tool(*arguments)
    for tool in (ks.otsu, ks.connectivity_curve, ks.category_order, lambda image: ks.box_mean(image, 3)):
        for big in ([[2**53 + 1, 0]], [[0, -(2**62)]], np.array([[2**64 - 1, 0]], np.uint64)):
            with pytest.raises(ks.DataError, match="2.53"):
                tool(big)
    assert ks.pyramid([[np.inf, 0, 0, 0]])[0].tolist() == [[np.inf, np.inf]]
    with pytest.raises(ks.DataError, match="both inf and -inf"):
        ks.pyramid([[np.inf, -np.inf, 0, 0]])
    with pytest.raises(ks.ArgumentError, match="'fft'"):
        ks.variogram_map(flat, 1, method="FFT")
    with pytest.raises(ks.ArgumentError, match="restarts"):
        ks.kmeans(flat, flat[:1], restarts=2)
    for call in (lambda: ks.otsu(np.arange(1e5), 2**16), lambda: ks.kmeans(np.arange(2.0**24), 2**24)):
        with pytest.MonkeyPatch.context() as patch, pytest.raises(MemoryError, match="Ask for fewer"):
            patch.setattr("kestrum._memory.available", lambda: 2**30)
            call()
    for option in ({"seed": -1}, {"tolerance": np.nan}, {"max_iterations": 0}, {"threads": 0}):
        with pytest.raises(ks.KestrumError, match=next(iter(option))):
            ks.kmeans(flat, 1, **option)


def connected(image, thresholds, rank, bodies):
    """By one labelling of SciPy's for each threshold."""
    curve = []
    for threshold in thresholds:
        labels, _ = ndimage.label(image > threshold if bodies == "above" else image <= threshold, ndimage.generate_binary_structure(image.ndim, rank))
        sizes = np.bincount(labels.ravel())[1:].astype(float)
        curve.append((sizes**2).sum() / sizes.sum() ** 2 if sizes.size else 1.0)
    return curve


@given(images(13), st.data())
@settings(max_examples=150, deadline=None)
def test_connectivity_curves(image, data):
    values, doubles = image
    random = np.random.default_rng(data.draw(st.integers(0, 2**32)))
    smooth = ndimage.gaussian_filter(doubles, data.draw(st.sampled_from([0.0, 0.7])))
    values, doubles = (values, doubles) if np.isnan(smooth).any() else (smooth, smooth)
    known = doubles[doubles == doubles]
    thresholds = random.choice(known, 12) if known.size else np.array([0.0])
    thresholds = np.append(thresholds, random.normal(size=data.draw(st.sampled_from([3, 100, 300]))) * 40 + 50)
    for connectivity, rank in ({4: 1, 8: 2} if values.ndim == 2 else {6: 1, 18: 2, 26: 3}).items():
        for bodies in ("above", "below"):
            found = ks.connectivity_curve(values, thresholds, connectivity, bodies=bodies)
            assert found.dims == ("threshold",) and np.array_equal(found.threshold, thresholds)
            np.testing.assert_allclose(found, connected(doubles, thresholds, rank, bodies), 1e-14)
    if known.size:
        found = ks.connectivity_curve(values, 5)
        assert np.array_equal(found.threshold, np.linspace(known.min(), known.max(), 5)) and found[-1] == 1.0


@given(images(7), st.data())
@settings(max_examples=40, deadline=None)
def test_body_curves(image, data):
    """Beside the tools for single masks, which are tested against SciPy."""
    values, doubles = image
    random = np.random.default_rng(data.draw(st.integers(0, 2**32)))
    known = doubles[doubles == doubles]
    thresholds = np.append(random.choice(known, 2) if known.size else [], random.normal() * 40 + 50)
    connectivity = data.draw(st.sampled_from((4, 8) if values.ndim == 2 else (6, 18, 26)))
    bodies = data.draw(st.sampled_from(("above", "below")))
    found = ks.body_curves(values, thresholds, connectivity, bodies=bodies, threads=1)
    assert found.identical(ks.body_curves(values, thresholds, connectivity, bodies=bodies, threads=2)) and ("euler_number" in found) == (connectivity != 18)
    for threshold, measures in zip(thresholds, found.to_dataframe().to_dict("records")):
        mask = doubles > threshold if bodies == "above" else doubles <= threshold
        labels, count = ks.label(mask, connectivity)
        table = ks.body_sizes(labels)
        expected = {"count": count, **(table.max().to_dict() if count else dict.fromkeys(table, 0))}
        if connectivity != 18:
            expected["euler_number"] = ks.euler_number(mask, connectivity)
        assert measures == expected


def test_connectivity_curves_of_long_rows_and_of_ensembles():
    random = np.random.default_rng(6)
    row = ndimage.gaussian_filter(random.normal(size=(2, 70_000)), 5.0)
    row[:, 100:68_000] = 9.0
    for image, n in ((row, 40), (row, 80), (np.ascontiguousarray(row.T), 40), (row[None], 80)):
        thresholds = np.linspace(row.min(), 9.0, n)
        np.testing.assert_allclose(ks.connectivity_curve(image, thresholds), connected(row, thresholds, 1, "above"), 1e-14)
    fields = ndimage.gaussian_filter(random.normal(size=(5, 7, 8, 9)), (0, 1, 1, 1))
    found = ks.connectivity_curve(fields, 7, 18, threads=1)
    assert found.dims == ("realization", "threshold") and np.array_equal(found.threshold, np.linspace(fields.min(), fields.max(), 7))
    for field, curve in zip(fields, found):
        assert np.array_equal(ks.connectivity_curve(field, found.threshold.values, 18), curve)
    assert found.identical(ks.connectivity_curve(np.asfortranarray(fields), 7, 18, threads=3))
    frame = xr.DataArray(fields[:, 0], {"realization": np.arange(10, 15)}, ("realization", "y", "x"))
    expected = ks.connectivity_curve(frame, 7, 8)
    assert expected.realization.values.tolist() == [10, 11, 12, 13, 14] and expected.shape == (5, 7)
    assert np.array_equal(expected[1], ks.connectivity_curve(fields[1, 0], expected.threshold.values, 8))
    pytest.importorskip("dask.array")
    for threads in (1, 2):
        assert expected.identical(ks.connectivity_curve(frame.chunk({"realization": 2}), 7, 8, threads=threads))
    for arguments, text in (((fields[0], 0), "at least 1"), ((fields[0], [[1.0]]), "list"), ((fields[0], [np.nan]), "finite"), ((fields[0], 3, 8), "6, 18 or 26"),
                            ((np.full((2, 2), np.nan),), "no values but NaN"), ((fields[None],), "5 axes|4 axes"), ((np.ones((2, 0)),), "no nodes"),
                            ((frame.transpose("y", "realization", "x"),), "transpose"), ((frame.to_dataset(name="v"),), "'v'"), ((fields[0], [[1], [1, 2]]), "lengths")):
        for tool in (ks.connectivity_curve, ks.body_curves):
            with pytest.raises(ks.KestrumError, match=text):
                tool(*arguments)
    with pytest.raises(ks.ArgumentError, match="at most 32,766"):
        ks.body_curves(fields[0], 40_000)
    of_all = ks.body_curves(frame, 7, 8)
    assert of_all.sizes == {"realization": 5, "threshold": 7} and of_all.identical(ks.body_curves(frame.chunk({"realization": 2}), 7, 8))
    for index in range(5):
        assert of_all.isel(realization=index, drop=True).identical(ks.body_curves(fields[index, 0], of_all.threshold.values, 8))
    with pytest.raises(ks.ArgumentError, match="bodies"):
        ks.connectivity_curve(fields[0], bodies="between")
