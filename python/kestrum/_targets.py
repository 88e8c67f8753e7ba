"""Where to compute: a grid, a template whose coordinates are a grid, or places."""

from __future__ import annotations

from functools import partial
from typing import TYPE_CHECKING, Any, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _door, _lazy
from ._door import Floats
from ._errors import ArgumentTypeError, DataError, GridError, KestrumError
from ._grid import AXES, Grid
from ._points import Points

if TYPE_CHECKING:
    import xarray as xr

Where = Union[Grid, "xr.DataArray", "xr.Dataset", ArrayLike]


class Target:
    """What `where` stands for. Inside, values on a grid are in node order: z, y, x, all ascending."""

    def __init__(self, where: Where, places_too: bool = True, name: str = "where", lazy: bool = False) -> None:
        self.lazy = lazy  # whether Dask arrays on the grid stay lazy
        self.grid: Grid | None = None
        self.places: Floats | None = None
        self.template: xr.DataArray | xr.Dataset | None = None
        if isinstance(where, Grid):
            self.grid = where
        elif _door.is_xarray(where):
            given: Any = where
            self.template = given.coords.to_dataset()  # of a template only the coordinates are used
            self.grid = Grid.from_xarray(given)
        elif isinstance(where, Points):
            raise ArgumentTypeError(f"{name} is Points. Give their places: {name}=points.coordinates.")
        elif where is None or isinstance(where, (str, bytes)) or _door.naxes(name, where) == 0 or not places_too:
            _door.wrong_type(name, where, "a Grid, an xarray template" + " or places of shape (m, 2) or (m, 3)" * places_too)
        else:
            self.places = _door.reals(name, where)
            if self.places.ndim != 2 or self.places.shape[1] not in (2, 3):
                raise DataError(f"{name} is of shape {self.places.shape}, but places must be (m, 2) or (m, 3). "
                                "For a map, give a Grid.")
            _door.finite(name, self.places)
        self.dimension = self.places.shape[1] if self.places is not None else len(self.grid.shape) if self.grid else 0

    @property
    def shape(self) -> tuple[int, ...]:
        return self.grid.shape if self.grid is not None else (len(self.places),) if self.places is not None else ()

    @property
    def count(self) -> int:
        return int(np.prod(self.shape, dtype=object))

    @property
    def numbers(self) -> tuple[float, ...] | None:
        """The grid as the engine takes it."""
        g = self.grid
        return None if g is None else (g.nx, g.ny, g.nz, g.dx, g.dy, g.dz, g.x0, g.y0, g.z0)

    def require_dimension(self, points: Points) -> None:
        """Refuses points of another dimension."""
        given = points.coordinates.shape[1]
        if given == self.dimension:
            return
        if given == 3:
            there = "the grid has one layer (nz is 1)" if self.grid is not None else "the places are (x, y)"
            raise DataError(f"points have coordinates (x, y, z), but {there}. If z is no place (say, an elevation), leave it out: "
                            "Points(coordinates[:, :2], values).")
        there = f"the grid has {self.grid.nz} layers" if self.grid is not None else "the places have three columns, (x, y, z)"
        raise DataError(f"points have coordinates (x, y), but {there}. Give the points a z, or work in two dimensions.")

    def values(self, name: str, value: Any, error: type[KestrumError] = GridError) -> Floats:
        """Numbers for each target, in node order. An array is ordered as results are, a DataArray by its coordinates."""
        if self.grid is None:
            flat = _door.reals(name, value, error)
            if flat.shape != self.shape:
                raise error(f"{name} is of shape {flat.shape}, but there are {self.count} places: one value is needed for each.")
            return flat
        if _door.is_xarray(value) and any(axis in value.coords for axis in self.grid.dims):
            return self._by_coordinates(name, value, error)
        array = _lazy_reals(name, value, error) if self._stays_lazy(value) else _door.reals(name, value, error)
        if array.shape != self.shape:
            swapped = " Transpose it." if array.shape == self.shape[::-1] else ""
            raise error(f"{name} is of shape {array.shape}, but the grid's shape is {self.shape}, ordered "
                        f"({', '.join(self.grid.dims)}).{swapped}")
        flipped = array[self._flips()]
        return flipped if self._stays_lazy(value) else np.ascontiguousarray(flipped)  # type: ignore[no-any-return]

    def _stays_lazy(self, value: Any) -> bool:
        return self.lazy and _lazy.is_lazy(value)

    def _by_coordinates(self, name: str, value: Any, error: type[KestrumError]) -> Floats:
        assert self.grid is not None
        dims = self.grid.dims
        if hasattr(value, "data_vars"):
            raise ArgumentTypeError(f"{name} is a Dataset. Give one of its variables.")
        value = value.squeeze([dim for dim in value.dims if dim not in dims and value.sizes[dim] == 1])
        if set(value.dims) != set(dims):
            raise error(f"{name} has the dimensions {tuple(value.dims)}, but needs ({', '.join(dims)}).")
        value = value.transpose(*dims)
        for axis, centres in self.grid.coords.items():
            if axis in value.coords and value.sizes[axis] > 1 and value[axis].values[0] > value[axis].values[-1]:
                value = value.isel({axis: slice(None, None, -1)})
            same = value.sizes[axis] == len(centres)
            if same and axis in value.coords:
                same = bool(np.allclose(value[axis].values, centres, rtol=0.0, atol=0.01 * getattr(self.grid, "d" + axis)))
            if not same:
                raise error(f"{name} has other coordinates {axis} than the grid. Bring it onto the grid first: "
                            f"{name}.interp({axis}=grid.coords[{axis!r}]).")
        return _lazy_reals(name, value.data, error) if self._stays_lazy(value.data) else _door.reals(name, value, error)  # type: ignore[no-any-return]

    def _flips(self) -> tuple[slice, ...]:
        """Between the order of a template and ascending order, either way."""
        assert self.grid is not None
        template = self.template

        def descends(axis: str) -> bool:
            centres = np.zeros(0) if template is None else np.asarray(template.coords[axis])
            return len(centres) > 1 and bool(centres[0] > centres[-1])

        return tuple(slice(None, None, -1 if descends(axis) else None) for axis in self.grid.dims)

    def cell(self, node: int) -> str:
        """A cell in a message, by its index in the result."""
        index = np.unravel_index(node, self.shape)
        return str(tuple(int(n - 1 - i if flip.step else i) for i, n, flip in zip(index, self.shape, self._flips())))

    def mask(self, value: Any) -> NDArray[np.uint8] | None:
        """One byte for each target, 0 for those to leave out."""
        if value is None:
            return None
        if self.grid is None:
            raise GridError("mask needs a grid. Leave the places out instead.")
        numbers = self.values("mask", value)
        taken = (numbers != 0.0) & ~np.isnan(numbers)
        if self._stays_lazy(taken):
            return taken.astype(np.uint8)  # type: ignore[no-any-return]
        if not taken.any():
            raise GridError("mask leaves every cell out.")
        return np.asarray(taken, np.uint8)

    def dataset(self, variables: dict[str, Floats], attributes: dict[str, dict[str, str]],
                general: dict[str, str | int | float]) -> xr.Dataset:
        """The result, with the coordinates of the grid, of the template, or along "point"."""
        flips = self._flips() if self.grid is not None else (slice(None),)
        return self.labelled({name: values.reshape(self.shape)[flips] for name, values in variables.items()}, attributes, general)

    def labelled(self, variables: dict[str, Any], attributes: dict[str, dict[str, str]],
                 general: dict[str, str | int | float]) -> xr.Dataset:
        """The same of arrays that have the result's shape and order."""
        import xarray as xr

        dims: tuple[str, ...]
        if self.grid is not None:
            dims = self.grid.dims
            coords: dict[str, Any] = dict(self.grid.coords)
            if self.template is not None:
                # spatial_ref is where GeoTIFF tools keep the coordinate system.
                coords = {axis: self.template.coords[axis] for axis in (*dims, "spatial_ref") if axis in self.template.coords}
        else:
            assert self.places is not None
            dims = ("point",)
            coords = {axis: ("point", self.places[:, i]) for i, axis in enumerate(AXES[:self.dimension])}
        return xr.Dataset({name: (dims, values, attributes[name]) for name, values in variables.items()}, coords, general)


def _lazy_reals(name: str, array: Any, error: type[KestrumError]) -> Any:
    """What reals makes of the blocks of a Dask array, which may be masked."""
    _door.reals(name, np.zeros(1, array.dtype), error)
    return array.map_blocks(partial(_reals_of, name, error), dtype=np.float64, meta=np.empty((0,) * array.ndim))


def _reals_of(name: str, error: type[KestrumError], block: Any) -> Floats:
    return _door.reals(name, block, error)
