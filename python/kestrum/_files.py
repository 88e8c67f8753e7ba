"""Files of text for GSLIB and its relatives, and for VTK viewers."""

from __future__ import annotations

import itertools
import math
import os
from collections.abc import Callable, Iterator, Sequence
from contextlib import contextmanager
from typing import IO, TYPE_CHECKING, Any, Union
from urllib.parse import unquote

import numpy as np

from . import _core, _door, _progress
from ._door import Floats
from ._errors import DataError, GridError, KestrumError
from ._grid import AXES, Grid
from ._targets import Target
from ._watch import watched

if TYPE_CHECKING:
    import pandas as pd
    import xarray as xr

Path = Union[str, "os.PathLike[str]"]
MISSING = -9999999.0
LONGEST_NAME = 255
# What a status of a grid's reader, and a fault of a table's, says of the line where it shows. The first of either belong
# to a whole line: that where the reader is for tables, and line 1 for grids, wherever the reader is by then.
GRID_FAULTS = {
    -721: "there must be the sizes of a grid, nx ny nz dx dy dz x0 y0 z0",
    -722: "there must be the sizes of a grid, nx ny nz dx dy dz x0 y0 z0, but the line is too long",
    -723: "there must be the sizes of a grid: nx ny nz, and maybe dx dy dz, and x0 y0 z0. A table without a grid is read by read_gslib_points",
    -724: "there must be the number of variables, one that memory can hold on this grid",
    -725: "there must be the name of a variable",
    -726: "there must be the name of a variable, of at most 255 characters",
    -730: "there must be a number: the grid has more values",
    0: "there must be the number of variables, at least 1",
}
TABLE_FAULTS = {
    1: "there must be a title, or the number of points",
    2: "there must be the number of columns",
    3: "there must be the name of a column",
    4: "there must be a number",
    5: "the last row ends early",
    6: "there is another number of points than the first line has",
}
VTK_FAULTS = {
    1: "there must be '# vtk DataFile Version', as in a legacy file (.vtk). Of XML (.vti, .vtu) save one in a viewer such as ParaView",
    2: "there must be ASCII or BINARY",
    3: "there must be DATASET STRUCTURED_POINTS: a grid of another kind has no cells of one size. Resample it in a viewer such as ParaView",
    4: "there must be three numbers, of points that memory can hold",
    5: "there must be POINT_DATA or CELL_DATA with the number of points or cells of the grid, and values behind it",
    6: "there must be a keyword such as SCALARS, LOOKUP_TABLE, VECTORS or FIELD",
    7: "there must be an array: its name of at most 255 characters, a type of numbers, and how many of them it has",
    8: "there are values at the points and in the cells, which are two grids. Keep those of one in a viewer such as ParaView",
    9: "the file ends before the values of this array",
    10: "there must be a number",
}
GRID_FIRST_LINE = (-721, -722, -723)
TABLE_HEADER = (1, 2, 3)
VTK_VALUES = 10


def read_gslib(path: Path, missing: float | Sequence[float] = (MISSING,), *,
               progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Reads variables on a grid from a text file in the manner of GSLIB.

    The first line has the grid: ``nx ny nz``, and maybe ``dx dy dz`` and ``x0 y0 z0`` (the lower corner of the first
    cell). The second has the number of variables. Their names follow, one a line, then a line of values for each cell: x
    runs fastest, then y, then z.

    Parameters
    ----------
    path : str or path-like
        The file.
    missing : float or sequence of float
        Numbers that mark a missing value, NaN in the result.
    progress : bool or callable
        True shows a bar; a callable gets the fraction of the file read, and what it raises ends the call. Of a pipe only the
        end is known.

    Returns
    -------
    xarray.Dataset
        A variable for each of the file, with the cell centres as coordinates.

    Raises
    ------
    KestrumError
        The file is of another kind; the text has the line.
    OSError
        The file cannot be opened or read.

    See Also
    --------
    read_gslib_points : for tables.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.write_gslib(ks.Grid(3, 2).to_xarray([[1.0, 2.5, 3.0], [4.0, 5.0, float("nan")]], "clay"), "clay.gslib")
    >>> ks.read_gslib("clay.gslib").clay.values
    array([[1. , 2.5, 3. ],
           [4. , 5. , nan]])
    """
    import xarray as xr

    marks = _marks(missing)
    with _progress.shown(progress, "reading") as report, _opened(path, "rb") as file:
        status, position, content = _core.read_gslib_grid(file.fileno(), report)
        if content is None:
            first = status in GRID_FIRST_LINE
            raise _fault(path, file, 0 if first else position, first, GRID_FAULTS[status])
    numbers, names, values = content
    try:
        nx, ny, nz, dx, dy, dz, x0, y0, z0 = numbers
        grid = Grid(int(nx), int(ny), int(nz), dx=dx, dy=dy, dz=dz, x0=x0, y0=y0, z0=z0)
    except GridError as error:
        raise DataError(f"{_name(path)}, line 1: {error}") from None
    labels = _distinct(path, names)
    watched(values.size, _blank, values, marks)
    return xr.Dataset({label: (grid.dims, part.reshape(grid.shape)) for label, part in zip(labels, values)}, grid.coords)


def read_gslib_points(path: Path, missing: float | Sequence[float] = (MISSING,), *,
                      progress: bool | Callable[[float], object] = False) -> pd.DataFrame:
    """Reads a table in the manner of GSLIB.

    The first line is a title, or the number of rows. The second has the number of columns. Their names follow, one a
    line, then the rows.

    Parameters
    ----------
    path : str or path-like
        The file.
    missing : float or sequence of float
        Numbers that mark a missing value, NaN in the result.
    progress : bool or callable
        True shows a bar; a callable gets the fraction of the file read, and what it raises ends the call. Of a pipe only the
        end is known.

    Returns
    -------
    pandas.DataFrame
        ``Points.from_dataframe`` makes points of it.

    Raises
    ------
    KestrumError
        The file is of another kind; the text has the line.
    OSError
        The file cannot be opened or read.

    Examples
    --------
    >>> from pathlib import Path
    >>> import kestrum as ks
    >>> _ = Path("soil.dat").write_text("Soil samples\\n3\\nx\\ny\\nzinc\\n1.5 2.0 310\\n4.0 8.5 -999\\n")
    >>> ks.read_gslib_points("soil.dat", missing=-999)
         x    y   zinc
    0  1.5  2.0  310.0
    1  4.0  8.5    NaN
    """
    import pandas as pd

    marks = _marks(missing)
    with _progress.shown(progress, "reading") as report, _opened(path, "rb") as file:
        fault, position, content = _core.read_gslib_table(file.fileno(), report)
        if content is None:
            raise _fault(path, file, position, fault in TABLE_HEADER, TABLE_FAULTS[fault])
    names, values = content
    watched(values.size, _blank, values, marks)
    return pd.DataFrame(values, columns=_distinct(path, names))


def write_gslib(data: xr.DataArray | xr.Dataset | pd.DataFrame, path: Path, *, grid: Grid | None = None,
                progress: bool | Callable[[float], object] = False) -> None:
    """Writes values on a grid, or a table, as text in the manner of GSLIB.

    Numbers are written so that they come back bit for bit. NaN becomes -9999999.

    Parameters
    ----------
    data : xarray.DataArray, xarray.Dataset or pandas.DataFrame
        Values on a grid, for `read_gslib`; or a table of numbers, for `read_gslib_points`. Each realization, or
        category, becomes a variable of its own, named by it: ``zinc_0``. A blank in the name of a variable on a grid
        becomes an underscore.
    path : str or path-like
        The file, which is replaced.
    grid : Grid, optional
        The grid of the values. By default their coordinates are its cell centres, which do not give the size of a cell
        along an axis that has one.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Raises
    ------
    KestrumError
        The data do not fit such a file.
    OSError
        The file cannot be written, for instance because the disk is full.

    Examples
    --------
    >>> from pathlib import Path
    >>> import kestrum as ks
    >>> ks.write_gslib(ks.Grid(2, 2, dx=10, dy=10).to_xarray([[0.1, 0.2], [0.3, 0.4]], "clay"), "clay.gslib")
    >>> print(Path("clay.gslib").read_text(), end="")
    2 2 1 10 10 1 0 0 0
    1
    clay
    0.1
    0.2
    0.3
    0.4
    """
    if hasattr(data, "columns"):
        _write_table(data, path, progress)
    else:
        _write_grid(data, path, grid, progress, _core.write_gslib_grid)


def write_vtk(data: xr.DataArray | xr.Dataset, path: Path, *, grid: Grid | None = None,
              progress: bool | Callable[[float], object] = False) -> None:
    """Writes values on a grid as a legacy VTK file (text, structured points), which ParaView and others open.

    The points are the cell centres. Each variable is an array of doubles, written so that they come back bit for bit. NaN
    becomes -9999999.

    Parameters
    ----------
    data : xarray.DataArray or xarray.Dataset
        Values on a grid. Each realization, or category, becomes an array of its own, named by it: ``zinc_0``. A blank in
        a name becomes an underscore.
    path : str or path-like
        The file, which is replaced.
    grid : Grid, optional
        The grid of the values. By default their coordinates are its cell centres, which do not give the size of a cell
        along an axis that has one.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Raises
    ------
    KestrumError
        The data do not fit such a file.
    OSError
        The file cannot be written, for instance because the disk is full.

    Examples
    --------
    >>> from pathlib import Path
    >>> import kestrum as ks
    >>> ks.write_vtk(ks.Grid(2, 2, dx=10, dy=10).to_xarray([[0.1, 0.2], [0.3, 0.4]], "clay"), "clay.vtk")
    >>> Path("clay.vtk").read_text().split()[-4:]
    ['0.1', '0.2', '0.3', '0.4']
    """
    _write_grid(data, path, grid, progress, _core.write_vtk_grid, lambda name: name.replace("%", "%25"))


def read_vtk(path: Path, missing: float | Sequence[float] = (MISSING,), *,
             progress: bool | Callable[[float], object] = False) -> xr.Dataset:
    """Reads variables on a grid from a legacy VTK file of structured points (.vtk), text or binary.

    Points are the cell centres, as `write_vtk` has them; where the file has its values in the cells between the points,
    these are the grid's cells.

    Parameters
    ----------
    path : str or path-like
        The file.
    missing : float or sequence of float
        Numbers that mark a missing value, NaN in the result.
    progress : bool or callable
        True shows a bar; a callable gets the fraction of the file read, and what it raises ends the call. Of a pipe only the
        end is known.

    Returns
    -------
    xarray.Dataset
        A variable for each array of numbers, with the cell centres as coordinates. Of an array with several components
        each becomes a variable, ``flow_0`` and so on. Numbers of any type become float64.

    Raises
    ------
    KestrumError
        The file is of another kind, such as XML, or has another kind of grid; the text has the line.
    OSError
        The file cannot be opened or read.

    Notes
    -----
    `VORLWriteImage` of the C interface writes the lower corner of the first cell where others have the first point. Its
    files are known by their first two lines, and come back in their place.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.write_vtk(ks.Grid(3, 2, dx=10, dy=10).to_xarray([[1.0, 2.5, 3.0], [4.0, 5.0, float("nan")]], "clay"), "clay.vtk")
    >>> found = ks.read_vtk("clay.vtk")
    >>> found.clay.values
    array([[1. , 2.5, 3. ],
           [4. , 5. , nan]])
    >>> found.x.values
    array([ 5., 15., 25.])
    """
    import xarray as xr

    marks = _marks(missing)
    with _progress.shown(progress, "reading") as report, _opened(path, "rb") as file:
        fault, position, content = _core.read_vtk(file.fileno(), report)
        if content is None:
            raise _fault(path, file, position, fault != VTK_VALUES, VTK_FAULTS[fault])
    (points, origin, spacing, in_cells, of_library, arrays), values = content
    arguments: dict[str, Any] = {}
    for axis, n, first, size in zip(AXES, points, origin, spacing):
        size = size if n > 1 or size > 0.0 else 1.0
        if of_library or (in_cells and n > 1):
            corner = first
        else:
            corner = _corner(first, size)
        arguments |= {"n" + axis: n - (in_cells and n > 1), "d" + axis: size, axis + "0": corner}
    try:
        grid = Grid(**arguments)
    except GridError as error:
        raise DataError(f"{_name(path)}: the grid of the file cannot be used: {error}") from None
    watched(values.size, _blank, values, marks)
    variables: dict[str, Any] = {}
    count, start = math.prod(grid.shape), 0
    for written, components in arrays:
        array = values[start:start + count * components].reshape(*grid.shape, components)
        start += count * components
        for name, part in zip(_component_names(unquote(written.decode("utf-8", "replace")), components), range(components)):
            if name in variables:
                raise DataError(f"{_name(path)}: there are two arrays {name!r}. Rename one in the file.")
            variables[name] = (grid.dims, array[..., part])
    return xr.Dataset(variables, grid.coords)


def _corner(centre: float, size: float) -> float:
    """The lower corner of the first cell: the number of the fewest digits whose cell has that very centre, if there is one."""
    corners = [float(f"{centre - 0.5 * size:.{digits}g}") for digits in (6, 9, 12, 15, 17)]
    return next((corner for corner in corners if corner + 0.5 * size == centre), corners[-1])


def _component_names(name: str, components: int) -> list[str]:
    names = name.split("/", components - 1)
    if len(names) == components:  # as VORLWriteImage has them
        return names
    return [f"{name}_{k}" for k in range(components)]


def _write_grid(data: Any, path: Path, grid: Grid | None, progress: _progress.Progress,
                write: Callable[[int, tuple[float, ...], Sequence[str], Sequence[Floats], Any], None],
                written: Callable[[str], str] = str) -> None:
    if not _door.is_xarray(data):
        _door.wrong_type("data", data, "an xarray.DataArray or Dataset (of an array: grid.to_xarray(values))")
    if grid is not None and not isinstance(grid, Grid):
        _door.wrong_type("grid", grid, "a Grid")
    if "point" in data.dims:
        raise GridError("data are at places, not on a grid. Write a table: write_gslib(data.to_dataframe(), path).")
    target = Target(data if grid is None else grid)
    assert target.grid is not None and target.numbers is not None
    if target.count >= 2**31:
        raise GridError(f"data have {target.count:,} cells, more than such a file can have. Write a part of them.")
    columns = {}
    for name, part in _variables(data, target.grid.dims):
        label = written("_".join(name.split()))
        if not label or label in columns:
            raise DataError(f"data have {'two variables' if label else 'a variable without a name'} {name!r}. Rename: data.rename(...).")
        _require_short(label)
        columns[label] = _exact(name, target.values(name, part), part)
    if not columns:
        raise DataError("data have no variable.")
    with _progress.shown(progress, "writing") as report, _opened(path, "wb") as file:
        write(file.fileno(), target.numbers, list(columns), list(columns.values()), report)


def _write_table(frame: Any, path: Path, progress: _progress.Progress) -> None:
    names = [str(column).strip() for column in frame.columns]
    if not names or "" in names or any("\n" in name for name in names) or len(set(names)) < len(names):
        raise DataError(f"data must have columns with a name of one line each, all different, but have {_door.show(names)}.")
    columns = []
    for number, name in enumerate(names):
        _require_short(name)
        values = _door.reals(f"column {name!r}", frame.iloc[:, number])
        columns.append(_exact(name, values, frame.iloc[:, number]))
    with _progress.shown(progress, "writing") as report, _opened(path, "wb") as file:
        _core.write_gslib_table(file.fileno(), names, columns, report)


def _variables(data: Any, dims: tuple[str, ...]) -> Iterator[tuple[str, Any]]:
    """Each variable on the grid; of one with more dimensions, each slice."""
    if not hasattr(data, "data_vars"):
        data = data.to_dataset(name="value" if data.name is None else data.name)
    for name, variable in data.data_vars.items():
        if variable.ndim == 0:
            continue  # such as the coordinate system of a GeoTIFF
        more = [dim for dim in variable.dims if dim not in dims]
        for index in itertools.product(*(range(variable.sizes[dim]) for dim in more)):
            part = variable.isel(dict(zip(more, index)))
            labels = [part[dim].item() if dim in variable.coords else i for dim, i in zip(more, index)]
            yield "_".join(map(str, [name, *labels])), part


def _require_short(name: str) -> None:
    if len(name.encode()) > LONGEST_NAME:
        raise DataError(f"data have the name {_door.show(name)} of {len(name.encode())} bytes, but a file keeps {LONGEST_NAME}. "
                        "Rename: data.rename(...).")


def _exact(name: str, values: Floats, given: Any) -> Floats:
    """Refuses what a file could not give back."""
    original = np.asarray(given)
    if original.dtype.kind in "iu" and original.dtype.itemsize == 8 and (np.abs(values) >= 2.0**53).any():
        raise DataError(f"{name} has whole numbers of 2^53 or more, whose last digits a file would lose.")
    if (values == MISSING).any():
        raise DataError(f"{name} has the value {MISSING:.0f}, which marks a missing value in such files. Make it NaN: "
                        f"data.where(data != {MISSING:.0f}).")
    return values


@contextmanager
def _opened(path: Path, mode: str) -> Iterator[IO[bytes]]:
    """A file whose name is in what the system says of it."""
    if not isinstance(path, (str, os.PathLike)):
        _door.wrong_type("path", path, "the name of a file")
    with open(path, mode, buffering=0) as file:
        try:
            yield file
        except OSError as error:
            error.filename = path
            raise


def _blank(values: Floats, marks: Floats) -> None:
    values[np.isin(values, marks)] = np.nan


def _marks(missing: Any) -> Floats:
    return np.atleast_1d(_door.reals("missing", missing))


def _name(path: Path) -> str:
    return os.fspath(path)


def _distinct(path: Path, names: list[bytes]) -> list[str]:
    labels = [name.decode("utf-8", "replace") for name in names]
    for number, label in enumerate(labels):
        if label in labels[:number]:
            raise DataError(f"{_name(path)}, line {number + 3}: there are two variables {label!r}. Rename one in the file.")
    return labels


def _fault(path: Path, file: IO[bytes], position: int, header: bool, text: str) -> KestrumError:
    """An error with the line at `position`, or, behind the header, with that of the first word from there on."""
    if position < 0:
        return DataError(f"{_name(path)}: {text}.")
    file.seek(0)
    start, number = 0, 0
    with open(file.fileno(), "rb", closefd=False) as lines:
        for number, line in enumerate(lines, 1):
            start += len(line)
            if start > position and (header or line[position - start:].strip()):
                found = line.decode("utf-8", "replace").strip()
                return DataError(f"{_name(path)}, line {number}: {text} (the line is {_door.show(found)}).")
    return DataError(f"{_name(path)}, line {number + 1}: {text} (the file ends after {number} lines).")
