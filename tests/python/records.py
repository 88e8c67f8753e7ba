"""Records for the tests, built the way a caller builds them."""

import numpy as np

from kestrum import native as k


def image(grid, names, values):
    """An image whose contents the library owns; the record itself lies in native memory."""
    record = k.calloc_VORL_IMAGE()
    nxyz = grid["nx"] * grid["ny"] * grid["nz"]
    assert k.VORLMallocImage(record, nxyz, len(names)) == 0
    fill_grid(record.grid, grid)
    record.nvar, record.nxyzv = len(names), nxyz * len(names)
    for index, name in enumerate(names):
        k.vorl_set_varname(record.varName, index, name)
    k.vorl_set_real_vector_from_array(record.var, 0, np.ravel(values))
    return record


def fill_grid(record, grid):
    for field, value in grid.items():
        setattr(record, field, value)
    record.nxy = grid["nx"] * grid["ny"]
    record.nxyz = record.nxy * grid["nz"]


def grid(nx, ny, nz=1, sx=1.0, sy=1.0, sz=1.0, ox=0.0, oy=0.0, oz=0.0):
    return dict(nx=nx, ny=ny, nz=nz, sx=sx, sy=sy, sz=sz, ox=ox, oy=oy, oz=oz)


def reals(pointer, n):
    array = np.empty(n)
    k.vorl_get_array_from_real_vector(pointer, 0, array)
    return array
