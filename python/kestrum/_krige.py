"""Kriging."""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _lazy, _memory, _progress
from ._door import Floats
from ._errors import ArgumentError, DataError, GridError, ModelError, warn
from ._models import CovModel, Range, require_model
from ._points import Points, require_numbers
from ._targets import Target, Where
from ._watch import watched

if TYPE_CHECKING:
    import xarray as xr

DEGREES = {"linear": 1, "quadratic": 2}


@dataclass(frozen=True)
class _Drift:
    """The mean of the variable: known, or of unknown coefficients. Values are by datum and by target."""

    degree: int  # of the polynomial of the coordinates; -1 if the mean is known
    mean: float = 0.0
    at_data: Floats | None = None
    fields: tuple[Any, ...] = ()  # the mean or the covariates at the targets; of the grid's shape, or lazy
    names: tuple[str, ...] = ()  # of these, in messages

    @property
    def covariates(self) -> int:
        return 0 if self.degree < 0 or self.at_data is None else len(self.at_data)

    @property
    def at_targets(self) -> Floats | None:
        return None if not self.fields else _at_targets(self.fields, self.degree < 0)

    def terms(self, dimension: int) -> int:
        return self.covariates + (math.comb(dimension + self.degree, self.degree) if self.degree >= 0 else 0)

    def require_neighbors(self, neighbors: int | None, dimension: int) -> None:
        """Refuses neighbours that are fewer than the terms."""
        terms = self.terms(dimension)
        if neighbors is not None and terms > neighbors:
            raise ArgumentError(f"neighbors is {neighbors}, but the drift has {terms} terms. Give more neighbors.")


def krige(points: Points, model: CovModel, where: Where, *, neighbors: int | None = None, radius: Range | None = None,
          mean: float | ArrayLike | None = None,
          drift: Literal["linear", "quadratic"] | Mapping[str, tuple[ArrayLike, ArrayLike]] | None = None,
          block: int | Sequence[int] | None = None, mask: ArrayLike | None = None, snap: bool = False,
          solver: Literal["cholesky", "gmres"] = "cholesky", threads: int | None = None,
          progress: bool | Callable[[float], object] = False, chunks: Mapping[str, int | Literal["auto"]] | int | Literal["auto"] | None = None,
          dtype: Literal["float64", "float32"] = "float64", weights: bool = False) -> xr.Dataset:
    """Kriging: the best linear unbiased estimate from data, and the variance of its error.

    Parameters
    ----------
    points : Points
        The data, used at their true places, also those outside the grid.
    model : CovModel
        Their covariances.
    where : Grid, xarray.DataArray, xarray.Dataset or array_like
        A grid; a template whose coordinates are a grid; or places, (m, 2) or (m, 3). With 1,000 data or more and few
        neighbors a grid and a list of its cells agree to rounding, not to the last bit.
    neighbors : int, optional
        How many data serve a place, the nearest; all by default. Nearest is by distance in units of the model's longest
        range along each of its axes. Ties go to the earlier datum.
    radius : float or sequence of float, optional
        How far data serve: a distance, or one (along the azimuth, across, vertical) that turns with the model.
    mean : float or array_like, optional
        The known mean, for simple kriging; an array has a value for each cell (or place), and at a datum that of its
        cell, or of the nearest. None is ordinary kriging.
    drift : {"linear", "quadratic"} or mapping, optional
        Universal kriging with all terms of the coordinates up to the degree; or external drifts, {name: (values at the
        points, values where)}, with an intercept. NaN only where the mask leaves out.
    block : int or sequence of int, optional
        The mean over each cell of a grid, by that many regular points along x, y (and z). The nugget has no share in it.
    mask : array_like, optional
        Cells to compute, on a grid; where it is False or 0 the result is NaN. Data there count all the same.
    snap : bool
        Whether data are moved to the centres of their cells first, in whose order they count. Those of one cell are averaged,
        those outside the grid left out; a warning counts both.
    solver : {"cholesky", "gmres"}
        "gmres" (with snap, and with a radius unless all data serve) gives the C interface's estimates, to the last bit.
        Of several data in a cell the last counts.
    threads : int, optional
        How many threads; by default the cores that the process may use. Results do not depend on it.
    progress : bool or callable
        Whether to show a bar; or a function that gets the fraction done. What it raises ends the call.
    chunks : mapping, int or "auto", optional
        Cells along each dimension in a chunk of a lazy result, {"y": 2000, "x": 2000}, or {"point": 100_000}; one number is
        for all dimensions, -1 and a dimension left out are its whole length, "auto" makes a million cells of it. It is on Dask
        arrays, and the same bits as without. Arrays on the grid (mean, drift, mask) may be Dask arrays then. Each chunk
        takes one thread by default; places without an estimate are NaN without a warning, and `progress` shows nothing: Dask has
        bars of its own.
    dtype : {"float64", "float32"}
        Type of estimate and variance; float32 is the rounded float64 result.
    weights : bool
        Whether to give the weight of each datum at each place, also with drifts and blocks. Takes 20 bytes a place and
        neighbor while it works. The estimate on a grid is to the last bit that of a list of its cells then.

    Returns
    -------
    xarray.Dataset
        ``estimate`` and ``variance`` on the grid, or along the dimension "point". A place without data in reach is NaN in
        ordinary kriging, and has the mean and the sill in simple kriging; a warning counts those.

        With ``weights=True`` also ``data``, how many data a place's system has (0 where the mask leaves out), and along a
        further dimension "neighbor", as long as a place can have data, ``weights`` and ``weight_data``: the rows of the
        data in the arguments of `Points`, in the order of the points. Where a place has fewer data, or no estimate, they are NaN
        and -1. In ordinary kriging the weights sum to 1, and the estimate is the sum of weight times value, as it is with a
        drift. In simple kriging it is the mean plus the sum of weight times (value - mean), with the mean at the place
        and those at the data.

    Raises
    ------
    KestrumError
        An argument cannot be used: the text has the value and the remedy.
    MemoryError
        The result would not fit; raised before the work.

    References
    ----------
    J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial Uncertainty, 2nd ed., Wiley 2012, chapter 3.

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[1.0, 1.0], [8.0, 3.0], [4.0, 7.0]], [2.0, 5.0, 3.0])
    >>> result = ks.krige(points, ks.Spherical(1.0, range=8), ks.Grid(10, 10), neighbors=3)
    >>> result.estimate.sel(x=8, y=3, method="nearest").item() > result.estimate.mean().item()
    True

    What each datum counts at a place:

    >>> there = ks.krige(points, ks.Spherical(1.0, range=8), [[3.0, 3.0]], neighbors=2, weights=True)
    >>> there.weights.values.round(2), there.weight_data.values
    (array([[0.6, 0.4]]), array([[0, 2]]))
    """
    require_numbers("points", points, "mean. Kriging needs numbers.")
    require_model(model)
    target = Target(where, lazy=chunks is not None)
    target.require_dimension(points)
    _door.choice("solver", solver, ("cholesky", "gmres"))
    threads = 1 if threads is None and chunks is not None else _door.threads(threads)
    neighbors = None if neighbors is None else _door.whole("neighbors", neighbors, 1, 2**31 - 1)
    radii = _radii(radius, target.dimension)
    cells = _block(block, target)
    _door.flag("snap", snap)
    kind = np.dtype(_door.choice("dtype", dtype, ("float64", "float32")))
    _door.flag("weights", weights)
    if weights:
        _require_weighing(solver, snap, chunks)
    columns = min(neighbors or len(points), len(points)) if weights else 0
    if chunks is None:
        size = kriging_bytes(target, kind, mask is not None, mean, drift, solver, columns)
        if weights:
            _memory.require(size, f"the weights of {columns:,} data at {target.count:,} places",
                            f"Give {'fewer neighbors' if neighbors else 'neighbors='}, or fewer targets.")
        _memory.require(size, f"a result at {target.count:,} places",
                        "Take larger cells, or a part of the grid, or dtype='float32', or make it in tiles by chunks=.")
    sizes = None if chunks is None else _chunks(chunks, target, solver)
    taken = target.mask(mask)
    if target.count >= 2**31 and (chunks is None or snap or model._local()):
        raise GridError(f"the result has {target.count:,} cells, more than 2,147,483,647. Take larger cells, or a part of the grid.")
    known = _drift(points, target, mean, drift, taken)
    known.require_neighbors(neighbors, target.dimension)
    if target.grid is not None:
        _warn_if_apart(points, target)
    warn_if_flat([model], points)
    if known.degree >= 0 and len(points) > 1 and (points.values == points.values[0]).all():
        warn(f"all values of {points.name!r} are {points.values[0]:g}, and so is the whole map. Look at the data.")
    method = "simple" if known.degree < 0 else "universal" if known.terms(2) > 1 else "ordinary"
    attributes = {"estimate": {"long_name": points.name}, "variance": {"long_name": f"kriging variance of {points.name}"}}
    general: dict[str, str | int | float] = {"method": f"{method} kriging", "model": str(model), "data": len(points), "kestrum": _core.version,
               **({} if neighbors is None else {"neighbors": neighbors})}
    task = None if solver == "gmres" else _prepared(points, model, target, neighbors, radii, cells, known, snap, threads, kind)
    total = target.count if taken is None or _lazy.is_lazy(taken) else int(np.count_nonzero(taken))
    if task is not None:
        shared = radii is None and not model._local() and (neighbors or len(task.values)) >= len(task.values)
        require_systems(task.places, neighbors, radii, lambda: _some_places(target, taken), 1 if shared else min(threads, max(1, total // 16)))
    if sizes is not None and task is not None:
        return target.labelled(_tiles(task, points, sizes, taken, known.fields), attributes, general)
    estimate, variance = np.empty(target.count, kind), np.empty(target.count, kind)
    tables = (np.empty(target.count, np.int32), np.empty((target.count, columns)), np.empty((target.count, columns), np.int32)) if weights else None
    with systems_told(len(points), neighbors), _progress.shown(progress, "kriging") as report:
        if task is None:
            doubles = np.empty((2, target.count))
            _gmres(points, model, model._native(target.dimension, target), target, neighbors, radii, cells, taken, known, drift, snap, threads, report, *doubles)
            far = _count_far(model, doubles[1])
            counts = [0, 0, 0, 0]
            with np.errstate(over="ignore"):
                estimate[:], variance[:] = doubles
        else:
            try:
                counts, far = task.krige_all(task.build(), taken, known.fields, estimate, variance, report, tables)
            except ValueError as error:
                raise _refused(error, model, target, points) from None
            if counts[2] and _is_vast(task):
                counts[2] = 0  # said below
            _warn_of(counts, total, known.degree < 0, radii is not None)
    lonely, undetermined, indefinite, _ = counts
    warn_if_beyond(estimate, variance, target.count - total + undetermined + indefinite + lonely * (known.degree >= 0), total)
    if known.degree < 0 and radii is not None and not model._local() and min(radii) < max((max(s.range) for s in model.structures if s.range), default=0.0):
        # Places without data have the sill, too, but not for the range. The solver gmres does not count them.
        far = 0 if task is None else far - lonely
    _warn_if_uncorrelated(model, far, total, known, cells)
    result = target.dataset({"estimate": estimate, "variance": variance}, attributes, general)
    return result if tables is None else result.assign(_weight_variables(tables, points, target))


def _require_weighing(solver: str, snap: bool, chunks: object) -> None:
    """Refuses weights where there are none."""
    if solver == "gmres":
        raise ArgumentError("solver 'gmres' gives no weights. Leave weights or solver out.")
    if snap:
        raise ArgumentError("weights are those of single data, but snap=True averages the data of a cell. Leave weights or snap out.")
    if chunks is not None:
        raise ArgumentError("weights are not made in chunks. Leave chunks out and krige parts of the grid one after the other, or leave weights out.")


# By target: the number of its data, their weights, and which they are.
_Tables = tuple[NDArray[np.int32], Floats, NDArray[np.int32]]


def _weight_variables(tables: _Tables, points: Points, target: Target) -> dict[str, Any]:
    """The tables as variables of the result, in its order."""
    count, weights, numbers = tables
    flips = target._flips() if target.grid is not None else (slice(None),)
    dims = target.grid.dims if target.grid is not None else ("point",)
    given = np.append(points._given_rows(np.arange(len(points), dtype=np.intp)), -1)  # the last serves for no datum

    def rows() -> NDArray[np.intp]:
        np.putmask(weights, numbers < 0, np.nan)
        return np.asarray(given[numbers])

    def shaped(table: NDArray[Any]) -> NDArray[Any]:
        return table.reshape(*target.shape, table.shape[1])[flips]

    return {"data": (dims, count.reshape(target.shape)[flips], {"long_name": f"number of data of {points.name}"}),
            "weights": ((*dims, "neighbor"), shaped(weights), {"long_name": f"kriging weights of {points.name}"}),
            "weight_data": ((*dims, "neighbor"), shaped(watched(numbers.size, rows)), {"long_name": f"rows of {points.name} that weights belong to"})}


# Cells that are kriged at a time where results are rounded, or fields are copied.
_WINDOW = 1 << 20


def _axis_and_rows(shape: tuple[int, ...]) -> tuple[int, int]:
    """The axis that windows cut, and how much of it one has: in space y, as places near one another in z share their data."""
    axis = max(0, len(shape) - 2)
    others = math.prod(shape[:axis]) * math.prod(shape[axis + 1:])
    return axis, min(shape[axis], max(1, _WINDOW // max(1, others)))


def kriging_bytes(target: Target, kind: Any, masked: bool, mean: Any, drift: Any, solver: str, columns: int = 0) -> int:
    """What a map takes in memory, result and all, beyond its arguments. columns: of its weights, 0 without."""
    fields = [pair[1] for pair in drift.values() if isinstance(pair, (tuple, list)) and len(pair) == 2] if isinstance(drift, Mapping) else [mean] if _door.naxes("mean", mean) > 0 else []
    raw = [field.data if _door.is_xarray(field) else field for field in fields]
    copied = sum(not isinstance(field, np.ndarray) or field.dtype != np.float64 for field in raw)
    axis, rows = _axis_and_rows(target.shape)
    window = target.count if solver == "gmres" or columns else target.count // max(1, target.shape[axis]) * rows
    doubles = 16 if kind != np.float64 or fields or solver == "gmres" else 0
    result = target.count * (2 * kind.itemsize + masked + 8 * copied) + window * (doubles + 8 * len(fields) + 3)
    tables = target.count * (4 + 20 * columns) if columns else 0
    return int(max(result + tables, 11 * target.count * masked))  # a mask is numbers at first


def _some_places(target: Target, mask: Any) -> Floats:
    """Some of the places to compute, all over them; none if the mask is not known yet."""
    if _lazy.is_lazy(mask):
        return np.empty((0, target.dimension))
    some = np.linspace(0, (target.count if mask is None else np.count_nonzero(mask)) - 1, 25).astype(np.int64)
    numbers = some if mask is None else np.flatnonzero(mask)[some]
    if target.places is not None:
        return np.ascontiguousarray(target.places[numbers])
    assert target.grid is not None
    axes = [axis[index] for axis, index in zip(target.grid.coords.values(), np.unravel_index(numbers, target.shape))]
    return np.column_stack(axes[::-1])


def require_systems(data: Floats, neighbors: int | None, radii: tuple[float, float, float] | None, places: Callable[[], Floats], held: int) -> None:
    """Refuses systems that memory cannot hold: so many at a time, or one if a radius bounds them. places: some to krige."""
    largest = min(neighbors or len(data), len(data))
    if _system_bytes(largest) * held <= 2**20:
        return
    left = _memory.available()
    if left is None or _system_bytes(largest) * held <= left:
        return
    if radii is not None:
        # What some places have for certain: data within the shortest half axis.
        squared, held = min(radii[:data.shape[1]]) ** 2, 1
        largest = min(largest, max((int(np.count_nonzero(((data - place) ** 2).sum(axis=1) <= squared)) for place in places()), default=0))
    what = f"{'all ' if largest == len(data) else ''}{largest:,} data"
    _memory.require_of(left, _system_bytes(largest) * held, f"a system of {what}" if held == 1 else f"{held} systems of {what}, one for each thread,", _FEWER)


@contextmanager
def systems_told(n: int, neighbors: int | None) -> Iterator[None]:
    """Says what may have been too large where memory does not suffice after all."""
    try:
        yield
    except MemoryError:
        largest = min(neighbors or n, n)
        if _system_bytes(largest) < 2**20:
            raise
        raise MemoryError(f"memory does not suffice. Systems are of up to {largest:,} data, which take {_system_bytes(largest) / 2**30:,.1f} GiB each. {_FEWER}") from None


def _system_bytes(n: int) -> int:
    """Half a matrix, and some vectors."""
    return 4 * n * (n + 200)


_FEWER = "Give neighbors=, for instance 20."


@dataclass(frozen=True)
class _Task:
    """What kriging of any part of the targets needs, as it is sent to a worker."""

    model: CovModel
    target: Target
    places: Floats
    values: Floats
    errors: Floats | None
    at_data: Floats | None
    neighbors: int
    radii: tuple[float, float, float]
    degree: int
    mean: float
    cells: tuple[int, int, int]
    threads: int
    fields: tuple[str, ...]
    kind: Any  # type of the result
    built: _lazy.Once[_core.PlaceKriging] = field(default_factory=_lazy.Once)

    def build(self, neighbors: int | None = None, report: Any = None) -> _core.PlaceKriging:
        simple = self.degree < 0
        return _core.PlaceKriging(self.model._native(self.target.dimension, self.target), self.places, self.values, self.errors,
                                  self.at_data if simple else None, None if simple else self.at_data,
                                  self.neighbors if neighbors is None else neighbors, self.radii, self.model.isotropic, self.degree,
                                  self.mean, self.cells, self.threads, report)

    def krige_all(self, kriging: _core.PlaceKriging, mask: NDArray[np.uint8] | None, fields: tuple[Floats, ...], estimate: NDArray[Any],
                  variance: NDArray[Any], report: Any, tables: _Tables | None) -> tuple[list[int], int]:
        """Kriges all targets. Gives counts of what went wrong, and how many are far from all data."""
        shape = self.target.shape
        if estimate.dtype == np.float64 and not fields:
            whole = self.krige(kriging, ((0,) * len(shape), shape), mask, None, estimate, variance, report, tables)
            return list(whole), _count_far(self.model, variance)
        axis, rows = _axis_and_rows(shape)
        if tables is not None:
            rows = shape[axis]  # all that windows spare is little beside the tables
        counts, far = np.zeros(4, np.int64), 0
        doubles = np.empty((2, math.prod(shape[:axis]) * rows * math.prod(shape[axis + 1:])))
        for first in range(0, shape[axis], rows):
            end = min(first + rows, shape[axis])
            window = (slice(None),) * axis + (slice(first, end),)
            begin = tuple(first if i == axis else 0 for i in range(len(shape)))
            extent = (*shape[:axis], end - first, *shape[axis + 1:])
            found = doubles[:, :math.prod(extent)]
            at_targets = _at_targets(tuple(field.reshape(shape)[window] for field in fields), self.degree < 0) if fields else None
            taken = None if mask is None else np.ascontiguousarray(mask.reshape(shape)[window])
            counts += self.krige(kriging, (begin, extent), taken, at_targets, found[0], found[1],
                                 _progress.part(report, first / shape[axis], end / shape[axis]), tables)
            far += _count_far(self.model, found[1])
            with np.errstate(over="ignore"):
                for result, values in zip((estimate, variance), found):
                    result.reshape(shape)[window] = values.reshape(extent)
        return counts.tolist(), far

    def krige(self, kriging: _core.PlaceKriging, window: tuple[tuple[int, ...], tuple[int, ...]],
              mask: NDArray[np.uint8] | None, at_targets: Floats | None, estimate: Floats, variance: Floats,
              report: Any, tables: _Tables | None = None) -> tuple[int, int, int, int]:
        """Kriges a window, (first, extent) along z, y, x or of the places. tables: of the window, too."""
        means, covariates = (at_targets, None) if self.degree < 0 else (None, at_targets)
        begin, shape = window
        if self.target.places is not None:
            first, extent = begin[0], shape[0]
            return kriging.at_places(self.target.places[first:first + extent], means, covariates, estimate, variance, self.threads, report, tables)
        assert self.target.grid is not None and self.target.numbers is not None
        x, y, z = (*begin[::-1], 0)[:3]
        nx, ny, nz = (*shape[::-1], 1)[:3]
        return kriging.on_grid(self.target.numbers, (x, y, z), (nx, ny, nz), mask, means, covariates, estimate, variance, self.threads, report, tables)


def _prepared(points: Points, model: CovModel, target: Target, neighbors: int | None, radii: tuple[float, float, float] | None,
              cells: tuple[int, int, int], known: _Drift, snap: bool, threads: int, kind: Any) -> _Task:
    places, values, errors = points.coordinates, points.values.astype(np.float64, copy=False), points.error_variance
    at_data = known.at_data
    if snap:
        nodes = _snapped(points, target)
        kept, group = np.unique(nodes, return_inverse=True)
        inside = kept >= 0
        count = np.bincount(group)
        values = (np.bincount(group, values) / count)[inside]
        errors = None if errors is None else (np.bincount(group, errors) / count**2)[inside]
        if at_data is not None:
            at_data = np.stack([(np.bincount(group, one) / count)[inside] for one in np.atleast_2d(at_data)]).reshape(
                *at_data.shape[:-1], -1)
        assert target.grid is not None
        axes = list(target.grid.coords.values())
        at = np.unravel_index(kept[inside], target.grid.shape)
        places = np.column_stack([axis[index] for axis, index in zip(axes[::-1], at[::-1])])
    if known.degree >= 0:
        model = model._lifted(places)
    return _Task(model, target, places, values, errors, at_data, neighbors or 0, radii or (0.0, 0.0, 0.0), known.degree, known.mean,
                 cells, threads, known.names, kind)


def _chunks(chunks: Any, target: Target, solver: str) -> tuple[tuple[int, ...], ...]:
    """The sizes of chunks along each dimension of the result."""
    _lazy.require()
    if solver == "gmres":
        raise ArgumentError("solver 'gmres' works on the whole grid at once. Leave chunks or solver out.")
    dims = target.grid.dims if target.grid is not None else ("point",)
    if not isinstance(chunks, Mapping):
        if _door.naxes("chunks", chunks) != 0 or isinstance(chunks, str) and chunks != "auto":
            _door.wrong_type("chunks", chunks, f"a mapping, say {dict.fromkeys(dims, 1000)}, a number of cells, or 'auto'")
        chunks = dict.fromkeys(dims, chunks)
    for dim in chunks:
        if dim not in dims:
            raise ArgumentError(f"chunks has {dim!r}, but the result has the dimensions {', '.join(dims)}.")
    given = [chunks.get(dim, -1) for dim in dims]
    asked: tuple[Any, ...] = tuple(size if isinstance(size, str) and size == "auto" else n if size is None or isinstance(size, int) and size == -1
                  else _door.whole(f"chunks[{dim!r}]", size, 1) for dim, n, size in zip(dims, target.shape, given))
    if "auto" not in asked:
        return tuple(_lazy.sizes(n, size) for n, size in zip(target.shape, asked))
    from dask.array.core import normalize_chunks

    return tuple(normalize_chunks(asked, target.shape, limit=8 * _WINDOW, dtype=np.float64))


def _tiles(task: _Task, points: Points, sizes: tuple[tuple[int, ...], ...], mask: Any, fields: tuple[Any, ...]) -> dict[str, Any]:
    """The result in lazy tiles. The task goes to each worker once, arrays on the grid by their chunks."""
    largest = math.prod(max(axis) for axis in sizes)
    if largest >= 2**31:
        raise ArgumentError("chunks have more than 2,147,483,647 cells. Give smaller ones.")
    taken = largest * (17 + 8 * len(fields) + (8 if task.kind != np.float64 else 0))
    _lazy.require_memory(taken, f"a chunk of {largest:,} cells", "Give smaller chunks.")
    _lazy.warn_of_memory(taken, 0, math.prod(map(len, sizes)))
    try:
        task.build(neighbors=1)  # which refuses what cannot be kriged, without a large system
    except ValueError as error:
        raise _refused(error, task.model, task.target, points) from None
    flips = task.target._flips() if task.target.grid is not None else (slice(None),)
    blocks = [None if field is None else _lazy.blocks(field.reshape(task.target.shape)[flips], sizes) for field in (mask, *fields)]
    token = _lazy.token(task, sizes, [None if block is None else block.name for block in blocks])
    shared = f"kriging-task-{token}"
    tasks: dict[Any, Any] = {shared: task}
    firsts = [np.cumsum((0, *axis)).tolist() for axis in sizes]
    for at in itertools.product(*(range(len(axis)) for axis in sizes)):
        extent = tuple(axis[i] for axis, i in zip(sizes, at))
        # Windows count in the ascending order of the grid.
        first = tuple(starts[-1] - starts[i + 1] if flip.step else starts[i] for starts, i, flip in zip(firsts, at, flips))
        keys = [None if block is None else (block.name, *at) for block in blocks]
        tasks[(f"kriging-{token}", 0, *at)] = (_tile, shared, first, extent, keys)
    tiles = _lazy.array(f"kriging-{token}", tasks, ((2,), *sizes), task.kind, [block for block in blocks if block is not None])
    return {"estimate": tiles[0], "variance": tiles[1]}


def _tile(task: _Task, first: tuple[int, ...], extent: tuple[int, ...], blocks: list[Any]) -> NDArray[Any]:
    """Estimate and variance of a window, in the order of the result."""
    flips = task.target._flips() if task.target.grid is not None else (slice(None),)
    given: list[Any] = [None if block is None else np.ascontiguousarray(block[flips]) for block in blocks]
    mask, *fields = given
    if mask is not None and not mask.any():
        return np.full((2, *extent), np.nan, task.kind)
    for name, values in zip(task.fields, fields):
        _where_informed(name, values, mask, first)
    at_targets = _at_targets(tuple(fields), task.degree < 0) if fields else None
    result = np.empty((2, math.prod(extent)))
    try:
        with systems_told(len(task.values), task.neighbors):
            _lazy.cancellable(lambda report: task.krige(task.built.get(lambda: task.build(report=report)), (first, extent), mask, at_targets, result[0], result[1], report))
    except ValueError as error:
        raise _refused(error, task.model, task.target) from None
    return result.astype(task.kind, copy=False).reshape(2, *extent)[(slice(None), *flips)]


def _at_targets(fields: tuple[Floats, ...], simple: bool) -> Floats:
    """As the engine takes them. Cells left out are never read."""
    rows: Floats = np.nan_to_num(np.stack([field.reshape(-1) for field in fields]), copy=False)
    return np.asarray(rows[0]) if simple else rows


def _refused(error: ValueError, model: CovModel, target: Target | None = None, points: Points | None = None) -> Exception:
    """What the engine refused, as an error that says so: a parameter, data at one place, or numbers that cannot be added up."""
    if len(error.args) != 4:
        return error
    what, _, first, second = error.args
    if what in ("sill", "range", "shape", "angle"):
        return model._refused(what, first, second, target)
    if what == "argument" and points is not None:
        return DataError(f"values of {points.name!r} have sums beyond the range of float64, which ends at 1.8e308. Take another unit.")
    if what != "same place" or points is None:
        return error
    rows = np.sort(points._given_rows(np.array([first, second], np.intp)))
    place = ", ".join(f"{c:.10g}" for c in points.coordinates[first])
    return DataError(f"points have two values at one place, ({place}): {_door.rows(rows)}. Put them together by "
                     "points.merged(), or give error_variance.")


def _gmres(points: Points, model: CovModel, native: _core.Model, target: Target, neighbors: int | None,
           radii: tuple[float, float, float] | None, cells: tuple[int, int, int], mask: NDArray[np.uint8] | None,
           known: _Drift, drift: object, snap: bool, threads: int, report: Any, estimate: Floats, variance: Floats) -> None:
    if not snap or target.numbers is None:
        raise ArgumentError("solver 'gmres' works with data on the nodes of a grid: give a Grid and snap=True, or leave solver out.")
    for name, given in (("drift", drift is not None), ("block", cells != (1, 1, 1)),
                        ("error_variance", points.error_variance is not None)):
        if given:
            raise ArgumentError(f"solver 'gmres' knows no {name}. Leave one of them out.")
    if neighbors is not None and radii is None:
        raise ArgumentError("solver 'gmres' needs a radius with neighbors. Give radius=, at least as large as a range.")
    if radii is None and model._local():
        raise ModelError("solver 'gmres' takes all data with a model of constants only. Give a radius.")
    model._require_informed(target, mask)
    nodes = _snapped(points, target, merging="of which the last counts")
    # Of repeated keys a dictionary keeps the last value.
    last = {node: value for node, value in zip(nodes.tolist(), points.values.tolist()) if node >= 0}
    held = np.array(sorted(last), np.int32)
    data = np.array([last[node] for node in held.tolist()], np.float64)
    if radii is None:
        _memory.require(8 * len(held) ** 2, f"a system of all {len(held):,} data", "Give a radius and neighbors=, for instance 20.")
    simple = known.degree < 0
    # The engine works on differences from the mean of the data, added one by one in the order of the nodes.
    mean = known.mean if simple else sum(data.tolist()) / len(data)
    limit = 0 if radii is None else len(points) if neighbors is None else neighbors
    run = _core.GridRun(target.numbers, [native], not simple, limit, radii, held, data, mask, known.at_targets, mean, False, threads)
    dropped, failed, _ = run.krige(estimate, variance, report)
    if dropped:
        warn(f"neighbours were dropped at {dropped:,} cells, for their systems did not converge. Add a nugget.")
    if failed:
        warn(f"{failed:,} cells take the mean and the sill, for their systems did not converge. Add a nugget.")


def _radii(radius: Any, dimension: int) -> tuple[float, float, float] | None:
    """Half axes across, along, and vertical, as the model's axes are ordered."""
    if radius is None:
        return None
    if _door.naxes("radius", radius) == 0:
        value = _door.number("radius", radius, above=0.0)
        return value, value, value
    parts = [_door.number("radius", part, above=0.0) for part in _door.parts("radius", radius)]
    if len(parts) != dimension and not (dimension == 2 and len(parts) == 3):
        raise ArgumentError(f"radius has {len(parts)} numbers, but must be one, or "
                            f"{'(along, across)' if dimension == 2 else '(along, across, vertical)'}.")
    return parts[1], parts[0], parts[2] if len(parts) == 3 else max(parts)


def _block(block: Any, target: Target) -> tuple[int, int, int]:
    if block is None:
        return 1, 1, 1
    parts = [block] * target.dimension if _door.naxes("block", block) == 0 else _door.parts("block", block)
    counts = [_door.whole("block", part, 1, 1000) for part in parts]
    if len(counts) != target.dimension:
        raise ArgumentError(f"block has {len(counts)} numbers, but must be one, or ({', '.join(('x', 'y', 'z')[:target.dimension])}).")
    if max(counts) > 1 and target.grid is None:
        raise ArgumentError("block needs the cells of a grid. Give a Grid, or leave block out.")
    x, y, z = (*counts, 1)[:3]
    return x, y, z


def _drift(points: Points, target: Target, mean: Any, drift: Any, mask: NDArray[np.uint8] | None) -> _Drift:
    if drift is None and _door.naxes("mean", mean) != 0:
        if target.grid is None:
            raise ArgumentError("mean varies, but without a grid it is not known at the data. Give a Grid, or one number.")
        means: Any = target.values("mean", mean)
        cells = np.unravel_index(_nearest_cells(points, target), target.shape)
        if _lazy.is_lazy(means):
            at_data = means.vindex[cells].compute()
        else:
            at_data = _where_informed("mean", means, mask)[cells]
        if np.isnan(at_data).any():
            rows = points._given_rows(np.flatnonzero(np.isnan(at_data)))
            raise DataError(f"mean is NaN in the cells of data ({_door.rows(rows)}), where it is needed, masked or not. Fill it in.")
        return _Drift(-1, 0.0, at_data, (means,), ("mean",))
    plain = _without_fields(mean, drift, "(values at the points, values where)")
    if plain is not None:
        return plain
    columns, fields = [], []
    for name, pair in drift.items():
        if not isinstance(pair, (tuple, list)) or len(pair) != 2:
            raise ArgumentError(f"drift {name!r} must be a pair: (values at the points, values where).")
        columns.append(_at_points(name, pair[0], points))
        field = target.values(f"drift {name!r}", pair[1])
        fields.append(field if _lazy.is_lazy(field) else _where_informed(f"drift {name!r}", field, mask))
    return _Drift(0, 0.0, np.stack(columns), tuple(fields), tuple(f"drift {name!r}" for name in drift))


def _without_fields(mean: Any, drift: Any, external: str) -> _Drift | None:
    """The drift that needs no more than coordinates; None if it is external."""
    if drift is None:
        return _Drift(0) if mean is None else _Drift(-1, _door.number("mean", mean))
    if mean is not None:
        raise ArgumentError("mean and drift were both given, but a drift has a mean of its own. Leave one of them out.")
    if isinstance(drift, str):
        return _Drift(DEGREES[_door.choice("drift", drift, tuple(DEGREES))])
    if not isinstance(drift, Mapping):
        _door.wrong_type("drift", drift, f"'linear', 'quadratic' or {{name: {external}}}")
    if not drift:
        raise ArgumentError("drift is empty. Leave it out for ordinary kriging.")
    return None


def _at_points(name: str, given: Any, points: Points) -> Floats:
    """An external drift at the data."""
    values = _door.reals(f"drift {name!r} at the points", given)
    if values.shape != (len(points),):
        raise DataError(f"drift {name!r} has values of shape {values.shape} at the points, but there are {len(points)} points.")
    return _door.finite(f"drift {name!r} at the points", values)


def _where_informed(name: str, values: Floats, mask: NDArray[np.uint8] | None, first: tuple[int, ...] | None = None) -> Floats:
    """Refuses what is not finite at targets that are computed. first: the place of the values, if they are a part."""
    bad = ~np.isfinite(values)
    if mask is not None and not _lazy.is_lazy(mask):
        bad &= mask.reshape(values.shape) != 0
    if bad.any():
        remedy = " Leave those cells out by a mask, or fill them in." if values.ndim > 1 else " Fill them in."
        place = tuple(int(index) + start for index, start in zip(np.argwhere(bad)[0], first or (0,) * bad.ndim))
        raise GridError(f"{name} is not finite at {int(bad.sum()):,} of {values.size:,} places to compute "
                        f"(the first is at index {place if len(place) > 1 else place[0]}).{remedy}")
    return values


def _nearest_cells(points: Points, target: Target) -> NDArray[np.int64]:
    """The node whose cell holds a datum, or is nearest to it."""
    assert target.grid is not None
    g = target.grid
    inside = [np.clip(points.coordinates[:, i], getattr(g, axis + "0"),
                      getattr(g, axis + "0") + getattr(g, "n" + axis) * getattr(g, "d" + axis))
              for i, axis in enumerate(reversed(g.dims))]
    index = [np.clip(np.floor((column - getattr(g, axis + "0")) / getattr(g, "d" + axis)), 0, getattr(g, "n" + axis) - 1)
             for column, axis in zip(inside, reversed(g.dims))]
    return np.asarray(np.ravel_multi_index([part.astype(np.int64) for part in reversed(index)], g.shape))


def _snapped(points: Points, target: Target, merging: str = "which are averaged") -> NDArray[np.int32]:
    """The node of each datum, -1 outside the grid."""
    if target.numbers is None:
        raise ArgumentError("snap needs the cells of a grid. Give a Grid, or leave snap out.")
    nodes = _core.nodes_of(target.numbers, points.coordinates)
    outside = np.flatnonzero(nodes < 0)
    if len(outside) == len(points):
        raise DataError(f"all {len(points):,} data lie outside the grid. {_extents(points, target)}")
    inside = len(points) - len(outside)
    shared = inside - watched(len(nodes), lambda: len(np.unique(nodes[nodes >= 0])))
    if len(outside) or shared:
        said = []
        if len(outside):
            said.append(f"{len(outside):,} data outside the grid are left out ({_door.rows(points._given_rows(outside))})")
        if shared:
            said.append(f"{shared:,} data share a cell with others, {merging}")
        warn("; ".join(said) + ".")
    return nodes


def _extents(points: Points, target: Target) -> str:
    assert target.grid is not None
    g = target.grid
    parts = [f"{axis} is {low:.7g} to {high:.7g} in the data, {getattr(g, axis + '0'):.7g} to "
             f"{getattr(g, axis + '0') + getattr(g, 'n' + axis) * getattr(g, 'd' + axis):.7g} in the grid"
             for axis, low, high in zip(reversed(g.dims), points.coordinates.min(axis=0), points.coordinates.max(axis=0))]
    return "; ".join(parts) + ". Are both in the same unit and coordinate system?"


def _warn_if_apart(points: Points, target: Target) -> None:
    assert target.numbers is not None
    if target.count < 2**31 and (_core.nodes_of(target.numbers, points.coordinates) < 0).all():
        warn(f"all {len(points):,} data lie outside the grid. {_extents(points, target)}")


def _count_far(model: CovModel, variance: Floats) -> int:
    """Places that data tell next to nothing of."""
    if model._local():
        return 0
    limit = model.sill * (1.0 - 1e-9)
    return sum(int(np.count_nonzero(variance[first:first + _WINDOW] >= limit)) for first in range(0, len(variance), _WINDOW))


def _warn_if_uncorrelated(model: CovModel, far: int, total: int, known: _Drift, cells: tuple[int, int, int]) -> None:
    """A range in another unit than the coordinates gives a map that knows nothing of the data."""
    if model._local() or cells != (1, 1, 1) or known.terms(2) > 1 or any(s.type == "Power" for s in model.structures):
        return
    if far > 0.5 * total:
        warn(f"{far:,} of {total:,} places are as far as the range from all data or farther: the estimate there is hardly more "
             "than a mean. Are the ranges in the unit of the coordinates?")


def warn_if_flat(models: Iterable[CovModel], points: Points | None) -> None:
    """Says so where the data are one place to the model: the map knows hardly more than their mean."""
    if points is None or len(points) < 10:
        return
    shortest = min((min(part.range) for model in models if not model._local() for part in model.structures if part.range and part.type != "Power"),
                   default=0.0)
    apart = float(np.linalg.norm(np.ptp(points.coordinates, axis=0)))
    if shortest > 100.0 * apart > 0.0:
        warn(f"ranges of the model are at least {shortest:g}, but all data lie within {apart:g}: they are hardly different places. Are the ranges in the "
             "unit of the coordinates?")


def _warn_of(counts: Sequence[int], total: int, simple: bool, bounded: bool, noun: str = "places", other: str = "datum") -> None:
    lonely, undetermined, indefinite, redundant = counts
    if lonely:
        fate = "have the mean and the sill" if simple else "are NaN"
        warn(f"{lonely:,} of {total:,} {noun} have no {other} in reach and {fate}. Give a larger radius." if bounded else
             f"{lonely:,} of {total:,} {noun} {fate}, for squares of their distances from the data are beyond {_END}. Take another unit.")
    if undetermined:
        warn(f"the data in reach do not determine the drift at {undetermined:,} of {total:,} {noun}, which are NaN. "
             "Give more neighbors, or a simpler drift.")
    if indefinite:
        warn(f"the model is not positive definite at {indefinite:,} of {total:,} {noun}, which are NaN. Take another model.")
    if redundant:
        warn(f"some data were left out at {redundant:,} of {total:,} {noun}{REDUNDANT}")


def _is_vast(task: _Task) -> bool:
    """Whether squares of the drift are beyond float64 at some place: then its variance shows nothing of the model."""
    target = task.target
    ends = target.places if target.grid is None else np.array([[axis[0], axis[-1]] for axis in target.grid.coords.values()]).T[:, ::-1]
    with np.errstate(over="ignore", divide="ignore", invalid="ignore"):
        return not np.isfinite((np.abs(ends - task.places[0]).max() / np.ptp(task.places, axis=0).max()) ** (2 * max(task.degree, 0)))


def warn_if_beyond(estimate: NDArray[Any], variance: NDArray[Any], known: int, total: int, noun: str = "places") -> None:
    """Says so where arithmetic gave no number: at more places than are known to have none."""
    if _door.has_finite_sum(estimate) and _door.has_finite_sum(variance):
        return
    pieces = (slice(first, first + _WINDOW) for first in range(0, len(estimate), _WINDOW))
    bad = sum(int(np.count_nonzero(~(np.isfinite(estimate[piece]) & np.isfinite(variance[piece])))) for piece in pieces) - known
    if bad > 0:
        end, other = (_END, "") if estimate.dtype == np.float64 else ("the range of float32, which ends at 3.4e38", ", or dtype='float64'")
        warn(f"{bad:,} of {total:,} {noun} are NaN or infinite, for sums are beyond {end}. Take another unit of the values{other}, and look at the coordinates.")


_END = "the range of float64, which ends at 1.8e308"
REDUNDANT = (", for the model has them follow from others to rounding, whatever their values: systems are nearly singular. Add a nugget, give "
             "error_variance, or merge close data.")
