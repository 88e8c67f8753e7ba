"""Scattered values."""

from __future__ import annotations

import copy
from collections.abc import Callable
from typing import TYPE_CHECKING, Any, Literal, Self

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _door, _progress
from ._door import Floats
from ._errors import ArgumentTypeError, DataError, warn
from ._watch import watched

if TYPE_CHECKING:
    import pandas as pd


class Points:
    """Values at places.

    Parameters
    ----------
    coordinates : array_like
        (n, 2) or (n, 3): x, y, and maybe z, in a unit of length (not degrees). NaN and infinity are refused.
    values : array_like
        (n,): numbers, or the labels of categories. A row whose value is missing (NaN, None) is left out, and a warning
        counts those.
    name : str
        What the values are.
    error_variance : array_like, optional
        Variance of the error of measurement, one for each datum or one for all, in the unit of the values squared. It
        is filtered out of the estimates.

    Attributes
    ----------
    coordinates, values, error_variance : numpy.ndarray
        What is left of the arguments, read-only.
    name : str

    Notes
    -----
    Points are immutable. The arguments are copied.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Points([[1.0, 2.0], [4.0, 6.0], [3.0, 3.0]], [7.5, 9.0, 8.0], "zinc")
    Points: 3 values of 'zinc' at (x, y)
      zinc from 7.5 to 9, mean 8.16667
      x from 1 to 4, y from 2 to 6 in the coordinates' unit
    """

    __slots__ = ("coordinates", "values", "name", "error_variance", "_rows")
    coordinates: NDArray[np.float64]
    values: NDArray[Any]
    name: str
    error_variance: NDArray[np.float64] | None
    _rows: NDArray[np.intp] | None  # rows of the arguments that are left, if some were left out

    def __init__(self, coordinates: ArrayLike, values: ArrayLike, name: str = "value",
                 error_variance: ArrayLike | None = None) -> None:
        if not isinstance(name, str):
            _door.wrong_type("name", name, "a text")
        if hasattr(coordinates, "columns") and isinstance(values, str):
            raise ArgumentTypeError(f"values is the text {values!r}. Columns of a table are points by Points.from_dataframe(table, {values!r}).")
        places = _door.reals("coordinates", coordinates)
        if places.ndim != 2 or places.shape[1] not in (2, 3):
            remedy = "Give one row for each place, with columns x, y or x, y, z."
            if places.ndim == 2 and places.shape[0] in (2, 3):
                remedy = "Give one row for each place: numpy.column_stack((x, y)) makes them of columns."
            raise DataError(f"coordinates are of shape {places.shape}, but must be (n, 2) or (n, 3). {remedy}")
        given, known = _labels_or_numbers(values)
        n = len(places)
        if given.shape != (n,):
            raise DataError(f"values are of shape {given.shape}, but there are {n} coordinates: one value is needed for each.")
        _door.finite("coordinates", places)
        if places.shape[1] == 3 and given.dtype.kind in "iuf" and n > 1 and np.array_equal(places[:, 2], given):
            warn(f"the third coordinates are the values of {name!r}, as heights. If they are no heights, leave them out: coordinates[:, :2].")
        errors = None
        if error_variance is not None:
            errors = _door.reals("error_variance", error_variance)
            errors = np.full(n, errors) if errors.ndim == 0 else errors
            if errors.shape != (n,):
                raise DataError(f"error_variance is of shape {errors.shape}, but there are {n} values: one is needed for each.")
        rows = None
        if not known.all():
            rows = np.flatnonzero(known)
            if n > 0 and len(rows) == 0:
                raise DataError(f"values of {name!r} are all missing ({n} rows).")
            warn(f"{n - len(rows):,} of {n:,} rows have no value of {name!r} and are left out "
                 f"({_door.rows(np.flatnonzero(~known))}).")
            places, given = watched(places.size, lambda: (places[rows], given[rows]))
            errors = None if errors is None else errors[rows]
        if len(places) == 0:
            raise DataError("there are no points: at least one is needed.")
        if given.dtype.kind == "f" and not np.isfinite(given).all():
            bad = np.flatnonzero(~np.isfinite(given))
            raise DataError(f"values of {name!r} are infinite in {_door.rows(bad if rows is None else rows[bad])}. "
                            "Leave those rows out, or make them NaN.")
        if errors is not None and not (np.isfinite(errors) & (errors >= 0.0)).all():
            bad = np.flatnonzero(~(np.isfinite(errors) & (errors >= 0.0)))
            raise DataError(f"error_variance is {errors[bad[0]]} in {_door.rows(bad if rows is None else rows[bad])}. "
                            "A variance must be at least 0 and finite.")
        self._fill(places, given, name, errors, rows)

    def _fill(self, coordinates: NDArray[Any], values: NDArray[Any], name: str, error_variance: NDArray[Any] | None,
              rows: NDArray[Any] | None) -> None:
        for slot, value in (("coordinates", coordinates), ("values", values), ("error_variance", error_variance),
                            ("_rows", rows)):
            object.__setattr__(self, slot, None if value is None else _door.frozen(value))
        object.__setattr__(self, "name", name)

    @classmethod
    def from_dataframe(cls, frame: pd.DataFrame, value: str, x: str = "x", y: str = "y", z: str | None = None) -> Self:
        """Points from columns of a table.

        Parameters
        ----------
        frame : pandas.DataFrame
            The table. A GeoDataFrame of points needs no x and y.
        value : str
            Column of the values; also the points' name.
        x, y, z : str
            Columns of the coordinates; without z the points are in the plane.

        Returns
        -------
        Points

        Raises
        ------
        DataError
            A column is missing: the text lists the columns and suggests the nearest.

        Examples
        --------
        >>> import pandas as pd
        >>> import kestrum as ks
        >>> frame = pd.DataFrame({"east": [1.0, 2.0], "north": [5.0, 7.0], "zinc": [300, 400]})
        >>> len(ks.Points.from_dataframe(frame, "zinc", x="east", y="north"))
        2
        """
        if not hasattr(frame, "columns"):
            _door.wrong_type("frame", frame, "a DataFrame")
        columns = list(frame.columns)

        def column(argument: str, name: str) -> Any:
            if np.ndim(name) != 0 and not isinstance(name, tuple):
                _door.wrong_type(argument, name, "the name of a column")
            if name not in columns:
                raise DataError(f"{argument} is {name!r}, which is no column of the table.{_door.nearest(name, columns)} "
                                f"The columns are {', '.join(map(str, columns))}.")
            if columns.count(name) > 1:
                raise DataError(f"{argument} is {name!r}, which {columns.count(name)} columns of the table are called. Rename them.")
            return frame[name]

        geometry: Any = getattr(frame, "geometry", None)
        if hasattr(geometry, "geom_type") and x not in columns and y not in columns:
            kinds = np.asarray(geometry.geom_type)
            if (kinds != "Point").any():
                raise DataError(f"geometry has something other than a point in {_door.rows(np.flatnonzero(kinds != 'Point'))}. "
                                "Take centroids: frame.geometry.centroid.")
            places = [geometry.x, geometry.y] + ([column("z", z)] if z is not None else [geometry.z] * bool(geometry.has_z.all()))
        else:
            places = [column("x", x), column("y", y)] + ([column("z", z)] if z is not None else [])
        stacked = np.column_stack([_door.reals(f"column {part.name!r}", part) for part in places])
        return cls(stacked, column("value", value), value)

    def with_values(self, values: ArrayLike, name: str | None = None) -> Points:
        """The same places with other values.

        Parameters
        ----------
        values : array_like
            One value for each of these points.
        name : str, optional
            What they are; the same as before by default.

        Returns
        -------
        Points
            Without error variances, which belong to the values.

        Examples
        --------
        >>> import numpy as np
        >>> import kestrum as ks
        >>> points = ks.Points([[1.0, 2.0], [4.0, 6.0]], [10.0, 100.0], "zinc")
        >>> points.with_values(np.log10(points.values), "log zinc").values
        array([1., 2.])
        """
        return Points(self.coordinates, values, self.name if name is None else name)

    def merged(self, how: Literal["mean", "first", "last"] = "mean", *, progress: bool | Callable[[float], object] = False) -> Points:
        """One row for each place.

        Parameters
        ----------
        how : {"mean", "first", "last"}
            Which value a place gets. With "mean", an error variance becomes that of the mean.
        progress : bool or callable
            True shows a bar; a callable gets the fraction done, and what it raises ends the call.

        Returns
        -------
        Points
            In the order in which the places come first.

        Examples
        --------
        >>> import kestrum as ks
        >>> points = ks.Points([[1.0, 2.0], [4.0, 6.0], [1.0, 2.0]], [1.0, 5.0, 3.0])
        >>> points.merged().values
        array([2., 5.])
        """
        _door.choice("how", how, ("mean", "first", "last"))
        if how == "mean" and self.values.dtype.kind not in "iuf":
            raise DataError("how is 'mean', but the values are labels, which have none. Take how='first' or how='last'.")
        with _progress.shown(progress, "merging") as report:
            if report is not None:
                report(0.0)
            by_place = watched(len(self), np.lexsort, self.coordinates.T)
            if report is not None:
                report(0.6)
            return watched(len(self), self._merged, how, by_place)

    def _merged(self, how: str, by_place: NDArray[np.intp]) -> Points:
        begins = np.ones(len(self), bool)
        begins[1:] = (np.diff(self.coordinates[by_place], axis=0) != 0.0).any(axis=1)
        first = by_place[begins]  # lexsort is stable: the first row of each place
        order = np.argsort(first)
        rank = np.empty_like(order)
        rank[order] = np.arange(len(order))
        group = np.empty_like(by_place)
        group[by_place] = rank[np.cumsum(begins) - 1]
        first = kept = first[order]
        if how == "last":
            kept = np.zeros_like(kept)
            np.maximum.at(kept, group, np.arange(len(self)))
        values = self.values[kept]
        errors = None if self.error_variance is None else self.error_variance[kept]
        if how == "mean" and len(kept) < len(self):
            count = np.bincount(group)
            # Differences from the first value keep a mean of equal values exact.
            values = values + np.bincount(group, self.values - values[group]) / count
            if self.error_variance is not None:
                errors = np.bincount(group, self.error_variance) / count**2
        result = copy.copy(self)
        result._fill(self.coordinates[first], values, self.name, errors,
                     kept if self._rows is None else self._rows[kept])
        return result

    def __len__(self) -> int:
        return len(self.values)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Points):
            return NotImplemented
        return (self.name == other.name and np.array_equal(self.coordinates, other.coordinates)
                and np.array_equal(self.values, other.values)
                and (self.error_variance is None) == (other.error_variance is None)
                and (self.error_variance is None or np.array_equal(self.error_variance, other.error_variance)))  # type: ignore[arg-type]

    __hash__ = None  # type: ignore[assignment]

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError(f"Points are immutable: make new ones instead of setting {name}.")

    def __delattr__(self, name: str) -> None:
        raise AttributeError("Points are immutable.")

    def __reduce__(self) -> tuple[Any, ...]:
        return _rebuild, (type(self), self.coordinates, self.values, self.name, self.error_variance, self._rows)

    def __repr__(self) -> str:
        axes = ("x", "y", "z")[:self.coordinates.shape[1]]
        if self.values.dtype.kind in "iuf":
            low, high, mean = self.values.min(), self.values.max(), self.values.mean()
            values = f"from {low:.6g} to {high:.6g}, mean {mean:.6g}"
        else:
            labels = sorted(set(self.values.tolist()), key=str)
            values = f"of {len(labels)} categories: {', '.join(map(str, labels[:6]))}{', ...' * (len(labels) > 6)}"
        lows, highs = self.coordinates.min(axis=0), self.coordinates.max(axis=0)
        extents = [f"{axis} from {low:.9g} to {high:.9g}" for axis, low, high in zip(axes, lows, highs)]
        errors = "" if self.error_variance is None else ", with variances of their errors"
        return (f"Points: {len(self)} values of {self.name!r} at ({', '.join(axes)}){errors}\n  {self.name} {values}\n"
                f"  {', '.join(extents)} in the coordinates' unit")

    def _given_rows(self, numbers: NDArray[np.intp]) -> NDArray[np.intp]:
        """The rows of the arguments that data were given in."""
        return numbers if self._rows is None else self._rows[numbers]


def require_numbers(name: str, points: Any, lack: str) -> Floats:
    """The values as doubles. Labels are refused: they have no `lack`."""
    if not isinstance(points, Points):
        _door.wrong_type(name, points, "Points (of a table: Points.from_dataframe(table, 'column'))")
    if points.values.dtype.kind not in "iuf":
        raise DataError(f"values of {points.name!r} are labels, which have no {lack}")
    values: Floats = points.values.astype(np.float64, copy=False)
    return values


def warn_if_numbers(points: Points, categories: int) -> None:
    """Says so where values that are taken for categories are likely measurements."""
    if points.values.dtype.kind == "f" and 2 * categories > len(points):
        warn(f"values of {points.name!r} are {categories:,} different numbers in {len(points):,} rows, each taken for a category. If they are "
             "measurements, cut them first: points.with_values(points.values > limit).")


def _rebuild(cls: type[Points], *parts: Any) -> Points:
    points = cls.__new__(cls)
    points._fill(*parts)
    return points


def _labels_or_numbers(values: Any) -> tuple[NDArray[Any], NDArray[np.bool_]]:
    """The values, and which of them are there."""
    given = _door.array("values", values)
    if given.dtype.kind == "O":
        known = np.array([_present(item) for item in given.reshape(-1)], bool).reshape(given.shape)
        parts = given[known]
        if all(isinstance(item, (int, float, np.number)) and not isinstance(item, bool) for item in parts):
            numbers = np.full(given.shape, np.nan)
            numbers[known] = _door.reals("values", parts)
            return numbers, known
        return given, known
    if given.dtype.kind == "f":
        numbers = _door.reals("values", given)
        return numbers, ~np.isnan(numbers)
    if given.dtype.kind not in "iubUS":
        raise ArgumentTypeError(f"values must be numbers or labels, but are of type {given.dtype}.")
    native = given.astype(given.dtype.newbyteorder("="), copy=False)
    return native, np.ones(given.shape, bool)


def _present(item: object) -> bool:
    if item is None or type(item).__name__ in ("NAType", "NaTType"):
        return False
    return not (isinstance(item, (float, np.floating)) and item != item)
