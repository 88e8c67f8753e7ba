"""Two-point statistics of images: covariances, indicators, transitions between categories, connectivity by lag."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from functools import partial
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _image_blocks, _memory, _progress
from ._errors import ArgumentError, warn
from ._image_categories import categorize
from ._image_door import Connectivity, as_lags, as_neighbors, category_codes, distinct_values, in_order, is_complete, lag_coords, listed_categories
from ._image_statistics import Transforms, box_sums, complete_pairs, product_of, rows_of, symmetric, unit_of
from ._images import label
from ._watch import watched

if TYPE_CHECKING:
    import xarray as xr


def covariance_map(image: ArrayLike, max_lag: int | Sequence[int], *, statistic: Literal["covariance", "noncentered", "correlogram"] = "covariance",
                   method: Literal["pairs", "fft"] = "pairs", threads: int | None = None,
                   progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Covariances or correlations of an image at all lags of a box.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. A Dask array may be larger than memory, as that of `variogram_map`; it is
        read twice, and sums are those of the whole to rounding.
    max_lag : int or sequence of int
        The largest lag in cells, for all axes or along each, in the order of the axes; below the axis' number of nodes.
        With 0 along an axis there is no lag along it.
    statistic : {"covariance", "noncentered", "correlogram"}
        The covariance of tails and heads about the means of those of each lag; the mean of their products; or the
        covariance over the product of the standard deviations of tails and heads.
    method : {"pairs", "fft"}
        How products are summed: pair by pair, or by Fourier transforms, which takes less time for many lags. Their covariances are
        right to 1e-12 times the variance (without centring, the mean square), times the number of nodes over that of pairs.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of transforms, only the end is shown.

    Returns
    -------
    Dataset
        `covariance` or `correlogram`, NaN without pairs, a correlogram also where tails or heads are all alike, to
        rounding; and `pairs`, their number. Of dimensions `lag_z`, `lag_y`, `lag_x` (in two dimensions without `lag_z`), from
        -max_lag to max_lag.

    Notes
    -----
    Goovaerts, Geostatistics for Natural Resources Evaluation, 1997, chapter 2. Pairs are summed one by one, from two copies
    of the image, 16 bytes a node. By transforms, work memory is that of `variogram_map`; where nodes are missing, its 24 bytes are 16
    but for a correlogram.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.covariance_map([[0, 1, 0, 1], [0, 1, 0, 1]], max_lag=(0, 1)).covariance.to_numpy()[0].round(3)
    array([-0.222,  0.25 , -0.222])
    """
    import xarray as xr

    values = _image_blocks.image("image", image)
    lags = as_lags(max_lag, values.shape)
    _door.choice("statistic", statistic, ("covariance", "noncentered", "correlogram"))
    by_transforms = _door.choice("method", method, ("pairs", "fft")) == "fft"
    middle, unit = _frame(_image_blocks.each(values, _extent, threads), statistic != "noncentered")
    products_of = partial(_by_transforms if by_transforms else _by_pairs, statistic=statistic, middle=middle, unit=unit)
    with _progress.shown(progress, "covariance map") as report:
        sums, pairs = _image_blocks.pair_tables(values, lags, products_of, threads, report, by_transforms)
    n = np.where(pairs == 0, np.nan, pairs)
    with np.errstate(invalid="ignore", divide="ignore", over="ignore"):
        found = sums[0]
        if statistic != "noncentered":
            found = found - sums[1] / n * sums[2]
        if statistic == "correlogram":
            spreads = [squares - some / n * some for some, squares in zip(sums[1:3], sums[3:])]
            # Transforms spread the rounding of the whole over all lags.
            noise = 1e-13 * sums[3][lags] if by_transforms else 0.0
            alike = [spread <= np.finfo(np.float64).eps * n * squares + noise for spread, squares in zip(spreads, sums[3:])]
            found = np.where(alike[0] | alike[1], np.nan, found / np.sqrt(spreads[0] * spreads[1]))
        else:
            found = found / n * unit * unit
    if not pairs.any():
        warn("image is NaN everywhere: there is no pair of nodes, and all values are NaN.")
    coords = lag_coords(lags)
    name = "correlogram" if statistic == "correlogram" else "covariance"
    return xr.Dataset({name: (tuple(coords), found), "pairs": (tuple(coords), pairs, {"long_name": "number of pairs"})}, coords)


def _extent(values: NDArray[Any], threads: int) -> tuple[int, float, float, float]:
    """How many numbers there are, the least and the greatest, and their sum."""
    numbers, _ = in_order("image", values)
    low, high = _core.extremes(numbers, threads)
    with np.errstate(over="ignore", invalid="ignore"):
        total = float(numbers.sum(dtype=np.float64))
        if np.isfinite(total):
            return numbers.size, low, high, total
        is_complete("image", numbers)  # refuses infinite ones
        return numbers.size - int(np.isnan(numbers).sum()), low, high, float(np.nansum(numbers, dtype=np.float64))


def _frame(parts: list[tuple[int, float, float, float]], centred: bool) -> tuple[float, float]:
    """The mean, or 0: sums of products of values far from 0 would lose their digits. And a unit in which such products are of order 1;
    the mean is in it."""
    counts, least, greatest, sums = zip(*parts)
    low, high = min(least), max(greatest)
    if low > high:
        return 0.0, 1.0
    mean = sum(sums) / sum(counts)
    middle = 0.0 if not centred else mean if low < high and np.isfinite(mean) else low / 2 + high / 2
    unit = unit_of(max(abs(low / 2 - middle / 2), abs(high / 2 - middle / 2)))
    return middle / unit, unit


def _by_pairs(values: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, statistic: str, middle: float,
              unit: float) -> tuple[NDArray[np.float64], NDArray[np.int64]]:
    """Sums of products, of tails, of heads, and of their squares, and the numbers of pairs, by lag."""
    doubles = watched(values.size, rows_of(values, None, unit, middle), slice(None))
    sums, pairs = _core.two_point_sums(doubles, statistic, (0, *lags)[-3:], threads, report)
    shape = [2 * lag + 1 for lag in lags]
    return sums.reshape(len(sums), *shape), pairs.reshape(shape)


def _by_transforms(values: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, statistic: str, middle: float,
                   unit: float) -> tuple[NDArray[np.float64], NDArray[np.int64]]:
    """Those of _by_pairs. Tails are correlated with the mask, or summed over boxes where nothing is missing; heads are the tails of the opposite lag."""
    powers = ("noncentered", "covariance", "correlogram").index(statistic)
    return watched(values.size, _correlated, values, lags, threads, powers, middle, unit)


def _correlated(values: NDArray[Any], lags: tuple[int, ...], threads: int, powers: int, middle: float,
                unit: float) -> tuple[NDArray[np.float64], NDArray[np.int64]]:
    """The sums of products, and of so many powers of tails and heads."""
    known = ~np.isnan(values)
    transforms = Transforms(values.shape, lags, threads)
    if known.all():
        rows = rows_of(values, None, unit, middle)
        products, = transforms.correlations([rows], lambda spectrum: [product_of(spectrum)])
        counts: NDArray[Any] = complete_pairs(values.shape, lags)
        tails = [box_sums(values.shape, rows, lags, power + 1) for power in range(powers)]
    else:
        rows = rows_of(values, known, unit, middle)

        def spectra_powers(mask: NDArray[np.complex128], *spectra: NDArray[np.complex128]) -> list[NDArray[np.float64]]:
            crossed = [spectrum.conj() * mask for spectrum in spectra[:powers]]
            return [product_of(spectra[0]), product_of(mask), *(some.real for some in crossed), *(some.imag for some in crossed)]

        images = [lambda some: known[some].astype(np.float64), rows, lambda some: rows(some) ** 2]
        products, counts, *halves = transforms.correlations(images[:max(2, powers + 1)], spectra_powers, powers)
        tails = [symmetric(even) + symmetric(odd, -1) for even, odd in zip(halves[:powers], halves[powers:])]
    sums = [symmetric(products), *(end for table in tails for end in (table, np.flip(table)))]
    return np.stack(sums), symmetric(np.rint(counts).astype(np.int64))


def transiogram(image: ArrayLike, max_lag: int | Sequence[int], categories: ArrayLike | None = None, *, method: Literal["pairs", "fft"] = "pairs",
                threads: int | None = None, progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Probabilities of the transitions between categories, at all lags of a box.

    Parameters
    ----------
    image : array_like
        Two or three axes, of categories: numbers, at most 255 distinct ones. NaN is missing. Arrays of bool, uint8,
        int32, float32 and float64 are read in place if they are contiguous in C or Fortran order, others are copied. A Dask
        array may be larger than memory, as that of `variogram_map`; it is read twice without `categories`.
    max_lag : int or sequence of int
        The largest lag in cells, for all axes or along each, in the order of the axes; below the axis' number of nodes.
        With 0 along an axis there is no lag along it.
    categories : array_like, optional
        Those to count, in their order in the result; other values are missing. By default all, increasing.
    method : {"pairs", "fft"}
        How pairs are counted: one by one, or by Fourier transforms of the indicators, which takes less time for few categories and
        many lags (four categories of 500 x 500 nodes: from lags of 25 on). The counts are the same.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of transforms, only the end is shown.

    Returns
    -------
    Dataset
        `probability`, of dimensions `from`, `to`, and `lag_z`, `lag_y`, `lag_x` (in two dimensions without `lag_z`): of the
        pairs whose tail is in the category `from`, the share whose head, a lag away, is in `to`; NaN without pairs. And
        `pairs`, the number of these, without `to`. Pairs with a missing end do not count.

    Notes
    -----
    Li, Transiograms for characterizing spatial variability of soil classes, 2007. Up to 11 categories are sets of bits, of which
    64 pairs are counted at once; pairs of more are counted one by one. Work memory is 2 bytes a node, and for up to 11 categories an
    eighth byte for each. By transforms, it is 2 bytes a node, and for each category 8 a node of the image with the lags added to its last axis,
    and those of eight columns of each couple for each thread.

    Examples
    --------
    >>> import kestrum as ks
    >>> found = ks.transiogram([[1, 1, 2, 2, 2, 1]], max_lag=(0, 1))
    >>> found.probability.sel(lag_y=0, lag_x=1).to_numpy().round(3)
    array([[0.5  , 0.5  ],
           [0.333, 0.667]])
    """
    import xarray as xr

    values = _image_blocks.image("image", image)
    lags = as_lags(max_lag, values.shape)
    by_transforms = _door.choice("method", method, ("pairs", "fft")) == "fft"
    _door.threads(threads)
    numbers, names = _categories(values, categories, threads)
    coords = lag_coords(lags)
    n = len(names)
    _memory.require(24 * n * n * int(np.prod([len(lag) for lag in coords.values()])), f"the transitions between {n:,} categories", "Ask for fewer lags.")
    with _progress.shown(progress, "transiogram") as report:
        pairs, = _image_blocks.pair_tables(values, lags, partial(_transitions, numbers=numbers, by_transforms=by_transforms), threads, report,
                                           by_transforms)
    tails = pairs.sum(1)
    if not tails.any():
        warn("image has no pair of nodes of these categories: all probabilities are NaN.")
    return xr.Dataset({"probability": (("from", "to", *coords), _share(pairs, tails[:, None]), {"long_name": "probability of transition"}),
                       "pairs": (("from", *coords), tails, {"long_name": "number of pairs"})}, {"from": names, "to": names, **coords})


def indicator_variogram_map(image: ArrayLike, max_lag: int | Sequence[int], *, categories: ArrayLike | None = None,
                            thresholds: ArrayLike | None = None, method: Literal["pairs", "fft"] = "pairs", threads: int | None = None,
                            progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Semivariances of the indicators of categories or thresholds, at all lags of a box.

    Parameters
    ----------
    image : array_like
        As that of `transiogram`; with thresholds any numbers.
    max_lag : int or sequence of int
        As that of `transiogram`.
    categories : array_like, optional
        As those of `transiogram`: the indicator of a category is 1 at its nodes.
    thresholds : array_like, optional
        Instead of categories, at most 254 distinct ones: the indicator of a threshold is 1 where a value is at or above it.
    method : {"pairs", "fft"}
        As that of `transiogram`.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of transforms, only the end is shown.

    Returns
    -------
    Dataset
        `gamma`, half the share of the pairs of which one end has the indicator and the other has not, NaN without pairs:
        of dimensions `category` or `threshold`, and `lag_z`, `lag_y`, `lag_x` (in two dimensions without `lag_z`). And
        `pairs`, the number of pairs without a missing end, by lag.

    Notes
    -----
    Categories and sets of thresholds are bits, of which 64 pairs are counted at once. Work memory is 2 bytes a node, and an eighth byte
    for each; by transforms, as that of `transiogram` with one category more.

    Examples
    --------
    >>> import kestrum as ks
    >>> found = ks.indicator_variogram_map([[1, 1, 2, 3, 3, 1]], max_lag=(0, 1))
    >>> found.gamma.sel(lag_y=0, lag_x=1).to_numpy()
    array([0.2, 0.2, 0.2])
    """
    import xarray as xr

    values = _image_blocks.image("image", image)
    lags = as_lags(max_lag, values.shape)
    by_transforms = _door.choice("method", method, ("pairs", "fft")) == "fft"
    _door.threads(threads)
    if thresholds is None:
        numbers, names = _categories(values, categories, threads)
        order, dim = np.arange(len(names)), "category"
    else:
        if categories is not None:
            raise ArgumentError("categories and thresholds are both given. Leave one of them out.")
        names = _door.finite("thresholds", _door.reals("thresholds", thresholds))
        numbers, order = np.unique(names, return_inverse=True)
        if names.ndim != 1 or not 1 <= numbers.size <= 254:
            raise ArgumentError(f"thresholds is of shape {names.shape}, but must be a list of 1 to 254 numbers.")
        dim = "threshold"
    with _progress.shown(progress, "variogram map") as report:
        changes, pairs = _image_blocks.pair_tables(values, lags, partial(_changes, numbers=numbers, nested=thresholds is not None, by_transforms=by_transforms),
                                                   threads, report, by_transforms)
    coords = lag_coords(lags)
    return xr.Dataset({"gamma": ((dim, *coords), _share(changes, 2 * pairs)[order], {"long_name": "semivariance"}),
                       "pairs": (tuple(coords), pairs, {"long_name": "number of pairs"})}, {dim: names, **coords})


def _categories(values: Any, categories: Any, threads: Any) -> tuple[NDArray[np.float64], NDArray[Any]]:
    if categories is not None:
        return listed_categories(categories)
    return distinct_values("image", _image_blocks.each(values, _distinct, threads), values.dtype)


def _distinct(values: NDArray[Any], threads: int) -> NDArray[np.float64] | None:
    return _core.find_categories(in_order("image", values)[0], threads, None)


def _transitions(values: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, numbers: NDArray[np.float64],
                 by_transforms: bool) -> tuple[NDArray[np.int64]]:
    codes = category_codes("image", values, numbers, threads)
    if by_transforms:
        return watched(codes.size, _transitions_by_transforms, codes, len(numbers), lags, threads),
    return _by_lag(_core.category_pairs, codes, lags, threads, report, len(numbers)),


def _transitions_by_transforms(codes: NDArray[np.int16], n: int, lags: tuple[int, ...], threads: int) -> NDArray[np.int64]:
    """The pairs of two categories are the correlation of their indicators: those of the opposite lags are the pairs of the two exchanged."""
    couples = [(a, b) for a in range(n) for b in range(a, n)]

    def powers(*spectra: NDArray[np.complex128]) -> list[NDArray[np.float64]]:
        products = [spectra[a].conj() * spectra[b] for a, b in couples]
        return [product.real for product in products] + [product.imag for (a, b), product in zip(couples, products) if a < b]

    found = Transforms(codes.shape, lags, threads).correlations([partial(_indicator, codes, k) for k in range(n)], powers, n * (n - 1) // 2)
    pairs = np.empty((n, n, *(2 * lag + 1 for lag in lags)), np.int64)
    odds = iter(found[len(couples):])
    for (a, b), even in zip(couples, found):
        pairs[a, b] = np.rint(symmetric(even) + (symmetric(next(odds), -1) if a < b else 0.0))
        pairs[b, a] = np.flip(pairs[a, b])
    return pairs


def _indicator(codes: NDArray[np.int16], code: int, rows: slice) -> NDArray[np.float64]:
    return np.asarray(codes[rows] == code, np.float64)


def _changes(values: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, numbers: NDArray[np.float64],
             nested: bool, by_transforms: bool) -> tuple[NDArray[np.int64], ...]:
    codes = categorize(values, numbers, threads=threads) if nested else category_codes("image", values, numbers, threads)
    if by_transforms:
        return watched(codes.size, _changes_by_transforms, codes, len(numbers), nested, lags, threads)
    tables: tuple[NDArray[np.int64], ...] = _by_lag(_core.category_changes, codes, lags, threads, report, len(numbers) + nested, nested)
    return tables


def _changes_by_transforms(codes: NDArray[np.int16], n: int, nested: bool, lags: tuple[int, ...], threads: int) -> tuple[NDArray[np.int64], NDArray[np.int64]]:
    """Of a set and of the known nodes that are not in it, the correlation is symmetric if both ends count."""
    def powers(*spectra: NDArray[np.complex128]) -> list[NDArray[np.float64]]:
        known = spectra[-1]
        return [product_of(one, known - one) for one in spectra[:-1]] + [product_of(known)]

    sets = [partial(_from_code, codes, k + 1) if nested else partial(_indicator, codes, k) for k in range(n)]
    found = np.stack(Transforms(codes.shape, lags, threads).correlations([*sets, partial(_from_code, codes, 0)], powers))
    found[:-1] *= 2.0
    halves = np.rint(found).astype(np.int64)
    return np.stack([symmetric(half) for half in halves[:-1]]), symmetric(halves[-1])


def _from_code(codes: NDArray[np.int16], least: int, rows: slice) -> NDArray[np.float64]:
    return (codes[rows] >= least).astype(np.float64)


def connectivity_function(mask: ArrayLike, max_lag: int | Sequence[int], connectivity: Connectivity | None = None, *,
                          given: Literal["both", "tail", "none"] = "both", threads: int | None = None,
                          progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """The probability that two nodes a lag apart are in one body, at all lags of a box.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well. Labels that `label` gave with the same connectivity
        serve as well. A Dask array may be larger than memory: it is read twice.
    max_lag : int or sequence of int
        The largest lag in cells, for all axes or along each, in the order of the axes; below the axis' number of nodes.
        With 0 along an axis there is no lag along it.
    connectivity : 4, 8, 6, 18 or 26, optional
        How many neighbours a node has: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    given : {"both", "tail", "none"}
        Which pairs the probability is among: those of two true nodes, those from a true node, or all.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    Dataset
        `probability`, NaN without pairs; and `pairs`, the number of those that it is among. Of dimensions `lag_z`,
        `lag_y`, `lag_x` (in two dimensions without `lag_z`), from -max_lag to max_lag.

    Notes
    -----
    Pardo-Igúzquiza and Dowd, CONNEC3D: a computer program for connectivity analysis of 3D random set models, Computers &
    Geosciences, 2003. Work memory is 7 bytes a node.

    Examples
    --------
    >>> import kestrum as ks
    >>> found = ks.connectivity_function([[1, 1, 0, 0, 1]], max_lag=(0, 3))
    >>> found.probability.sel(lag_y=0, lag_x=[0, 1, 2, 3]).to_numpy()
    array([ 1.,  1., nan,  0.])
    """
    import xarray as xr

    image = _image_blocks.image("mask", mask)
    as_neighbors(connectivity, image.ndim)
    lags = as_lags(max_lag, image.shape)
    _door.choice("given", given, ("both", "tail", "none"))
    labels, _ = label(image, connectivity, threads=threads)
    with _progress.shown(progress, "connectivity function") as report:
        connected, counts = _image_blocks.pair_tables(labels, lags, _connections, threads, report)
    pairs = counts[1, 1] if given == "both" else counts[1].sum(0) if given == "tail" else counts.sum((0, 1))
    coords = lag_coords(lags)
    return xr.Dataset({"probability": (tuple(coords), _share(connected, pairs), {"long_name": "probability of connection"}),
                       "pairs": (tuple(coords), pairs, {"long_name": "number of pairs"})}, coords)


def _connections(labels: NDArray[np.int32], lags: tuple[int, ...], threads: int, report: Any) -> tuple[NDArray[np.int64], NDArray[np.int64]]:
    """How many pairs are in one body, and how many are false or true at the tail and at the head."""
    alike = _by_lag(_core.alike_pairs, labels, lags, threads, _progress.part(report, 0.0, 0.5))
    return alike, _by_lag(_core.category_pairs, (labels > 0).astype(np.int16), lags, threads, _progress.part(report, 0.5, 1.0), 2)


def _by_lag(count: Any, nodes: NDArray[Any], lags: tuple[int, ...], threads: int, report: Any, *arguments: Any) -> Any:
    """What count makes of nodes, whose last three axes it has from lags, with as many axes of lags as there are."""
    tables = count(np.ascontiguousarray(nodes), *arguments, (0, *lags)[-3:], threads, report)

    def squeezed(table: NDArray[np.int64]) -> NDArray[np.int64]:
        leading = table.ndim - 3
        return table.reshape(table.shape[:leading] + table.shape[table.ndim - len(lags):])

    return tuple(map(squeezed, tables)) if isinstance(tables, tuple) else squeezed(tables)


def _share(part: NDArray[np.int64], whole: NDArray[np.int64]) -> NDArray[np.float64]:
    result: NDArray[np.float64] = part / np.where(whole == 0, np.nan, whole)
    return result
