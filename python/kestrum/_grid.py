"""Grids."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, Self

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _door
from ._errors import GridError

if TYPE_CHECKING:
    import xarray as xr

    from ._points import Points

AXES = ("x", "y", "z")
# How far a coordinate may be from its place on a regular axis, in cells: coordinates are often rounded.
IRREGULAR = 1e-3


@dataclass(frozen=True, repr=False)
class Grid:
    """Cells of one size, in two or three dimensions.

    A grid with ``nz = 1`` is two-dimensional. Values on a grid are arrays ordered (y, x) or (z, y, x), with all
    coordinates ascending. A grid is immutable; grids can be compared, hashed and pickled.

    Parameters
    ----------
    nx, ny, nz : int
        Numbers of cells.
    dx, dy, dz : float
        Sizes of a cell, in the coordinates' unit.
    x0, y0, z0 : float
        The lower corner of the first cell (not its centre).

    Examples
    --------
    >>> import kestrum as ks
    >>> grid = ks.Grid(78, 104, dx=40, dy=40, x0=178440, y0=329600)
    >>> grid.shape, grid.dims
    ((104, 78), ('y', 'x'))
    >>> grid.coords["x"][:3]
    array([178460., 178500., 178540.])
    >>> grid
    Grid(78, 104, dx=40.0, dy=40.0, x0=178440.0, y0=329600.0)
      x from 178440 to 181560, y from 329600 to 333760 in the coordinates' unit
      arrays are ordered (y, x), shape (104, 78), both ascending
    """

    nx: int
    ny: int
    nz: int = 1
    dx: float = field(default=1.0, kw_only=True)
    dy: float = field(default=1.0, kw_only=True)
    dz: float = field(default=1.0, kw_only=True)
    x0: float = field(default=0.0, kw_only=True)
    y0: float = field(default=0.0, kw_only=True)
    z0: float = field(default=0.0, kw_only=True)

    def __post_init__(self) -> None:
        for axis in AXES:
            count = _door.whole("n" + axis, getattr(self, "n" + axis), 1, 2**31 - 1, error=GridError)
            size = _door.number("d" + axis, getattr(self, "d" + axis), above=0.0, error=GridError)
            corner = _door.number(axis + "0", getattr(self, axis + "0"), error=GridError)
            if not math.isfinite(corner + count * size) or size < 4.0 * max(math.ulp(corner), math.ulp(corner + count * size)):
                raise GridError(f"d{axis} is {size:g}, too small or too large a cell beside {axis}0, which is {corner:g}: "
                                f"the cells along {axis} cannot be told apart. Count {axis} from a nearer origin.")
            for name, value in (("n" + axis, count), ("d" + axis, size), (axis + "0", corner)):
                object.__setattr__(self, name, value)

    @classmethod
    def covering(cls, points: Points, cell: float | Sequence[float], margin: float = 0.0) -> Self:
        """The grid of cells of a size that covers points.

        Parameters
        ----------
        points : Points
            What to cover.
        cell : float or sequence of float
            Size of a cell: one number, or one for each axis.
        margin : float
            What to add on each side, in the coordinates' unit.

        Returns
        -------
        Grid
            Its corners are multiples of the cell size. Every point lies in a cell, also one on a border.

        Examples
        --------
        >>> import kestrum as ks
        >>> points = ks.Points([[12.0, 31.0], [58.0, 77.0]], [1.0, 2.0])
        >>> ks.Grid.covering(points, cell=10)
        Grid(5, 5, dx=10.0, dy=10.0, x0=10.0, y0=30.0)
          x from 10 to 60, y from 30 to 80 in the coordinates' unit
          arrays are ordered (y, x), shape (5, 5), both ascending
        """
        from ._points import Points

        if not isinstance(points, Points):
            _door.wrong_type("points", points, "Points")
        dimension = points.coordinates.shape[1]
        sizes = [cell] * dimension if _door.naxes("cell", cell) == 0 else _door.parts("cell", cell)
        if len(sizes) != dimension:
            raise GridError(f"cell has {len(sizes)} sizes, but the points have {dimension} coordinates. "
                            "Give one number, or one for each coordinate.")
        margin = _door.number("margin", margin, at_least=0.0, error=GridError)
        arguments: dict[str, Any] = {}
        lower, upper = points.coordinates.min(axis=0), points.coordinates.max(axis=0)
        for axis, size, low, high in zip(AXES, sizes, lower, upper):
            size = _door.number("cell", size, above=0.0, error=GridError)
            corner = math.floor((low - margin) / size) * size
            count = math.floor((high + margin - corner) / size) + 1
            if count >= 2**31:
                raise GridError(f"cell is {size:g}, which makes {count:,} cells along {axis}. Take larger cells.")
            arguments.update({"n" + axis: count, "d" + axis: size, axis + "0": corner})
        return cls(**arguments)

    @classmethod
    def from_xarray(cls, template: xr.DataArray | xr.Dataset) -> Self:
        """The grid whose cell centres are the coordinates of an xarray object.

        Parameters
        ----------
        template : xarray.DataArray or xarray.Dataset
            With regularly spaced coordinates x and y, and maybe z, ascending or descending. The grid is ascending.

        Returns
        -------
        Grid

        Raises
        ------
        GridError
            A coordinate is missing, has a single value, or is not regularly spaced.

        Examples
        --------
        >>> import kestrum as ks
        >>> grid = ks.Grid(4, 3, dx=10.0, dy=10.0)
        >>> ks.Grid.from_xarray(grid.to_xarray([[0.0] * 4] * 3)) == grid
        True
        """
        if not _door.is_xarray(template):
            _door.wrong_type("template", template, "an xarray.DataArray or xarray.Dataset")
        arguments: dict[str, Any] = {}
        for axis in AXES:
            if axis not in template.coords:
                if axis == "z":
                    continue
                names = ", ".join(map(str, template.coords)) or "none"
                raise GridError(f"template has no coordinate {axis!r} (it has {names}). "
                                f"Rename the one to use: template.rename({{...: {axis!r}}}).")
            if axis == "z" and "z" not in template.dims:
                continue
            centres = _door.finite(f"coordinate {axis!r}", _door.reals(f"coordinate {axis!r}", template.coords[axis].values,
                                                                       GridError), GridError)
            if centres.ndim != 1:
                raise GridError(f"coordinate {axis!r} of the template must have one axis, but has {centres.ndim}.")
            n = len(centres)
            if n < 2:
                if axis == "z" and n == 1:
                    continue
                raise GridError(f"coordinate {axis!r} of the template has {n} value{'s' * (n != 1)}: "
                                "the size of a cell cannot be known. Give a Grid.")
            if centres[0] > centres[-1]:
                centres = centres[::-1]
            size = (centres[-1] - centres[0]) / (n - 1)
            off = np.abs(centres - (centres[0] + size * np.arange(n)))
            if not size > 0.0 or off.max() > IRREGULAR * size:
                steps = np.diff(centres)
                odd = int(np.abs(steps - np.median(steps)).argmax())
                raise GridError(f"coordinate {axis!r} of the template is not regularly spaced (see {centres[odd]:.9g} and "
                                f"{centres[odd + 1]:.9g}). Give places instead of a grid, or regrid the template.")
            size, corner = _plainest(float(size), centres)
            arguments.update({"n" + axis: n, "d" + axis: size, axis + "0": corner})
        return cls(**arguments)

    @property
    def shape(self) -> tuple[int, ...]:
        """(ny, nx) or (nz, ny, nx).

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Grid(4, 3).shape, ks.Grid(4, 3, 2).shape
        ((3, 4), (2, 3, 4))
        """
        return (self.ny, self.nx) if self.nz == 1 else (self.nz, self.ny, self.nx)

    @property
    def dims(self) -> tuple[str, ...]:
        """("y", "x") or ("z", "y", "x").

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Grid(4, 3).dims
        ('y', 'x')
        """
        return ("y", "x") if self.nz == 1 else ("z", "y", "x")

    @property
    def coords(self) -> dict[str, NDArray[np.float64]]:
        """The cell centres along each axis, by its name.

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Grid(3, 1, dx=10).coords["x"]
        array([ 5., 15., 25.])
        """
        return {axis: getattr(self, axis + "0") + (np.arange(getattr(self, "n" + axis)) + 0.5) * getattr(self, "d" + axis)
                for axis in self.dims}

    def to_xarray(self, values: ArrayLike, name: str | None = None) -> xr.DataArray:
        """Values on the grid with their coordinates.

        Parameters
        ----------
        values : array_like
            Of the grid's shape. Not copied.
        name : str, optional
            Name of the result.

        Returns
        -------
        xarray.DataArray

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Grid(3, 2).to_xarray([[1, 2, 3], [4, 5, 6]], "layer").sel(x=1.5, y=0.5).item()
        2
        """
        import xarray as xr

        given = _door.array("values", values)
        if given.shape != self.shape:
            raise GridError(f"values are of shape {given.shape}, but the grid's shape is {self.shape}, ordered "
                            f"({', '.join(self.dims)}).{' Transpose them: values.T.' * (given.shape == self.shape[::-1])}")
        return xr.DataArray(given, self.coords, self.dims, name)

    def __repr__(self) -> str:
        numbers = [str(self.nx), str(self.ny)] + [str(self.nz)] * (self.nz != 1)
        sizes = [f"d{axis}={getattr(self, 'd' + axis)!r}" for axis in reversed(self.dims)]
        corners = [f"{axis}0={getattr(self, axis + '0')!r}" for axis in reversed(self.dims)]
        extents = [f"{axis} from {low:.9g} to {low + getattr(self, 'n' + axis) * getattr(self, 'd' + axis):.9g}"
                   for axis in reversed(self.dims) for low in [getattr(self, axis + "0")]]
        return (f"Grid({', '.join(numbers + sizes + corners)})\n  {', '.join(extents)} in the coordinates' unit\n"
                f"  arrays are ordered ({', '.join(self.dims)}), shape {self.shape}, "
                f"{'both' if self.nz == 1 else 'all'} ascending")


def _plainest(size: float, centres: NDArray[np.float64]) -> tuple[float, float]:
    """Size and corner with the fewest digits that give the very same centres, if there are such."""
    steps = np.arange(len(centres)) + 0.5
    for digits in range(1, 18):
        shorter = float(f"{size:.{digits}g}")
        for corner in (float(f"{centres[0] - 0.5 * shorter:.{places}g}") for places in (6, 9, 12, 15, 17)):
            if corner + steps[-1] * shorter == centres[-1] and np.array_equal(corner + steps * shorter, centres):
                return shorter, corner
    return size, float(centres[0] - 0.5 * size)
