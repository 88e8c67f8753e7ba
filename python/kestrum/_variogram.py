"""Experimental variograms of scattered points."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import NDArray

from . import _core, _door, _memory, _progress
from ._door import Floats
from ._errors import ArgumentError, DataError, warn
from ._fit import FittedModel, fit_variogram
from ._models import CovModel
from ._points import Points, require_numbers, warn_if_numbers
from ._watch import watched

if TYPE_CHECKING:
    import pandas as pd
    from matplotlib.axes import Axes

ESTIMATORS = ("matheron", "cressie", "madogram")
# Pairs that are worth a block of their own.
CLOUD_BLOCK = 200_000
# Of a variogram of one variable.
OPTIONS = ("lag", "n_lags", "azimuth", "tolerance", "dip", "bandwidth", "estimator", "threads", "progress")


@dataclass(frozen=True, eq=False, repr=False)
class Variogram:
    """An experimental variogram, made by `variogram`: a row for each direction, a column for each lag.

    Attributes
    ----------
    azimuth, dip : numpy.ndarray
        (directions,), in degrees, the dip positive downwards. NaN if the one row is of all directions.
    lag : numpy.ndarray
        (directions, lags): the mean distance of the pairs, in the coordinates' unit; NaN where there is none.
    gamma : numpy.ndarray
        (directions, lags): the semivariance, in the variable's unit squared (of a madogram in its unit); NaN where there
        is no pair.
    pairs : numpy.ndarray
        (directions, lags): the number of pairs.
    dimension : int
        2 or 3, of the coordinates.
    name : str
        What the values were.
    estimator : str
        "matheron", "cressie", "madogram" or "cross".

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0, 0], [0, 1], [0, 2], [0, 4]], [1.0, 2.0, 4.0, 4.0], "zinc")
    >>> ks.variogram(points, lag=1.0, n_lags=4)
    Variogram of 'zinc' (matheron): 6 pairs in 4 lags
      all directions: distance 1 to 4, semivariance 1.25 to 4.5
    """

    azimuth: Floats
    dip: Floats
    lag: Floats
    gamma: Floats
    pairs: NDArray[np.int64]
    dimension: int
    name: str
    estimator: str

    def fit(self, model: CovModel | Sequence[CovModel], *, weights: Literal["pairs", "pairs/lag2", "equal"] = "pairs/lag2",
            fixed: Iterable[str] = (), progress: bool | Callable[[float], object] = False) -> FittedModel:
        """A model fitted by weighted least squares, to all directions at once.

        Parameters
        ----------
        model : CovModel or sequence of CovModel
            The first guess, any sum of structures. Ranges of a structure that are equal in it stay equal: give two numbers
            that differ to find an anisotropy, which takes a variogram of several directions. The dip and the plunge stay,
            and so does the first range of a power model. Of several candidates the best is the result.
        weights : {"pairs", "pairs/lag2", "equal"}
            Of a lag: its number of pairs, that over its squared distance, or 1.
        fixed : iterable of str
            What stays as it is, in every structure: "nugget", "sill", "range" (the first one), "anisotropy", "azimuth", "shape".
        progress : bool or callable
            True shows a bar; a callable gets the share of the searches done, and what it raises ends the call.

        Returns
        -------
        FittedModel
            With its `residual`, `at_bounds`, `parameter_covariance` and `ranking`. Sills are at least 0, ranges a tenth of
            the first distance to three times the last one.

        Raises
        ------
        ModelError
            The model is anisotropic and the variogram is not of several directions, or kriging could refuse the type.
        DataError
            There are fewer lags than parameters, or no semivariance is above 0.

        Warns
        -----
        KestrumWarning
            Some of several candidates were left out for one of these; if all are, the first error is raised.

        Notes
        -----
        Each lag is taken at its mean distance along its direction. The search begins at the first guess and at the best of a
        table of ranges and azimuths; the sills for given ranges are those of linear least squares. gstat's fit.method 1 is
        "pairs", 6 "equal" and 7 "pairs/lag2".

        Examples
        --------
        >>> import numpy as np
        >>> import kestrum as ks
        >>> x, y = np.meshgrid(np.arange(30.0), np.arange(30.0))
        >>> points = ks.Points(np.column_stack((x.ravel(), y.ravel())), np.sin(x.ravel() / 4.0) + np.cos(y.ravel() / 5.0))
        >>> candidates = [ks.Nugget(0.1) + kind(1.0, range=10) for kind in (ks.Spherical, ks.Gaussian)]
        >>> model = ks.variogram(points, lag=1.0, n_lags=10).fit(candidates)
        >>> [structure.type for structure in model.structures]
        ['Nugget', 'Gaussian']
        >>> model.ranking.residual.is_monotonic_increasing
        True
        """
        return fit_variogram(self, model, weights, fixed, progress)

    def plot(self, model: CovModel | None = None, ax: Axes | None = None) -> Axes:
        """Draws the variogram direction by direction, with a model if one is given.

        Parameters
        ----------
        model : CovModel, optional
            Drawn as a line along each direction.
        ax : matplotlib.axes.Axes, optional
            Where to draw; new axes by default.

        Returns
        -------
        matplotlib.axes.Axes

        Examples
        --------
        >>> import kestrum as ks
        >>> points = ks.Points([[0, 0], [0, 1], [0, 2], [0, 4]], [1.0, 2.0, 4.0, 4.0])
        >>> axes = ks.variogram(points, lag=1.0, n_lags=4).plot(ks.Spherical(3.0, range=4))
        """
        from . import plot

        return plot.variogram(self, model, ax)

    def to_dataframe(self) -> pd.DataFrame:
        """A row for each direction and lag.

        Returns
        -------
        pandas.DataFrame
            With columns azimuth, dip (in three dimensions), lag, gamma and pairs.

        Examples
        --------
        >>> import kestrum as ks
        >>> points = ks.Points([[0, 0], [0, 1], [0, 2], [0, 4]], [1.0, 2.0, 4.0, 4.0])
        >>> ks.variogram(points, lag=1.0, n_lags=4).to_dataframe()
           azimuth  lag  gamma  pairs
        0      NaN  1.0   1.25      2
        1      NaN  2.0   2.25      2
        2      NaN  3.0   2.00      1
        3      NaN  4.0   4.50      1
        """
        import pandas as pd

        n_lags = self.lag.shape[1]
        columns = {"azimuth": np.repeat(self.azimuth, n_lags)}
        if self.dimension == 3:
            columns["dip"] = np.repeat(self.dip, n_lags)
        return pd.DataFrame(columns | {name: getattr(self, name).reshape(-1) for name in ("lag", "gamma", "pairs")})

    def _axes(self) -> Floats:
        """The unit vectors of the directions; north for all directions."""
        return _axes(np.nan_to_num(self.azimuth), np.nan_to_num(self.dip))[:, :self.dimension]

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Variogram):
            return NotImplemented
        mine, others = vars(self), vars(other)
        return all(np.array_equal(mine[name], others[name], equal_nan=isinstance(mine[name], np.ndarray)) for name in mine)

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        lines = [f"Variogram of {self.name!r} ({self.estimator}): {self.pairs.sum():,} pairs in {self.lag.shape[1]} lags"]
        for row in range(len(self.azimuth)):
            found = self.pairs[row] > 0
            text = "no pairs"
            if found.any():
                lag, gamma = self.lag[row, found], self.gamma[row, found]
                text = f"distance {lag.min():.6g} to {lag.max():.6g}, semivariance {gamma.min():.6g} to {gamma.max():.6g}"
            lines.append(f"  {_direction(self, row)}: {text}")
        return "\n".join(lines)


def variogram(points: Points, *, other: Points | None = None, lag: float | None = None, n_lags: int = 15,
              azimuth: float | Sequence[float] | None = None, tolerance: float = 22.5, dip: float | Sequence[float] = 0.0,
              bandwidth: float | None = None, estimator: Literal["matheron", "cressie", "madogram"] = "matheron",
              threads: int | None = None, progress: bool | Callable[[float], object] = False) -> Variogram:
    """An experimental variogram. Only pairs within the largest lag are visited.

    Parameters
    ----------
    points : Points
        Values at places in two or three dimensions.
    other : Points, optional
        A second variable at the same places, for a cross-variogram: mean (a_i - a_j) (b_i - b_j) / 2.
    lag : float, optional
        Width of a lag: lag k holds the pairs at a distance in (k * lag, (k + 1) * lag]. By default a third of the
        diagonal of the data's box over `n_lags`. Pairs at distance 0 are left out and counted in a warning.
    n_lags : int
        Number of lags, at most 10,000.
    azimuth : float or sequence of float, optional
        Directions, in degrees clockwise from north (y), all found in one pass. All directions together by default.
    tolerance : float
        Half-angle of the cone about a direction, in degrees, at most 90. A pair on the border belongs to the cone.
    dip : float or sequence of float
        In three dimensions, of the directions: degrees below the horizontal. One for all, or one for each azimuth.
    bandwidth : float, optional
        How far from the direction's axis a pair may reach, in the coordinates' unit.
    estimator : {"matheron", "cressie", "madogram"}
        Of differences d of N pairs: mean d^2 / 2; (mean sqrt(abs(d)))^4 / (0.457 + 0.494 / N + 0.045 / N^2) / 2, which
        outliers harm less (Cressie and Hawkins, 1980); mean abs(d) / 2.
    threads : int, optional
        Number of threads; all cores by default. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    Variogram

    Raises
    ------
    DataError
        Fewer than two places, labels for values, or no pair in any lag.

    Examples
    --------
    >>> import numpy as np
    >>> import kestrum as ks
    >>> x, y = np.meshgrid(np.arange(20.0), np.arange(20.0))
    >>> points = ks.Points(np.column_stack((x.ravel(), y.ravel())), np.sin(x.ravel() / 3.0))
    >>> ks.variogram(points, lag=1.0, n_lags=3, azimuth=[0, 90], tolerance=10).gamma.round(3)
    array([[0.   , 0.   , 0.   ],
           [0.028, 0.102, 0.206]])
    """
    _numbers("points", points)
    if other is not None:
        _numbers("other", other)
        if not np.array_equal(points.coordinates, other.coordinates):
            raise DataError("other lies at other places than points, but a cross-variogram needs two values at each place. "
                            "Leave out the rows in which one of them is missing.")
        if estimator != "matheron":
            raise ArgumentError(f"estimator is {_door.show(estimator)}, but a cross-variogram knows 'matheron' only.")
    with _progress.shown(progress, "variogram") as report:
        return _variogram(points, other, True, report, lag, n_lags, azimuth, tolerance, dip, bandwidth, estimator, threads)


def _variogram(points: Points, other: Points | None, warning: bool, report: Any, lag: Any = None, n_lags: Any = 15, azimuth: Any = None,
               tolerance: Any = 22.5, dip: Any = 0.0, bandwidth: Any = None, estimator: Any = "matheron",
               threads: Any = None) -> Variogram:
    dimension = points.coordinates.shape[1]
    kind = ESTIMATORS.index(_door.choice("estimator", estimator, ESTIMATORS))
    n_lags = _door.whole("n_lags", n_lags, 1, 10_000)
    azimuths, dips, cones = _cones(azimuth, tolerance, dip, bandwidth, dimension)
    threads = _door.threads(threads)
    diagonal = float(np.linalg.norm(np.ptp(points.coordinates, axis=0)))
    if diagonal == 0.0:
        raise DataError(f"points are all at one place ({len(points)} of them): a variogram needs two places at least.")
    width = diagonal / 3.0 / n_lags if lag is None else _door.number("lag", lag, above=0.0)
    distance, gamma, pairs, coincident = _core.point_variogram(
        points.coordinates, points.values.astype(np.float64, copy=False),
        None if other is None else other.values.astype(np.float64, copy=False),
        min(width, 2.0 * diagonal),  # a longer one holds all pairs just so, but its square can overflow
        n_lags, kind, cones, threads, report)
    name = points.name if other is None else f"{points.name}, {other.name}"
    result = Variogram(azimuths, dips, distance, gamma, pairs, dimension, name, estimator if other is None else "cross")
    if warning:
        _warn_of(result, [points] if other is None else [points, other], width, diagonal, coincident)
    for array in (azimuths, dips, distance, gamma, pairs):
        array.flags.writeable = False
    return result


def indicator_variograms(points: Points, **options: Any) -> dict[object, Variogram]:
    """Experimental variograms of categories: of 1 where a category is, and 0 elsewhere.

    Parameters
    ----------
    points : Points
        Labels, or numbers that stand for categories, at most 100 of them.
    **options
        Those of `variogram`, but for `other`.

    Returns
    -------
    dict
        A Variogram for each category, in the categories' order.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0, 0], [0, 1], [0, 2], [0, 3]], ["sand", "sand", "clay", "clay"], "facies")
    >>> variograms = ks.indicator_variograms(points, lag=1.0, n_lags=3)
    >>> list(variograms), variograms["sand"].gamma.round(3)
    (['clay', 'sand'], array([[0.167, 0.5  , 0.5  ]]))
    """
    _two_points("points", points)
    for name in options:
        _door.choice("the option", name, OPTIONS)
    categories = sorted(set(points.values.tolist()))
    if not 2 <= len(categories) <= 100:
        raise DataError(f"values of {points.name!r} are {len(categories):,} categories, but there must be 2 to 100 of them.")
    warn_if_numbers(points, len(categories))
    result: dict[object, Variogram] = {}
    with _progress.shown(options.pop("progress", False), "variograms") as report:
        for category, step in zip(categories, _progress.steps(report, len(categories))):
            indicator = points.with_values([float(value == category) for value in points.values.tolist()], f"{points.name} = {category}")
            # The pairs, and what there is to warn of, are those of the first one.
            result[category] = _variogram(indicator, None, not result, step, **options)
    return result


def variogram_cloud(points: Points, max_distance: float, *, progress: bool | Callable[[float], object] = False) -> pd.DataFrame:
    """Every pair of points within a distance, for small sets.

    Parameters
    ----------
    points : Points
        Values at places.
    max_distance : float
        The largest distance, in the coordinates' unit.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    pandas.DataFrame
        Columns i and j (rows of the points, i < j), distance, azimuth from 0 to 180 degrees (and dip in three
        dimensions), NaN for a pair at one place, and gamma, half the squared difference of the values.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0, 0], [3, 4], [0, 1]], [1.0, 3.0, 2.0])
    >>> ks.variogram_cloud(points, 5.0).round(2)
       i  j  distance  azimuth  gamma
    0  0  1      5.00    36.87    2.0
    1  0  2      1.00     0.00    0.5
    2  1  2      4.24    45.00    0.5
    """
    values = _numbers("points", points)
    reach = _door.number("max_distance", max_distance, above=0.0)
    with _progress.shown(progress, "variogram cloud") as report:
        return _cloud(points, values, reach, report)


def _cloud(points: Points, values: Floats, reach: float, report: Callable[[float], object] | None) -> pd.DataFrame:
    import pandas as pd
    from scipy.spatial import cKDTree

    n = len(points)
    tree = watched(n, cKDTree, points.coordinates)
    count = (int(watched(n**2, tree.count_neighbors, tree, reach)) - n) // 2
    _memory.require(150 * count, f"a cloud of {count:,} pairs", "Give a smaller max_distance, or take variogram(points).")
    if count == 0:
        raise DataError(f"no two points are within max_distance, which is {reach:g}. Give a larger one.")
    step = -(-n // max(20, min(n, count // CLOUD_BLOCK)))
    parts = []
    for begin in range(0, n, step):
        if report is not None:
            report(begin / n)
        parts.append(watched(n * step, _cloud_rows, points.coordinates, values, reach, tree, begin, step))
    return pd.DataFrame({name: np.concatenate([part[name] for part in parts]) for name in parts[0]})


def _cloud_rows(coordinates: Floats, values: Floats, reach: float, tree: Any, begin: int, step: int) -> dict[str, NDArray[Any]]:
    """The columns of a cloud for the pairs whose first points are `step` rows."""
    rows = coordinates[begin:begin + step]
    found = type(tree)(rows).sparse_distance_matrix(tree, reach, output_type="ndarray")
    i, j = found["i"] + begin, found["j"]
    i, j = i[i < j], j[i < j]
    order = np.argsort(i * len(coordinates) + j)
    i, j = i[order], j[order]
    difference = coordinates[j] - coordinates[i]
    x, y = difference[:, 0], difference[:, 1]
    distance = np.sqrt(np.sum(difference**2, axis=1))
    turned = (x < 0.0) | ((x == 0.0) & (y < 0.0))
    level = np.where(turned, -1.0, 1.0)
    columns = {"i": i, "j": j, "distance": distance,
               "azimuth": np.where(distance > 0.0, np.rad2deg(np.arctan2(level * x, level * y)) % 180.0, np.nan)}
    if difference.shape[1] == 3:
        upright = np.where((x == 0.0) & (y == 0.0), -np.abs(difference[:, 2]), level * difference[:, 2])
        columns["dip"] = np.where(distance > 0.0, np.rad2deg(np.arctan2(-upright, np.hypot(x, y))), np.nan)
    return columns | {"gamma": 0.5 * (values[i] - values[j]) ** 2}


def _warn_of(result: Variogram, variables: list[Points], width: float, diagonal: float, coincident: int) -> None:
    n_lags = result.lag.shape[1]
    found = result.pairs > 0
    if not found.any():
        raise DataError(f"no pair of points is in any lag, which reach to {n_lags * width:g}. Give a larger lag"
                        f"{'' if math.isnan(result.azimuth[0]) else ', tolerance or bandwidth'}.")
    if coincident:
        warn(f"{coincident:,} pairs are at distance 0 and left out. Put values at one place together by points.merged().")
    for variable in variables:
        if (variable.values == variable.values[0]).all():
            warn(f"all values of {variable.name!r} are {_door.show(variable.values[0])}: the variogram is 0.")
    too_long = n_lags * width > diagonal * (1.0 + 1e-9)
    if too_long:
        warn(f"lags reach to {n_lags * width:g}, but no two points are more than {diagonal:g} apart. Give a smaller lag.")
    for row in range(len(found)):
        if not found[row].any():
            warn(f"no pair of points is in the direction of {_direction(result, row)}. Give a larger tolerance or bandwidth.")
        elif not (too_long or found[row].all()):
            where = "" if math.isnan(result.azimuth[row]) else f" of {_direction(result, row)}"
            missing = np.flatnonzero(~found[row])
            warn(f"{len(missing):,} of {n_lags:,} lags{where} have no pair and are NaN ({_door.rows(missing, 'lag')}). "
                 "Give a larger lag.")


def _two_points(name: str, points: Any) -> None:
    if not isinstance(points, Points):
        _door.wrong_type(name, points, "Points (of a table: Points.from_dataframe(table, 'column'))")
    if len(points) < 2:
        raise DataError(f"{name} are one point, but a variogram needs pairs.")


def _numbers(name: str, points: Any) -> Floats:
    _two_points(name, points)
    return require_numbers(name, points, "difference. Take indicator_variograms, or give numbers.")


def _cones(azimuth: Any, tolerance: Any, dip: Any, bandwidth: Any, dimension: int) -> tuple[Floats, Floats, Floats]:
    """The directions, and what the engine takes for them."""
    half = _door.number("tolerance", tolerance, above=0.0, at_most=90.0)
    across = math.inf if bandwidth is None else _door.number("bandwidth", bandwidth, above=0.0)
    dips = _angles("dip", dip)
    if dimension == 2 and dips.any():
        raise ArgumentError(f"dip is {_door.show(dip)}, but the points are in the plane. Leave it out.")
    if azimuth is None:
        for name, given in (("dip", dips.any()), ("bandwidth", bandwidth is not None)):
            if given:
                raise ArgumentError(f"{name} was given without an azimuth, which says where it belongs. Give azimuth=.")
        return np.array([np.nan]), np.array([np.nan]), np.zeros((0, 5))
    azimuths = _angles("azimuth", azimuth)
    if len(dips) not in (1, len(azimuths)):
        raise ArgumentError(f"dip has {len(dips)} numbers, but there are {len(azimuths)} azimuths. Give one for all, or one for each.")
    dips = np.resize(dips, len(azimuths))
    rest = np.tile([math.cos(math.radians(half)), across], (len(azimuths), 1))
    return azimuths, dips, np.column_stack((_axes(azimuths, dips), rest))


def _angles(name: str, value: Any) -> Floats:
    parts = _door.parts(name, value)
    if not parts:
        raise ArgumentError(f"{name} is empty. Leave it out, or give one direction at least.")
    return np.array([_door.number(name, part) for part in parts])


def _axes(azimuth: Floats, dip: Floats) -> Floats:
    a, d = np.deg2rad(azimuth), np.deg2rad(dip)
    return np.column_stack((np.sin(a) * np.cos(d), np.cos(a) * np.cos(d), -np.sin(d)))


def _direction(result: Variogram, row: int) -> str:
    if math.isnan(result.azimuth[row]):
        return "all directions"
    dip = f", dip {result.dip[row]:g}" if result.dimension == 3 else ""
    return f"azimuth {result.azimuth[row]:g}{dip}"
