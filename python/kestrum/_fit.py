"""Models fitted to variograms and to data."""

import itertools
import math
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import NDArray

from . import _core, _door
from ._door import Floats
from ._errors import ArgumentError, DataError, ModelError
from ._models import SHAPES, TYPES, CovModel, Structure

if TYPE_CHECKING:
    import pandas as pd

    from ._variogram import Variogram

FIXED = ("nugget", "sill", "range", "anisotropy", "azimuth", "shape")
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
        Parameters that ended on a bound: sills at 0, the longest range at the greatest that the data tell of, shapes.
    parameter_covariance : pandas.DataFrame
        Covariances of the errors of the parameters that were free and ended on no bound, by name: to first order, and
        as if the semivariances had independent errors.
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
    parameter_covariance: "pd.DataFrame"
    ranking: "pd.DataFrame"

    @classmethod
    def _fitted(cls, structures: tuple[Structure, ...], angles: Sequence[float], **report: Any) -> "FittedModel":
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
            # A power model is scaled by its sill alone.
            for group in groups if s.type != "Power" else []:
                if "range" in fixed and 0 in group:
                    continue
                logs = [math.log(ranges[a]) for a in group]
                bounds = low + logs[0] - min(logs), high + logs[0] - max(logs)
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

    def settled(self, p: Floats, sills: Floats) -> "Form":
        """The form of a result, its azimuth from 0 to 180 and the first range of its chief structure the longer one."""
        structures, (azimuth, dip, plunge) = self.structures(p, sills)
        if any(free.structure < 0 for free in self.free) and dip == plunge == 0.0:
            chief = max((s for s in structures if len(set(s.range[:2])) > 1), key=lambda s: s.sill)
            if chief.range[0] < chief.range[1] and "range" not in self.fixed:
                structures = tuple(Structure(s.type, s.sill, (*s.range[1::-1], *s.range[2:]), s.shape) for s in structures)
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
    names = list(fixed)
    for name in names:
        _door.choice("fixed", name, FIXED)
    return frozenset(names)


def fit_variogram(variogram: "Variogram", model: Any, weights: Any, fixed: Any) -> FittedModel:
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
    fits = []
    for candidate in candidates:
        form = Form(candidate, names, variogram.dimension, 0.1 * lag.min(), 3.0 * lag.max())
        _require_told(form, variogram, int(found.sum()))
        fits.append(_least_squares(form, lags, gamma, weight))
    order = sorted(range(len(fits)), key=lambda i: fits[i][1])
    ranking = pd.DataFrame({"model": [str(_plain(fits[i][0])) for i in order], "residual": [fits[i][1] for i in order],
                            "parameters": [len(fits[i][0].free) + int(fits[i][0].sill_free.sum()) for i in order]})
    form, residual = fits[order[0]]
    slopes = [np.sqrt(weight) * slope for slope in form.slopes(lambda p: 1.0 - form.correlations(p, lags))]
    spare = len(gamma) - len(slopes)
    covariance = np.full((len(slopes),) * 2, np.nan)
    if slopes and spare > 0:
        covariance = residual / spare * np.linalg.pinv(np.array(slopes) @ np.array(slopes).T, hermitian=True)
    return FittedModel._fitted(form.model.structures, form.model._angles, residual=residual, log_likelihood=math.nan,
                               at_bounds=form.at_bounds(), ranking=ranking,
                               parameter_covariance=pd.DataFrame(covariance, form.names(), form.names()))


def _plain(form: Form) -> FittedModel:
    return FittedModel._fitted(form.model.structures, form.model._angles)


def _require_told(form: Form, variogram: "Variogram", informed: int) -> None:
    """Refuses to seek what the variogram does not tell."""
    model = form.model
    if not model.isotropic and np.isnan(variogram.azimuth).any():
        raise ModelError("the model is anisotropic, but the variogram is of all directions. Give variogram(..., azimuth=[...]), "
                         "or one range.")
    directed = [f.name for f in form.free if f.structure < 0 or (f.axes and len(f.axes) < len(model.structures[f.structure].range[
        :form.dimension]))]
    if directed and len(variogram.azimuth) < 2:
        raise ModelError(f"the variogram is of one direction, which does not tell {directed[-1]}. Give several azimuths, or "
                         "fixed=('anisotropy', 'azimuth').")
    count = len(form.free) + int(form.sill_free.sum())
    if informed < count:
        raise DataError(f"the variogram has {informed} lags with pairs, but {count} parameters are free. Give more lags, or a simpler model.")


def _least_squares(form: Form, lags: Floats, gamma: Floats, weight: Floats) -> tuple[Form, float]:
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
        for start in _starts(form, solve):
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
    ranged = sorted({f.structure for f in form.free if f.axes})
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
