"""Image analysis on arrays of any type and order, against SciPy and scikit-image."""

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage
from skimage import measure

import kestrum as ks

RANKS = {2: {4: 1, 8: 2}, 3: {6: 1, 18: 2, 26: 3}}
DTYPES = ["?", "u1", "i1", "i2", "u4", "i4", "i8", "f2", "f4", "f8", ">f8", "longdouble"]


@st.composite
def masks(draw):
    """An array whose rows may pass a word of 64 nodes, and what is true in it."""
    last = st.one_of(st.integers(1, 6), st.sampled_from([63, 64, 65, 128, 150]))
    shape = [draw(st.integers(1, 7)) for _ in range(draw(st.integers(1, 2)))] + [draw(last)]
    if draw(st.booleans()):
        shape = shape[::-1]
    share = draw(st.sampled_from([0.0, 0.02, 0.3, 0.5, 0.8, 0.98, 1.0]))
    random = np.random.default_rng(draw(st.integers(0, 2**32)))
    true = random.random(shape) < share
    dtype = np.dtype(draw(st.sampled_from(DTYPES)))
    values = np.where(true, random.choice([1, 2, 77], shape), 0).astype(dtype)
    if dtype.kind == "i":
        values *= random.choice(np.array([-1, 1], dtype), shape)
    if dtype.kind == "f":
        values = np.where(true, values / 3 * random.choice(np.array([-1, 1], dtype), shape), values * dtype.type(-0.0)).astype(dtype)
        values[~true & (random.random(shape) < 0.3)] = np.nan
    layout = draw(st.sampled_from("CFS"))
    if layout == "S":
        values = np.repeat(values, 2, axis=-1)[..., ::2]
    elif layout == "F":
        values = np.asfortranarray(values)
    values.flags.writeable = False
    return values, true


@given(masks(), st.integers(1, 3))
@settings(max_examples=400, deadline=None)
def test_labels_sizes_and_euler_numbers(mask, threads):
    values, true = mask
    for connectivity, rank in RANKS[values.ndim].items():
        expected, n = ndimage.label(true, ndimage.generate_binary_structure(values.ndim, rank))
        # Renumbered by first nodes.
        _, first = np.unique(expected[true], return_index=True)
        number = np.zeros(n + 1, int)
        number[1 + np.argsort(first)] = np.arange(1, n + 1)
        labels, count = ks.label(values, connectivity, threads=threads)
        assert count == n and labels.dtype == np.int32 and labels.flags.c_contiguous
        np.testing.assert_array_equal(labels, number[expected])
        table = ks.body_sizes(labels, threads=threads)
        assert table.index.tolist() == list(range(1, n + 1))
        boxes = ndimage.find_objects(labels)
        assert table["size"].tolist() == np.bincount(labels[true], minlength=n + 1)[1:].tolist()
        sides = [[side.stop - side.start for side in box] for box in boxes]
        assert table[["extent_z", "extent_y", "extent_x"]].values.tolist() == [[1] * (3 - values.ndim) + side for side in sides]
        if connectivity != 18:
            assert ks.euler_number(values, connectivity, threads=threads) == measure.euler_number(true, rank)
    assert np.array_equal(ks.label(values)[0], ks.label(values, {2: 4, 3: 6}[values.ndim])[0])


@given(masks(), st.data(), st.integers(1, 3))
@settings(max_examples=300, deadline=None)
def test_dilation_and_erosion(mask, data, threads):
    values, true = mask
    random = np.random.default_rng(data.draw(st.integers(0, 2**32)))
    sides = tuple(data.draw(st.sampled_from([1, 3, 5, 9, 131])) if n > 60 else data.draw(st.sampled_from([1, 3, 5])) for n in values.shape)
    element = data.draw(st.one_of(st.integers(0, 3).map(lambda half: 2 * half + 1), st.sampled_from([0.03, 0.5, 1.0, -1.0])))
    if isinstance(element, float):
        # A run in each row, or single nodes.
        low, high = np.sort(random.integers(0, np.max(sides) + 1, (2, *sides[:-1], 1)), axis=0)
        along = np.arange(sides[-1])
        element = (low <= along) & (along < high) if element < 0 else random.random(sides) < element
        element[tuple(side // 2 for side in sides)] = True
    known = values == values
    structure = element if np.ndim(element) else np.ones((element,) * values.ndim)
    grown, left = ks.dilate(values, element, threads=threads), ks.erode(values, element, threads=threads)
    np.testing.assert_array_equal(grown, ndimage.binary_dilation(true, structure) & known)
    np.testing.assert_array_equal(left, ndimage.binary_erosion(true | ~known, structure, border_value=1) & known)
    assert grown.dtype == left.dtype == bool and grown.flags.f_contiguous >= values.flags.f_contiguous


def test_tables_of_any_labels():
    labels = np.array([[7, 7, 0], [-2, 0, 10**9]])
    for given_ in (labels, labels.astype(np.int32), np.asfortranarray(labels), np.where(labels == 0, np.nan, labels)):
        table = ks.body_sizes(given_)
        assert table.index.tolist() == [-2, 7, 10**9] and table.index.name == "label"
        assert table["size"].tolist() == [1, 2, 1] and table.extent_x.tolist() == [1, 2, 1]
    assert ks.body_sizes([[True, False, True]]).values.tolist() == [[2, 1, 1, 3]]
    assert ks.body_sizes([[5, 0, 5, 3, 0]]).values.tolist() == [[1, 1, 1, 1], [2, 1, 1, 3]]
    assert len(ks.body_sizes(np.zeros((3, 0), np.uint8))) == 0 and len(ks.body_sizes(np.zeros((2, 2)))) == 0


@pytest.mark.parametrize("shape", [(70, 3, 130), (129, 66), (1, 65, 64), (64, 1, 65), (200, 2, 1)])
@pytest.mark.parametrize("dtype", [bool, np.int32, np.float32, np.float64])
def test_labels_in_fortran_order(shape, dtype):
    """Larger than the tiles that are transposed."""
    values = (np.random.default_rng(1).random(shape) < 0.4).astype(dtype)
    for threads in (1, 3):
        labels, count = ks.label(np.asfortranarray(values), threads=threads)
        assert count == labels.max() and labels.flags.c_contiguous and np.array_equal(labels, ks.label(values)[0])


@pytest.mark.parametrize("shape", [(3000, 2), (700, 3, 3), (60, 70, 5), (3, 900, 4), (40, 50, 17), (30, 45, 31), (30, 45, 33), (30, 45, 64), (30, 45, 65), (20, 45, 127), (20, 45, 128)])
@pytest.mark.parametrize("share", [0.3, 0.6, 0.9])
def test_labels_of_short_rows(shape, share):
    """Many rows that share words, over several threads and layers."""
    true = np.random.default_rng(2).random(shape) < share
    for connectivity, rank in RANKS[true.ndim].items():
        expected, n = ndimage.label(true, ndimage.generate_binary_structure(true.ndim, rank))
        for threads in (1, 2, 5):
            for order in "CF":
                labels, count = ks.label(np.asarray(true, order=order), connectivity, threads=threads)
                assert count == n and np.array_equal(labels, expected), (connectivity, threads, order)


def test_where_the_data_lie(tmp_path):
    true = np.random.default_rng(3).random((9, 10, 70)) < 0.4
    expected = ks.label(true)[0]
    np.save(tmp_path / "mask.npy", true)
    mapped = np.load(tmp_path / "mask.npy", mmap_mode="r")
    assert np.array_equal(ks.label(mapped)[0], expected) and ks.euler_number(mapped) == ks.euler_number(true)
    frame = xr.DataArray(true, {"x": np.arange(70.0)}, ("z", "y", "x"), "facies", {"units": "1"})
    labels, count = ks.label(frame)
    assert isinstance(labels, xr.DataArray) and labels.name == "label" and labels.dims == frame.dims and not labels.attrs
    assert np.array_equal(labels, expected) and labels.x.equals(frame.x) and count == expected.max()
    assert ks.body_sizes(labels).equals(ks.body_sizes(expected)) and ks.euler_number(frame) == ks.euler_number(true)
    grown = ks.dilate(frame, 10**9 + 1)
    assert isinstance(grown, xr.DataArray) and grown.all() and grown.x.equals(frame.x) and ks.erode(~grown).equals(~ks.dilate(grown).rename("erode"))
    assert np.array_equal(ks.label(np.ma.array([[1, 1, 0]], mask=[[1, 0, 0]]))[0], [[0, 1, 0]])
    for tool in (ks.label, ks.euler_number, ks.dilate):
        with pytest.raises(ks.ArgumentTypeError, match="is a Dataset. Give one of its variables: 'facies'"):
            tool(frame.to_dataset())
    for shape in ((0, 4), (3, 0, 2)):
        labels, count = ks.label(np.ones(shape))
        assert labels.shape == shape and count == 0 and ks.euler_number(np.ones(shape)) == 0 and ks.erode(np.ones(shape)).shape == shape


def test_refusals():
    flat, solid = np.ones((2, 3)), np.ones((2, 3, 4))
    for tool in (ks.label, ks.euler_number):
        for arguments, error, text in ((([1, 0],), ks.DataError, "1 axis,"), ((np.ones((2, 2, 2, 2)),), ks.DataError, "4 axes"),
                                       ((flat, 6), ks.ArgumentError, "4 or 8"), ((flat, 26), ks.ArgumentError, "4 or 8"),
                                       ((solid, 8), ks.ArgumentError, "6, 18 or 26"), ((solid, "6"), ks.ArgumentTypeError, "whole"),
                                       ((np.array([[None, 1]]),), ks.ArgumentTypeError, "object"),
                                       (([["a", "b"]],), ks.ArgumentTypeError, "<U1"), ((flat * 1j,), ks.ArgumentTypeError, "complex"),
                                       (([[1], [1, 2]],), ks.ArgumentError, "lengths")):
            with pytest.raises(error, match=text):
                tool(*arguments)
        with pytest.raises(ks.ArgumentError, match="threads is 0"):
            tool(flat, threads=0)
    with pytest.raises(ks.ArgumentError, match="connectivity is 18"):
        ks.euler_number(solid, 18)
    for element, error, text in ((2, ks.ArgumentError, "2 x 2"), (0, ks.ArgumentError, "at least 1"), (1.5, ks.ArgumentTypeError, "whole"),
                                 (np.ones((3, 4)), ks.ArgumentError, "3 x 4"), (np.ones((3, 3, 3)), ks.ArgumentError, "2 axes of the mask"), ([[1], [1, 2]], ks.ArgumentError, "lengths"),
                                 ([[1, 1, 1], [1, np.nan, 1], [1, 1, 1]], ks.ArgumentError, "centre"), ([1], ks.ArgumentError, "2 axes of the mask"),
                                 (np.array([[None]]), ks.ArgumentTypeError, "object")):
        for tool in (ks.dilate, ks.erode):
            with pytest.raises(error, match=text):
                tool(flat, element)
    for labels, text in (([[0.5, 1.0]], "0.5"), ([[np.inf, 1.0]], "inf"), ([1, 2], "1 axis")):
        with pytest.raises(ks.DataError, match=text):
            ks.body_sizes(labels)
    with pytest.raises(ks.DataError, match="at most 2,147,483,647"):
        ks.label(np.broadcast_to(np.True_, (2, 2**15, 2**15)))


@pytest.mark.skipif(not Path("/proc/self/task").exists(), reason="threads are counted where Linux lists them")
def test_small_arrays_wake_no_thread():
    code = """if True:
        import os, numpy as np, pandas, xarray, kestrum as ks
        values = np.arange(64.0).reshape(8, 8) % 5
        before = len(os.listdir("/proc/self/task"))
        for tool in (ks.label, ks.distance, ks.euler_number, ks.otsu, ks.category_order, ks.connectivity_curve, ks.body_curves):
            tool(values)
        ks.variogram_map(values, 1), ks.kmeans(values, 2), ks.box_mean(values, 3), ks.body_sizes(ks.label(values)[0])
        print(len(os.listdir("/proc/self/task")) - before)
        ks.label(values, threads=2)
        print(len(os.listdir("/proc/self/task")) - before)"""
    said = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, check=True, env={**os.environ, "OMP_DYNAMIC": "false"}).stdout
    assert said.split() == ["0", "1"]
