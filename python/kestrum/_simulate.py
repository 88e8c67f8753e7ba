"""Realizations, and categories."""

from __future__ import annotations

import math
from collections.abc import Callable, Mapping
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _lazy, _memory, _progress
from ._door import Floats
from ._errors import ArgumentError, DataError, GridError, warn
from ._grid import Grid
from ._krige import _drift, _extents, _radii, warn_if_flat
from ._models import CovModel, Range, require_model
from ._points import Points, warn_if_numbers
from ._targets import Target
from ._transforms import NormalScore
from ._watch import watched

if TYPE_CHECKING:
    import xarray as xr

# Passes of the Gibbs sampler over cells with bounds.
PASSES = 20
MAX_CATEGORIES = 100
# Values that are transformed at a time.
_BLOCK = 1 << 18


def simulate(points: Points | None, model: CovModel, grid: Grid | xr.DataArray, *, n: int = 1, first: int = 0, seed: int = 1,
             neighbors: int = 20, radius: Range | None = None, mean: float | ArrayLike | None = None, ordinary: bool = False,
             transform: NormalScore | Literal['normal-score'] | None = None, bounds: tuple[ArrayLike, ArrayLike, ArrayLike] | None = None, mask: ArrayLike | None = None,
             duplicates: Literal["mean", "first", "last", "error"] = "mean", threads: int | None = None,
             progress: bool | Callable[[float], object] = False, chunks: int | None = None,
             dtype: Literal["float64", "float32"] = "float64") -> xr.DataArray:
    """Sequential Gaussian simulation: realizations that honour the data and the model.

    Parameters
    ----------
    points : Points or None
        The data, which move to the centres of their cells; None simulates without data. Data outside the grid are left
        out; a warning counts those and the data that share a cell.
    model : CovModel
        Covariances of the variable, or, with a transform, of its scores.
    grid : Grid or xarray.DataArray
        Where.
    n, first : int
        How many realizations, and the number of the first. Realization k is the same whichever others are computed.
    seed : int
        From 0 to 2^64 - 1. Realizations of all seeds and numbers are independent.
    neighbors : int
        How many data and cells simulated before condition a cell.
    radius : float or sequence of float, optional
        How far they are sought; by default the model's longest range along each of its axes.
    mean : float or array_like, optional
        The mean, a number or one for each cell; by default that of the data, 0 without data or with a transform. With a
        transform it is in scores.
    ordinary : bool
        Whether each cell is kriged with an unknown mean, as in ordinary kriging.
    transform : NormalScore or "normal-score", optional
        Applied to the data, after those of one cell are put together, and back to the result, which honours the data
        exactly. "normal-score" is a `NormalScore` of these very data, of equal weight. Anything with methods ``forward``
        and ``inverse`` will do.
    bounds : tuple of array_like, optional
        (coordinates, lower, upper): places where the value is only known to lie between bounds, NaN for none. A datum in
        the cell wins.
    mask : array_like, optional
        Cells to simulate; elsewhere NaN. Data there count all the same.
    duplicates : {"mean", "first", "last", "error"}
        What becomes of several data in a cell; before the transform.
    threads, progress
        As in `krige`.
    chunks : int, optional
        Realizations in a chunk of a lazy result, which is on a Dask array and the same bits as without. Each chunk takes one
        thread by default, and gives no warnings.
    dtype : {"float64", "float32"}
        Type of the result; float32 is the rounded float64 result.

    Returns
    -------
    xarray.DataArray
        Of dimensions ("realization", ["z",] "y", "x"). Its attributes say how far data moved.

    References
    ----------
    J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial Uncertainty, 2nd ed., Wiley 2012, chapter 7.

    Examples
    --------
    >>> import kestrum as ks
    >>> fields = ks.simulate(None, ks.Spherical(1.0, range=8), ks.Grid(20, 15), n=3, seed=42)
    >>> fields.dims, fields.shape
    (('realization', 'y', 'x'), (3, 15, 20))
    >>> again = ks.simulate(None, ks.Spherical(1.0, range=8), ks.Grid(20, 15), first=2, seed=42)
    >>> bool((again[0] == fields[2]).all())
    True
    """
    target, count, size, first, seed = _begin(points, model, grid, n, first, seed, chunks)
    _door.choice("duplicates", duplicates, ("mean", "first", "last", "error"))
    kind = np.dtype(_door.choice("dtype", dtype, ("float64", "float32")))
    _door.flag("ordinary", ordinary)
    if isinstance(transform, str):
        _door.choice("transform", transform, ("normal-score",))
        if points is None:
            raise ArgumentError("transform 'normal-score' is fitted to data, but there are no points. Give a NormalScore.")
    elif transform is not None and ((isinstance(transform, type) and issubclass(transform, NormalScore)) or not (hasattr(transform, "forward") and hasattr(transform, "inverse"))):
        _door.wrong_type("transform", transform, "a NormalScore, made of values, 'normal-score', or an object with forward and inverse")
    if points is not None:
        if points.values.dtype.kind not in "iuf":
            raise DataError(f"values of {points.name!r} are labels. Simulation of categories: simulate_categories.")
        if points.error_variance is not None:
            raise DataError("points have error_variance, which simulation does not filter. Leave it out.")
    neighbors = _door.whole("neighbors", neighbors, 1, 10_000)
    radii = _radii(radius, target.dimension)
    threads = _threads(threads, chunks)
    _warn_if_noise(target, [model], radii)
    warn_if_flat([model], points)
    taken = target.mask(mask)
    model._require_informed(target, taken)
    _require_memory(target, [model], radii, size, kind, transform is not None, f"a result of {size:,} x {target.count:,} values",
                    "Ask for fewer realizations at a time (first=, chunks=), or dtype='float32'.", _nchunk(count, size, chunks))
    nodes, values, moved = _on_nodes(points, target, duplicates)
    honoured = values
    if transform is not None:
        if isinstance(transform, str):
            transform = NormalScore(values)
        _warn_of_scores(transform, model)
        values = _transformed(transform, values, points) if len(values) else values
        mean = 0.0 if mean is None else mean
    centre = float(values.mean()) if mean is None and len(values) else 0.0 if mean is None else mean
    known = _drift(points, target, centre, None, taken) if points is not None else _mean_without_points(target, centre, taken)
    task = _Task(target, [model], bool(ordinary), neighbors, radii, nodes, values, taken, known.at_targets, known.mean, threads, seed, kind,
                 _bounds(bounds, target, nodes, transform), transform, honoured)
    name = points.name if points is not None else "value"
    return _realizations(task, first, count, None if chunks is None else size, progress, {
        "long_name": name, "method": "sequential Gaussian simulation", "model": str(model), "seed": str(seed), "neighbors": neighbors,
        **moved, "kestrum": _core.version})


def krige_categories(points: Points, model: CovModel | Mapping[Any, CovModel], grid: Grid | xr.DataArray, *, neighbors: int = 20,
                     radius: Range | None = None, proportions: Mapping[Any, float | ArrayLike] | None = None,
                     ordinary: bool = False, mask: ArrayLike | None = None, threads: int | None = None,
                     progress: bool | Callable[[float], object] = False) -> xr.DataArray:
    """Indicator kriging: the probability of each category.

    Parameters
    ----------
    points : Points
        Labels of categories, which move to the centres of their cells. Of several in a cell the last counts.
    model : CovModel or mapping
        Covariances of the indicators: one model for all categories, or {label: model}.
    grid : Grid or xarray.DataArray
        Where.
    neighbors, radius, mask, threads, progress
        As in `simulate`.
    proportions : mapping, optional
        {label: proportion}, numbers or arrays on the grid that sum to 1; by default those of the data.
    ordinary : bool
        Whether proportions are unknown, and found around each cell.

    Returns
    -------
    xarray.DataArray
        Of dimensions ("category", ["z",] "y", "x"). The categories are in the order of `model`, else of `proportions`,
        else sorted.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[2.2, 2.2], [8.2, 8.2]], ["sand", "clay"])
    >>> chance = ks.krige_categories(points, ks.Exponential(1.0, range=9), ks.Grid(10, 10))
    >>> chance.category.values.tolist(), float(chance.sel(category="sand", x=2.5, y=2.5).round(3))
    (['clay', 'sand'], 1.0)
    """
    labels, task = _categories(points, model, grid, neighbors, radius, proportions, ordinary, mask, threads)
    result = np.empty((len(labels), task.target.count))
    with _progress.shown(progress, "indicator kriging") as report:
        _warn_of_systems(*task.run().krige_categories(task.proportions, result, report))
    return _stack(task.target, _layers(task.target, result), "category", labels, {"long_name": f"probability of {points.name}", "method": "indicator kriging",
                                                       "kestrum": _core.version})


def simulate_categories(points: Points | None, model: CovModel | Mapping[Any, CovModel], grid: Grid | xr.DataArray, *, n: int = 1,
                        first: int = 0, seed: int = 1, neighbors: int = 20, radius: Range | None = None,
                        proportions: Mapping[Any, float | ArrayLike] | None = None, ordinary: bool = False,
                        mask: ArrayLike | None = None, threads: int | None = None,
                        progress: bool | Callable[[float], object] = False, chunks: int | None = None) -> xr.DataArray:
    """Sequential indicator simulation: realizations of categories.

    Parameters
    ----------
    points, model, grid, neighbors, radius, proportions, ordinary, mask
        As in `krige_categories`; without points, proportions are needed.
    n, first, seed, threads, progress, chunks
        As in `simulate`.

    Returns
    -------
    xarray.DataArray
        Codes (int16) of dimensions ("realization", ["z",] "y", "x"), -1 outside the mask. ``attrs["categories"]`` has the
        labels in the order of the codes.

    Examples
    --------
    >>> import kestrum as ks
    >>> rock = ks.simulate_categories(None, ks.Exponential(1.0, range=9), ks.Grid(30, 20), n=2,
    ...                               proportions={"sand": 0.7, "clay": 0.3})
    >>> rock.attrs["categories"], rock.shape
    (['sand', 'clay'], (2, 20, 30))
    """
    _target, count, size, first, seed = _begin(points, next(iter(model.values()), None) if isinstance(model, Mapping) else model, grid, n, first, seed, chunks)
    labels, task = _categories(points, model, grid, neighbors, radius, proportions, ordinary, mask, _threads(threads, chunks), size, seed, _nchunk(count, size, chunks))
    return _realizations(task, first, count, None if chunks is None else size, progress, {
        "long_name": points.name if points is not None else "category", "method": "sequential indicator simulation", "categories": labels,
        "seed": str(seed), "kestrum": _core.version})


@dataclass(frozen=True)
class _Task:
    """What any realization needs, as it is sent to a worker. Of categories values are codes, with a model for each."""

    target: Target
    models: list[CovModel]
    ordinary: bool
    neighbors: int
    radii: tuple[float, float, float] | None
    nodes: NDArray[np.int32]
    values: Floats
    mask: NDArray[np.uint8] | None
    means: Floats | None
    mean: float
    threads: int
    seed: int
    kind: Any  # type of the result
    bounds: tuple[NDArray[np.int32], Floats, Floats] | None = None
    transform: Any = None
    honoured: Any = None  # the values before the transform
    proportions: Any = None
    made: _lazy.Once[_core.GridRun] = field(default_factory=_lazy.Once)

    def run(self) -> _core.GridRun:
        made = {id(one): one._native(self.target.dimension, self.target) for one in self.models}
        run = _core.GridRun(self.target.numbers or (), [made[id(one)] for one in self.models], self.ordinary, self.neighbors, self.radii,
                            self.nodes, self.values, self.mask, self.means, self.mean, True, self.threads)
        if self.bounds is not None:
            run.set_bounds(*self.bounds)
        return run

    def draw(self, first: int, count: int, report: Any = None) -> tuple[NDArray[Any], tuple[int, int, int]]:
        """Realizations, in the order of the result, and counts of what went wrong."""
        # A transform takes float64, so that float32 is rounded once.
        rows: NDArray[Any] = np.empty((count, self.target.count), self.kind if self.transform is None else np.float64)
        if self.proportions is not None:
            counts = self.made.get(self.run).simulate_categories(self.proportions, self.seed, first, rows, report)
        else:
            counts = self.made.get(self.run).simulate(self.seed, first, PASSES, rows, report)
        if self.transform is not None:
            for row in rows:
                honoured = np.where(np.isnan(row[self.nodes]), np.nan, self.honoured)
                for begin in range(0, len(row), _BLOCK):
                    part = row[begin:begin + _BLOCK]
                    informed = ~np.isnan(part)
                    part[informed] = self.transform.inverse(part[informed])
                row[self.nodes] = honoured
            rows = rows.astype(self.kind, copy=False)
        return _layers(self.target, rows), counts


def _draw(task: _Task, first: int, count: int) -> NDArray[Any]:
    return _lazy.cancellable(lambda report: task.draw(first, count, report))[0]


def _require_memory(target: Target, models: list[CovModel], radii: tuple[float, float, float] | None, n: int, kind: Any, transformed: bool,
                    what: str, remedy: str, chunks: int) -> None:
    """Refuses n realizations that memory cannot hold, and warns of so many chunks of them that it cannot hold together; 0 is a call
    at once."""
    size = simulation_bytes(target, models, radii, n, kind, transformed)
    (_lazy.require_memory if chunks else _memory.require)(size, what, remedy)
    if chunks > 1:
        shared = _shared_bytes(target, models, radii)
        _lazy.warn_of_memory(size - shared, shared, chunks)


def simulation_bytes(target: Target, models: list[CovModel], radii: tuple[float, float, float] | None, n: int, kind: Any,
                     transformed: bool = False) -> int:
    """What n realizations take in memory, result and all."""
    # Path, states and ranks of the cells, what is seen of them, and the path of the next realization.
    work = 13 + 4 * (n > 1)
    rounded = n * kind.itemsize if kind != np.float64 else 0
    if transformed:
        cell = 8 * n + max(work, rounded)
    else:
        cell = work + (rounded + 8 if rounded else 8 * n)
    return int(target.count * cell) + _shared_bytes(target, models, radii)


def _shared_bytes(target: Target, models: list[CovModel], radii: tuple[float, float, float] | None) -> int:
    """What realizations share."""
    return sum(_neighborhood_bytes(target, model, radii) for model in {id(model): model for model in models}.values())


def _neighborhood_bytes(target: Target, model: CovModel, radii: tuple[float, float, float] | None) -> int:
    """The list of the neighbours of a cell, and the table of the covariances between them."""
    assert target.numbers is not None
    dimension = target.dimension
    cells, sizes = np.array(target.numbers[:dimension]), np.array(target.numbers[3:3 + dimension])
    # One range holds along all axes.
    ranges = [([np.nanmax(r) for r in s.range] * (3 if len(s.range) == 1 else 1))[:dimension] for s in model.structures if s.range]
    along, across, *vertical = np.max(ranges, axis=0) if ranges else (0.0, 0.0, 0.0)
    reach = np.array(((across, along, *vertical) if radii is None else radii)[:dimension], float)
    with np.errstate(over="ignore"):
        volume = (math.pi / 4 if dimension == 2 else math.pi / 6) * float(np.prod(2.0 * reach / sizes + 1.0))
    turned = np.any(model.azimuth) or np.any(model.dip) or np.any(model.plunge)
    widths = np.minimum((reach.max() if turned else reach) // sizes, cells - 1)
    differences = float(np.prod(2.0 * np.minimum(2.0 * widths, cells - 1) + 1.0)) / 2.0
    table = 0.0 if model._local() or differences > 2**18 + 3 * target.count else 8.0 * differences
    return int(60.0 * min(volume, float(np.prod(2.0 * widths + 1.0))) + table)


def _threads(threads: Any, chunks: Any) -> int:
    return 1 if threads is None and chunks is not None else _door.threads(threads)


def _nchunk(count: int, size: int, chunks: Any) -> int:
    return 0 if chunks is None else -(-count // size)


def _begin(points: Any, model: Any, grid: Any, n: Any, first: Any, seed: Any, chunks: Any) -> tuple[Target, int, int, int, int]:
    """The target, how many realizations there are in all and at a time, the first of them, and the seed."""
    if points is not None and not isinstance(points, Points):
        _door.wrong_type("points", points, "Points, or None")
    require_model(model)
    target = Target(grid, places_too=False, name="grid")
    if points is not None:
        target.require_dimension(points)
    count = _door.whole("n", n, 1, 2**31 - 1)
    begin = _door.whole("first", first, 0, 2**32 - count)
    number = _door.whole("seed", seed, 0, 2**64 - 1)
    if chunks is None:
        return target, count, count, begin, number
    _lazy.require()
    return target, count, min(count, _door.whole("chunks", chunks, 1)), begin, number


def _require_cells(target: Target) -> None:
    if target.count >= 2**31:
        raise GridError(f"the grid has {target.count:,} cells, more than 2,147,483,647. Take larger cells, or a part of the grid.")


def _on_nodes(points: Points | None, target: Target, duplicates: str) -> tuple[NDArray[np.int32], Any, dict[str, Any]]:
    """Nodes in increasing order with their values, and how far data moved. Labels come as they are."""
    _require_cells(target)
    if points is None:
        return np.zeros(0, np.int32), np.zeros(0), {}
    assert target.grid is not None and target.numbers is not None
    nodes = _core.nodes_of(target.numbers, points.coordinates)
    inside = np.flatnonzero(nodes >= 0)
    if len(inside) == 0:
        raise DataError(f"all {len(points):,} data lie outside the grid. {_extents(points, target)}")
    held, position, group, counts = watched(
        len(inside), lambda: np.unique(nodes[inside], return_index=True, return_inverse=True, return_counts=True))
    shared = len(inside) - len(held)
    if shared and duplicates == "error":
        of = np.flatnonzero(counts[group] > 1)
        raise DataError(f"{shared:,} data share a cell with others ({_door.rows(points._given_rows(inside[of]))}). "
                        "Give smaller cells, or duplicates='mean'.")
    values = points.values[inside]
    if duplicates == "mean":
        values = np.bincount(group, values) / counts
    elif duplicates == "last":
        chosen = np.zeros(len(held), np.intp)
        np.maximum.at(chosen, group, np.arange(len(inside)))
        values = values[chosen]
    else:
        values = values[position]
    said = []
    if len(inside) < len(points):
        outside = np.flatnonzero(nodes < 0)
        said.append(f"{len(outside):,} data outside the grid are left out ({_door.rows(points._given_rows(outside))})")
    if shared:
        said.append(f"{shared:,} data share a cell with others" + (", which are averaged" if duplicates == "mean" else f", of which the {duplicates} counts"))
    if said:
        warn("; ".join(said) + ".")
    at = np.unravel_index(nodes[inside], target.grid.shape)
    centres = np.column_stack([axis[i] for axis, i in zip(list(target.grid.coords.values())[::-1], at[::-1])])
    moved = np.sqrt(((points.coordinates[inside] - centres) ** 2).sum(axis=1))
    return held, values, {"data": len(held), "data_moved_mean": float(moved.mean()), "data_moved_max": float(moved.max())}


def _transformed(transform: Any, values: Floats, points: Points | None) -> Floats:
    scores = _door.reals("transformed values", transform.forward(values))
    bad = np.flatnonzero(~np.isfinite(scores))
    if len(bad):
        what = f"values of {points.name!r}" if points is not None else "values"
        raise DataError(f"transform gives {scores[bad[0]]} for {values[bad[0]]:g}, one of {len(bad):,} {what} that it does not cover. "
                        "Fit it to these values, or give it a wider minimum and maximum.")
    return scores


def _warn_of_scores(transform: Any, model: CovModel) -> None:
    if isinstance(transform, NormalScore) and not model._local() and not 0.5 <= model.sill <= 2.0:
        warn(f"the model has a sill of {model.sill:g}, but normal scores a variance of 1. Fit the model to the scores: "
             "points.with_values(transform.forward(points.values)).")


def _warn_if_noise(target: Target, models: list[CovModel], radii: tuple[float, float, float] | None) -> None:
    """Says so where no cell has to do with another."""
    grid = target.grid
    assert grid is not None
    smallest = min([size for size, n in ((grid.dx, grid.nx), (grid.dy, grid.ny), (grid.dz, grid.nz)) if n > 1], default=0.0)
    if radii is not None and max(radii) < smallest:
        warn(f"radius is {max(radii):g}, but cells are at least {smallest:g} apart: none has another in reach, and they are independent of "
             "each other. Give a larger radius.")
    ranges = [np.nanmax(along) for model in models for part in model.structures for along in part.range]
    if ranges and max(ranges) < smallest:
        warn(f"ranges of the model are at most {max(ranges):g}, but cells are at least {smallest:g} apart: they are hardly correlated. Are the "
             "ranges in the unit of the coordinates?")


def _mean_without_points(target: Target, mean: Any, mask: NDArray[np.uint8] | None) -> Any:
    from ._krige import _Drift, _where_informed

    if _door.naxes("mean", mean) == 0:
        return _Drift(-1, _door.number("mean", mean))
    return _Drift(-1, 0.0, None, (_where_informed("mean", target.values("mean", mean), mask),))


def _bounds(bounds: Any, target: Target, nodes: NDArray[np.int32], transform: Any) -> tuple[NDArray[np.int32], Floats, Floats] | None:
    """Bounds by node, in increasing order, where there is no datum."""
    if bounds is None:
        return None
    if not isinstance(bounds, (tuple, list)) or len(bounds) != 3:
        raise ArgumentError("bounds must be (coordinates, lower, upper).")
    rows = _door.array("bounds", bounds[0])
    if rows.ndim != 2:
        raise ArgumentError("bounds must be (coordinates, lower, upper), with a row of coordinates for each place.")
    places = Points(rows, np.zeros(len(rows)), "bounds")
    target.require_dimension(places)
    ends = []
    for name, given in (("lower", bounds[1]), ("upper", bounds[2])):
        end = _door.reals(f"{name} bounds", given)
        end = np.full(len(places), end) if end.ndim == 0 else end
        if end.shape != (len(places),):
            raise DataError(f"{name} bounds are of shape {end.shape}, but there are {len(places)} places.")
        if transform is not None:
            informed = ~np.isnan(end)
            end = end.copy()
            end[informed] = transform.forward(end[informed])
        wrong = end == (np.inf if name == "lower" else -np.inf)
        if wrong.any():
            raise DataError(f"{name} bounds leave no value in {_door.rows(np.flatnonzero(wrong))}. Leave those rows out, or give the "
                            "transform a wider minimum and maximum.")
        ends.append(np.where(np.isinf(end), np.nan, end))
    crossed = np.flatnonzero(ends[0] > ends[1])
    if len(crossed):
        raise DataError(f"lower bounds are above upper ones in {_door.rows(crossed)}.")
    assert target.numbers is not None
    at = _core.nodes_of(target.numbers, places.coordinates)
    outside = np.flatnonzero(at < 0)
    if len(outside):
        warn(f"{len(outside):,} bounds outside the grid are left out ({_door.rows(outside)}).")
    use = (at >= 0) & ~np.isin(at, nodes) & ~(np.isnan(ends[0]) & np.isnan(ends[1]))
    held, group = np.unique(at[use], return_inverse=True)
    # Of several in a cell the tighter ones hold.
    lower, upper = np.full(len(held), np.nan), np.full(len(held), np.nan)
    np.fmax.at(lower, group, ends[0][use])
    np.fmin.at(upper, group, ends[1][use])
    if (lower > upper).any():
        raise DataError(f"bounds of one cell contradict each other in {int((lower > upper).sum()):,} cells.")
    return held, lower, upper


def _categories(points: Points | None, model: Any, grid: Any, neighbors: Any, radius: Any, proportions: Any, ordinary: Any, mask: Any,
                threads: Any, n: int = 0, seed: int = 0, chunks: int = 0) -> tuple[list[Any], _Task]:
    if points is not None and not isinstance(points, Points):
        _door.wrong_type("points", points, "Points")
    target = Target(grid, places_too=False, name="grid")
    if points is not None:
        target.require_dimension(points)
    _door.flag("ordinary", ordinary)
    neighbors = _door.whole("neighbors", neighbors, 1, 10_000)
    radii = _radii(radius, target.dimension)
    threads = _door.threads(threads)
    found = [] if points is None else _sorted(set(points.values.tolist()))
    if isinstance(model, Mapping):
        labels = list(model)
    elif proportions is not None and isinstance(proportions, Mapping):
        labels = list(proportions)
    else:
        labels = found
    if points is None and proportions is None:
        raise ArgumentError("proportions are needed without points: {label: proportion}.")
    strange = [label for label in found if label not in labels]
    if strange and labels:
        raise DataError(f"points have the label {strange[0]!r}, which {'model' if isinstance(model, Mapping) else 'proportions'} "
                        f"lacks.{_door.nearest(strange[0], labels)} It has {', '.join(map(repr, labels))}.")
    if not 2 <= len(labels) <= MAX_CATEGORIES:
        raise DataError(f"there {'is 1 category' if len(labels) == 1 else f'are {len(labels)} categories'}, but from 2 to {MAX_CATEGORIES} are needed.")
    if points is not None:
        warn_if_numbers(points, len(found))
    models = [model[label] for label in labels] if isinstance(model, Mapping) else [model] * len(labels)
    for one in models:
        if not isinstance(one, CovModel):
            _door.wrong_type("model", one, "a CovModel, or {label: CovModel}")
    _warn_if_noise(target, models, radii)
    warn_if_flat(models, points)
    taken = target.mask(mask)
    for one in {id(one): one for one in models}.values():
        one._require_informed(target, taken)
    kind = np.dtype(np.int16 if n else np.float64)
    _require_memory(target, models, radii, n or len(labels), kind, False, f"a result on {target.count:,} cells",
                    "Take larger cells, or fewer realizations at a time.", chunks)
    nodes, values, _ = _on_nodes(points, target, "last")
    code = {label: number for number, label in enumerate(labels)}
    codes = np.array([code[value] for value in values.tolist()], np.float64)
    chances = _proportions(proportions, labels, codes, target, taken)
    return labels, _Task(target, models, bool(ordinary), neighbors, radii, nodes, codes, taken, None, 0.0, threads, seed, kind,
                         proportions=chances)


def _sorted(labels: set[Any]) -> list[Any]:
    try:
        return sorted(labels)
    except TypeError:
        return sorted(labels, key=str)


def _proportions(proportions: Any, labels: list[Any], codes: Floats, target: Target, mask: NDArray[np.uint8] | None) -> Floats:
    from ._krige import _where_informed

    if proportions is None:
        return np.bincount(codes.astype(np.int64), minlength=len(labels)) / max(len(codes), 1)
    if not isinstance(proportions, Mapping):
        _door.wrong_type("proportions", proportions, "{label: proportion}")
    missing = [label for label in labels if label not in proportions]
    if missing or len(proportions) != len(labels):
        strange = missing or [label for label in proportions if label not in labels]
        raise ArgumentError(f"proportions and categories differ in {strange[0]!r}. Give one for each of {', '.join(map(repr, labels))}.")
    parts: list[Any] = []
    for label in labels:
        name, given = f"proportion of {label!r}", proportions[label]
        part: Any = _door.number(name, given) if _door.naxes(name, given) == 0 else _where_informed(name, target.values(name, given), mask).reshape(-1)
        least = float(np.min(part, initial=np.inf, where=~np.isnan(part)))
        if least < 0.0:
            raise ArgumentError(f"{name} is {least:g}, but must be at least 0.")
        parts.append(part)
    local = any(np.ndim(part) for part in parts)
    chances = np.stack([np.nan_to_num(np.broadcast_to(part, (target.count,) if local else ())) for part in parts])
    total = chances.sum(axis=0)
    informed = np.ones(np.shape(total), bool) if mask is None or not local else mask.reshape(-1) != 0
    off = np.abs(total - 1.0)[informed]
    if (off > 1e-6).any():
        raise ArgumentError(f"proportions sum to {np.asarray(total)[informed].flat[int(off.argmax())]:g}, but must sum to 1.")
    return np.ascontiguousarray(chances)


def _warn_of_systems(dropped: int, failed: int, relaxed: int) -> None:
    if relaxed:
        warn(f"bounds gave way in {relaxed:,} passes, for they contradict the data or each other. Look at them again.")
    if dropped or failed:
        warn(f"{dropped + failed:,} systems could not be solved as they were, for the model is not positive definite there. "
             "Add a nugget, or take another model.")


def _layers(target: Target, rows: NDArray[Any]) -> NDArray[Any]:
    """Rows of node order as layers, ordered as the template is."""
    return rows.reshape(len(rows), *target.shape)[(slice(None), *target._flips())]


def _stack(target: Target, layers: Any, dim: str, index: list[Any], attributes: dict[str, Any]) -> xr.DataArray:
    """Layers on the grid along a first dimension."""
    import xarray as xr

    like = target.labelled({"layer": np.broadcast_to(0.0, target.shape)}, {"layer": {}}, {}).layer
    # Without rename the result has the name of a Dask array.
    return xr.DataArray(layers, {dim: index, **like.coords}, (dim, *like.dims), attrs=attributes).rename(None)


def _realizations(task: _Task, first: int, count: int, chunks: int | None, progress: Any, attributes: dict[str, Any]) -> xr.DataArray:
    layers: Any
    if chunks is None:
        with _progress.shown(progress, "simulation") as report:
            layers, counts = task.draw(first, count, report)
        _warn_of_systems(*counts)
    else:
        sizes = _lazy.sizes(count, chunks)
        starts = np.cumsum((first, *sizes)).tolist()
        name = f"simulation-{_lazy.token(task, first, sizes)}"
        tasks: dict[Any, Any] = {f"{name}-task": task}
        corner = (0,) * len(task.target.shape)
        for k, (start, size) in enumerate(zip(starts, sizes)):
            tasks[(name, k, *corner)] = (_draw, f"{name}-task", start, size)
        layers = _lazy.array(name, tasks, (sizes, *((n,) for n in task.target.shape)), task.kind, [])
    return _stack(task.target, layers, "realization", list(range(first, first + count)), attributes)
