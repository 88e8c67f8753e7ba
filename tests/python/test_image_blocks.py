"""Images in blocks: what the whole image gives, lazily, for any blocks."""

import itertools

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


# Rows of several slabs of distances, with few nodes or many.
LONG = [(RANDOM.uniform(size=shape) < share) for shape, share in (((50, 329), 0.0002), ((6, 31, 129), 0.4), ((40, 9, 203), 0.001), ((3, 2, 150), 1.0), ((4, 4, 70), 0.0))]


@st.composite
def blocked(draw, images=(*IMAGES, SPIRAL)):
    image = draw(st.sampled_from(images))
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


@given(blocked((*IMAGES, *LONG, SPIRAL)), st.sampled_from(["euclidean", "manhattan"]), st.booleans(), st.sampled_from(["float32", "float64"]),
       st.lists(st.sampled_from([0.3, 1.0, 0.7, 1e30]), min_size=3, max_size=3), st.sampled_from([0.0, 0.1]))
@settings(max_examples=80, deadline=None)
def test_distances_are_those_of_the_whole(pair, metric, signed, dtype, spacing, share):
    image, lazy = pair
    if share:
        image = np.where(np.random.default_rng(1).uniform(size=image.shape) < share, np.nan, image)
        lazy = da.from_array(image, lazy.chunks)
    options = {"spacing": spacing[: image.ndim], "metric": metric, "signed": signed, "dtype": dtype}
    result = ks.distance(lazy, **options)
    assert result.chunks == lazy.chunks and result.dtype == dtype
    assert result.compute(scheduler="threads").tobytes() == ks.distance(image, **options).tobytes()


@given(blocked(), st.integers(0, 12), st.sampled_from([0.0, 0.3]), st.sampled_from(["pairs", "fft"]))
@settings(max_examples=60, deadline=None)
def test_variogram_maps_are_those_of_the_whole(pair, longest, share, method):
    image, lazy = pair
    random = np.random.default_rng(longest)
    values = np.where(image == 1, 1e3, 1.0) * random.normal(5.0, size=image.shape)
    values[random.uniform(size=image.shape) < share] = np.nan
    lags = [min(longest + axis, n - 1) for axis, n in enumerate(image.shape)]
    found = ks.variogram_map(xr.DataArray(da.from_array(values, lazy.chunks)), lags, method=method)
    whole = ks.variogram_map(values, lags)
    assert found.drop_vars("gamma").identical(whole.drop_vars("gamma"))
    # What transforms promise, once for each of the two maps.
    slack = 2e-12 * (np.nanstd(values) if image.size > 1 else 0.0) ** 2 * image.size / np.maximum(whole.pairs.values, 1) if method == "fft" else 1e-12 * whole.gamma.values
    assert np.array_equal(found.gamma.isnull(), whole.gamma.isnull()) and not (np.abs(found.gamma - whole.gamma) > slack).any()


@given(blocked(), st.integers(0, 12), st.sampled_from([0.0, 0.3]))
@settings(max_examples=40, deadline=None)
def test_counts_of_pairs_are_those_of_the_whole(pair, longest, share):
    image, lazy = pair
    random = np.random.default_rng(longest)
    facies = np.where(image == 1, 4, random.integers(0, 3, image.shape)).astype(np.float32)
    facies[random.uniform(size=image.shape) < share] = np.nan
    blocks = da.from_array(facies, lazy.chunks)
    lags = [min(longest + axis, n - 1) for axis, n in enumerate(image.shape)]
    some = np.nanmax(facies, initial=-1) >= 0
    for tool, options in (*(((ks.transiogram, {}), (ks.indicator_variogram_map, {})) if some else ()), (ks.transiogram, {"categories": [4, 1]}),
                          (ks.indicator_variogram_map, {"thresholds": [2, 0.5]}), (ks.connectivity_function, {"connectivity": {2: 8, 3: 18}[image.ndim]}),
                          (ks.connectivity_function, {"given": "tail"})):
        assert tool(blocks, lags, **options).identical(tool(facies, lags, **options))
    values = da.from_array(facies + 1e6, lazy.chunks)
    for statistic, method in itertools.product(("covariance", "noncentered", "correlogram"), ("pairs", "fft")):
        found, whole = (ks.covariance_map(given, lags, statistic=statistic, method=method) for given in (values, values.compute()))
        xr.testing.assert_allclose(found, whole, 1e-9, 1e-9)


def test_blocks_without_nodes():
    image = IMAGES[0]
    lazy = da.from_array(image, ((0, 11, 0, 12), (31,)))
    assert np.array_equal(ks.label(lazy)[0], ks.label(image)[0]) and np.array_equal(ks.distance(lazy, signed=True), ks.distance(image, signed=True))
    with pytest.raises(ks.DataError, match="Rechunk"):
        ks.label(da.zeros((50_000, 50_000), chunks=-1, dtype=np.uint8))


def test_counts_of_pairs_of_blocks_refuse():
    many = da.arange(600.0, chunks=100).reshape(6, 100)
    for image, options, text in ((many, {}, "more than 255"), (many.rechunk(-1), {}, "more than 255"), (many * np.nan, {}, "no values"), (many, {"threads": 0}, "threads")):
        with pytest.raises((ks.DataError, ks.ArgumentError), match=text):
            ks.transiogram(image, 1, **options)
    with pytest.raises(ks.DataError, match="infinite"):
        ks.covariance_map(many + np.inf, 1)
    with pytest.raises(ks.DataError, match="compute_chunk_sizes"):
        ks.connectivity_function(many[many[:, 0] > 1], 1)


def test_from_a_mapped_file_to_zarr(tmp_path):
    pytest.importorskip("zarr")
    np.save(tmp_path / "image.npy", np.random.default_rng(3).normal(size=(8, 60, 150)))
    image = np.load(tmp_path / "image.npy", mmap_mode="r")
    lazy = da.from_array(image, (3, 25, 40))
    tools = {"label": lambda image: ks.label(image, 18)[0], "distance": lambda image: ks.distance(image > 2.5, 0.3, signed=True),
             "dilate": lambda image: ks.dilate(image > 2.0), "box_mean": lambda image: ks.box_mean(image, 3)}
    for name, tool in tools.items():
        tool(lazy).to_zarr(str(tmp_path / name))
        assert np.array_equal(da.from_zarr(str(tmp_path / name)).compute(), tool(np.array(image)), equal_nan=True), name


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
        asked.clear()
        far = ks.distance(lazy)
        assert len(asked) == 12 and np.array_equal(far.compute(), ks.distance(whole)) and len(asked) == 24


def test_masked_blocks():
    masked = np.ma.array(np.random.default_rng(7).uniform(size=(7, 9)).round(1), mask=np.random.default_rng(8).uniform(size=(7, 9)) < 0.3)
    whole, lazy = masked.filled(np.nan), da.from_array(masked, chunks=3)
    for tool in (lambda image: ks.label(image)[0], ks.distance, ks.euler_number, ks.dilate, lambda image: ks.box_mean(image, 3), lambda image: ks.pyramid(image)[0], ks.otsu,
                 lambda image: ks.variogram_map(image, 2).gamma.round(12), lambda image: ks.connectivity_curve(image, 5), lambda image: ks.body_sizes((10 * image).round())):
        for image in (lazy, xr.DataArray(lazy)):
            np.testing.assert_array_equal(tool(image), tool(whole))


def test_refusals():
    image = da.ones((4, 6), chunks=3)
    for call, error, text in ((lambda: ks.label(image.astype(str)), ks.ArgumentTypeError, "numbers"), (lambda: ks.label(image, 6), ks.ArgumentError, "4 or 8"),
                              (lambda: ks.erode(da.ones(5)), ks.DataError, "2 or 3"),
                              (lambda: ks.distance(da.zeros((50_000, 50_000), chunks=(1000, -1))), ks.DataError, "thinner"),
                              (lambda: ks.variogram_map(image * np.inf, 1), ks.DataError, "infinite"), (lambda: ks.dilate(image, 4), ks.ArgumentError, "odd"),
                              *((lambda tool=tool: tool(image[image[:, 0] > 0]), ks.DataError, "compute_chunk_sizes") for tool in (ks.label, ks.distance, ks.connectivity_curve))):
        with pytest.raises(error, match=text):
            call()
