"""Images in blocks: what the whole image gives, lazily, for any blocks."""

import dask
import dask.array as da
import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st

import kestrum as ks

RANDOM = np.random.default_rng(5)
IMAGES = [(RANDOM.uniform(size=shape) < share) for shape, share in (((23, 31), 0.55), ((60, 41), 0.41), ((9, 12, 14), 0.3), ((16, 15, 11), 0.12), ((5, 1, 9), 0.6), ((1, 1), 1.0))]
# A spiral, whose arms meet at the last block only.
SPIRAL = np.array([[int(c) for c in row] for row in ("1111111", "0000001", "1111101", "1000101", "1011101", "1000001", "1111111")], float)
SPIRAL[SPIRAL == 0] = np.nan


@st.composite
def blocked(draw):
    image = draw(st.sampled_from([*IMAGES, SPIRAL]))
    chunks = []
    for n in image.shape:
        cuts = sorted(draw(st.sets(st.integers(1, n - 1), max_size=3))) if n > 1 else []
        chunks.append(tuple(np.diff([0, *cuts, n]).tolist()))
    return image, da.from_array(image, tuple(chunks))


@given(blocked(), st.booleans(), st.sampled_from(["synchronous", "threads"]))
@settings(max_examples=50, deadline=None)
def test_labels_are_those_of_the_whole(pair, wide, scheduler):
    image, lazy = pair
    for connectivity in (4, 8) if image.ndim == 2 else (6, 18, 26):
        expected, number = ks.label(image, connectivity)
        with dask.config.set(scheduler=scheduler):
            labels, count = ks.label(lazy, connectivity)
            assert isinstance(labels, da.Array) and labels.chunks == lazy.chunks and labels.dtype == np.int32
            assert count == number and np.array_equal(labels.compute(), expected)


ELEMENTS = {"cube": 3, "large": 9, "beyond": 101, "arrow": np.array([[0, 0, 1, 0, 0], [0, 0, 1, 1, 1], [0, 0, 0, 0, 1]])}


@given(blocked(), st.sampled_from(list(ELEMENTS)))
@settings(max_examples=40, deadline=None)
def test_morphology_is_that_of_the_whole(pair, kind):
    image, lazy = pair
    element = ELEMENTS[kind]
    if kind == "arrow" and image.ndim == 3:
        element = element[None]
    for function in (ks.dilate, ks.erode):
        result = function(lazy, element)
        assert isinstance(result, da.Array) and result.dtype == bool
        assert np.array_equal(result.compute(scheduler="synchronous"), function(image, element))


@given(blocked(), st.sampled_from([1, 3, 7, 99]))
@settings(max_examples=30, deadline=None)
def test_moving_means_are_those_of_the_whole(pair, side):
    image, lazy = pair
    random = np.random.default_rng(side)
    values = np.where(image == 1, 1e9, 1.0) * random.lognormal(size=image.shape)
    values[random.uniform(size=image.shape) < 0.1] = np.nan
    result = ks.box_mean(da.from_array(values, lazy.chunks), side)
    assert np.array_equal(result.compute(scheduler="synchronous"), ks.box_mean(values, side), equal_nan=True)


def test_a_block_at_a_time():
    """An image of which no more than a few blocks are ever held; twice it is read for labels, and never before it is asked for."""
    asked = []

    def block(block_info=None):
        asked.append(block_info[None]["chunk-location"])
        z, y, x = (np.arange(begin, end) for begin, end in block_info[None]["array-location"])
        return (z[:, None, None] // 3 + y[:, None] // 5 + x // 7) % 2 == 0

    lazy = da.map_blocks(block, chunks=((20,) * 3, (30,) * 2, (40,) * 2), dtype=bool, meta=np.empty((0, 0, 0), bool))
    asked.clear()
    grown = ks.dilate(xr.DataArray(lazy, dims=("z", "y", "x")))
    assert grown.dims == ("z", "y", "x") and not asked
    with dask.config.set(scheduler="synchronous"):
        labels, count = ks.label(lazy, 26)
        assert len(asked) == 12
        whole = lazy.compute()
        expected, number = ks.label(whole, 26)
        assert count == number and np.array_equal(labels[:, 5:10].compute(), expected[:, 5:10])
        assert np.array_equal(grown.values, ks.dilate(whole))


def test_masked_blocks():
    masked = np.ma.array(np.random.default_rng(7).uniform(size=(7, 9)).round(1), mask=np.random.default_rng(8).uniform(size=(7, 9)) < 0.3)
    whole, lazy = masked.filled(np.nan), da.from_array(masked, chunks=3)
    for tool in (lambda image: ks.label(image)[0], ks.distance, ks.euler_number, ks.dilate, lambda image: ks.box_mean(image, 3), lambda image: ks.pyramid(image)[0], ks.otsu,
                 lambda image: ks.variogram_map(image, 2).gamma, lambda image: ks.connectivity_curve(image, 5), lambda image: ks.body_sizes((10 * image).round())):
        for image in (lazy, xr.DataArray(lazy)):
            np.testing.assert_array_equal(tool(image), tool(whole))


def test_refusals():
    image = da.ones((4, 6), chunks=3)
    for call, error, text in ((lambda: ks.label(image.astype(str)), ks.ArgumentTypeError, "numbers"), (lambda: ks.label(image, 6), ks.ArgumentError, "4 or 8"),
                              (lambda: ks.erode(da.ones(5)), ks.DataError, "2 or 3"), (lambda: ks.dilate(image, 4), ks.ArgumentError, "odd"),
                              *((lambda tool=tool: tool(image[image[:, 0] > 0]), ks.DataError, "compute_chunk_sizes") for tool in (ks.label, ks.connectivity_curve))):
        with pytest.raises(error, match=text):
            call()
