"""Variogram maps, connectivity curves, pyramids, thresholds and clusters of images and samples."""

from __future__ import annotations

import functools
import math
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor, wait
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _image_blocks, _lazy, _memory, _progress
from ._errors import ArgumentError, DataError, warn
from ._image_door import Connectivity, as_image, as_lags, as_neighbors, in_order, is_complete, is_flipped, lag_coords, like, readable, require_exact, require_few, require_numbers
from ._watch import in_c_order, watched

if TYPE_CHECKING:
    import xarray as xr

Floats = NDArray[np.float64]


def variogram_map(image: ArrayLike, max_lag: int | Sequence[int], *, method: Literal["pairs", "fft"] = "pairs",
                  threads: int | None = None, progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Semivariances of an image at all lags of a box.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. A Dask array may be larger than memory: sums and numbers of pairs are
        made block by block, each with as many nodes around it as the lags are long.
    max_lag : int or sequence of int
        The largest lag in cells, for all axes or along each, in the order of the axes; below the axis' number of nodes.
    method : {"pairs", "fft"}
        How the squares of the differences are summed: pair by pair, or by Fourier transforms of the centred image, which
        takes less time for many lags. Its gamma is right to 1e-12 times the variance, times the number of nodes over
        that of pairs.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of transforms, and of a Dask array,
        only the end is shown.

    Returns
    -------
    Dataset
        `gamma`, half the mean square of the differences of nodes a lag apart, NaN without pairs; and `pairs`, their
        number. Of dimensions `lag_z`, `lag_y`, `lag_x` (in two dimensions without `lag_z`), from -max_lag to max_lag.

    Notes
    -----
    By transforms: Marcotte, Fast variogram computation with FFT, Computers & Geosciences, 1996. Where nothing is missing, one
    there and one back suffice, since pairs and sums of squares need none; else it is three there and two back. Work memory
    is 8 bytes a node of the image with the lags added to its last axis, or 24, and those of eight columns for each thread, a few times; by
    pairs it is 8 bytes a node, or 16 for what is not of float64 in C or Fortran order, and so copied.

    Examples
    --------
    >>> import kestrum as ks
    >>> found = ks.variogram_map([[0, 1, 0, 1], [0, 1, 0, 1]], max_lag=1)
    >>> found.gamma.sel(lag_y=0).to_numpy()
    array([0.5, 0. , 0.5])
    >>> found.pairs.sel(lag_y=1).to_numpy()
    array([3, 4, 3])
    """
    import xarray as xr

    values = _image_blocks.image("image", image)
    lags = as_lags(max_lag, values.shape)
    by_transforms = _door.choice("method", method, ("pairs", "fft")) == "fft"
    with _progress.shown(progress, "variogram map") as report:
        squares, pairs = _image_blocks.pair_tables(values, lags, functools.partial(_squares, by_transforms=by_transforms), threads, report, by_transforms)
    if not pairs.any():
        warn("image is NaN everywhere: there is no pair of nodes, and gamma is NaN.")
    with np.errstate(invalid="ignore", divide="ignore"):
        gamma = np.where(pairs > 0, 0.5 / pairs * np.maximum(squares, 0.0), np.nan)
    coords = lag_coords(lags)
    dims = tuple(coords)
    return xr.Dataset({"gamma": (dims, gamma, {"long_name": "semivariance"}), "pairs": (dims, pairs, {"long_name": "number of pairs"})}, coords)


def _squares(values: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, by_transforms: bool) -> tuple[Floats, NDArray[np.int64]]:
    """The sums of the squared differences of each lag, and the numbers of pairs."""
    require_exact("image", values)
    complete = is_complete("image", values)
    known = None if complete or not np.isnan(values).any() else ~np.isnan(values)
    if by_transforms:
        return watched(values.size, _by_transforms, values, known, lags, threads)
    squares, pairs = _core.two_point_sums(in_c_order(values, np.float64), "variogram", (0, *lags)[-3:], threads, report)
    shape = [2 * lag + 1 for lag in lags]
    return squares.reshape(shape), pairs.reshape(shape)


def _by_transforms(image: NDArray[Any], known: NDArray[np.bool_] | None, lags: tuple[int, ...],
                   threads: int) -> tuple[Floats, NDArray[np.int64]]:
    """Those of _squares. (a - b)^2 = a^2 + b^2 - 2 a b, of which the last is a correlation, and the first two are one with a
    mask, or sums over boxes where nothing is missing."""
    transforms = Transforms(image.shape, lags, threads)
    unit, centred = _centred(image, known)
    if known is None:
        sums, = transforms.correlations([centred], lambda spectrum: [product_of(spectrum)])
        sums *= -2.0
        boxes = box_sums(image.shape, centred, lags, 2)
        sums += (boxes + np.flip(boxes))[lags[0]:]
        pairs = complete_pairs(image.shape, lags)
    else:
        nodes = known

        def powers(*spectra: NDArray[np.complex128]) -> list[Floats]:
            of_values, of_squares, of_mask = spectra
            return [product_of(of_squares, of_mask) - product_of(of_values), product_of(of_mask)]

        sums, counts = transforms.correlations([centred, lambda rows: centred(rows) ** 2, lambda rows: nodes[rows].astype(np.float64)], powers)
        sums *= 2.0
        pairs = np.rint(counts).astype(np.int64)
    sums[(0, *lags[1:])] = 0.0
    with np.errstate(over="ignore"):
        for _ in range(2):  # one by one: their product may overflow
            sums *= unit
    return symmetric(sums), symmetric(pairs)


def symmetric(half: NDArray[Any], sign: int = 1) -> NDArray[Any]:
    """The table of all lags, of that without the negative ones along the first axis."""
    return np.concatenate((sign * np.flip(half[1:]), half))


def complete_pairs(shape: tuple[int, ...], lags: tuple[int, ...]) -> NDArray[np.int64]:
    """The numbers of pairs where nothing is missing, at lags that are not negative along the first axis."""
    pairs: Any = 1
    for axis, (lag, n) in enumerate(zip(lags, shape)):
        pairs = np.multiply.outer(pairs, n - np.abs(np.arange(-lag if axis else 0, lag + 1)))
    return np.asarray(pairs)


def _centred(image: NDArray[Any], known: NDArray[np.bool_] | None) -> tuple[float, Callable[[slice], Floats]]:
    """A unit in which the image is of order 1, if squares could overflow or vanish; and what gives rows of the image less its
    mean, 0 where missing, in that unit."""
    given = image if known is None else image[known]
    spread = float(given.max()) / 2 - float(given.min()) / 2 if given.size else 0.0
    if spread == 0.0:
        return 1.0, lambda rows: np.zeros(image[rows].shape)  # the mean might be rounded, or overflow
    unit = unit_of(spread)
    return unit, rows_of(image, known, unit, given.mean(dtype=np.float64) if unit == 1.0 else np.divide(given, unit, dtype=np.float64).mean())


def unit_of(spread: float) -> float:
    """A power of two near the spread if squares of such numbers could overflow or vanish; else 1."""
    return 1.0 if spread == 0.0 or 1e-100 < spread < 1e100 else math.ldexp(1.0, math.frexp(spread)[1] - 1)


def rows_of(image: NDArray[Any], known: NDArray[np.bool_] | None, unit: float, mean: float) -> Callable[[slice], Floats]:
    """What gives rows of the image in a unit, less a mean in it, 0 where missing."""
    def rows(some: slice) -> Floats:
        values: Floats
        if unit == 1.0:
            values = np.subtract(image[some], mean, dtype=np.float64, order="C")
        else:
            values = np.divide(image[some], unit, dtype=np.float64, order="C")
            values -= mean
        if known is not None:
            values[~known[some]] = 0.0
        return values

    return rows


def product_of(a: NDArray[np.complex128], b: NDArray[np.complex128] | None = None) -> Floats:
    """The real part of conj(a) b, in the memory of a."""
    parts, others = (part.view(np.float64).reshape(*part.shape, 2) for part in (a, a if b is None else b))
    parts *= others
    parts[..., 0] += parts[..., 1]
    return parts[..., 0]


def _some_rows(shape: tuple[int, ...], nodes: int) -> Iterator[slice]:
    """Of the first axis, about so many nodes at a time."""
    step = max(1, nodes // math.prod(shape[1:]))
    return (slice(first, min(first + step, shape[0])) for first in range(0, shape[0], step))


def _share_out(work: Callable[[int], Iterator[None]], threads: int) -> None:
    """Runs work(thread), which yields after each piece of it, on as many threads. An exception on any of them, or raised in this one from
    another, ends all after the pieces in hand."""
    ended: list[bool] = []

    def run(thread: int) -> None:
        try:
            for _ in work(thread):
                if ended:
                    return
        except BaseException:
            ended.append(True)
            raise

    if threads == 1:
        run(0)
        return
    with ThreadPoolExecutor(threads) as pool:
        futures = [pool.submit(run, thread) for thread in range(threads)]
        try:
            while wait(futures, 0.05).not_done:
                pass
        finally:
            ended.append(True)
        for future in futures:
            future.result()


class Transforms:
    """Correlations at some lags, those along the first axis not negative."""

    def __init__(self, shape: tuple[int, ...], lags: tuple[int, ...], threads: int) -> None:
        from scipy.fft import next_fast_len

        self.shape, self.lags, self.threads = shape, lags, threads
        self.padded = [next_fast_len(n + lag, axis == len(shape) - 1) for axis, (n, lag) in enumerate(zip(shape, lags))]

    def correlations(self, images: list[Callable[[slice], Floats]], powers: Callable[..., list[Floats]], odd: int = 0) -> list[Floats]:
        """Of the powers that are made of the images' spectra: real ones, symmetric about 0, but for the last `odd` of them, which are imaginary
        and antisymmetric. Transforms of some rows, and then those of some columns there and back along the other axes, stay in the
        caches: fresh memory takes long. Threads share these parts out; several threads of one transform wait for each other too long.
        Axes are cut to their lags at once, and the first has real transforms back."""
        from scipy import fft

        lines = [np.empty((*self.shape[:-1], self.padded[-1] // 2 + 1), np.complex128) for _ in images]
        parts = list(_some_rows(self.shape, 2**15))
        ncolumn = lines[0].shape[-1]
        step = max(8, 2**15 // math.prod(self.padded[:-1]))
        blocks: list[list[Floats]] = [[]] * -(-ncolumn // step)

        def transform_rows(thread: int) -> Iterator[None]:
            for rows in parts[thread::self.threads]:
                for image, line in zip(images, lines):
                    line[rows] = fft.rfft(image(rows), self.padded[-1], overwrite_x=True)
                yield

        def transform_columns(thread: int) -> Iterator[None]:
            spaces = [np.empty((*self.padded[:-1], step), np.complex128) for _ in images]
            for block in range(thread, len(blocks), self.threads):
                columns = slice(block * step, min((block + 1) * step, ncolumn))
                spectra = [space[..., :columns.stop - columns.start] for space in spaces]
                for spectrum, line in zip(spectra, lines):
                    self._transform(line[..., columns], spectrum)
                blocks[block] = self._back(powers(*spectra), odd)
                yield

        for work in (transform_rows, transform_columns):
            _share_out(work, self.threads)
        size = math.prod(self.padded)
        return [fft.irfft(np.concatenate(result, -1), self.padded[-1], norm="forward", overwrite_x=True, workers=self.threads).take(self._places(-1), -1) / size
                for result in zip(*blocks)]

    def _transform(self, lines: NDArray[np.complex128], spectrum: NDArray[np.complex128]) -> None:
        """Transforms some columns along all axes but the last, into memory of the padded size."""
        from scipy import fft

        inside = tuple(map(slice, self.shape[:-1]))
        spectrum[inside] = lines
        for axis in reversed(range(len(inside))):
            # Beyond the image along the axes before there is nothing yet.
            part = spectrum[inside[:axis]]
            part[(slice(None),) * axis + (slice(self.shape[axis], None),)] = 0.0
            fft.fft(part, axis=axis, overwrite_x=True)

    def _back(self, powers: list[Floats], odd: int) -> list[Floats]:
        """Transforms some columns of powers back along all axes but the last, cut to the lags."""
        from scipy import fft

        results = [fft.rfft(power, axis=0, overwrite_x=True)[: self.lags[0] + 1].conj() for power in powers]
        for result in results[len(results) - odd:]:
            result *= 1j
        for axis in range(1, len(self.shape) - 1):
            results = [fft.ifft(result, axis=axis, norm="forward", overwrite_x=True).take(self._places(axis), axis) for result in results]
        return results

    def _places(self, axis: int) -> NDArray[np.intp]:
        return np.arange(-self.lags[axis], self.lags[axis] + 1)


def box_sums(shape: tuple[int, ...], rows: Callable[[slice], Floats], lags: tuple[int, ...], power: int) -> Floats:
    """The sums of a power of the values over the tails of the pairs of each lag: all but some nodes at one end of each axis."""
    def summed(part: Floats) -> Floats:
        return np.asarray(np.einsum(",".join(["i..."] * power) + "->...", *[part] * power))[None]

    # Of the same rows for any number of threads, so that the bits are the same.
    sums: Floats = sum(map(summed, map(rows, _some_rows(shape, 2**15))), np.zeros(()))
    total = sums
    ends = [rows(slice(lags[0])) ** power, np.flip(rows(slice(-lags[0], None)), 0) ** power] if lags[0] else [np.zeros((0, *total.shape[1:]))] * 2
    for axis, longest in enumerate(lags):
        if axis > 0:
            total, ends = sums.sum(axis, keepdims=True), [sums.take(places, axis) for places in (np.arange(longest), np.arange(-1, -longest - 1, -1))]
        low, high = (np.cumsum(end, axis) for end in ends)
        sums = np.concatenate((total - np.flip(low, axis), total, total - high), axis)
    return sums


def connectivity_curve(image: ArrayLike, thresholds: int | ArrayLike = 21, connectivity: Connectivity | None = None, *,
                       bodies: Literal["above", "below"] = "above", threads: int | None = None,
                       progress: bool | Callable[[float], object] = False) -> xr.DataArray:
    """The probability that two nodes are connected, by thresholds of an image.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is in no body. Arrays of bool, uint8, int32, float32 and float64 are read in
        place if they are contiguous. An ensemble gives a curve for each realization: an array of four axes, or a DataArray
        whose first dimension is "realization"; Dask arrays are computed a few realizations at a time.
    thresholds : int or array_like
        The thresholds, or how many, evenly from the least to the greatest value (of all realizations).
    connectivity : 4, 8, 6, 18 or 26, optional
        How many neighbours a node has: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    bodies : {"above", "below"}
        The set of each threshold: the values above it, or those at or below it.
    threads : int, optional
        By default all cores, which share the thresholds or, beyond 64 of these, the realizations. The result does not
        depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction of the realizations done, and what it raises ends the call.

    Returns
    -------
    DataArray
        For each threshold the probability that two nodes of the set, drawn one after the other, are in one body, the sum of
        the squared sizes over the squared sum; 1 for an empty set. Of dimension `threshold`, after that of realizations.

    Notes
    -----
    Hovadik and Larue, Static characterizations of reservoirs: refining the concepts of connectivity and continuity,
    Petroleum Geoscience, 2007. Up to 64 thresholds, the nodes of each set are joined anew, as bits; work memory is at most 7 bits a
    node and for each thread another 0.3 to 2.3. Beyond, one pass over the nodes makes the curve, however many thresholds it
    has; work memory is 3 to 15 bytes a node, for each thread if there are realizations.

    Examples
    --------
    >>> import kestrum as ks
    >>> curve = ks.connectivity_curve([[3, 1, 2], [3, 0, 2]], thresholds=[0, 1, 2])
    >>> curve.to_numpy()
    array([1. , 0.5, 1. ])
    """
    import xarray as xr

    values, dims, coords, _ = _by_threshold(image, thresholds, connectivity, bodies, threads, progress, _core.connectivity_curves)
    return xr.DataArray(values, coords, dims, "connectivity")


def body_curves(image: ArrayLike, thresholds: int | ArrayLike = 21, connectivity: Connectivity | None = None, *,
                bodies: Literal["above", "below"] = "above", threads: int | None = None,
                progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Number, largest size and largest extents of the bodies of an image, and their Euler number, by thresholds.

    Parameters
    ----------
    image : array_like
        As that of `connectivity_curve`.
    thresholds : int or array_like
        As those of `connectivity_curve`; at most 32,766.
    connectivity : 4, 8, 6, 18 or 26, optional
        How many neighbours a node has: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    bodies : {"above", "below"}
        The set of each threshold: the values above it, or those at or below it.
    threads : int, optional
        By default all cores, which share realizations and thresholds. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    Dataset
        Of dimension `threshold`, after that of realizations: `count`, the number of bodies; `size`, that of the largest in
        nodes; `extent_z`, `extent_y`, `extent_x`, the longest sides of a body's box in cells, which may be of others than
        the largest body (`extent_z` is 1 in two dimensions); all 0 without a body. And `euler_number`, but for 18
        neighbours.

    Notes
    -----
    Each set is labelled. Work memory is 2 bytes a node, and for each thread some 4 bytes a node and 28 bytes a body.

    Examples
    --------
    >>> import kestrum as ks
    >>> curves = ks.body_curves([[3, 1, 2], [3, 0, 2]], thresholds=[0, 1, 2])
    >>> print(curves.to_dataframe()[["count", "size", "extent_y", "extent_x"]])
               count  size  extent_y  extent_x
    threshold                                 
    0.0            1     5         2         3
    1.0            2     2         2         1
    2.0            1     2         2         1
    """
    import xarray as xr

    def curves(part: NDArray[Any], limits: Floats, neighbors: int, above: bool, nthreads: int, report: Any) -> NDArray[np.int64]:
        if limits.size > 32766:
            raise ArgumentError(f"thresholds has {limits.size:,} numbers, but may have at most 32,766.")
        # A value above a threshold is at or above the next number.
        with np.errstate(over="ignore"):
            cuts = np.nextafter(limits, np.inf)  # a value above a threshold is at or above the next number
        codes = _core.code_by_cuts(part, cuts, nthreads, None)
        return _core.measure_bodies(codes, limits.size, neighbors, above, nthreads, report)

    values, dims, coords, flipped = _by_threshold(image, thresholds, connectivity, bodies, threads, progress, curves)
    columns = [0, 1, 2, 3, 4] + ([5] if connectivity != 18 else [])
    if flipped:
        columns[2:5] = (4, 3, 2) if np.ndim(image) == 3 else (2, 4, 3)
    names = ("count", "size", "extent_z", "extent_y", "extent_x", "euler_number")
    return xr.Dataset({name: (dims, values[..., column]) for name, column in zip(names, columns)}, coords)


def _by_threshold(image: Any, thresholds: Any, connectivity: Any, bodies: Any, threads: Any, progress: Any,
                  curves: Callable[[NDArray[Any], Floats, int, bool, int, Any], NDArray[Any]]) -> tuple[NDArray[Any], tuple[Any, ...], dict[Any, Any], bool]:
    """What curves gives of images, along the first axis, and increasing thresholds: in the order of the thresholds, without the axis of a single image;
    its dimensions and their coordinates; and whether the axes of the image were reversed."""
    _door.choice("bodies", bodies, ("above", "below"))
    frame: Any = image if _door.is_xarray(image) else None
    data: Any = _door.held("image", image)
    if lazy := _lazy.is_lazy(data):
        _lazy.require_sizes("image", data)
    else:
        data = _door.array("image", data)
    if frame is not None and "realization" in frame.dims[1:]:
        raise DataError(f"image has the dimensions {frame.dims}, but realizations come first. Transpose it: image.transpose('realization', ...).")
    ensemble = data.ndim == 4 or (frame is not None and frame.dims[:1] == ("realization",))
    flipped = not ensemble and not lazy and is_flipped(data)
    if flipped:
        data = data.T
    images = data if ensemble else data[None]
    nthreads = _door.threads(threads, 4 * images.size)
    as_image("image", np.broadcast_to(np.zeros((), images.dtype), images.shape[1:]))
    neighbors = as_neighbors(connectivity, images.ndim - 1)
    if images.size == 0:
        raise DataError("image has no nodes.")

    # A few images at a time, if all are not there yet.
    step = nthreads if lazy else len(images)
    firsts = range(0, len(images), step)

    def read(first: int) -> NDArray[Any]:
        return in_c_order(readable("image", _door.array("image", images[first:first + step])))

    part: Any = read if lazy else functools.cache(read)

    if _door.array("thresholds", thresholds).ndim == 0:
        number = _door.whole("thresholds", thresholds, 1, 65535)
        ends = [_core.extremes(part(first), nthreads) for first in firsts]
        least, greatest = min(low for low, _ in ends), max(high for _, high in ends)
        if least > greatest:
            raise DataError("image has no values but NaN.")
        if not math.isfinite(greatest - least):
            raise DataError(f"image has values from {least:g} to {greatest:g}, between which there are no even thresholds. Give the thresholds themselves.")
        limits = np.linspace(least, greatest, number)
    else:
        limits = _door.finite("thresholds", _door.reals("thresholds", thresholds))
        if limits.ndim != 1 or not 1 <= limits.size <= 65535:
            raise ArgumentError(f"thresholds is of shape {limits.shape}, but must be a list of 1 to 65,535 numbers.")
    order = np.argsort(limits, kind="stable")
    above = bodies == "above"
    with _progress.shown(progress, "curves") as report:
        values = np.concatenate([curves(part(first), limits[order], neighbors, above, nthreads,
                                        _progress.part(report, first / len(images), min(first + step, len(images)) / len(images)))
                                 for first in firsts])
    values[:, order] = values.copy()
    coords: dict[Any, Any] = {"threshold": limits}
    if not ensemble:
        return values[0], ("threshold",), coords, flipped
    dim = "realization" if frame is None else frame.dims[0]
    if dim == "threshold":
        raise DataError("image has a dimension 'threshold', which the result has as well. Rename it: image.rename(threshold=...).")
    if frame is not None and dim in frame.coords:
        coords[dim] = frame.coords[dim]
    return values, (dim, "threshold"), coords, False


def pyramid(image: ArrayLike, levels: int = 1, *,
            threads: int | None = None, progress: bool | Callable[[float], object] = False) -> list[NDArray[np.float64]]:
    """Smaller and smaller images: the Gaussian pyramid.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. Arrays of bool, uint8, int32, float32 and float64 are read in place
        if they are contiguous in C or Fortran order, others are copied.
    levels : int
        How many images to make, each of the one before.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    list of ndarray of float64, in the order of the image, or of DataArray if the image is one
        Without the image itself. Along each axis of more than two nodes, means by the weights 1, 4, 6, 4, 1, of which
        nodes 0, 2, 4 and so on stay; outside the image its ends are repeated. NaN where less than 0.6 of the weight is
        on nodes that are not missing. An infinite value makes the means about it infinite.

    Notes
    -----
    Burt and Adelson, The Laplacian pyramid as a compact image code, 1983. Work memory is a few rows for each thread.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.pyramid([[0, 0, 0, 16, 0], [0, 0, 0, 16, 0]])[0]
    array([[0., 4., 4.],
           [0., 4., 4.]])
    """
    values = as_image("image", image)
    count = _door.whole("levels", levels, 1, 64)
    nthreads = _door.threads(threads, values.size)
    if values.size == 0:
        raise DataError("image has no nodes.")
    (reduced, flipped), results = in_order("image", values), []
    if _core.extremes(reduced, nthreads) == (-np.inf, np.inf):
        raise DataError("image has both inf and -inf, between which there is no mean. Set one of them to NaN.")
    with _progress.shown(progress, "pyramid") as report:
        for step in _progress.steps(report, count, 0.5 ** values.ndim):
            reduced = _core.reduce(reduced, nthreads, step)
            results.append(reduced.T if flipped else reduced)
    if not _door.is_xarray(image):
        return results
    given: Any = image
    frames: list[Any] = []
    for values in results:
        given = given.isel({dim: slice(None, None, 2) for dim, n in given.sizes.items() if n > 2})
        frames.append(like(given, values, "pyramid"))
    return frames


def expand(image: ArrayLike, shape: Sequence[int], *,
           threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.float64]:
    """The way back along a pyramid: an image of the shape of the level before.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. Arrays of bool, uint8, int32, float32 and float64 are read in place
        if they are contiguous in C or Fortran order, others are copied.
    shape : sequence of int
        Of the result: along each axis as many nodes as the image has, n, or 2 n - 1 or 2 n if n is 2 or more.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of float64, in the order of the image, or DataArray if the image is one
        The nodes of the image become nodes 0, 2, 4 and so on. All are means by the weights 1, 4, 6, 4, 1, those in between of
        two and the others of three along an axis; outside the image its ends are repeated. NaN where less than 0.6 of the weight is on
        nodes that are not missing.

    Notes
    -----
    Burt and Adelson, The Laplacian pyramid as a compact image code, 1983: the differences of an image and what is expanded of
    its next level are a level of the Laplacian pyramid. Work memory is a few rows for each thread, and a copy of the image if
    a side of the result is even.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.expand([[0, 8, 0], [0, 8, 0]], (2, 5))
    array([[1., 4., 6., 4., 1.],
           [1., 4., 6., 4., 1.]])
    """
    values = as_image("image", image)
    if _door.array("shape", shape).ndim != 1:
        _door.wrong_type("shape", shape, "whole numbers, one for each axis")
    sides = tuple(_door.whole("shape", side) for side in shape)
    fits = len(sides) == values.ndim and all(side == n or n > 1 and 2 * n - 1 <= side <= 2 * n for side, n in zip(sides, values.shape))
    if not fits:
        raise ArgumentError(f"shape is {_door.show(shape)}, but each side n of the image, which has {' x '.join(map(str, values.shape))} nodes, may only stay, or "
                            "become 2 n - 1 or 2 n if n is 2 or more. Expand step by step.")
    nthreads = _door.threads(threads, values.size)
    if values.size == 0:
        nothing: Floats = _finer(image, np.empty(sides))
        return nothing
    # An even side ends between two nodes, the second of which repeats the end.
    repeats = [int(side == 2 * n > n) for side, n in zip(sides, values.shape)]
    repeated = watched(values.size, _with_ends, values, repeats) if any(repeats) else values
    ordered, flipped = in_order("image", repeated)
    least, greatest = _core.extremes(ordered, nthreads)
    if least == -np.inf or greatest == np.inf:
        raise DataError("image has infinite values. Set them to NaN.")
    finer = [side != n for side, n in zip(sides, values.shape)]
    with _progress.shown(progress, "expansion") as report:
        made: Floats = _core.expand(ordered, finer[::-1] if flipped else finer, nthreads, report)
    result: Floats = _finer(image, (made.T if flipped else made)[tuple(map(slice, sides))])
    return result


def _finer(image: Any, values: Floats) -> Any:
    """Values as a DataArray if that is what was given, with its coordinates and those in between, where they are numbers."""
    if not _door.is_xarray(image):
        return values
    import xarray as xr

    coords: dict[Any, Any] = {}
    for dim, side in zip(image.dims, values.shape):
        places = np.asarray(image[dim]) if dim in image.coords else np.empty(0)
        if len(places) == side:
            coords[dim] = image[dim]
        elif places.dtype.kind in "iuf" and len(places) > 1:
            at = np.arange(side) / 2.0
            beyond = np.maximum(at - (len(places) - 1), 0.0)
            coords[dim] = np.interp(at, np.arange(len(places)), places) + beyond * (float(places[-1]) - float(places[-2]))
    return xr.DataArray(values, coords, image.dims, image.name)


def _with_ends(values: NDArray[Any], repeats: list[int]) -> NDArray[Any]:
    """The image with its last layer along some axes once more."""
    repeated = np.empty([n + more for n, more in zip(values.shape, repeats)], values.dtype, "F" if is_flipped(values) else "C")
    repeated[tuple(map(slice, values.shape))] = values
    for axis, more in enumerate(repeats):
        if more:
            layers = np.swapaxes(repeated, 0, axis)
            layers[-1] = layers[-2]
    return repeated


def otsu(values: ArrayLike, classes: int = 2, *,
         threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.float64]:
    """Thresholds that cut values into classes as different as can be.

    Parameters
    ----------
    values : array_like
        Numbers, of any shape; NaN is left out. Arrays of bool, uint8, int32, float32 and float64 are read in place if
        they are contiguous.
    classes : int
        At least 2, and at most as many as there are distinct values.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of float64
        `classes` - 1 cuts, increasing; a value at a cut belongs above it (``np.digitize(values, cuts)`` gives classes from
        0). The variance between the classes is within 0.1 % of the greatest.

    Notes
    -----
    Otsu, A threshold selection method from gray-level histograms, 1979, by dynamic programming: on a histogram of up to
    65,536 bins where a bound on its error allows that, else, and up to 4,096 numbers, on all distinct values. Work memory is 2 MB, or 40 bytes a value,
    and a quarter of a megabyte or 4 bytes a distinct value for each class beyond two.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.otsu([1, 1, 2, 8, 9, 30], classes=3)
    array([ 8., 30.])
    """
    given = _door.array("values", values)
    require_numbers("values", given)
    require_few("values", given)
    count = _door.whole("classes", classes, 2, 2**16)
    _memory.require(4 * (count - 2) * min(given.size, 2**16), f"the search for {count:,} classes", "Ask for fewer classes.")
    with _progress.shown(progress, "thresholds") as report:
        cuts, distinct, infinite = _core.otsu(readable("values", given).ravel("K"), count, _door.threads(threads, given.size * count), report)
    if infinite:
        raise DataError("values has infinite numbers, but they must be finite or NaN. Leave them out.")
    if distinct < count:
        raise DataError(f"values has {distinct:,} distinct number{'' if distinct == 1 else 's'}, too few for {count:,} classes. Ask for fewer classes.")
    return cuts


def kmeans(samples: ArrayLike, clusters: int | ArrayLike, *, max_iterations: int = 300, tolerance: float = 1e-4, restarts: int = 1,
           seed: int = 1, threads: int | None = None,
           progress: bool | Callable[[float], object] = False) -> tuple[NDArray[np.float64], NDArray[np.int32], float]:
    """Cluster samples around centres by Lloyd's algorithm.

    Parameters
    ----------
    samples : array_like
        Finite numbers: a row for each sample, a column for each feature. One axis: samples of one feature.
    clusters : int or array_like
        How many, begun at samples drawn by k-means++; or the first centres, a row for each, whose order is kept.
    max_iterations : int
        How often centres move at most.
    tolerance : float
        The iterations end when the sum of the squared moves of the centres is at most this times the mean of the
        features' variances, or when no sample changes its cluster.
    restarts : int
        How many times to begin with drawn centres; the result of the least inertia is kept.
    seed : int
        Of the draws, from 0 to 2^64 - 1.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done of the most iterations there can be, and what it raises ends the
        call.

    Returns
    -------
    centers : ndarray of float64
        A row for each cluster.
    labels : ndarray of int32
        From 0: the nearest of these centres, the first of several.
    inertia : float
        The sum of the squared distances of the samples from these centres.

    Notes
    -----
    Lloyd, Least squares quantization in PCM, 1982; Arthur and Vassilvitskii, k-means++: the advantages of careful
    seeding, 2007. A cluster that loses all its samples takes the one that lies farthest from its centre, of those not
    alone in their cluster. Work memory is 8 bytes a number of the samples, and 8 a sample.

    Examples
    --------
    >>> import kestrum as ks
    >>> centers, labels, inertia = ks.kmeans([[0, 0], [0, 1], [5, 5], [5, 6]], clusters=[[5, 5], [0, 0]])
    >>> centers
    array([[5. , 5.5],
           [0. , 0.5]])
    >>> labels, inertia
    (array([1, 1, 0, 0], dtype=int32), 1.0)
    """
    table = _samples("samples", samples)
    if table.shape[0] == 0 or table.shape[1] == 0:
        raise DataError(f"samples has {table.shape[0]:,} rows and {table.shape[1]:,} columns, but must have one of each.")
    if _door.array("clusters", clusters).ndim == 0:
        count, starts = _door.whole("clusters", clusters, 1), _door.whole("restarts", restarts, 1, 2**31 - 1)
        centers = np.zeros((min(count, len(table)), table.shape[1]))
    else:
        if restarts != 1:
            raise ArgumentError(f"restarts is {_door.show(restarts)}, but the first centres are given. Leave one of them out.")
        centers = _samples("clusters", clusters).copy()
        count, starts = len(centers), 0
        if count == 0 or centers.shape[1] != table.shape[1]:
            raise ArgumentError(f"clusters has {count:,} rows and {centers.shape[1]:,} columns, but must have one row at least, and {table.shape[1]:,} columns "
                                "like samples.")
    if count > len(table):
        raise ArgumentError(f"clusters is {count:,}, but samples has {len(table):,} rows only. Ask for fewer clusters.")
    # Each block of samples has sums of its own.
    _memory.require(8 * centers.size * min(max(len(table) // 4096, 1), 64), f"sums of {count:,} clusters", "Ask for fewer clusters.")
    iterations = _door.whole("max_iterations", max_iterations, 1, 2**31 - 1)
    limit = _door.number("tolerance", tolerance, at_least=0.0)
    number = _door.whole("seed", seed, 0, 2**64 - 1)
    with _progress.shown(progress, "clusters") as report:
        labels, inertia = _core.kmeans(in_c_order(table.T), centers, iterations, limit, starts, number, _door.threads(threads, table.size * count), report)
    return centers, labels, inertia


def _samples(name: str, given: ArrayLike) -> Floats:
    """A table of finite numbers, in C order."""
    require_exact(name, _door.array(name, given))
    values = _door.finite(name, _door.reals(name, given))
    if values.ndim == 1:
        values = values[:, None]
    if values.ndim != 2:
        raise DataError(f"{name} has {values.ndim} axes, but must have 2: samples and features.")
    require_few(name, values)
    # Squares of differences must neither overflow nor vanish.
    largest = max(values.max(), -values.min()) if values.size else 0.0
    if largest > 1e150 or 0.0 < largest < 1e-140:
        raise DataError(f"{name} has values up to {largest:g}, but the largest must lie between 1e-140 and 1e150. Change their unit.")
    return values
