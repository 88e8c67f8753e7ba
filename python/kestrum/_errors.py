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
    """An argument whose value cannot be used."""


class ArgumentTypeError(KestrumError, TypeError):
    """An argument of a type that cannot be used."""


class DataError(KestrumError, ValueError):
    """Data that cannot be used: their coordinates, values, number or places."""


class ModelError(KestrumError, ValueError):
    """A covariance model that cannot be used."""


class GridError(KestrumError, ValueError):
    """A grid that cannot be used, or values that do not fit one."""


class KestrumWarning(UserWarning):
    """A call that went on, but whose result deserves a look. The text has counts."""


def warn(text: str) -> None:
    """Warns at the line that called the package."""
    import sys

    level, frame = 1, sys._getframe()
    while frame.f_back is not None and frame.f_globals.get("__name__", "").partition(".")[0] == "kestrum":
        frame, level = frame.f_back, level + 1
    warnings.warn(text, KestrumWarning, stacklevel=level)
