"""Categories of images: from values by cuts, their proportions, and their order."""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence
from itertools import accumulate
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _memory, _progress
from ._errors import ArgumentError, DataError, warn
from ._image_door import as_categories, as_image, as_sides, in_order, is_flipped, like, require_exact, require_few, require_numbers
from ._watch import in_c_order, watched

if TYPE_CHECKING:
    import pandas as pd
    import xarray as xr


def categorize(image: ArrayLike, cuts: ArrayLike, *,
               threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.int16]:
    """Put the values of an image in classes.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers. Arrays of bool, uint8, int32, float32 and float64 are read in place if they are
        contiguous in C or Fortran order, others are copied.
    cuts : array_like
        Between the classes, increasing, as `otsu` or `proportion_cuts` gives them; a value at a cut belongs above it.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of int16, in the order of the image, or DataArray like the image
        From 0, the lowest class; -1 at NaN.

    Notes
    -----
    There is no work memory, but for types that are copied.

    Examples
    --------
    >>> import kestrum as ks, numpy as np
    >>> ks.categorize([[0.1, 0.5, np.nan], [0.9, 0.2, 0.5]], cuts=[0.2, 0.5])
    array([[ 0,  2, -1],
           [ 2,  1,  2]], dtype=int16)
    """
    values = as_image("image", image)
    limits = _door.finite("cuts", _door.reals("cuts", cuts))
    if limits.ndim != 1 or not 1 <= limits.size < 2**15:
        raise ArgumentError(f"cuts is of shape {limits.shape}, but must be a list of 1 to {2**15 - 1:,} numbers.")
    if not (np.diff(limits) > 0).all():
        raise ArgumentError(f"cuts is {_door.show(cuts)}, but must increase. Sort them, and take each once.")
    ordered, flipped = in_order("image", values)
    with _progress.shown(progress, "classes") as report:
        codes = _core.code_by_cuts(ordered, limits, _door.threads(threads, ordered.size), report)
    result: NDArray[np.int16] = like(image, codes.T if flipped else codes, "category")
    return result


def proportion_cuts(values: ArrayLike, proportions: ArrayLike, *,
                    threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.float64]:
    """Cuts that give classes the proportions asked for.

    Parameters
    ----------
    values : array_like
        Numbers, of any shape; NaN is left out. They are copied.
    proportions : array_like
        Of each class from the lowest, above 0. Their sum is 1.
    threads : int, optional
        The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of float64
        One less than there are classes, for `categorize`: of the values, those with a share below them nearest to the sum
        of the proportions, the smaller of two.

    Notes
    -----
    Work memory is two copies of the values, and a byte a value.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.proportion_cuts([1, 2, 2, 2, 3, 4, 5, 6, 7, 8], [0.2, 0.5, 0.3])
    array([2., 6.])
    """
    given = _door.array("values", values)
    require_numbers("values", given)
    require_few("values", given)
    require_exact("values", given)
    numbers = _door.finite("proportions", _door.reals("proportions", proportions))
    _door.threads(threads)
    shares: list[float] = numbers.tolist()
    if numbers.ndim != 1 or numbers.size < 2 or min(shares) <= 0 or abs(math.fsum(shares) - 1.0) > 1e-9:
        raise ArgumentError(f"proportions is {_door.show(proportions)}, but must be a list of numbers above 0, two at least, whose sum is 1.")
    with _progress.shown(progress, "cuts") as report:
        return _cuts(given.ravel("K"), shares, report)


def _cuts(values: NDArray[Any], shares: list[float], report: _progress.Report) -> NDArray[np.float64]:
    known = watched(values.size, _known, values)
    n = known.size
    if n == 0:
        raise DataError("values has no numbers but NaN.")
    below = [share * n for share in accumulate(shares[:-1])]
    places = [min(int(wanted), n - 1) for wanted in below]
    known = watched(n, lambda: np.partition(known, sorted(set(places))))
    cuts: list[float] = []
    for wanted, place in zip(below, places):
        if report is not None:
            report(0.5 + 0.5 * len(cuts) / len(below))
        cuts.append(watched(n, _nearest, known, known[place], wanted))
    if len(set(cuts)) < len(cuts):
        raise DataError(f"values has too few distinct numbers for {len(shares):,} classes of these proportions. Ask for fewer classes.")
    return np.array(cuts)


def _known(values: NDArray[Any]) -> NDArray[Any]:
    known: NDArray[Any] = values[values == values]
    return known


def _nearest(known: NDArray[Any], cut: Any, wanted: float) -> float:
    """A value, or the next distinct one, whichever has a number of values below it nearer to that wanted."""
    n = known.size
    under, above = np.count_nonzero(known < cut), known[known > cut]
    # The next one has all of those at the cut below it. Of two alike to rounding the first is taken.
    nearer = above.size > 0 and n - above.size - wanted < wanted - under - 1e-12 * n
    return float(above.min() if nearer else cut)


def category_proportions(image: ArrayLike, categories: ArrayLike | None = None, *,
                         threads: int | None = None, progress: bool | Callable[[float], object] = False) -> pd.DataFrame:
    """How many nodes each category has.

    Parameters
    ----------
    image : array_like
        As that of `transiogram`.
    categories : array_like, optional
        As those of `transiogram`.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    DataFrame
        Indexed by category: `nodes`, and `proportion` among the nodes that are not missing.

    Notes
    -----
    Work memory is 3 bytes a node.

    Examples
    --------
    >>> import kestrum as ks
    >>> print(ks.category_proportions([[1, 1, 3], [3, 3, 7]]))
              nodes  proportion
    category                   
    1             2    0.333333
    3             3    0.500000
    7             1    0.166667
    """
    import pandas as pd

    given = as_image("image", image)
    with _progress.shown(progress, "proportions") as report:
        codes, names = as_categories("image", given, categories, _door.threads(threads, given.size), _progress.part(report, 0.0, 0.5))
        nodes = np.zeros(len(names), np.int64)
        for code in range(len(names)):
            nodes[code] = watched(codes.size, _count, codes, code)
            if report is not None:
                report(0.5 + 0.5 * (code + 1) / len(names))
    if not nodes.any():
        warn("image has no node of these categories: their proportions are NaN.")
    with np.errstate(invalid="ignore"):
        return pd.DataFrame({"nodes": nodes, "proportion": nodes / nodes.sum()}, pd.Index(names, name="category"))


def _count(codes: NDArray[np.int16], code: int) -> int:
    return np.count_nonzero(codes == code)


def proportion_map(image: ArrayLike, size: int | Sequence[int], categories: ArrayLike | None = None, *,
                   threads: int | None = None, progress: bool | Callable[[float], object] = False) -> xr.DataArray:
    """The proportion of each category in the box about each node.

    Parameters
    ----------
    image : array_like
        As that of `transiogram`.
    size : int or sequence of int
        The sides of the box in nodes, for all axes or for each, in their order. They are odd.
    categories : array_like, optional
        As those of `transiogram`.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    DataArray
        Of dimensions `category`, and those of the image, or `z`, `y`, `x`: proportions among the nodes that are not
        missing, in the order of the image. NaN where the box leaves the image, or where less than 80 % of it is known.

    Notes
    -----
    The `box_mean` of each category's indicator. Work memory is 5 bytes a node, 12 if some are missing.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.proportion_map([[1, 1, 2], [2, 2, 2], [1, 1, 2]], 3).to_numpy()[:, 1, 1].round(3)
    array([0.444, 0.556])
    """
    import xarray as xr

    given = as_image("image", image)
    sides = as_sides(size, given.shape)
    nthreads = _door.threads(threads, given.size)
    with _progress.shown(progress, "proportions") as report:
        return _proportions(image, given, sides, categories, nthreads, report)


def _proportions(image: Any, given: NDArray[Any], sides: list[int], categories: Any, nthreads: int, report: _progress.Report) -> xr.DataArray:
    import xarray as xr

    if _door.is_xarray(image) and "category" in image.dims:
        raise DataError("image has a dimension 'category', which the result has as well. Rename it: image.rename(category=...).")
    codes, names = as_categories("image", given, categories, nthreads, _progress.part(report, 0.0, 0.1))
    _memory.require(8 * len(names) * given.size, f"proportions of {len(names):,} categories", "Take a part of the image.")
    flipped = is_flipped(codes)
    nodes = codes.T if flipped else codes
    missing = watched(nodes.size, lambda: nodes < 0)
    complete = not missing.any()
    shares = np.empty((len(names), *nodes.shape))
    for code, (share, step) in enumerate(zip(shares, _progress.steps(_progress.part(report, 0.1, 1.0), len(names)))):
        indicator = watched(nodes.size, _indicator, nodes, code, None if complete else missing)
        _core.box_mean(indicator, [*(sides if flipped else sides[::-1]), 1][:3], share, nthreads, step)
    if flipped:
        shares = shares.transpose(0, *range(codes.ndim, 0, -1))
    dims = image.dims if _door.is_xarray(image) else ("z", "y", "x")[-given.ndim:]
    coords = dict(image.coords) if _door.is_xarray(image) else {}
    return xr.DataArray(shares, {**coords, "category": names}, ("category", *dims), "proportion")


def _indicator(nodes: NDArray[np.int16], code: int, missing: NDArray[np.bool_] | None) -> NDArray[Any]:
    own: NDArray[np.bool_] = nodes == code
    return own.view(np.uint8) if missing is None else np.where(missing, np.float32(np.nan), own)


def category_order(image: ArrayLike, categories: ArrayLike | None = None, *, axes: Sequence[int] | None = None,
                   threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[Any]:
    """Put categories in an order in which those often next to each other are near.

    Parameters
    ----------
    image : array_like
        As that of `transiogram`.
    categories : array_like, optional
        As those of `transiogram`.
    axes : sequence of int, optional
        Along which neighbours count. By default all axes of more than one node.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray
        The categories in order: a chain that starts with the pair most often next to each other and grows, at either end,
        by the category most often next to that end.

    Notes
    -----
    Transitions are counted as by `transiogram`, in the same work memory.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.category_order([[5, 5, 1, 1, 9, 9], [5, 1, 1, 9, 9, 9]])
    array([9, 1, 5])
    """
    given = as_image("image", image)
    if axes is None:
        along = [axis for axis, n in enumerate(given.shape) if n > 1]
    else:
        if _door.array("axes", axes).ndim != 1:
            _door.wrong_type("axes", axes, "whole numbers: axes of the image")
        along = sorted({axis % given.ndim for axis in (_door.whole("axes", axis, -given.ndim, given.ndim - 1) for axis in axes)})
        if not along or any(given.shape[axis] < 2 for axis in along):
            raise ArgumentError(f"axes is {_door.show(axes)}, but must be axes of more than one node.")
    nthreads = _door.threads(threads, given.size)
    with _progress.shown(progress, "order") as report:
        codes, names = as_categories("image", given, categories, nthreads, _progress.part(report, 0.0, 0.3))
        flipped = is_flipped(codes)
        codes = in_c_order(codes.T if flipped else codes)
        transitions = np.zeros((len(names), len(names)), np.int64)
        for axis, step in zip(along, _progress.steps(_progress.part(report, 0.3, 1.0), len(along))):
            place = given.ndim - 1 - axis if flipped else axis
            lags = [0] * (3 - given.ndim) + [int(place == other) for other in range(given.ndim)]
            transitions += _core.category_pairs(codes, len(names), lags, nthreads, step).reshape(*transitions.shape, 3)[..., 2]
    order: NDArray[Any] = names[_core.chain_categories(transitions)]
    return order
