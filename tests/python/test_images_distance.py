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
