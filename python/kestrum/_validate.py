"""Cross-validation."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _memory, _progress
from ._door import Floats
from ._errors import DataError, warn
from ._grid import AXES
from ._krige import REDUNDANT, _at_points, _Drift, _radii, _refused, _warn_of, _without_fields, require_systems, systems_told, warn_if_beyond
from ._models import CovModel, Range, require_model
from ._points import Points, require_numbers

if TYPE_CHECKING:
    import pandas as pd

# Where neighbours are sought, smaller folds are left out datum by datum, with as many more candidates; larger ones one by
# one, by a search among the others.
LARGE_FOLD = 256


def cross_validate(points: Points, model: CovModel, *, neighbors: int | None = None, radius: Range | None = None,
                   mean: float | None = None, drift: Literal["linear", "quadratic"] | Mapping[str, ArrayLike] | None = None,
                   folds: int | ArrayLike | None = None, seed: int = 1, threads: int | None = None,
                   progress: bool | Callable[[float], object] = False) -> pd.DataFrame:
    """Kriging of each datum from others, which shows how well data and model would have predicted it.

    Parameters
    ----------
    points : Points
        The data.
    model : CovModel
        Their covariances, by constants.
    neighbors, radius, mean
        As in `krige`; the mean is a number.
    drift : {"linear", "quadratic"} or mapping, optional
        As in `krige`; external drifts are {name: values at the points}.
    folds : int or array_like, optional
        What is left out together: so many parts of the data, drawn with `seed`, or those of one label, given for each
        datum, such as its drill hole or its block in space. By default each datum by itself.
    seed : int
        From 0 to 2^64 - 1.
    threads, progress
        As in `krige`.

    Returns
    -------
    pandas.DataFrame
        A row for each datum, in their order: x, y[, z], value, estimate, variance (of the error), error (estimate less
        value), zscore (error over the root of variance), fold. ``attrs`` has what people quote: mean_error, rmse, msdr (mean
        squared deviation ratio, the mean of the squared zscores: 1 if the variances are right) and correlation (of
        estimates and values). A datum without neighbours has NaN, but the mean in simple kriging; a warning counts
        those. If points have variances of their errors, the datum's own is part of its variance.

    Notes
    -----
    Where all other data serve each datum, one system gives all errors.

    References
    ----------
    O. Dubrule, Cross validation of kriging in a unique neighborhood, Mathematical Geology 15, 1983.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0.0, 0.0], [1.0, 0.0], [2.0, 0.0], [3.0, 1.0]], [1.0, 2.0, 3.0, 5.0])
    >>> table = ks.cross_validate(points, ks.Exponential(2.0, range=9))
    >>> table.estimate.round(2).tolist(), round(table.attrs["rmse"], 2)
    ([2.44, 2.1, 3.19, 2.57], 1.42)
    """
    import pandas as pd

    values = require_numbers("points", points, "mean. Kriging needs numbers.")
    require_model(model, "Cross-validation needs")
    n, dimension = points.coordinates.shape
    if n < 2:
        raise DataError("there is one datum: cross-validation needs at least two.")
    nthreads = _door.threads(threads)
    neighbors = None if neighbors is None else _door.whole("neighbors", neighbors, 1, 2**31 - 1)
    radii = _radii(radius, dimension)
    known = _drift(points, mean, drift)
    known.require_neighbors(neighbors, dimension)
    labels, group, start, member = _folds(folds, n, seed)
    if neighbors is not None and neighbors >= n - 1:
        neighbors = None
    if neighbors is None and radii is None:
        _memory.require(8 * n**2, f"a system of all {n:,} data", "Give neighbors=, for instance 20.")
    else:
        require_systems(points.coordinates, neighbors, radii, lambda: points.coordinates[::-(-n // 25)], nthreads)
    native = (model if known.degree < 0 else model._lifted(points.coordinates))._native(dimension, None)

    def kriging(rows: Any) -> _core.PlaceKriging:
        at_data = None if known.at_data is None else np.ascontiguousarray(known.at_data[:, rows])
        errors = None if points.error_variance is None else points.error_variance[rows]
        try:
            return _core.PlaceKriging(native, np.ascontiguousarray(points.coordinates[rows]), values[rows], errors, None, at_data,
                                      neighbors or 0, radii or (0.0, 0.0, 0.0), model.isotropic, known.degree, known.mean, (1, 1, 1),
                                      nthreads)
        except ValueError as error:
            raise _refused(error, model, None, points) from None

    estimate, variance = np.empty(n), np.empty(n)
    counts = np.zeros(4, np.int64)
    all_serve = neighbors is None and radii is None
    with systems_told(n, neighbors):
        whole = kriging(slice(None))
    with systems_told(n, neighbors), _progress.shown(progress, "cross-validation") as report:
        if folds is None:
            counts += whole.leave_out(None, None, estimate, variance, nthreads, report)
        elif neighbors is None or np.diff(start).max() <= LARGE_FOLD:
            counts += whole.leave_out(start, member, estimate, variance, nthreads, report)
        else:
            for own in _each_fold(start, member, report):
                at_targets = None if known.at_data is None else np.ascontiguousarray(known.at_data[:, own])
                part = np.empty((2, len(own)))
                counts += kriging(np.delete(np.arange(n), own)).at_places(points.coordinates[own], None, at_targets, part[0], part[1],
                                                                          nthreads, None)
                estimate[own], variance[own] = part
    lonely, undetermined, indefinite, redundant = (int(count) for count in counts)
    if redundant and all_serve:
        warn(f"{redundant:,} of {n:,} data are NaN and left out{REDUNDANT}")
    without = undetermined + indefinite + redundant * all_serve + lonely * (known.degree >= 0)
    _warn_of((lonely, undetermined, indefinite, redundant * (not all_serve)), n, known.degree < 0, radii is not None, "data", "other")
    warn_if_beyond(estimate, variance, without, n, "data")
    if points.error_variance is not None:
        variance += points.error_variance
    error = estimate - values
    with np.errstate(divide="ignore", invalid="ignore"):
        zscore = error / np.sqrt(variance)
    columns = {axis: points.coordinates[:, i] for i, axis in enumerate(AXES[:dimension])}
    table = pd.DataFrame({**columns, "value": points.values, "estimate": estimate, "variance": variance, "error": error, "zscore": zscore,
                          "fold": labels[group]})
    table.attrs.update(_figures(values, estimate, error, zscore))
    return table


def _drift(points: Points, mean: Any, drift: Any) -> _Drift:
    plain = _without_fields(mean, drift, "values at the points")
    return plain or _Drift(0, 0.0, np.stack([_at_points(name, given, points) for name, given in drift.items()]))


def _folds(folds: Any, n: int, seed: Any) -> tuple[NDArray[Any], NDArray[np.intp], NDArray[np.int32], NDArray[np.int32]]:
    """The labels, the number of each datum's label, and the data by label: those of label f at start[f] and on."""
    seed = _door.whole("seed", seed, 0, 2**64 - 1)
    if folds is None:
        labels = group = np.arange(n)
    elif _door.naxes("folds", folds) == 0:
        count = _door.whole("folds", folds, 2, n)
        labels, group = np.arange(count), np.random.default_rng(seed).permutation(n) % count
    else:
        given = _door.array("folds", folds)
        if given.shape != (n,):
            raise DataError(f"folds are of shape {given.shape}, but there are {n} points: one label is needed for each.")
        import pandas as pd

        group, labels = pd.factorize(given)
        if (group < 0).any():
            raise DataError(f"folds are missing in {_door.rows(np.flatnonzero(group < 0))}. Give those a label.")
        if len(labels) < 2:
            raise DataError(f"folds are all {_door.show(labels[0])}: at least two are needed.")
    start = np.zeros(len(labels) + 1, np.int32)
    start[1:] = np.cumsum(np.bincount(group))
    return labels, group, start, np.argsort(group, kind="stable").astype(np.int32)


def _each_fold(start: NDArray[np.int32], member: NDArray[np.int32], report: Callable[[float], object] | None) -> Iterator[NDArray[np.int32]]:
    for first, last in zip(start, start[1:]):
        yield member[first:last]
        if report is not None:
            report(float(last / len(member)))


def _figures(values: Floats, estimate: Floats, error: Floats, zscore: Floats) -> dict[str, float]:
    known = np.isfinite(error)
    scores = zscore[np.isfinite(zscore)]
    if not known.any():
        return {name: float("nan") for name in ("mean_error", "rmse", "msdr", "correlation")}
    with np.errstate(invalid="ignore", divide="ignore", over="ignore"):
        correlation = np.corrcoef(values[known], estimate[known])[0, 1] if known.sum() > 1 else np.nan
        return {"mean_error": float(error[known].mean()), "rmse": float(np.sqrt(np.mean(error[known] ** 2))),
                "msdr": float(np.mean(scores**2)) if len(scores) else float("nan"), "correlation": float(correlation)}
