"""Images at the door: checks that they share, and the types that the engine reads in place."""

from __future__ import annotations

import math
from collections.abc import Callable
from functools import partial
from typing import Any, Literal, TypeVar, cast

import numpy as np
from numpy.typing import NDArray

from . import _core, _door, _lazy, _memory, _progress
from ._errors import ArgumentError, ArgumentTypeError, DataError, warn
from ._watch import in_c_order, watched

Connectivity = Literal[4, 8, 6, 18, 26]
# What is true of these is read in place, as the type on the right.
_IN_PLACE = {np.dtype(kind): np.dtype(read) for kind, read in
             (("?", "u1"), ("u1", "u1"), ("i1", "u1"), ("i4", "i4"), ("u4", "i4"), ("f4", "f4"), ("f8", "f8"))}

_Checked = TypeVar("_Checked", int, float)


def as_image(name: str, value: Any) -> NDArray[Any]:
    """An array of numbers of two or three axes, not copied."""
    held = _door.held(name, value)
    lazy = _lazy.is_lazy(held)
    given = held if lazy else _door.array(name, held)
    require_image(name, given)
    require_few(name, given, "a part of it" if lazy else "a part of it, or a Dask array")
    if not lazy:
        return cast("NDArray[Any]", given)
    _memory.require(given.nbytes, f"{name}, which is needed whole,", "Take a part of it, or coarser nodes.")
    return _door.array(name, given)


def require_image(name: str, given: Any) -> None:
    """Refuses what has no numbers, or other than two or three axes."""
    require_numbers(name, given)
    if given.ndim not in (2, 3):
        raise DataError(f"{name} has {given.ndim} ax{'i' if given.ndim == 1 else 'e'}s, but must have 2 or 3.")


def require_numbers(name: str, given: Any) -> None:
    if given.dtype.kind not in "biuf":
        raise ArgumentTypeError(f"{name} must be an array of numbers or of True and False, but is of type {given.dtype}. Convert it by astype.")


def require_few(name: str, given: Any, remedy: str = "a part of it") -> None:
    if given.size >= 2**31:
        raise DataError(f"{name} has {given.size:,} numbers, but may have at most {2**31 - 1:,}. Take {remedy}.")


def as_neighbors(connectivity: Any, dimension: int) -> int:
    """6, 18 or 26. In one layer, 18 and 26 are the same."""
    options = {4: 6, 8: 18} if dimension == 2 else {6: 6, 18: 18, 26: 26}
    if connectivity is None:
        return 6
    neighbors = options.get(_door.whole("connectivity", connectivity))
    if neighbors is None:
        listed = " or ".join(map(str, options)) if dimension == 2 else "6, 18 or 26"
        raise ArgumentError(f"connectivity is {_door.show(connectivity)}, but must be {listed} for an array of {dimension} axes.")
    return neighbors


def per_axis(name: str, value: Any, dimension: int, check: Callable[[str, Any], _Checked]) -> list[_Checked]:
    """One number for each axis, from as many or from one for all."""
    if _door.array(name, value).ndim == 0:
        return [check(name, value)] * dimension
    if np.shape(value) != (dimension,):
        raise ArgumentError(f"{name} is {_door.show(value)}, but must be one number, or {dimension}: one for each axis.")
    return [check(name, item) for item in value]


def as_lags(max_lag: Any, shape: tuple[int, ...]) -> tuple[int, ...]:
    """The largest lag along each axis, below its number of nodes."""
    lags = tuple(per_axis("max_lag", max_lag, len(shape), _door.whole))
    if 0 in shape:
        raise DataError("image has no nodes.")
    for lag, n in zip(lags, shape):
        if lag >= n:
            raise ArgumentError(f"max_lag is {lag:,} along an axis of {n:,} nodes, but must be below their number. Give smaller ones, one for each axis.")
    return lags


def as_sides(size: Any, shape: tuple[int, ...]) -> list[int]:
    """The odd sides of a box along each axis. One beyond the axis is like any other."""
    sides = per_axis("size", size, len(shape), partial(_door.whole, at_least=1))
    if any(side % 2 == 0 for side in sides):
        raise ArgumentError(f"size is {_door.show(size)}. Sides must be odd, so that the box has a centre.")
    if math.prod(shape) > 0 and any(side > n for side, n in zip(sides, shape)):
        warn(f"size is {_door.show(size)}, but the image has {' x '.join(map(str, shape))} nodes: every box leaves it, and all values are NaN. "
             "Give a smaller size.")
    return [min(side, n + 1 + n % 2) for side, n in zip(sides, shape)]


def lag_coords(lags: tuple[int, ...]) -> dict[str, NDArray[np.int64]]:
    """The lags along each axis, by the names of the dimensions."""
    dims = ("lag_z", "lag_y", "lag_x")[-len(lags):]
    return {dim: np.arange(-lag, lag + 1) for dim, lag in zip(dims, lags)}


def is_complete(name: str, values: NDArray[Any]) -> bool:
    """Whether all are numbers. False may be wrong; infinite ones are refused."""
    complete = _door.has_finite_sum(values)
    if not complete and np.isinf(values).any():
        raise DataError(f"{name} has infinite values, but they must be finite or, where they are missing, NaN. Set them to NaN.")
    return complete


def as_categories(name: str, given: NDArray[Any], categories: Any, threads: int,
                  report: _progress.Report = None) -> tuple[NDArray[np.int16], NDArray[Any]]:
    """Codes of an image, of its shape and in its order, and the categories that they number."""
    values, flipped = in_order(name, given)
    if categories is None:
        numbers, names = distinct_values(name, [_core.find_categories(values, threads, _progress.part(report, 0.0, 0.5))], given.dtype)
    else:
        numbers, names = listed_categories(categories)
    return _coded(values, flipped, numbers, threads, _progress.part(report, 0.5, 1.0)), names


def distinct_values(name: str, parts: list[NDArray[np.float64] | None], kind: np.dtype[Any]) -> tuple[NDArray[np.float64], NDArray[Any]]:
    """The categories that an image has, by those of its parts, None for too many; and the same of the image's type."""
    found = [part for part in parts if part is not None]
    numbers = (found[0] if len(parts) == 1 else np.unique(np.concatenate(found))) if len(found) == len(parts) else np.arange(256.0)
    if len(numbers) > 255:
        raise DataError(f"{name} has more than 255 distinct values. Make categories of them by categorize().")
    if len(numbers) == 0:
        raise DataError(f"{name} has no values but NaN.")
    return numbers, numbers.astype(kind.newbyteorder("="))


def listed_categories(categories: Any) -> tuple[NDArray[np.float64], NDArray[Any]]:
    """Categories that the caller lists, as numbers and as they are."""
    numbers = _door.finite("categories", _door.reals("categories", categories))
    if numbers.ndim != 1 or not 1 <= numbers.size <= 255:
        raise ArgumentError(f"categories is of shape {numbers.shape}, but must be a list of 1 to 255 numbers.")
    if len(set(numbers.tolist())) < len(numbers):
        raise ArgumentError(f"categories is {_door.show(categories)}, but must have each number once.")
    return numbers, _door.array("categories", categories)


def category_codes(name: str, given: NDArray[Any], numbers: NDArray[np.float64], threads: int) -> NDArray[np.int16]:
    """Of an image's shape and in its order."""
    return _coded(*in_order(name, given), numbers, threads)


def _coded(values: NDArray[Any], flipped: bool, numbers: NDArray[np.float64], threads: int,
           report: _progress.Report = None) -> NDArray[np.int16]:
    codes = _core.code_categories(values, numbers, threads, report)
    return codes.T if flipped else codes


def is_flipped(given: NDArray[Any]) -> bool:
    """Whether it is the transposed array that lies in C order."""
    return given.flags.f_contiguous and not given.flags.c_contiguous


def require_exact(name: str, given: NDArray[Any]) -> None:
    """Refuses whole numbers that float64 would round."""
    if given.dtype.kind in "iu" and given.dtype.itemsize == 8 and given.size and max(int(given.max()), -int(given.min())) > 2**53:
        raise DataError(f"{name} has whole numbers beyond 2^53, which float64 would round. Subtract one of them from all.")


def readable(name: str, given: NDArray[Any]) -> NDArray[Any]:
    """Numbers of a type that the engine reads; not copied if they are. Whole numbers that float64 would round are refused."""
    kind = given.dtype
    if kind in (np.dtype("?"), np.dtype("u1")):
        return given.view(np.uint8)
    if kind in (np.dtype("i4"), np.dtype("f4"), np.dtype("f8")):
        return given
    require_exact(name, given)
    target: Any = np.int32 if kind.kind in "iu" and kind.itemsize < 4 else np.float64
    return watched(given.size, given.astype, target)


def in_order(name: str, given: NDArray[Any]) -> tuple[NDArray[Any], bool]:
    """Numbers of a type that the engine reads, in C order, and whether they are those of the transposed array."""
    flipped = is_flipped(given)
    return in_c_order(readable(name, given.T if flipped else given)), flipped


def is_true(values: NDArray[Any]) -> NDArray[np.bool_]:
    """Where values are true: NaN is not."""
    return np.asarray((values != 0) & (values == values))


def as_truth(given: NDArray[Any]) -> NDArray[Any]:
    """An array in C order that is true, and NaN, where the given is, of a type that the engine reads; not copied if it is one."""
    read = _IN_PLACE.get(given.dtype)
    if read is None:
        # Signs keep NaN, and what would round to 0.
        if given.dtype.kind == "f":
            return watched(given.size, lambda: np.ascontiguousarray(np.sign(given), np.float32))
        return watched(given.size, lambda: np.ascontiguousarray(given != 0)).view(np.uint8)
    return in_c_order(given).view(read)


def like(given: Any, values: NDArray[Any], name: str) -> Any:
    """Values as a DataArray if that is what was given."""
    if not _door.is_xarray(given):
        return values
    import xarray as xr

    return xr.DataArray(values, given.coords, given.dims, name)
