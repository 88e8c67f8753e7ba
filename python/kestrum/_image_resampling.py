"""Images on other grids of the same box."""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence
from functools import partial
from typing import Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _progress
from ._errors import ArgumentError, DataError
from ._image_door import as_categories, as_image, in_order, per_axis
from ._watch import MANY, watched


def resample(image: ArrayLike, shape: int | Sequence[int], *, method: Literal["mean", "nearest", "mode"] = "mean",
             threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[Any]:
    """The same box in more or fewer cells.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. Arrays of bool, uint8, int32, float32 and float64 are read in place
        if they are contiguous in C or Fortran order, others are copied.
    shape : int or sequence of int
        The numbers of new cells, along all axes or along each, in the order of the axes.
    method : {"mean", "nearest", "mode"}
        The mean over each new cell, in which old cells count by the part of them that lies in it; the value at its centre,
        as of the type of the image; or the category that has the most of it, the smallest of several, of 255 at most.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray, or DataArray if the image is one
        Of float64 for means, else of the image's type. Of means and modes, missing cells are left out, and the new cell is
        missing (NaN, in modes of whole numbers 0) if less than half of it is known; a mean of infinite values of both signs
        is NaN. Regular coordinates are those of the new cells' centres, others are left out.

    Notes
    -----
    Means of any ratio of the sizes keep the mean of a complete image. Work memory is 16 bytes for each node of a row and
    thread; of modes, 3 bytes a node and 36 bytes a new one; of the nearest values none.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.resample([[1, 2, 3], [1, 2, 3]], (1, 2))
    array([[1.33333333, 2.66666667]])
    >>> ks.resample([[1, 2, 3], [1, 2, 3]], (1, 6), method="nearest")
    array([[1, 1, 2, 2, 3, 3]])
    """
    given = as_image("image", image)
    sizes = per_axis("shape", shape, given.ndim, partial(_door.whole, at_least=1))
    _door.choice("method", method, ("mean", "nearest", "mode"))
    nthreads = _door.threads(threads, given.size)
    if math.prod(sizes) >= 2**31:
        raise ArgumentError(f"shape asks for {math.prod(sizes):,} cells, but there may be at most {2**31 - 1:,}.")
    if given.size == 0:
        raise DataError("image has no nodes.")
    result: NDArray[Any]
    with _progress.shown(progress, "resampling") as report:
        if method == "nearest":
            result = watched(math.prod(sizes), _nearest, given, sizes)
        elif method == "mean":
            result = _means(given, sizes, nthreads, report)
        else:
            result = _modes(given, sizes, nthreads, report)
    framed: NDArray[Any] = _framed(image, result) if _door.is_xarray(image) else result
    return framed


def _nearest(given: NDArray[Any], sizes: list[int]) -> NDArray[Any]:
    first, *others = ((2 * np.arange(m) + 1) * n // (2 * m) for m, n in zip(sizes, given.shape))
    result = np.empty(sizes, given.dtype)
    step = max(1, MANY // math.prod(sizes[1:]))
    for begin in range(0, sizes[0], step):
        result[begin:begin + step] = given[np.ix_(first[begin:begin + step], *others)]
    return result


def _means(values: NDArray[Any], sizes: list[int], threads: int, report: _progress.Report) -> NDArray[np.float64]:
    ordered, flipped = in_order("image", values)
    means = _core.area_means(ordered, sizes[::-1] if flipped else sizes, threads, report)
    return means.T if flipped else means


def _modes(given: NDArray[Any], sizes: list[int], threads: int, report: _progress.Report) -> NDArray[Any]:
    codes, names = as_categories("image", given, None, threads, _progress.part(report, 0.0, 0.2))
    steps = _progress.steps(_progress.part(report, 0.2, 1.0), len(names))
    best = np.zeros(sizes)
    result = np.full(sizes, np.nan if given.dtype.kind == "f" else 0, names.dtype)
    known = np.zeros(sizes)
    for code, (name, step) in enumerate(zip(names, steps)):
        share = _means((codes == code).view(np.uint8), sizes, threads, step)
        more = share > best + 1e-12
        result[more] = name
        best[more] = share[more]
        known += share
    result[known < 0.5 - 1e-12] = np.nan if given.dtype.kind == "f" else 0
    return result


def _framed(image: Any, values: NDArray[Any]) -> Any:
    """A DataArray of the image's dimensions, with those coordinates that are regular."""
    import xarray as xr

    coords: dict[Any, Any] = {}
    for dim, m in zip(image.dims, values.shape):
        given = np.asarray(image[dim]) if dim in image.coords else np.empty(0)
        if given.dtype.kind not in "iuf" or given.size < 2:
            continue
        places = given.astype(np.float64)
        rounding = 4.0 * np.finfo(given.dtype if given.dtype.kind == "f" else np.float64).eps * np.abs(places).max()
        if places[1] == places[0] or not np.allclose(np.diff(places), places[1] - places[0], atol=rounding):
            continue
        step = (places[-1] - places[0]) / (places.size - 1)
        coords[dim] = places[0] - step / 2 + (np.arange(m) + 0.5) * (step * places.size / m)
    return xr.DataArray(values, coords, image.dims, image.name)
