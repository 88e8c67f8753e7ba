"""What an ensemble of realizations says of each cell.

Realizations come one after another, so that an ensemble larger than memory can be taken from a lazy array (`simulate`
with chunks=, or one opened from zarr): results are lazy then, and realizations are let go as they are used. Results are the
same to the last bit for any chunks. Several statistics of one lazy ensemble are `summary`'s, which makes them in one pass: of
several that are computed together Dask makes one first, and holds the realizations for the others.

    >>> import kestrum as ks
    >>> fields = ks.simulate(None, ks.Spherical(1.0, range=8), ks.Grid(20, 15), n=50)
    >>> ks.ensemble.probability_above(fields, 1.5).dims
    ('y', 'x')
"""

from __future__ import annotations

import itertools
import math
from collections.abc import Callable, Iterator, Mapping
from typing import Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _door, _lazy, _progress
from ._door import Floats
from ._errors import ArgumentError, ArgumentTypeError, GridError
from ._watch import watched

__all__ = ["mean", "probability_above", "probability_connected", "quantile", "summary", "variance"]

_State = NDArray[np.float64]
# Cells that are worked on at a time: a few rows of them stay in a processor's cache.
_CELLS = 1 << 16


def mean(realizations: Any, *, progress: bool | Callable[[float], object] = False) -> Any:
    """The mean of realizations: with data, close to the kriging estimate.

    Parameters
    ----------
    realizations : xarray.DataArray or array_like
        With a dimension "realization"; of an array, the first axis. May be a Dask array.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array nothing is
        shown: Dask has its own bars.

    Returns
    -------
    xarray.DataArray or array
        As `realizations` is, without the dimension; NaN where a realization has NaN.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.ensemble.mean([[1.0, 5.0], [3.0, 5.0]])
    array([2., 5.])
    """
    state, _ = _over(realizations, progress, _add_moments, 2)
    return _result(realizations, state[0])


def variance(realizations: Any, *, progress: bool | Callable[[float], object] = False) -> Any:
    """The variance of realizations, over their number less one.

    Parameters
    ----------
    realizations, progress
        As for `mean`; at least two.

    Returns
    -------
    xarray.DataArray or array
        Where all realizations are equal, as at data, 0.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.ensemble.variance([[1.0, 5.0], [3.0, 5.0]])
    array([2., 0.])
    """
    state, n = _over(realizations, progress, _add_moments, 2)
    if n < 2:
        raise ArgumentError("there is one realization: a variance needs at least two.")
    return _result(realizations, state[1] / (n - 1))


def probability_above(realizations: Any, limit: float | ArrayLike, *, progress: bool | Callable[[float], object] = False) -> Any:
    """The share of realizations above a limit.

    Parameters
    ----------
    realizations, progress
        As for `mean`.
    limit : float or array_like
        One number, or several; several give a dimension "limit", the first.

    Returns
    -------
    xarray.DataArray or array
        From 0 to 1; NaN where a realization has NaN.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.ensemble.probability_above([[1.0, 5.0], [3.0, 5.0]], 2.0)
    array([0.5, 1. ])
    """
    limits, one = _several("limit", limit)
    counts, n = _over(realizations, progress, _add_above, len(limits), limits)
    return _result(realizations, counts[0] / n) if one else _result(realizations, counts / n, "limit", limits)


def probability_connected(realizations: Any, place: int | tuple[int, ...] | dict[str, float], limit: float = 0.0,
                          connectivity: int | None = None, *, progress: bool | Callable[[float], object] = False) -> Any:
    """The share of realizations in which each cell is connected to a place by cells above a limit.

    Parameters
    ----------
    realizations, progress
        As for `mean`; of the whole grid, which may be cut into chunks along realizations alone. Of categories give a
        condition, say ``rock == 2``.
    place : tuple of int, or dict
        The indices of a cell, (y, x) or (z, y, x); or, of a DataArray, its coordinates, {"x": 300.0, "y": 150.0}, of which
        the nearest cell is taken.
    limit : float
        Cells above it count.
    connectivity : {4, 8, 6, 18, 26}, optional
        Neighbours of a cell: by default those it shares a face with, 4 in the plane and 6 in space.

    Returns
    -------
    xarray.DataArray or array
        From 0 to 1; at the place itself, the share above the limit. NaN in realizations is not above.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.ensemble.probability_connected([[[1, 1, 0, 1]], [[1, 0, 0, 0]]], (0, 0))
    array([[1. , 0.5, 0. , 0. ]])
    """
    values = _values(realizations)
    connection = _connection(realizations, values, place, limit, connectivity)
    counts, n = _over(_whole_grids(values), progress, _add_connected, 1, *connection)
    return _result(realizations, counts[0] / n)


def quantile(realizations: Any, q: float | ArrayLike, *, progress: bool | Callable[[float], object] = False) -> Any:
    """Quantiles of realizations, interpolated linearly between them.

    Parameters
    ----------
    realizations, progress
        As for `mean`. A quantile needs all of a cell: of a lazy array so much is held as its chunks in space have cells,
        for all realizations. Write a large ensemble to zarr with chunks in space first.
    q : float or array_like
        From 0 to 1: one number, or several; several give a dimension "quantile", the first.

    Returns
    -------
    xarray.DataArray or array
        NaN where a realization has NaN.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.ensemble.quantile([[1.0, 5.0], [3.0, 6.0], [4.0, 7.0]], [0.5, 1.0])
    array([[3., 6.],
           [4., 7.]])
    """
    levels, one = _levels("q", q)
    values = _values(realizations)
    if _lazy.is_lazy(values):
        values = _whole_cells(values)
        found = values.map_blocks(_quantiles, levels=levels, dtype=np.float64, chunks=((len(levels),), *values.chunks[1:]))
    else:
        found = _ranked(values, levels, progress)
    return _result(realizations, found[0]) if one else _result(realizations, found, "quantile", levels)


def summary(realizations: Any, *, above: float | ArrayLike | None = None, quantiles: float | ArrayLike | None = None,
            connected: Mapping[str, Any] | None = None, dtype: Literal["float64", "float32"] = "float64",
            progress: bool | Callable[[float], object] = False) -> Any:
    """Several statistics in one pass over the realizations, each the bits of the function for it alone.

    Parameters
    ----------
    realizations, progress
        As for `mean`; at least two. A lazy ensemble is not held, but with quantiles as much as for `quantile`.
    above : float or array_like, optional
        Limits, as for `probability_above`.
    quantiles : float or array_like, optional
        From 0 to 1, as for `quantile`.
    connected : mapping, optional
        Arguments of `probability_connected`: {"place": (20, 30), "limit": 1.5}.
    dtype : {"float64", "float32"}
        Type of the result; float32 is the rounded float64 result.

    Returns
    -------
    xarray.Dataset or dict
        ``mean`` and ``variance``, and what is asked for of ``probability_above``, ``quantiles`` and ``probability_connected``; a
        dict of arrays for an array.

    Examples
    --------
    >>> import kestrum as ks
    >>> fields = ks.simulate(None, ks.Spherical(1.0, range=8), ks.Grid(20, 15), n=50, chunks=10)
    >>> ks.ensemble.summary(fields, above=[1.0, 1.5], quantiles=0.9).compute().sizes
    Frozen({'y': 15, 'x': 20, 'limit': 2})
    """
    kind = np.dtype(_door.choice("dtype", dtype, ("float64", "float32")))
    values = _values(realizations)
    if values.shape[0] < 2:
        raise ArgumentError("there is one realization: a variance needs at least two.")
    limits, one_limit = (np.zeros(0), False) if above is None else _several("above", above)
    levels, one_level = (np.zeros(0), False) if quantiles is None else _levels("quantiles", quantiles)
    connection = None
    if connected is not None:
        if not isinstance(connected, Mapping) or "place" not in connected or not {*connected} <= {"place", "limit", "connectivity"}:
            _door.wrong_type("connected", connected, "a mapping with a place, and maybe limit and connectivity: {'place': (20, 30), 'limit': 1.5}")
        connection = _connection(realizations, values, connected["place"], connected.get("limit", 0.0), connected.get("connectivity"))
        values = _whole_grids(values)
    if len(levels):
        values = _whole_cells(values)
    single = 2 + len(limits) + (connection is not None)
    if _lazy.is_lazy(values) or not len(levels):
        rows, n = _over(values, progress, _add_all, single + len(levels), limits, connection, levels)
    else:
        with _progress.shown(progress, "summary") as report:
            rows, n = _over(values, _progress.part(report, 0.0, 0.5) or False, _add_all, single, limits, connection, np.zeros(0))
            rows = np.concatenate([rows, _ranked(values, levels, _progress.part(report, 0.5, 1.0) or False)])
    found = {"mean": _result(realizations, rows[0]), "variance": _result(realizations, rows[1] / (n - 1))}
    if len(limits):
        chances = rows[2:2 + len(limits)] / n
        found["probability_above"] = _result(realizations, chances[0]) if one_limit else _result(realizations, chances, "limit", limits)
    if len(levels):
        found["quantiles"] = _result(realizations, rows[single]) if one_level else _result(realizations, rows[single:], "quantile", levels)
    if connection is not None:
        found["probability_connected"] = _result(realizations, rows[single - 1] / n)
    found = {name: values.astype(kind, copy=False) for name, values in found.items()}
    if not _door.is_xarray(realizations):
        return found
    import xarray as xr

    return xr.Dataset(found)


def _connection(realizations: Any, values: Any, place: Any, limit: Any, connectivity: Any) -> tuple[tuple[int, ...], float, int]:
    """The indices of the cell, the limit, and how far neighbours reach."""
    limit = _door.number("limit", limit)
    shape = values.shape[1:]
    if len(shape) not in (2, 3):
        raise GridError(f"realizations have cells along {len(shape)} axes, but connectivity needs 2 or 3.")
    if isinstance(place, dict):
        if not _door.is_xarray(realizations):
            raise ArgumentError("place has coordinates, but realizations have none. Give the indices of a cell.")
        cells = [dim for dim in realizations.dims if dim != "realization"]
        if sorted(map(str, place)) != sorted(map(str, cells)):
            raise ArgumentError(f"place has {', '.join(map(str, place))}, but needs {', '.join(map(str, cells))}.")
        place = tuple(_nearest_cell(str(dim), realizations[dim].values, place[dim]) for dim in cells)
    at = tuple(_door.whole("place", index, 0, size - 1) for index, size in zip(np.atleast_1d(_door.array("place", place)), shape))
    if len(at) != len(shape) or np.size(place) != len(shape):
        raise ArgumentError(f"place has {np.size(place)} indices, but cells have {len(shape)}.")
    options = {2: {4: 1, 8: 2}, 3: {6: 1, 18: 2, 26: 3}}[len(shape)]
    reach = options[_door.choice("connectivity", min(options) if connectivity is None else connectivity, tuple(options))]
    return at, limit, reach


def _whole_grids(values: Any) -> Any:
    """The values in chunks along realizations alone."""
    return values.rechunk(dict.fromkeys(range(1, values.ndim), -1)) if _lazy.is_lazy(values) else values


def _whole_cells(values: Any) -> Any:
    """The values in chunks of all realizations, which have to fit into memory."""
    if not _lazy.is_lazy(values):
        return values
    values = values.rechunk({0: -1})
    # Dask puts each together from its parts.
    _lazy.require_memory(2 * values.itemsize * math.prod(values.chunksize), f"quantiles of {values.shape[0]:,} realizations of {math.prod(values.chunksize[1:]):,} cells",
                         "Write the realizations to zarr with smaller chunks along the cells, and open that.")
    return values


def _nearest_cell(dim: str, centres: Floats, place: Any) -> int:
    distances = np.abs(centres - _door.number(f"place {dim}", place))
    index = int(distances.argmin())
    if len(centres) > 1 and distances[index] > np.abs(np.diff(centres)).max():
        raise ArgumentError(f"place {dim} is {_door.show(place)}, but cells have {dim} from {centres.min():g} to {centres.max():g}.")
    return index


def _ranked(values: NDArray[Any], levels: Floats, progress: _progress.Progress) -> Floats:
    """Quantiles of what is in memory."""
    columns = values.reshape(len(values), -1)
    found = np.empty((len(levels), columns.shape[1]))
    with _progress.shown(progress, "quantiles") as report:
        for part, done in _shares(columns.shape[1]):
            found[:, part] = watched(values.size, _quantiles, columns[:, part], levels)
            if report is not None:
                report(done)
    return found.reshape(len(levels), *values.shape[1:])


def _quantiles(block: NDArray[Any], levels: Floats) -> Floats:
    block = _door.array("realizations", block)
    result = np.empty((len(levels), *block.shape[1:]))
    for ranked, values in _parts(result, block, max(1, (1 << 20) // len(block))):  # of which NumPy takes copies
        ranked[:] = np.quantile(values.astype(np.float64), levels, axis=0, overwrite_input=True)
    return result


def _several(name: str, given: Any) -> tuple[Floats, bool]:
    values = _door.finite(name, np.atleast_1d(_door.reals(name, given)), ArgumentError)
    if values.ndim != 1 or values.size == 0:
        raise ArgumentError(f"{name} must be a number or a list of numbers.")
    return values, np.ndim(given) == 0


def _levels(name: str, given: Any) -> tuple[Floats, bool]:
    levels, one = _several(name, given)
    if levels.min() < 0.0 or levels.max() > 1.0:
        raise ArgumentError(f"{name} is {_door.show(given)}, but quantiles are from 0 to 1.")
    return levels, one


def _values(realizations: Any) -> Any:
    """The values with the realizations first, lazy if they are."""
    if _door.is_xarray(realizations):
        if hasattr(realizations, "data_vars") or "realization" not in realizations.dims:
            raise ArgumentError("realizations have no dimension 'realization'. Give the DataArray that simulate returns.")
        values = realizations.transpose("realization", ...).data
    else:
        values = realizations
    if _lazy.is_lazy(values):
        _lazy.require_sizes("realizations", values)
    else:
        values = _door.array("realizations", values)
    if values.dtype.kind not in "biuf":
        raise ArgumentTypeError(f"realizations must be numbers, but are of type {values.dtype}.")
    if values.ndim == 0 or values.shape[0] == 0:
        raise ArgumentError("there are no realizations: at least one is needed.")
    return values


def _result(realizations: Any, values: Any, name: str | None = None, labels: Floats | None = None) -> Any:
    """Values of the cells, maybe along a first dimension, as realizations are: with their coordinates, or an array."""
    if not _door.is_xarray(realizations):
        return values
    import xarray as xr

    coords = {key: value for key, value in realizations.coords.items() if "realization" not in value.dims and key != "realization"}
    dims = [dim for dim in realizations.dims if dim != "realization"]
    if name is not None:
        coords, dims = {name: labels, **coords}, [name, *dims]
    # Without rename the result has the name of a Dask array.
    return xr.DataArray(values, coords, dims).rename(None)


def _shares(n: int) -> Iterator[tuple[slice, float]]:
    """At most twenty parts of what there is, with the fraction done after each."""
    step = max(1, -(-n // 20))
    for begin in range(0, n, step):
        yield slice(begin, begin + step), min(begin + step, n) / n


def _over(realizations: Any, progress: _progress.Progress, add: Callable[..., None], states: int, *arguments: Any) -> tuple[Any, int]:
    """Goes over realizations in their order with some numbers for each cell, 0 at first; gives those, (states, ...), and how many
    realizations there are.

    add(state, block, first, *arguments) changes the numbers by a block of realizations that starts with number `first`.
    """
    values = _values(realizations)
    n = int(values.shape[0])
    if _lazy.is_lazy(values):
        return _lazily(values, add, states, arguments), n
    state = np.zeros((states, *values.shape[1:]))
    with _progress.shown(progress, "ensemble") as report:
        for part, done in [(slice(0, n), 1.0)] if report is None else _shares(n):
            watched(values.size, add, state, values[part], part.start, *arguments)
            if report is not None:
                report(done)
    return state, n


def _lazily(values: Any, add: Callable[..., None], states: int, arguments: tuple[Any, ...]) -> Any:
    """One task for each chunk, which waits for that of the realizations before."""
    token = _lazy.token(values.name, add, arguments)
    starts = np.cumsum((0, *values.chunks[0]))
    final = len(starts) - 2
    tasks: dict[Any, Any] = {}
    for block in itertools.product(*(range(len(sizes)) for sizes in values.chunks[1:])):
        before = None
        for k in range(final + 1):
            key = (f"ensemble-{token}", 0, *block) if k == final else (f"ensemble-{k}-{token}", *block)
            tasks[key] = (_added, add, states, before, (values.name, k, *block), int(starts[k]), *arguments)
            before = key
    return _lazy.array(f"ensemble-{token}", tasks, ((states,), *values.chunks[1:]), np.float64, [values])


def _added(add: Callable[..., None], states: int, before: _State | None, block: Any, *arguments: Any) -> _State:
    block = _door.array("realizations", block)  # a block may be masked
    # What comes before stays as it is: a task may be run again.
    state = np.zeros((states, *block.shape[1:])) if before is None else before.copy()
    add(state, block, *arguments)
    return state


def _parts(state: _State, block: NDArray[Any], cells: int = _CELLS) -> Iterator[tuple[_State, NDArray[Any]]]:
    """Both cell by cell, some cells at a time."""
    numbers, values = state.reshape(len(state), -1), block.reshape(len(block), -1)
    for begin in range(0, values.shape[1], cells):
        yield numbers[:, begin:begin + cells], values[:, begin:begin + cells]


def _add_moments(state: _State, block: NDArray[Any], first: int) -> None:
    """The mean, and the sum of squared differences from it (B. P. Welford, Technometrics 4, 1962)."""
    for (average, squares), rows in _parts(state, block):
        for k, row in enumerate(rows, first + 1):
            difference = row - average
            average += difference / k
            squares += difference * (row - average)


def _add_above(state: _State, block: NDArray[Any], first: int, limits: Floats) -> None:
    for counts, rows in _parts(state, block):
        for row in rows:
            row = row.astype(np.float64)
            missing = np.where(np.isnan(row), np.nan, 0.0)
            for count, limit in zip(counts, limits):
                count += row > limit
                count += missing


def _add_all(state: _State, block: NDArray[Any], first: int, limits: Floats, connection: tuple[tuple[int, ...], float, int] | None,
             levels: Floats) -> None:
    """Rows of moments, counts above limits, counts of the connected, and quantiles. With levels a block has all realizations."""
    end = 2 + len(limits)
    _add_moments(state[:2], block, first)
    if len(limits):
        _add_above(state[2:end], block, first, limits)
    if connection is not None:
        _add_connected(state[end:end + 1], block, first, *connection)
    if len(levels):
        state[-len(levels):] = _quantiles(block, levels)


def _add_connected(state: _State, block: NDArray[Any], first: int, at: tuple[int, ...], limit: float, reach: int) -> None:
    from scipy.ndimage import generate_binary_structure, label

    structure = generate_binary_structure(len(at), reach)
    for row in block:
        bodies, _ = label(row.astype(np.float64) > limit, structure)
        if bodies[at]:
            state[0] += bodies == bodies[at]
