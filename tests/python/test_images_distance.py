"""Distance maps against SciPy's and against all pairs of nodes."""

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage
from test_images import masks

import kestrum as ks


def to_nearest(features, spacing, metric):
    """By SciPy for straight lines, by all pairs otherwise; infinite without features."""
    if not features.any():
        return np.full(features.shape, np.inf)
    if metric == "euclidean":
        return ndimage.distance_transform_edt(~features, spacing)
    result = np.full(features.shape, np.inf)
    for node in np.argwhere(features):
        np.minimum(result, sum(abs(places - place) * side for places, place, side in zip(np.indices(features.shape), node, spacing)), out=result)
    return result


def expected_map(values, true, spacing, metric, signed):
    known = values == values
    distance = to_nearest(true, spacing, metric)
    if signed:
        layer = true & ~ndimage.binary_erosion(true | ~known, border_value=1)
        distance = np.where(true, 0.0 - to_nearest(layer, spacing, metric), distance)
    return np.where(known, distance, np.nan)


@given(masks(), st.data())
@settings(max_examples=400, deadline=None)
def test_distances(mask, data):
    values, true = mask
    metric = data.draw(st.sampled_from(["euclidean", "manhattan"]))
    signed = data.draw(st.booleans())
    spacing = data.draw(st.lists(st.sampled_from([0.3, 1.0, 2.5, 40.0]), min_size=values.ndim, max_size=values.ndim))
    unit = data.draw(st.sampled_from([1.0, 1e-290, 1e290]))  # far from the range of squares
    expected = expected_map(values, true, spacing, metric, signed)
    results = [ks.distance(values, [unit * side for side in spacing], metric=metric, signed=signed, threads=threads) for threads in (1, 2, 3)]
    np.testing.assert_allclose(results[0] / unit, expected, rtol=1e-14)
    assert all(result.tobytes() == results[0].tobytes() for result in results) and results[0].flags.f_contiguous >= values.flags.f_contiguous
    single = [ks.distance(values, spacing, metric=metric, signed=signed, dtype="float32", threads=threads) for threads in (1, 4)]
    assert single[0].dtype == np.float32 and single[0].tobytes() == single[1].tobytes()
    np.testing.assert_allclose(single[0], expected, rtol=4 * 2.0**-24)
    assert not np.signbit(results[0][results[0] == 0]).any()


@pytest.mark.parametrize("shape", [(700, 70), (3, 300, 130), (4200, 5), (70000, 3)])
@pytest.mark.parametrize("count", [1, 40])
def test_far_from_few_nodes(shape, count):
    """Where trying near nodes gives up, in blocks of every width."""
    random = np.random.default_rng(count)
    true = np.zeros(shape, bool)
    true.ravel()[random.choice(true.size, count, False)] = True
    spacing = (1.5, 0.7, 1.1)[: true.ndim]
    for metric in ("euclidean", "manhattan"):
        expected = to_nearest(true, spacing, metric)
        result = ks.distance(true, spacing, metric=metric, threads=1)
        np.testing.assert_allclose(result, expected, rtol=1e-14)
        assert np.array_equal(result, ks.distance(true, spacing, metric=metric, threads=4))
        np.testing.assert_allclose(ks.distance(true, spacing, metric=metric, dtype="float32"), expected, rtol=4 * 2.0**-24)


def is_nearest(labels, distances, nearest, spacing, metric):
    """Whether each label is at its distance."""
    assert ((nearest == 0) == (not labels.any())).all()
    for label in np.unique(labels[labels != 0]):
        own = to_nearest(labels == label, spacing, metric)[nearest == label]
        np.testing.assert_allclose(distances[nearest == label], own, rtol=1e-14)


@given(masks(), st.data())
@settings(max_examples=150, deadline=None)
def test_nearest_labels(mask, data):
    values, true = mask
    metric = data.draw(st.sampled_from(["euclidean", "manhattan"]))
    spacing = data.draw(st.lists(st.sampled_from([0.3, 1.0, 2.5, 40.0]), min_size=values.ndim, max_size=values.ndim))
    unit = data.draw(st.sampled_from([1.0, 1e-290, 1e290]))
    random = np.random.default_rng(data.draw(st.integers(0, 2**32)))
    labels = np.asarray(np.where(true, random.choice([-7, 1, 2, 99], true.shape), 0), data.draw(st.sampled_from(["i2", "i4", "i8", "f4", "f8"])), order=data.draw(st.sampled_from("CF")))
    if labels.dtype.kind == "f":
        labels[~true & (random.random(true.shape) < 0.3)] = np.nan
    distances, nearest = ks.nearest_label(labels, [unit * side for side in spacing], metric=metric, threads=1)
    np.testing.assert_allclose(distances / unit, to_nearest(true, spacing, metric), rtol=1e-14)
    is_nearest(np.nan_to_num(labels), distances / unit, nearest, spacing, metric)
    assert distances.flags.f_contiguous >= labels.flags.f_contiguous and nearest.dtype == np.int32
    depth = ks.label_depth(labels, [unit * side for side in spacing], metric=metric, threads=1)
    own = np.nan_to_num(labels)
    expected = np.zeros(own.shape)
    for label in np.unique(own[own != 0]):
        expected[own == label] = to_nearest(own != label, spacing, metric)[own == label]
    np.testing.assert_allclose(depth / unit, expected, rtol=1e-14)
    assert np.array_equal(depth, ks.label_depth(labels, [unit * side for side in spacing], metric=metric, threads=3))
    again = ks.nearest_label(labels, [unit * side for side in spacing], metric=metric, threads=3)
    assert np.array_equal(distances, again[0]) and np.array_equal(nearest, again[1])


@pytest.mark.parametrize("shape", [(700, 70), (3, 300, 130), (70000, 3)])
def test_nearest_of_few_labels(shape):
    labels = np.zeros(shape, np.int32)
    labels.flat[np.random.default_rng(3).integers(0, labels.size, 5)] = [5, 4, 5, 2, 1]
    for metric in ("euclidean", "manhattan"):
        distances, nearest = ks.nearest_label(labels, (1.5, 0.7, 1.1)[:labels.ndim], metric=metric)
        is_nearest(labels, distances, nearest, (1.5, 0.7, 1.1)[:labels.ndim], metric)


def test_kinds_of_labels():
    frame = xr.DataArray([[1, 0, 2]], {"x": [1.0, 2.0, 3.0]}, ("y", "x"))
    distances, nearest = ks.nearest_label(frame)
    assert distances.name == "distance" and nearest.name == "label" and nearest.x.equals(frame.x) and distances.values.tolist() == [[0, 1, 0]]
    assert [part.shape for part in ks.nearest_label(np.zeros((0, 3)))] == [(0, 3)] * 2 and ks.label_depth(np.zeros((0, 3))).shape == (0, 3)
    assert ks.label_depth(frame).values.tolist() == [[1, 0, 1]] and ks.label_depth([[5, 5], [5, 5]]).tolist() == [[np.inf] * 2] * 2
    for labels, error, text in (([[0.5]], ks.DataError, "0.5"), ([[np.inf]], ks.DataError, "inf"), ([[-np.inf]], ks.DataError, "inf"), ([[2**31]], ks.DataError, "32 bits"),
                                ([[-(2**63)]], ks.DataError, "32 bits"), (np.array([[-np.inf]], np.float16), ks.DataError, "inf"),
                                ([1, 2], ks.DataError, "1 axis"), ([[None]], ks.ArgumentTypeError, "object")):
        for tool in (ks.nearest_label, ks.label_depth):
            with pytest.raises(error, match=text):
                tool(labels)
    assert ks.nearest_label(np.array([[-(2**31), 0]]))[1].tolist() == [[-(2**31)] * 2]
    for options, text in (({"spacing": 0}, "spacing is 0"), ({"spacing": (1, 2, 3)}, "2: one"), ({"metric": "chebyshev"}, "metric"), ({"threads": 0}, "threads")):
        with pytest.raises(ks.ArgumentError, match=text):
            ks.nearest_label([[1, 2]], **options)


def test_kinds_of_input():
    true = np.random.default_rng(2).random((5, 6, 7)) < 0.2
    frame = xr.DataArray(true, {"x": 10 * np.arange(7.0)}, ("z", "y", "x"))
    result = ks.distance(frame, 2)
    assert result.name == "distance" and result.x.equals(frame.x) and np.array_equal(result, ks.distance(true, (2, 2, 2)))
    assert ks.distance(np.ones((3, 0))).shape == (3, 0)
    assert np.array_equal(ks.distance([[True, True]], signed=True), [[-np.inf, -np.inf]])
    # Single precision that cannot hold the squares.
    np.testing.assert_allclose(ks.distance([[1, 0], [0, 0]], (1e-30, 1.0), dtype="float32"), [[0, 1], [1e-30, 1]], rtol=1e-6)
    for arguments, error, text in (({"spacing": 0}, ks.ArgumentError, "spacing is 0"), ({"spacing": (1, -2, 1)}, ks.ArgumentError, "above 0"),
                                   ({"spacing": (1, 2)}, ks.ArgumentError, "3: one for each axis"), ({"spacing": np.inf}, ks.ArgumentError, "finite"),
                                   ({"spacing": (1, 1e150, 1)}, ks.ArgumentError, "1e100 times"), ({"spacing": 1e308}, ks.ArgumentError, "float64"),
                                   ({"spacing": 1e-40, "dtype": "float32"}, ks.ArgumentError, "ask for float64"), ({"spacing": [[1], [1, 2]]}, ks.ArgumentError, "lengths"),
                                   ({"spacing": 10**400}, ks.ArgumentTypeError, "number"),
                                   ({"spacing": (1, None, 1)}, ks.ArgumentTypeError, "number"), ({"metric": "chebyshev"}, ks.ArgumentError, "metric"),
                                   ({"dtype": "int32"}, ks.ArgumentError, "dtype"), ({"signed": 1}, ks.ArgumentTypeError, "signed")):
        with pytest.raises(error, match=text):
            ks.distance(true, **arguments)
    with pytest.raises(ks.ArgumentTypeError, match="object"):
        ks.distance(np.array([[None, 1]]))
