"""Categories of images of any type and order, against NumPy."""

import numpy as np
import pytest
import xarray as xr
from hypothesis import example, given, settings
from hypothesis import strategies as st

import kestrum as ks
from test_image_pairs import images


@given(images(), st.integers(1, 3))
@settings(max_examples=60, deadline=None)
def test_classes_and_proportions(image, threads):
    values, doubles, _ = image
    cuts = [-1.5, 0.0, 0.5, 2.0]
    codes = ks.categorize(values, cuts, threads=threads)
    np.testing.assert_array_equal(codes, np.where(np.isnan(doubles), -1, np.digitize(doubles, cuts)))
    assert codes.dtype == np.int16 and codes.flags.f_contiguous >= values.flags.f_contiguous
    names, counts = np.unique(doubles[doubles == doubles], return_counts=True)
    if not names.size:
        return
    table = ks.category_proportions(values, threads=threads)
    assert table.index.tolist() == names.tolist() and table.nodes.tolist() == counts.tolist()
    np.testing.assert_allclose(table.proportion, counts / counts.sum())
    assert ks.category_proportions(values, names[:1]).nodes.tolist() == counts[:1].tolist()
    size = [3 if n > 2 else 1 for n in values.shape]
    found = ks.proportion_map(values, size, threads=threads)
    assert found.dims == ("category", "z", "y", "x")[:1] + ("z", "y", "x")[-values.ndim:] and found.category.values.tolist() == names.tolist()
    for name, shares in zip(names, found):
        np.testing.assert_array_equal(shares, ks.box_mean(np.where(np.isnan(doubles), np.nan, doubles == name), size))


@example([0, 0, 0, 0, 0, 1, 1, 0.5, 0.5], [4, 6, 2, 3])  # two cuts alike, to rounding
@given(st.lists(st.one_of(st.integers(-3, 3), st.floats(-2, 2)), min_size=1, max_size=40), st.lists(st.integers(1, 9), min_size=2, max_size=4))
@settings(max_examples=200, deadline=None)
def test_cuts_by_proportions(numbers, weights):
    values, proportions = np.array([*numbers, np.nan], float), np.array(weights) / sum(weights)
    distinct, counts = np.unique(values[:-1], return_counts=True)
    below = (np.cumsum(counts) - counts) / counts.sum()
    # The distinct value with the share below it nearest to each sum, the first of two.
    apart = np.abs(below - np.cumsum(proportions)[:-1, None])
    best = [int(np.argmax(row <= row.min() + 1e-12)) for row in apart]
    if len(set(best)) < len(best):
        with pytest.raises(ks.DataError, match="too few"):
            ks.proportion_cuts(values, proportions)
    else:
        found = ks.proportion_cuts(values, proportions)
        for cut, at, row in zip(found, best, apart):
            place = int(np.flatnonzero(distinct == cut)[0])
            assert place == at or row[place] <= row.min() + 1e-12


def is_chain(order, pairs, first, last):
    """Whether the chain from first to last may grow to all of the order, by the most pairs at either end."""
    if (first, last) == (0, len(order) - 1):
        return True
    ends, others = order[[first, last]], np.delete(order, slice(first, last + 1))
    most = pairs[np.ix_(ends, others)].max()
    return (first > 0 and pairs[order[first - 1], order[first]] == most and is_chain(order, pairs, first - 1, last)
            or last < len(order) - 1 and pairs[order[last], order[last + 1]] == most and is_chain(order, pairs, first, last + 1))


@given(st.integers(0, 2**32), st.integers(2, 6), st.integers(2, 3))
@settings(max_examples=60, deadline=None)
def test_order(seed, n, dimension):
    random = np.random.default_rng(seed)
    codes = random.integers(-1, n, random.integers(2, 6, dimension))
    names = random.permutation(100)[:n]
    image = np.where(codes < 0, np.nan, names[codes])
    axes = sorted(random.permutation(dimension)[:random.integers(1, dimension + 1)].tolist())
    order = ks.category_order(image, names, axes=axes)
    assert order.tolist() == ks.category_order(np.asfortranarray(image), names, axes=[axis - dimension for axis in axes], threads=2).tolist()
    pairs = np.zeros((n, n), int)
    for axis in axes:
        lower, upper = (np.take(codes, np.arange(codes.shape[axis] - 1) + k, axis) for k in (0, 1))
        both = (lower >= 0) & (upper >= 0)
        np.add.at(pairs, (lower[both], upper[both]), 1)
    pairs += pairs.T
    np.fill_diagonal(pairs, -1)
    order = np.array([names.tolist().index(name) for name in order])
    assert sorted(order) == list(range(n))
    assert any(pairs[order[k], order[k + 1]] == pairs.max() and is_chain(order, pairs, k, k + 1) for k in range(n - 1))


def test_frames_and_lines():
    frame = xr.DataArray([[0.1, 0.9, 0.9]] * 3, {"x": [5.0, 6.0, 7.0]}, ("y", "x"))
    codes = ks.categorize(frame, [0.5])
    assert isinstance(codes, xr.DataArray) and codes.x.equals(frame.x) and codes.name == "category"
    shares = ks.proportion_map(codes, 3)
    assert shares.dims == ("category", "y", "x") and shares.x.equals(frame.x) and shares.sel(category=1)[1, 1] == pytest.approx(2 / 3)
    assert ks.category_order([[4, 4, 2, 2]]).tolist() == [2, 4] and ks.category_order([[4]]).tolist() == [4]


@pytest.mark.parametrize("call, error, text", [
    (lambda: ks.categorize([1, 2], [1]), ks.DataError, "1 axis"), (lambda: ks.categorize(np.eye(3), [2, 1]), ks.ArgumentError, "increase"),
    (lambda: ks.categorize(np.eye(3), []), ks.ArgumentError, "list of 1"), (lambda: ks.categorize(np.eye(3), [np.nan]), ks.DataError, "cuts"),
    (lambda: ks.categorize(np.eye(3), [1], threads=0), ks.ArgumentError, "threads is 0"), (lambda: ks.categorize([[None]], [1]), ks.ArgumentTypeError, "object"),
    (lambda: ks.proportion_cuts([1, 2], [0.5, 0.6]), ks.ArgumentError, "sum is 1"), (lambda: ks.proportion_cuts([1, 2], [1.0]), ks.ArgumentError, "two at least"),
    (lambda: ks.proportion_cuts([1, 2], [1.5, -0.5]), ks.ArgumentError, "above 0"), (lambda: ks.proportion_cuts([np.nan], [0.5, 0.5]), ks.DataError, "no numbers"),
    (lambda: ks.proportion_map(np.eye(3), 2), ks.ArgumentError, "odd"), (lambda: ks.category_proportions(np.eye(3), ["a"]), ks.ArgumentTypeError, "categories"),
    (lambda: ks.category_order(np.eye(3), axes=[2]), ks.ArgumentError, "axes"), (lambda: ks.category_order([[1, 2]], axes=[0]), ks.ArgumentError, "more than one node"),
    (lambda: ks.category_order(np.eye(3), axes=[]), ks.ArgumentError, "axes is")])
def test_refusals(call, error, text):
    with pytest.raises(error, match=text):
        call()
