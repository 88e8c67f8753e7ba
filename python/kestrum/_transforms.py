"""Normal scores, and weights of data that lie in clusters."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _memory, _progress
from ._door import Floats
from ._errors import ArgumentError, DataError, warn
from ._grid import Grid
from ._models import CovModel, require_model
from ._points import Points
from ._targets import Target
from ._watch import MANY, watched

if TYPE_CHECKING:
    import xarray as xr

# Sizes of cells that are tried where none is given.
SIZES = 24
# Of a value for normal scores, in mean weights.
LEAST_WEIGHT = 1e-6


class NormalScore:
    """Transform of a skewed variable to normal scores, and back.

    Parameters
    ----------
    values : array_like
        What the transform is fitted to; at least two different numbers.
    weights : array_like, optional
        One for each value, at least 0: see `declustering_weights`. Equal by default. What is less than a millionth of
        the mean weight counts as that, so that each value has a finite score of its own.
    minimum, maximum : float, optional
        The least and the greatest value there can be; by default those of `values`.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Attributes
    ----------
    values, scores : numpy.ndarray
        The different values in increasing order, and the score of each.
    minimum, maximum : float

    Notes
    -----
    The score of a value is the standard normal quantile of its share of weights: of those below it and half its own.
    Equal values have one score. Between two values the transform is linear; beyond the last, the value is linear in
    probability and reaches the minimum or maximum at 0 or 1, whose scores are infinite. So are those of what lies farther
    out. Back and forth gives the values again, the fitted ones to the last bit.

    References
    ----------
    C. V. Deutsch and A. G. Journel, GSLIB: Geostatistical Software Library and User's Guide, 2nd ed., Oxford 1998,
    section V.2.

    Examples
    --------
    >>> import kestrum as ks
    >>> transform = ks.NormalScore([1.0, 2.0, 2.0, 50.0], maximum=100.0)
    >>> transform.forward([1.0, 2.0, 50.0]).round(3)
    array([-1.15,  0.  ,  1.15])
    >>> transform.inverse([-9.0, 0.0, 9.0]).round(3)
    array([  1.,   2., 100.])
    """

    __slots__ = ("values", "scores", "minimum", "maximum", "_chances")
    values: Floats
    scores: Floats
    minimum: float
    maximum: float
    _chances: tuple[float, float]

    def __init__(self, values: ArrayLike, weights: ArrayLike | None = None, minimum: float | None = None,
                 maximum: float | None = None, *, progress: bool | Callable[[float], object] = False) -> None:
        given = _door.finite("values", _door.reals("values", values).reshape(-1))
        with _progress.shown(progress, "normal scores") as report:
            known, scores, chances = _fitted(given, weights, report)
        least = _door.number("minimum", known[0] if minimum is None else minimum, at_most=float(known[0]))
        most = _door.number("maximum", known[-1] if maximum is None else maximum, at_least=float(known[-1]))
        for slot, value in (("values", _door.frozen(known)), ("scores", _door.frozen(scores)), ("minimum", least),
                            ("maximum", most), ("_chances", chances)):
            object.__setattr__(self, slot, value)

    def forward(self, values: ArrayLike, *, progress: bool | Callable[[float], object] = False) -> Floats:
        """The scores of values.

        Parameters
        ----------
        values : array_like
            Of any shape. NaN stays NaN.
        progress : bool or callable
            True shows a bar; a callable gets the fraction done, and what it raises ends the call.

        Returns
        -------
        numpy.ndarray
            Of the same shape; infinite at the minimum, the maximum and beyond, but for the fitted values.

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.NormalScore([1.0, 2.0, 50.0]).forward([2.0])
        array([0.])
        """
        return _in_blocks(self._forward, _door.reals("values", values), progress)

    def _forward(self, given: Floats) -> Floats:
        scores = np.array(np.interp(given, self.values, self.scores))
        for sign, end, first, chance in ((-1.0, self.minimum, self.values[0], self._chances[0]),
                                         (1.0, self.maximum, self.values[-1], self._chances[1])):
            beyond = sign * given > sign * first
            if beyond.any():
                share = np.clip((end - given[beyond]) / (end - first), 0.0, 1.0) if end != first else 0.0
                scores[beyond] = -sign * _core.normal_quantile(chance * share)
        return scores

    def inverse(self, scores: ArrayLike, *, progress: bool | Callable[[float], object] = False) -> Floats:
        """The values of scores.

        Parameters
        ----------
        scores : array_like
            Of any shape. NaN stays NaN.
        progress : bool or callable
            True shows a bar; a callable gets the fraction done, and what it raises ends the call.

        Returns
        -------
        numpy.ndarray
            Of the same shape, from minimum to maximum.

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.NormalScore([1.0, 2.0, 50.0]).inverse([0.0])
        array([2.])
        """
        return _in_blocks(self._inverse, _door.reals("scores", scores), progress)

    def _inverse(self, given: Floats) -> Floats:
        values = np.array(np.interp(given, self.scores, self.values))
        for sign, end, first, at, chance in ((-1.0, self.minimum, self.values[0], self.scores[0], self._chances[0]),
                                             (1.0, self.maximum, self.values[-1], self.scores[-1], self._chances[1])):
            beyond = sign * given > sign * at
            if end != first and beyond.any():
                values[beyond] = end + (first - end) * np.minimum(_core.normal_probability(-sign * given[beyond]) / chance, 1.0)
        return values

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, NormalScore):
            return NotImplemented
        return all(np.array_equal(getattr(self, slot), getattr(other, slot)) for slot in self.__slots__)

    __hash__ = None  # type: ignore[assignment]

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError(f"a NormalScore is immutable: make a new one instead of setting {name}.")

    def __reduce__(self) -> tuple[object, ...]:
        return _rebuild, (self.values, self.scores, self.minimum, self.maximum, self._chances)

    def __repr__(self) -> str:
        return (f"NormalScore: {len(self.values):,} different values from {self.values[0]:.6g} to {self.values[-1]:.6g} "
                f"to scores from {self.scores[0]:.3f} to {self.scores[-1]:.3f}\n"
                f"  tails to minimum {self.minimum:.6g} and maximum {self.maximum:.6g}")


def _in_blocks(work: Callable[[Floats], Floats], given: Floats, progress: _progress.Progress) -> Floats:
    """work of each number, in blocks that end before anybody waits."""
    result, numbers = np.empty(given.size), given.reshape(-1)
    with _progress.shown(progress, "normal scores") as report:
        for begin in range(0, given.size, MANY):
            block = slice(begin, begin + MANY)
            result[block] = work(numbers[block])
            if report is not None:
                report(min(begin + MANY, given.size) / given.size)
    return result.reshape(given.shape)


def _fitted(given: Floats, weights: ArrayLike | None,
            report: Callable[[float], object] | None) -> tuple[Floats, Floats, tuple[float, float]]:
    """The different values, their scores, and the probabilities of the least score and above the greatest one."""
    report = report or (lambda fraction: None)
    report(0.0)
    known, group = watched(given.size, lambda: np.unique(given, return_inverse=True))
    report(0.5)
    if len(known) < 2:
        what = f"are all {known[0]:g}" if len(known) else "are none"
        raise DataError(f"values {what}: normal scores need at least two different ones.")
    shares = watched(given.size, np.bincount, group, None if weights is None else _weights(weights, given.shape))
    report(0.6)
    shares = shares / shares.sum()
    # The shares below and above, each summed from its own end: so the upper tail is as exact as the lower one.
    below, above = np.cumsum(shares) - 0.5 * shares, np.cumsum(shares[::-1])[::-1] - 0.5 * shares
    quantiles = [watched(len(known), _core.normal_quantile, below)]
    report(0.8)
    quantiles.append(watched(len(known), _core.normal_quantile, above))
    scores = np.where(below < above, quantiles[0], 0.0 - quantiles[1])
    return known, scores, (float(below[0]), float(above[-1]))


def _rebuild(*parts: object) -> NormalScore:
    transform = NormalScore.__new__(NormalScore)
    for slot, value in zip(NormalScore.__slots__, parts):
        object.__setattr__(transform, slot, _door.frozen(value) if isinstance(value, np.ndarray) else value)
    return transform


def _weights(weights: ArrayLike, shape: tuple[int, ...]) -> Floats:
    given = _door.finite("weights", _door.reals("weights", weights).reshape(-1))
    if given.shape != shape:
        raise DataError(f"weights are of shape {given.shape}, but there are {shape[0]} values: one is needed for each.")
    if (given < 0.0).any():
        raise DataError(f"weights are below 0 in {_door.rows(np.flatnonzero(given < 0.0))}. Set those to 0.")
    if not given.any():
        raise DataError("weights are all 0.")
    given = given / given.max()
    return np.maximum(given, LEAST_WEIGHT * given.mean())


def declustering_weights(points: Points, cell: float | Sequence[float] | None = None, offsets: int = 8, minimize: bool = True, *,
                         model: CovModel | None = None, grid: Grid | xr.DataArray | None = None,
                         progress: bool | Callable[[float], object] = False) -> Floats:
    """Weights of data that lie denser in some parts than in others, so that weighted statistics are those of the area.

    By cells, a datum weighs one over the number of data in its cell, averaged over several origins of the cells. By
    kriging, with `model` and `grid`, it weighs what it does in the ordinary kriging of the mean over the grid from all
    data; a weight below 0 becomes 0.

    Parameters
    ----------
    points : Points
        The data.
    cell : float or sequence of float, optional
        The size of a cell, one or one for each axis. By default sizes from a typical distance between neighbours to half
        the longest side of the data's box are tried, and equal weights; taken are those with the smallest weighted mean,
        for data that are dense where values are high.
    offsets : int
        How many origins.
    minimize : bool
        Whether the smallest mean is sought, or the largest: for data that are dense where values are low.
    model : CovModel, optional
        Covariances of the values, for kriging weights.
    grid : Grid or xarray.DataArray, optional
        The area, for kriging weights.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    numpy.ndarray
        One for each datum. They sum to the number of data.

    References
    ----------
    C. V. Deutsch and A. G. Journel, GSLIB: Geostatistical Software Library and User's Guide, 2nd ed., Oxford 1998,
    section VI.2 (cells); C. V. Deutsch, DECLUS: a Fortran 77 program for determining optimum spatial declustering weights,
    Computers & Geosciences 15, 1989.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0.0, 0.0], [9.0, 9.0], [9.1, 9.0], [9.0, 9.1]], [1.0, 5.0, 6.0, 7.0])
    >>> ks.declustering_weights(points, cell=2.0, offsets=1).round(2)
    array([2.  , 0.67, 0.67, 0.67])
    """
    if not isinstance(points, Points):
        _door.wrong_type("points", points, "Points (of a table: Points.from_dataframe(table, 'column'))")
    if (model is None) != (grid is None):
        raise ArgumentError("kriging weights need both model and grid. Give both, or none.")
    if model is not None:
        if cell is not None:
            raise ArgumentError("cell and model were both given. Give cell for weights by cells, or model and grid for kriging weights.")
        with _progress.shown(progress, "kriging weights") as report:
            return _kriging_weights(points, model, grid, report)
    offsets = _door.whole("offsets", offsets, 1, 10_000)
    _door.flag("minimize", minimize)
    dimension = points.coordinates.shape[1]
    sides = np.ptp(points.coordinates, axis=0)
    if cell is not None:
        parts = [_door.number("cell", part, above=0.0) for part in ([cell] * dimension if _door.naxes("cell", cell) == 0 else _door.parts("cell", cell))]
        if len(parts) != dimension:
            raise ArgumentError(f"cell has {len(parts)} numbers, but must be one, or ({', '.join('xyz'[:dimension])}).")
        if (np.array(parts) < 1e-6 * sides).any():
            raise ArgumentError(f"cell is {_door.show(cell)}, less than a millionth of the sides of the data's box, {sides.max():g}.")
        with _progress.shown(progress, "declustering") as report:
            weights = _cell_weights(points, np.array(parts), offsets, report)
        if sides.any() and (weights == 1.0).all():
            warn(f"cell is {_door.show(cell)}, so that each cell holds as many data, or one holds all of them: all weights are 1. Give another size, or "
                 "leave it out.")
        return weights
    if points.values.dtype.kind not in "iuf":
        raise DataError(f"values of {points.name!r} are labels, which have no mean to seek a size by. Give cell.")
    if not sides.any():
        return np.ones(len(points))
    with _progress.shown(progress, "declustering") as report:
        return _sought_weights(points, sides, offsets, minimize, report)


def _sought_weights(points: Points, sides: Floats, offsets: int, minimize: bool, report: Any) -> Floats:
    from scipy.spatial import cKDTree

    nearest = watched(len(points), lambda: np.asarray(cKDTree(points.coordinates).query(points.coordinates, k=2)[0][:, 1]))
    largest = 0.5 * sides.max()
    smallest = min(max(float(np.median(nearest)), 1e-6 * sides.max()), 0.5 * largest)
    tried = [np.ones(len(points))]
    tried += [_cell_weights(points, np.full(len(sides), size), offsets, step)
              for size, step in zip(np.geomspace(smallest, largest, SIZES), _progress.steps(report, SIZES))]
    means = [float(weights @ points.values) for weights in tried]
    return tried[int(np.argmin(means) if minimize else np.argmax(means))]


def _cell_weights(points: Points, sides: Floats, offsets: int, report: Any) -> Floats:
    low = points.coordinates.min(axis=0)

    def shares(shift: float) -> Floats:
        # The origin moves along the diagonal of a cell; no index is negative.
        index = np.floor((points.coordinates - low) / sides + shift).astype(np.int64)
        key = np.ravel_multi_index(tuple(index.T), tuple(index.max(axis=0) + 1))
        _, group, count = np.unique(key, return_inverse=True, return_counts=True)
        # Every origin gives each occupied cell the same share.
        return np.asarray(1.0 / (count[group] * len(count)))

    sums = np.zeros(len(points))
    for k in range(offsets):
        sums += watched(len(points), shares, k / offsets)
        if report is not None:
            report((k + 1) / offsets)
    return np.asarray(sums * (len(points) / sums.sum()))


def _kriging_weights(points: Points, model: CovModel, grid: Grid | xr.DataArray | None, report: Any) -> Floats:
    from scipy.linalg import LinAlgError, cho_factor, cho_solve

    require_model(model, "Kriging weights need")
    target = Target(grid, places_too=False, name="grid")  # type: ignore[arg-type]
    target.require_dimension(points)
    assert target.grid is not None
    n, dimension = points.coordinates.shape
    _memory.require(24 * n * n, f"a system of all {n:,} data", "Take weights by cells.")

    def covariances(places: NDArray[np.float64]) -> Floats:
        lags = (points.coordinates[:, None] - places[None]).reshape(-1, dimension)
        return model.covariance(lags).reshape(n, len(places))

    axes = np.meshgrid(*target.grid.coords.values(), indexing="ij", sparse=True)
    right = np.zeros(n)
    step = max(1, 1_000_000 // n)
    for begin in range(0, target.count, step):
        index = np.unravel_index(np.arange(begin, min(begin + step, target.count)), target.grid.shape)
        centres = np.column_stack([axis.reshape(-1)[i] for axis, i in zip(axes[::-1], index[::-1])])
        right += watched(n * len(centres), lambda: np.asarray(covariances(centres).sum(axis=1)))
        if report is not None:
            report(begin / target.count)

    def solved() -> Floats:
        matrix = covariances(points.coordinates)
        if points.error_variance is not None:
            matrix[np.diag_indices(n)] += points.error_variance
        factor = cho_factor(matrix, lower=True, overwrite_a=True)
        return np.asarray(cho_solve(factor, np.column_stack([right / target.count, np.ones(n)])))

    try:
        terms = watched(n * n, solved)
    except LinAlgError:
        raise DataError("kriging weights cannot be found: data share a place, or the model is not positive definite there. "
                        "Take points.merged(), or add a nugget.") from None
    weights = terms[:, 0] + (1.0 - terms[:, 0].sum()) / terms[:, 1].sum() * terms[:, 1]
    weights = np.maximum(weights, 0.0)
    return np.asarray(weights * (n / weights.sum()))
