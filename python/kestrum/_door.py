"""Checks of arguments, one for each kind. Behind the door all is of one type, contiguous, and sound."""

from __future__ import annotations

import difflib
import math
import operator
import os
import sys
from collections.abc import Iterable, Sequence
from typing import Any, NoReturn

import numpy as np
from numpy.typing import NDArray

from . import _lazy
from ._errors import ArgumentError, ArgumentTypeError, DataError, KestrumError
from ._watch import in_c_order, watched

Floats = NDArray[np.float64]
MAX_THREADS = 1024
# To wake another thread takes longer than fewer steps; on busy cores it begins after some milliseconds.
WORTH_A_TEAM = 2**17


def show(value: object) -> str:
    """A value in a message, cut short."""
    text = " ".join(repr(value.item() if isinstance(value, np.generic) else value).split())
    return text if len(text) <= 60 else text[:57] + "..."


def rows(numbers: Sequence[int] | NDArray[Any], noun: str = "row") -> str:
    """Row numbers in a message: the first five, and how many more."""
    text = ", ".join(str(int(number)) for number in numbers[:5])
    more = f" and {len(numbers) - 5:,} more" if len(numbers) > 5 else ""
    return f"{noun}{'s' if len(numbers) > 1 else ''} {text}{more}"


def wrong_type(name: str, value: object, expected: str) -> NoReturn:
    raise ArgumentTypeError(f"{name} must be {expected}, but is {show(value)} (a {type(value).__name__}).")


def number(name: str, value: Any, *, above: float | None = None, at_least: float | None = None,
           below: float | None = None, at_most: float | None = None, error: type[KestrumError] = ArgumentError) -> float:
    """A finite number within bounds."""
    if isinstance(value, (bool, np.bool_, str, bytes, list, tuple, complex, np.complexfloating)) or value is None:
        wrong_type(name, value, "a number")
    try:
        if naxes(name, value) != 0:
            raise TypeError
        result = float(value)
    except (TypeError, ValueError, OverflowError):
        wrong_type(name, value, "a number")
    if not math.isfinite(result):
        raise error(f"{name} is {show(value)}, but must be a finite number.")
    within(name, result, above=above, at_least=at_least, below=below, at_most=at_most, error=error)
    return result


def whole(name: str, value: Any, at_least: int = 0, at_most: int = sys.maxsize,
          error: type[KestrumError] = ArgumentError) -> int:
    """A whole number within bounds."""
    if isinstance(value, (bool, np.bool_)):
        wrong_type(name, value, "a whole number")
    try:
        result = operator.index(value)
    except TypeError:
        if not isinstance(value, (float, np.floating)) or not float(value).is_integer() or abs(float(value)) >= 2**53:
            wrong_type(name, value, "a whole number")
        result = int(value)
    within(name, result, at_least=at_least, at_most=None if at_most == sys.maxsize else at_most, error=error)
    return result


def within(name: str, value: Any, *, above: float | None = None, at_least: float | None = None,
           below: float | None = None, at_most: float | None = None, error: type[KestrumError] = ArgumentError) -> None:
    for bound, words, beyond in ((above, "above", above is not None and value <= above),
                                 (at_least, "at least", at_least is not None and value < at_least),
                                 (below, "below", below is not None and value >= below),
                                 (at_most, "at most", at_most is not None and value > at_most)):
        if beyond:
            limit = f"{bound:,}" if isinstance(bound, int) else f"{bound:g}"
            raise error(f"{name} is {show(value)}, but must be {words} {limit}.")


def flag(name: str, value: Any) -> bool:
    if not isinstance(value, (bool, np.bool_)):
        wrong_type(name, value, "True or False")
    return bool(value)


def choice(name: str, value: Any, options: Sequence[Any]) -> Any:
    """One of some options."""
    if not any(value is option or (isinstance(value, str) and value == option) for option in options):
        listed = ", ".join(map(repr, options))
        raise ArgumentError(f"{name} is {show(value)}, but must be one of {listed}.{nearest(value, options)}")
    return value


def nearest(value: object, options: Iterable[object]) -> str:
    """The remedy for a misspelt name, if one is near, large and small letters aside."""
    names = {str(option).lower(): str(option) for option in options}
    close = difflib.get_close_matches(str(value).lower(), names, 1, 0.5)
    return f" Did you mean {names[close[0]]!r}?" if close else ""


def threads(value: Any, steps: float = math.inf) -> int:
    """The number of threads: by default the cores that the process may use, but one for little work. steps: of some nanoseconds each."""
    if value is None:
        if steps < WORTH_A_TEAM:
            return 1
        return min(len(os.sched_getaffinity(0)) if hasattr(os, "sched_getaffinity") else os.cpu_count() or 1, MAX_THREADS)
    return whole("threads", value, 1, MAX_THREADS)


def held(name: str, value: Any) -> Any:
    """The array of a DataArray, or the value itself."""
    if not is_xarray(value):
        return value
    if hasattr(value, "data_vars"):
        raise ArgumentTypeError(f"{name} must be an array, but is a Dataset. Give one of its variables: {', '.join(map(repr, value.data_vars))}.")
    return value.data


def array(name: str, value: Any) -> NDArray[Any]:
    """Anything like an array, as it is; masked and missing values of tables become NaN."""
    value = held(name, value)
    if _lazy.is_lazy(value):
        value = value.compute()
    if isinstance(value, np.ma.MaskedArray):
        numbers = value.dtype.kind in "biuf"
        unmasked: Any = value.astype(np.float64 if numbers else object)
        return np.asarray(unmasked.filled(np.nan))
    if hasattr(value, "to_numpy") and getattr(getattr(value, "dtype", None), "na_value", None) is not None:
        return np.asarray(value.to_numpy(dtype=object, na_value=np.nan))
    try:
        return np.asarray(value)
    except ValueError:
        raise ArgumentError(f"{name} has rows of different lengths; it must be a rectangular array.") from None


def naxes(name: str, value: Any) -> int:
    """How many axes an argument has that may be a number, a list or an array."""
    axes = getattr(value, "ndim", None)
    return axes if isinstance(axes, int) else array(name, value).ndim


def parts(name: str, value: Any) -> list[Any]:
    """What an argument holds that is one number or several."""
    return list(value) if isinstance(value, (list, tuple)) else list(array(name, value).reshape(-1))


def reals(name: str, value: Any, error: type[KestrumError] = DataError) -> Floats:
    """An array of numbers: float64, contiguous, of this machine's byte order. Not copied if it is that already."""
    given = array(name, value)
    if value is None:
        wrong_type(name, value, "numbers")
    if given.dtype.kind in "biuf":
        if given.dtype.kind == "f" and given.dtype.itemsize > 8:
            given = given.astype(np.float64)
        return in_c_order(given, np.float64).reshape(given.shape)
    if given.dtype.kind in "OUS":
        if given.dtype.kind == "O":
            try:
                return np.ascontiguousarray(given.astype(np.float64)).reshape(given.shape)
            except OverflowError:
                raise ArgumentError(f"{name} has a number beyond the range of float64, which ends at 1.8e308.") from None
            except (TypeError, ValueError):
                pass
        for row, item in np.ndenumerate(given):
            if isinstance(item, (str, bytes)):
                place = f" (row {row[0]})" if row else ""
                raise ArgumentTypeError(f"{name} must be numbers, but has the text {show(item)}{place}. "
                                        "Convert texts by astype(float), or leave them out.")
    if given.ndim == 0:
        wrong_type(name, value, "numbers")
    raise ArgumentTypeError(f"{name} must be numbers, but is of type {given.dtype}.")


PIECE = 1 << 16


def has_finite_sum(values: NDArray[Any]) -> bool:
    """True only if all values are finite: found in one pass at most, without other memory."""
    if values.dtype.kind in "biu":
        return True
    with np.errstate(all="ignore"):
        return bool(np.isfinite(values.sum(dtype=np.float64)))


def finite(name: str, values: Floats, error: type[KestrumError] = DataError, noun: str = "row") -> Floats:
    """Refuses NaN and infinity, naming the rows (or, of an array on a grid, the cells)."""
    # Piece by piece: the memory of a piece stays in the cache, and Ctrl-C does not wait for all.
    flat = values.reshape(-1)
    if not all(np.isfinite(flat[at:at + PIECE]).all() for at in range(0, flat.size, PIECE)):
        good = np.isfinite(values)
        bad = np.argwhere(~good)
        first = values[tuple(bad[0])]
        if values.ndim > 1 and noun == "row":
            bad = np.unique(bad[:, 0])[:, None]
        where = "" if values.ndim == 0 else " in " + rows(bad[:, 0], noun) if bad.shape[1] == 1 else f" in {noun} {tuple(map(int, bad[0]))}"
        count = f" ({len(bad):,} of them)" if bad.shape[1] > 1 and len(bad) > 1 else ""
        raise error(f"{name} is {first}{where}{count}. It must be finite: leave out or fill in what is missing.")
    return values


def frozen(values: NDArray[Any]) -> NDArray[Any]:
    """A copy that nobody can change."""
    copy = watched(values.size, lambda: np.array(values, copy=True, order="C"))
    copy.flags.writeable = False
    return copy


def is_xarray(value: object) -> bool:
    """Whether it is a DataArray or a Dataset; xarray is not imported for it."""
    xarray = sys.modules.get("xarray")
    return xarray is not None and isinstance(value, (xarray.DataArray, xarray.Dataset))


def is_local(value: object) -> bool:
    """Whether a parameter is given cell by cell: an array of two or three axes. Sequences are numbers per axis."""
    return getattr(value, "ndim", 0) >= 2
