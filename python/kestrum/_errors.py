"""What the package raises, and what it warns of."""

from __future__ import annotations

import warnings


class KestrumError(Exception):
    """Base of all errors of the package.

    The text names the argument, the offending value (with row numbers, from 0, for data) and the remedy.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.Grid(10, 0)
    ... except ks.KestrumError as error:
    ...     print(error)
    ny is 0, but must be at least 1.
    """


class ArgumentError(KestrumError, ValueError):
    """An argument whose value cannot be used.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.box_mean([[1.0, 2.0, 3.0]], size=2)
    ... except ks.ArgumentError as error:
    ...     print(error)
    size is 2. Sides must be odd, so that the box has a centre.
    """


class ArgumentTypeError(KestrumError, TypeError):
    """An argument of a type that cannot be used.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.Grid("10", 10)
    ... except ks.ArgumentTypeError as error:
    ...     print(error)
    nx must be a whole number, but is '10' (a str).
    """


class DataError(KestrumError, ValueError):
    """Data that cannot be used: their coordinates, values, number or places.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.Points([[0.0, 1.0], [0.0, float("nan")]], [1.0, 2.0])
    ... except ks.DataError as error:
    ...     print(error)
    coordinates is nan in row 1. It must be finite: leave out or fill in what is missing.
    """


class ModelError(KestrumError, ValueError):
    """A covariance model that cannot be used.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.Spherical(1.0, range=0)
    ... except ks.ModelError as error:
    ...     print(error)
    range is 0.0, but must be above 0.
    """


class GridError(KestrumError, ValueError):
    """A grid that cannot be used, or values that do not fit one.

    Examples
    --------
    >>> import kestrum as ks
    >>> try:
    ...     ks.Grid(3, 2).to_xarray([1.0, 2.0])
    ... except ks.GridError as error:
    ...     print(error)
    values are of shape (2,), but the grid's shape is (2, 3), ordered (y, x).
    """


class KestrumWarning(UserWarning):
    """A call that went on, but whose result deserves a look. The text has counts.

    Examples
    --------
    >>> import warnings
    >>> import kestrum as ks
    >>> with warnings.catch_warnings(record=True) as found:
    ...     warnings.simplefilter("always")
    ...     points = ks.Points([[0.0, 0.0], [0.0, 1.0]], [1.0, float("nan")], "zinc")
    >>> print(found[0].message)
    1 of 2 rows have no value of 'zinc' and are left out (row 1).
    """


def warn(text: str) -> None:
    """Warns at the line that called the package."""
    import sys

    level, frame = 1, sys._getframe()
    while frame.f_back is not None and frame.f_globals.get("__name__", "").partition(".")[0] == "kestrum":
        frame, level = frame.f_back, level + 1
    warnings.warn(text, KestrumWarning, stacklevel=level)
