"""Models fitted to variograms and to data."""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable, Iterable, Mapping, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np

from . import _core, _door, _memory, _progress
from ._door import Floats
from ._errors import ArgumentError, DataError, ModelError, warn
from ._models import CovModel, Structure
from ._points import Points, require_numbers

if TYPE_CHECKING:
    import pandas as pd

    from ._variogram import Variogram

FIXED = ("nugget", "sill", "range", "anisotropy", "azimuth", "shape")
# Of a likelihood, at the end of a search: what progress is measured by, no more.
LAST_SLOPE = 1e-6
WEIGHTS = ("pairs", "pairs/lag2", "equal")
# Between which a shape is sought.
SHAPE_BOUNDS = {"Gamma": (0.05, 20.0), "Power": (0.02, 1.98), "Stable": (0.1, 2.0), "Matern": (0.1, 10.0)}


class FittedModel(CovModel):
    """A covariance model that was fitted. It can be used like any other; sums and multiples of it are plain models.

    Attributes
    ----------
    residual : float
        Sum of w (gamma - model)^2 over the lags; NaN of a fit by likelihood.
    log_likelihood : float
        The restricted one, for a fit by likelihood; NaN of another.
    at_bounds : tuple of str
        Parameters that ended on a bound: sills at 0, the longest range at the greatest that the data support, shapes.
    parameter_covariance : pandas.DataFrame
        Covariances of the errors of the parameters that were free and ended on no bound, by name: to first order, and
        as if the semivariances had independent errors. NaN for what the variogram or the data do not determine.
    ranking : pandas.DataFrame
        All candidates, the best first: model, residual (or log_likelihood) and number of free parameters.

    Examples
    --------
    >>> import numpy as np
    >>> import kestrum as ks
    >>> places = np.random.default_rng(1).uniform(0, 100, (300, 2))
    >>> points = ks.Points(places, np.sin(places[:, 0] / 8))
    >>> model = ks.variogram(points, lag=3.0).fit(ks.Nugget(0.1) + ks.Spherical(0.5, range=20))
    >>> model.at_bounds
    ('structures[0].sill',)
    >>> list(model.parameter_covariance)
    ['structures[1].sill', 'structures[1].range']
    """

    __slots__ = ("residual", "log_likelihood", "at_bounds", "parameter_covariance", "ranking")
    residual: float
    log_likelihood: float
    at_bounds: tuple[str, ...]
    parameter_covariance: pd.DataFrame
    ranking: pd.DataFrame

    @classmethod
    def _fitted(cls, structures: tuple[Structure, ...], angles: Sequence[float], **report: Any) -> FittedModel:
        model = super()._of(structures, angles)
        assert isinstance(model, FittedModel)
        for slot, value in report.items():
            object.__setattr__(model, slot, value)
        return model

    def __str__(self) -> str:
        """Of numbers with six figures."""
        def short(number: float) -> float:
            return float(f"{number:.6g}")

        structures = tuple(Structure(s.type, short(s.sill), tuple(map(short, s.range)), None if s.shape is None else short(s.shape))
                           for s in self.structures)
        return str(CovModel._of(structures, [short(angle) for angle in self._angles]))

    def __reduce__(self) -> tuple[Any, ...]:
        return _rebuild, (self.structures, self._angles, {slot: getattr(self, slot) for slot in FittedModel.__slots__})


def _rebuild(structures: tuple[Structure, ...], angles: Sequence[float], report: dict[str, Any]) -> FittedModel:
    return FittedModel._fitted(structures, angles, **report)


@dataclass(frozen=True)
class Free:
    """A parameter that can be changed: the logarithm of a range or of a shape, or the azimuth in radians."""

    name: str
    structure: int
    axes: tuple[int, ...]  # of ranges that change together; none of a shape or the azimuth
    start: float
    low: float
    high: float


class Form:
    """What can be changed of a model, but for its sills, as a vector. Equal ranges of a structure stay equal."""

    def __init__(self, model: Any, fixed: frozenset[str], dimension: int, shortest: float, longest: float) -> None:
        _require_fittable(model, dimension)
        self.model, self.fixed, self.dimension, self.reach = model, fixed, dimension, (shortest, longest)
        self.free: list[Free] = []
        low, high = math.log(shortest), math.log(longest)
        for k, s in enumerate(model.structures):
            ranges = s.range[:dimension]
            groups = [tuple(a for a in range(len(ranges)) if ranges[a] == r) for r in dict.fromkeys(ranges)]
            whole = tuple(range(len(ranges)))
            if "anisotropy" in fixed and ranges:
                groups = [whole]
            for group in groups:
                # A power model is scaled by its sill: its first range is a unit.
                if ("range" in fixed or s.type == "Power") and 0 in group:
                    continue
                logs = [math.log(ranges[a]) for a in group]
                bounds = low + logs[0] - min(logs), high + logs[0] - max(logs)
                if s.type == "Power":
                    bounds = math.log(ranges[0] / 100.0), math.log(ranges[0] * 100.0)
                if bounds[0] > bounds[1]:
                    raise ModelError(f"the anisotropy of {s.type} is too strong for the lags: no range suits both axes. "
                                     "Leave it free, or give more lags.")
                name = f"structures[{k}].range" + ("" if group == whole else f"[{group[0]}]")
                self.free.append(Free(name, k, group, float(np.clip(logs[0], *bounds)), *bounds))
            if s.shape is not None and "shape" not in fixed:
                bounds = math.log(SHAPE_BOUNDS[s.type][0]), math.log(SHAPE_BOUNDS[s.type][1])
                self.free.append(Free(f"structures[{k}].shape", k, (), float(np.clip(math.log(s.shape), *bounds)), *bounds))
        tilted = any(angle % 180.0 for angle in (model.dip, model.plunge))
        if "azimuth" not in fixed and any(len(set(s.range[: 3 if tilted else 2])) > 1 for s in model.structures):
            self.free.append(Free("azimuth", -1, (), math.radians(model.azimuth), -math.inf, math.inf))
        self.start, self.low, self.high = (np.array([getattr(f, side) for f in self.free]) for side in ("start", "low", "high"))
        self.sills = np.array([s.sill for s in model.structures])
        self.sill_free = np.array([("nugget" if s.type == "Nugget" else "sill") not in fixed for s in model.structures])

    def at(self, p: Floats) -> tuple[list[list[float]], list[float | None], float]:
        """Ranges and shapes of the structures, and the azimuth."""
        ranges = [list(s.range) for s in self.model.structures]
        shapes = [s.shape for s in self.model.structures]
        azimuth = self.model.azimuth
        for free, value in zip(self.free, p):
            if free.structure < 0:
                azimuth = math.degrees(value)
            elif not free.axes:
                # Rounding must not bring it beyond what the type allows.
                shapes[free.structure] = min(math.exp(value), SHAPE_BOUNDS[self.model.structures[free.structure].type][1])
            else:
                of = ranges[free.structure]
                factor = math.exp(value) / of[free.axes[0]]
                # In the plane a third range is idle and goes with the first.
                for a in (*free.axes, *(range(self.dimension, len(of)) if 0 in free.axes else ())):
                    of[a] *= factor
        return ranges, shapes, azimuth

    def structures(self, p: Floats, sills: Floats) -> tuple[tuple[Structure, ...], tuple[float, float, float]]:
        ranges, shapes, azimuth = self.at(p)
        return (tuple(Structure(s.type, float(sill), tuple(map(float, r)), None if shape is None else float(shape))
                      for s, sill, r, shape in zip(self.model.structures, sills, ranges, shapes)),
                (float(azimuth), self.model.dip, self.model.plunge))

    def correlations(self, p: Floats, lags: Floats) -> Floats:
        """The covariance of each structure, of sill 1, at some vectors: (structures, lags)."""
        structures, angles = self.structures(p, np.ones(len(self.sills)))
        return np.stack([CovModel._of((s,), angles)._native(self.dimension).covariance(lags) for s in structures])

    def settled(self, p: Floats, sills: Floats) -> Form:
        """The form of a result, its azimuth from 0 to 180 and the first range of its chief structure the longer one."""
        structures, (azimuth, dip, plunge) = self.structures(p, sills)
        if any(free.structure < 0 for free in self.free) and dip == plunge == 0.0:
            # Ranges that ended on one bound have no longer axis.
            chief = max((s for s in structures if s.range), key=lambda s: (len(set(s.range[:2])) > 1, s.sill))
            kept = "range" in self.fixed or ("sill" in self.fixed and any(s.type == "Power" for s in structures))
            if chief.range[0] < chief.range[1] and not kept:
                structures = tuple(_turned(s) for s in structures)
                azimuth += 90.0
            azimuth %= 180.0
        return Form(CovModel._of(structures, (azimuth, dip, plunge)), self.fixed, self.dimension, *self.reach)

    def at_bounds(self) -> tuple[str, ...]:
        """Of a settled form."""
        ended = [f"structures[{k}].sill" for k in range(len(self.sills)) if self.sill_free[k] and self.sills[k] == 0.0]
        return (*ended, *(f.name for f in self.free if min(f.start - f.low, f.high - f.start) < 1e-6))

    def names(self) -> list[str]:
        """Of a settled form: the parameters that are on no bound, sills first."""
        ended = self.at_bounds()
        sills = [f"structures[{k}].sill" for k in np.flatnonzero(self.sill_free)]
        return [name for name in (*sills, *(f.name for f in self.free)) if name not in ended]

    def slopes(self, function: Any) -> list[Any]:
        """Of a settled form: derivatives of function(p), (structures, ...), times the sills, by each of `names`."""
        result = []
        for name in self.names():
            if name.endswith(".sill"):
                result.append(function(self.start)[int(name[len("structures["):name.index("]")])])
                continue
            i = [f.name for f in self.free].index(name)
            step = np.zeros(len(self.free))
            step[i] = 1e-5
            change = (function(self.start + step) - function(self.start - step)) / 2e-5
            # By the parameter itself, not by its logarithm or in radians.
            unit = math.degrees(1.0) if self.free[i].structure < 0 else math.exp(self.start[i])
            result.append(np.tensordot(self.sills, change, 1) / unit)
        return result

    def inverse(self, information: Floats) -> Floats:
        """Of a settled form: the inverse of a matrix by `names`; NaN for what it does not determine, as an azimuth between two
        directions that it makes alike."""
        units = {f.name: math.degrees(1.0) if f.structure < 0 else math.exp(f.start) for f in self.free}
        units |= {f"structures[{k}].sill": sill for k, sill in enumerate(self.sills)}
        scale = np.array([units[name] for name in self.names()])
        values, vectors = np.linalg.eigh(information * np.outer(scale, scale))
        known = values > 1e-12 * values.max(initial=0.0)
        result = (vectors[:, known] / values[known]) @ vectors[:, known].T * np.outer(scale, scale)
        unknown = (vectors[:, ~known] ** 2).sum(axis=1) > 1e-6
        result[unknown] = result[:, unknown] = np.nan
        return np.asarray(result)


def _turned(s: Structure) -> Structure:
    """The same structure, its first two axes exchanged."""
    if s.type != "Power":
        return Structure(s.type, s.sill, (*s.range[1::-1], *s.range[2:]), s.shape)
    assert s.shape is not None
    scale = s.range[0] / s.range[1]  # keeps the first range
    return Structure(s.type, s.sill * scale**s.shape, (s.range[0], s.range[0] * scale, *(r * scale for r in s.range[2:])), s.shape)


def _require_fittable(model: Any, dimension: int) -> None:
    if not isinstance(model, CovModel):
        _door.wrong_type("model", model, "a CovModel as the first guess, say Nugget(0.1) + Spherical(0.9, range=500)")
    if model._local():
        raise ModelError("the model varies over a grid, but a fit is of constants. Give numbers.")
    if any(s.type == "Linear" for s in model.structures):
        raise ModelError("Linear is no covariance in the plane or in space, so that kriging may refuse it. Take Spherical.")
    model._native(dimension)


def fixed_names(fixed: Any) -> frozenset[str]:
    if isinstance(fixed, str):
        fixed = (fixed,)
    try:
        names = list(fixed)
    except TypeError:
        _door.wrong_type("fixed", fixed, f"some of {', '.join(map(repr, FIXED))}")
    for name in names:
        _door.choice("fixed", name, FIXED)
    return frozenset(names)


def fit_variogram(variogram: Variogram, model: Any, weights: Any, fixed: Any, progress: _progress.Progress) -> FittedModel:
    """See Variogram.fit."""
    import pandas as pd

    _door.choice("weights", weights, WEIGHTS)
    names = fixed_names(fixed)
    candidates = list(model) if isinstance(model, (tuple, list)) else [model]
    if not candidates:
        raise ArgumentError("model is an empty list of candidates. Give one at least.")
    found = (variogram.pairs > 0) & np.isfinite(variogram.gamma)
    lag, gamma, pairs = (np.asarray(a[found], np.float64) for a in (variogram.lag, variogram.gamma, variogram.pairs))
    if not (gamma > 0.0).any():
        raise DataError("no semivariance is above 0: there is nothing to fit.")
    weight = {"pairs": pairs, "pairs/lag2": pairs / lag**2, "equal": np.ones_like(lag)}[weights]
    lags = lag[:, None] * np.repeat(variogram._axes(), found.sum(axis=1), axis=0)
    fits, counts, refused = [], [], []
    with _progress.shown(progress, "fit") as report:
        for candidate, step in zip(candidates, _progress.steps(report, len(candidates))):
            try:
                form = Form(candidate, names, variogram.dimension, 0.1 * lag.min(), 3.0 * lag.max())
                count = len(form.free) + int(form.sill_free.sum())
                _require_told(form, variogram, int(found.sum()), count)
                fits.append(_least_squares(form, lags, gamma, weight, step))
                counts.append(count)
            except (DataError, ModelError) as error:
                refused.append((candidate, error))
    if not fits:
        raise refused[0][1]
    if refused:
        warn(f"{len(refused)} of {len(candidates)} candidates were left out. The first, {refused[0][0]}: {refused[0][1]}")
    order = sorted(range(len(fits)), key=lambda i: fits[i][1])
    ranking = pd.DataFrame({"model": [str(_plain(fits[i][0].model)) for i in order], "residual": [fits[i][1] for i in order],
                            "parameters": [counts[i] for i in order]})
    form, residual = fits[order[0]]
    slopes = [np.sqrt(weight) * slope for slope in form.slopes(lambda p: 1.0 - form.correlations(p, lags))]
    spare = len(gamma) - len(slopes)
    covariance = np.full((len(slopes),) * 2, np.nan)
    if slopes and spare > 0:
        covariance = residual / spare * form.inverse(np.array(slopes) @ np.array(slopes).T)
    return FittedModel._fitted(form.model.structures, form.model._angles, residual=residual, log_likelihood=math.nan,
                               at_bounds=form.at_bounds(), ranking=ranking,
                               parameter_covariance=pd.DataFrame(covariance, form.names(), form.names()))


def _plain(model: CovModel) -> FittedModel:
    return FittedModel._fitted(model.structures, model._angles)


def _require_told(form: Form, variogram: Variogram, informed: int, count: int) -> None:
    """Refuses to seek what the variogram does not determine."""
    model = form.model
    if not model.isotropic and np.isnan(variogram.azimuth).any():
        raise ModelError("the model is anisotropic, but the variogram is of all directions. Give variogram(..., azimuth=[...]), "
                         "or one range.")
    directed = [f.name for f in form.free if f.structure < 0 or (f.axes and len(f.axes) < len(model.structures[f.structure].range[
        :form.dimension]))]
    axes = variogram._axes()[(variogram.pairs > 0).any(axis=1)]
    if directed and np.linalg.matrix_rank(axes, 1e-6) < 2:
        raise ModelError(f"the variogram is of one direction, which does not tell {directed[-1]}. Give several azimuths, or "
                         "fixed=('anisotropy', 'azimuth').")
    # Without a tilt, horizontal lags do not depend on a vertical range.
    upright = [f.name for f in form.free if f.axes == (2,)]
    if upright and model.dip % 180.0 == model.plunge % 180.0 == 0.0 and np.abs(axes[:, 2]).max() < 1e-6:
        raise ModelError(f"all directions of the variogram are horizontal, which does not tell {upright[-1]}. Add one with "
                         "dip=90, or fixed='anisotropy'.")
    if informed < count:
        raise DataError(f"the variogram has {informed} lags with pairs, but {count} parameters are free. Give more lags, or a simpler model.")


def _least_squares(form: Form, lags: Floats, gamma: Floats, weight: Floats,
                   report: Callable[[float], object] | None) -> tuple[Form, float]:
    """The best form, and its sum of squares.

    For given ranges the best sills are those of linear least squares that are not negative, so that a search is needed
    for the rest alone (G. H. Golub and V. Pereyra, The differentiation of pseudo-inverses and nonlinear least squares
    problems whose variables separate, SIAM J. Numer. Anal. 10, 1973).
    """
    from scipy.optimize import least_squares, nnls

    root = np.sqrt(weight / weight.sum())
    unit = float(np.abs(gamma).max())
    free = form.sill_free

    def solve(p: Floats) -> tuple[Floats, Floats]:
        terms = root * (1.0 - form.correlations(p, lags))
        aim = root * gamma / unit - (form.sills[~free] / unit) @ terms[~free]
        sills = form.sills / unit
        if free.any():
            sills = sills.copy()
            sills[free] = nnls(terms[free].T, aim)[0]
        return sills * unit, sills[free] @ terms[free] - aim

    best = form.start
    if form.free:
        least = math.inf
        starts = _starts(form, solve)
        for k, start in enumerate(starts):
            if report is not None:
                report(k / len(starts))
            found = least_squares(lambda p: solve(p)[1], start, "3-point", (form.low, form.high), xtol=1e-12, ftol=1e-15, gtol=1e-13,
                                  max_nfev=200)
            # What differs by rounding alone leaves the earlier start's result.
            if found.cost < least * (1.0 - 1e-9):
                least, best = found.cost, _on_bounds(form, found.x, found.cost, solve)
    sills, rest = solve(best)
    if not sills.sum() > 0.0:
        raise DataError("the best sills are all 0: this model does not suit the variogram.")
    return form.settled(best, sills), float(rest @ rest * weight.sum()) * unit**2


def _on_bounds(form: Form, p: Floats, cost: float, solve: Any) -> Floats:
    """Searches stop just inside the bounds: goes to one that is as good."""
    for i in range(len(p)):
        for bound in (form.low[i], form.high[i]):
            if abs(p[i] - bound) < 1e-3:
                there = p.copy()
                there[i] = bound
                rest = solve(there)[1]
                if 0.5 * rest @ rest <= cost * (1.0 + 1e-9):
                    p = there
    return p


def _starts(form: Form, solve: Any) -> list[Floats]:
    """The first guess, and the best few of a table of ranges and azimuths."""
    ranged = sorted({f.structure for f in form.free if f.axes and form.model.structures[f.structure].type != "Power"})
    levels = np.linspace(math.log(form.reach[1] / 60.0), math.log(form.reach[1] / 1.5), 7)
    combinations = list(itertools.combinations_with_replacement(levels, len(ranged))) if len(ranged) <= 3 else []
    turns = np.deg2rad([0.0, 30.0, 60.0, 90.0, 120.0, 150.0]) if any(f.structure < 0 for f in form.free) else np.zeros(1)
    tried: list[tuple[float, int, Floats]] = []
    for combination, turn in itertools.product(combinations, turns):
        p = form.start.copy()
        for level, structure in zip(combination, ranged):
            of = [i for i, f in enumerate(form.free) if f.structure == structure and f.axes]
            p[of] += level - p[of].max()
        for i, f in enumerate(form.free):
            p[i] += turn * (f.structure < 0)
        p = np.clip(p, form.low, form.high)
        rest = solve(p)[1]
        tried.append((float(rest @ rest), len(tried), p))
    return [form.start] + [p for _, _, p in sorted(tried)[:5]]


def fit_likelihood(points: Points, model: CovModel, *, drift: Any = None, fixed: Iterable[str] = (),
                   progress: bool | Callable[[float], object] = False) -> FittedModel:
    """A model fitted to the data themselves by restricted maximum likelihood.

    Parameters
    ----------
    points : Points
        At most a few thousand: time grows with the cube, memory with the square of their number. Variances of errors of
        measurement are taken into account.
    model : CovModel
        The first guess, as for `Variogram.fit`; the search begins there alone.
    drift : {"linear", "quadratic"} or mapping of str to array_like, optional
        The mean: a polynomial of the coordinates, or a constant and multiples of the values given at the points, by name
        (or of the first of a pair, as `krige` takes them). A constant by default.
    fixed : iterable of str
        What stays as it is: see `Variogram.fit`.
    progress : bool or callable
        True shows a bar; a callable gets the share done of the orders of magnitude by which the slopes of the likelihood fall
        until a search ends, which is no measure of time, and what it raises ends the call.

    Returns
    -------
    FittedModel
        With its `log_likelihood`, `at_bounds` and `parameter_covariance`, from the average information. Ranges are sought
        from a tenth of the least distance to three times the largest.

    Warns
    -----
    KestrumWarning
        The search ended before the maximum, where the system of the data cannot be solved to rounding.

    Notes
    -----
    The likelihood is that of differences that the drift does not change (H. D. Patterson and R. Thompson, Recovery of
    inter-block information when block sizes are unequal, Biometrika 58, 1971).

    Examples
    --------
    >>> import numpy as np
    >>> import kestrum as ks
    >>> places = np.random.default_rng(1).uniform(0, 100, (120, 2))
    >>> points = ks.Points(places, np.sin(places[:, 0] / 15) + 0.02 * places[:, 1])
    >>> model = ks.fit_likelihood(points, ks.Nugget(0.1) + ks.Exponential(1.0, range=50), drift="linear")
    >>> model.structures[0].sill < 0.01
    True
    """
    import pandas as pd

    require_numbers("points", points, "likelihood here. Give numbers.")
    names = fixed_names(fixed)
    n, dimension = points.coordinates.shape
    _memory.require(100 * n * n, f"the likelihood of {n:,} data", "Take fewer data, or fit a variogram.")
    shared = n - len(np.unique(points.coordinates + 0.0, axis=0))
    if shared:
        raise DataError(f"{shared:,} data share a place with others. Put them together by points.merged().")
    if isinstance(model, CovModel) and any(s.type == "Power" for s in model.structures):
        raise ModelError("Power has no sill, and no likelihood here. Fit a variogram.")
    terms = _terms(points, drift)
    rest = points.values - terms @ (terms.T @ points.values)
    spread = float(np.std(rest))
    if not spread > 1e-12 * float(np.abs(points.values).max()):
        raise DataError(f"values of {points.name!r} are a drift and nothing else. Leave the drift out, or look at the data.")
    # A power of two, so that sills that are fixed come back as they are.
    unit = 2.0 ** round(2.0 * math.log2(spread))
    i, j = np.triu_indices(n, 1)
    lags = points.coordinates[j] - points.coordinates[i]
    distance = np.sqrt(np.sum(lags**2, axis=1))
    form = Form(model, names, dimension, 0.1 * float(distance.min()), 3.0 * float(distance.max()))
    form.sills = form.sills / unit
    errors = np.zeros(n) if points.error_variance is None else points.error_variance / unit
    likelihood = _Likelihood(form, lags, (i, j), rest / math.sqrt(unit), terms, errors, _door.threads(None))
    with _progress.shown(progress, "likelihood") as show:
        settled = likelihood.maximum(show)
        loss, information = likelihood.information(settled)
    labels = settled.names()
    units = np.array([unit if name.endswith(".sill") else 1.0 for name in labels])
    covariance = settled.inverse(information) * np.outer(units, units)
    best = settled.model * unit
    report = {"log_likelihood": -loss - 0.5 * (n - terms.shape[1]) * math.log(unit)}
    ranking = pd.DataFrame({"model": [str(_plain(settled.model * unit))], **report,
                            "parameters": len(form.free) + int(form.sill_free.sum())})
    return FittedModel._fitted(best.structures, best._angles, residual=math.nan, at_bounds=settled.at_bounds(), ranking=ranking,
                               parameter_covariance=pd.DataFrame(covariance, labels, labels), **report)


def _terms(points: Points, drift: Any) -> Floats:
    """The terms of the drift at the points, made orthonormal, which moves the likelihood by a constant alone."""
    n = len(points)
    columns = [np.ones(n)]
    if isinstance(drift, Mapping):
        for name, given in drift.items():
            values = _door.reals(f"drift {name!r}", given[0] if isinstance(given, tuple) else given)
            if values.shape != (n,):
                raise DataError(f"drift {name!r} has values of shape {values.shape} at the points, but there are {n} points.")
            columns.append(_door.finite(f"drift {name!r}", values))
    elif drift is not None:
        if not isinstance(drift, str):
            _door.wrong_type("drift", drift, "'linear', 'quadratic' or {name: values at the points}")
        _door.choice("drift", drift, ("linear", "quadratic"))
        axes = list((points.coordinates - points.coordinates.mean(axis=0)).T)
        columns += axes
        if drift == "quadratic":
            columns += [a * b for a, b in itertools.combinations_with_replacement(axes, 2)]
    if n <= len(columns):
        raise DataError(f"points are {n}, but the mean has {len(columns)} terms. Give more points, or a simpler drift.")
    centred = [column - column.mean() for column in columns[1:]]
    terms: Floats
    terms, triangle = np.linalg.qr(np.column_stack([columns[0], *(column / (np.abs(column).max() or 1.0) for column in centred)]))
    if np.abs(np.diag(triangle)).min() < 1e-10 * np.abs(np.diag(triangle)).max():
        raise DataError("the terms of the drift cannot be told apart at the points. Leave some of them out.")
    return terms


class _Likelihood:
    """Minus the logarithm of the restricted likelihood of data less their drift."""

    def __init__(self, form: Form, lags: Floats, pairs: tuple[Any, Any], rest: Floats, terms: Floats, errors: Floats,
                 threads: int) -> None:
        self.form, self.lags, self.pairs, self.rest, self.terms, self.errors = form, lags, pairs, rest, terms, errors
        self.threads = threads

    def maximum(self, report: Callable[[float], object] | None = None) -> Form:
        """The form that is most likely."""
        from scipy.optimize import minimize

        form, free = self.form, self.form.sill_free
        nsill = int(free.sum())
        solved = self.solve(form.sills, form.start)
        if solved is None:
            raise ModelError("the first guess makes a system that cannot be solved. Give a sill above 0, and a nugget.")
        if free.all():
            # The best factor of all sills is known.
            form.sills = form.sills * float(self.rest @ solved[1] @ self.rest) / (len(self.rest) - self.terms.shape[1])

        bounds = [(0.0, np.inf)] * nsill + list(zip(form.low, form.high))
        ceiling = 1e30
        seen: list[float] = []  # the greatest slopes

        def loss(x: Floats) -> tuple[float, Floats]:
            sills = form.sills.copy()
            sills[free] = x[:nsill]
            found = self.loss(sills, x[nsill:])
            if found is None:
                return ceiling, np.zeros(len(x))
            if report is not None:
                inside = [low < value < high for value, (low, high) in zip(x, bounds)]
                seen.append(max(float(np.abs(found[1][inside]).max(initial=0.0)), LAST_SLOPE))
                report(0.99 * math.log(seen[0] / min(seen)) / max(math.log(seen[0] / LAST_SLOPE), 1.0))
            return found

        x = np.concatenate((form.sills[free], form.start))
        # Again from where the search ended while that helps, for it learns its scales on the way.
        before = math.inf
        for _ in range(20 if len(x) else 0):
            found = minimize(loss, x, jac=True, method="L-BFGS-B", bounds=bounds, options={"ftol": 1e-14, "gtol": 1e-8, "maxiter": 200})
            x = found.x
            # Higher, for what cannot be computed, than all that follows, but not so high that a search gives up there.
            ceiling = found.fun + 10.0
            if not found.fun < before - 1e-6:
                break
            before = found.fun
        if len(x):
            inside = (x > [low + 1e-6 for low, _ in bounds]) & (x < [high - 1e-6 for _, high in bounds])
            slopes = loss(x)[1] * np.concatenate((x[:nsill], np.ones(len(x) - nsill)))
            if np.abs(slopes[inside]).max(initial=0.0) > 0.1:
                warn("the search for the likeliest model ended before the maximum: beyond, the system of the data cannot be solved. "
                     "Add a nugget.")
        sills = form.sills.copy()
        sills[free] = x[:nsill]
        sills[free & (sills < 1e-9 * sills.sum())] = 0.0
        return form.settled(x[nsill:], sills)

    def solve(self, sills: Floats, p: Floats) -> tuple[float, Floats, Floats] | None:
        """The loss, V^-1 less what the drift takes of it, and the correlations of the structures."""
        correlations = self.form.correlations(p, self.lags)
        projection = np.empty((len(self.rest),) * 2)
        matrix = self.matrix(sills @ correlations, sills.sum() + self.errors)
        determinants = _core.project_out_drift(matrix, np.ascontiguousarray(self.terms.T), projection, self.threads)
        if not math.isfinite(determinants):
            return None
        loss = 0.5 * (determinants + float(self.rest @ (projection @ self.rest))
                      + (len(self.rest) - self.terms.shape[1]) * math.log(2.0 * math.pi))
        return loss, projection, correlations

    def loss(self, sills: Floats, p: Floats) -> tuple[float, Floats] | None:
        """With the slopes by the free sills and by p; None where it cannot be computed."""
        solved = self.solve(sills, p)
        if solved is None:
            return None
        loss, projection, correlations = solved
        scores = projection @ self.rest
        of_pairs = projection[self.pairs] - scores[self.pairs[0]] * scores[self.pairs[1]]
        slopes = list((correlations @ of_pairs + 0.5 * (np.trace(projection) - scores @ scores))[self.form.sill_free])
        for step in np.eye(len(p)) * 1e-5:
            change = self.form.correlations(p + step, self.lags) - self.form.correlations(p - step, self.lags)
            slopes.append(sills @ (change @ of_pairs) / 2e-5)
        return loss, np.array(slopes)

    def information(self, settled: Form) -> tuple[float, Floats]:
        """The loss, and the average of the observed and the expected information (A. R. Gilmour, R. Thompson and B. R. Cullis,
        Average information REML, Biometrics 51, 1995)."""
        self.form = settled
        solved = self.solve(settled.sills, settled.start)
        if solved is None:
            raise ModelError("the search for the likeliest model ended where its system cannot be solved. Add a nugget.")
        scores = solved[1] @ self.rest
        slopes = settled.slopes(lambda p: settled.correlations(p, self.lags))
        changes = [self.matrix(slope, float(name.endswith(".sill"))) @ scores for name, slope in zip(settled.names(), slopes)]
        work = np.array(changes).reshape(len(changes), len(scores))
        return solved[0], 0.5 * work @ solved[1] @ work.T

    def matrix(self, of_pairs: Floats, diagonal: Any) -> Floats:
        result = np.empty((len(self.rest),) * 2)
        result[self.pairs] = result[self.pairs[::-1]] = of_pairs
        np.fill_diagonal(result, diagonal)
        return result
