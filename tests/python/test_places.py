"""Grids, points, and the arrays and tables that go into them."""

import numpy as np
import pandas as pd
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import kestrum as ks

FORMS = {
    "list": lambda a: a.tolist(), "Fortran": np.asfortranarray, "reversed": lambda a: a[::-1].copy()[::-1],
    "strided": lambda a: np.repeat(a, 2, axis=0)[::2], "masked": lambda a: np.ma.array(a), "big endian": lambda a: a.astype(">f8"),
    "float32": lambda a: a.astype(np.float32), "long double": lambda a: a.astype(np.longdouble), "int64": lambda a: a.astype(np.int64),
    "uint8": lambda a: a.astype(np.uint8), "int16, big endian": lambda a: a.astype(">i2"), "object": lambda a: a.astype(object),
    "read-only": lambda a: np.frombuffer(a.tobytes()).reshape(a.shape),
}


@given(st.sampled_from(sorted(FORMS)), st.sampled_from(sorted(FORMS)), st.integers(1, 30), st.sampled_from([2, 3]), st.integers(0, 99))
@settings(max_examples=60, deadline=None)
def test_any_form_of_numbers_works(form, other, n, dimension, seed):
    random = np.random.default_rng(seed)
    places, values = random.integers(0, 100, (n, dimension)).astype(float), random.integers(0, 100, n).astype(float)
    points = ks.Points(FORMS[form](places), FORMS[other](values))
    assert np.array_equal(points.coordinates, places) and np.array_equal(points.values, values)
    assert points.coordinates.dtype == np.float64 and points.coordinates.flags.c_contiguous


@pytest.mark.parametrize("missing", [
    [1.0, np.nan, 3.0], [1, None, 3], np.ma.array([1.0, 2.0, 3.0], mask=[0, 1, 0]), pd.Series([1, None, 3], dtype="Int64"),
    pd.Series([1.0, np.nan, 3.0], index=[7, 8, 9]), pd.Series([1, None, 3], dtype="Float64")], ids=lambda m: str(type(m)))
def test_missing_values_leave_rows_out(missing):
    with pytest.warns(ks.KestrumWarning, match="1 of 3 rows .*row 1"):
        points = ks.Points([[0, 0], [1, 1], [2, 2]], missing, error_variance=[0.0, 1.0, 2.0])
    assert points.values.tolist() == [1.0, 3.0] and points.error_variance.tolist() == [0.0, 2.0]


def test_rows_in_messages_are_those_of_the_user():
    with pytest.warns(ks.KestrumWarning):
        points = ks.Points([[0, 0], [1, 1], [5, 5], [2, 2], [5, 5]], [np.nan, 1, 2, 3, 4])
    with pytest.raises(ks.DataError, match="rows 2, 4"):
        ks.krige(points, ks.Spherical(range=5.0), ks.Grid(6, 6))


def test_merged():
    places = [[1.0, 2.0], [4.0, 6.0], [1.0, 2.0], [0.0, 0.0], [-0.0, 0.0], [1.0, 2.0]]
    points = ks.Points(places, [1, 5, 3, 8, 8, 8], error_variance=[1.0, 2.0, 3.0, 0.0, 0.0, 5.0])
    table = pd.DataFrame(points.coordinates + 0.0, columns=["x", "y"]).assign(value=points.values)
    for how in ("mean", "first", "last"):
        expected = table.groupby(["x", "y"], sort=False).value.agg(how)
        merged = points.merged(how)
        assert merged.values.tolist() == expected.tolist() and [tuple(p) for p in merged.coordinates] == list(expected.index)
    assert points.merged().error_variance.tolist() == [1.0, 2.0, 0.0]
    assert ks.Points(places, list("abcdef")).merged("last").values.tolist() == ["f", "b", "e"]


def test_tables():
    frame = pd.DataFrame({"x": [1, 2], "y": [3.0, 4.0], "h": [5.0, 6.0], "zinc": [10, 20], "rock": pd.Categorical(["b", "a"])})
    assert ks.Points.from_dataframe(frame, "zinc", z="h").coordinates.tolist() == [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]]
    assert ks.Points.from_dataframe(frame, "rock").values.tolist() == ["b", "a"]
    geopandas = pytest.importorskip("geopandas")
    places = geopandas.GeoDataFrame({"zinc": [10, 20]}, geometry=geopandas.points_from_xy([1, 2], [3, 4]))
    assert ks.Points.from_dataframe(places, "zinc").coordinates.tolist() == [[1.0, 3.0], [2.0, 4.0]]
    with pytest.raises(ks.DataError, match="row 1.*centroid"):
        ks.Points.from_dataframe(places.set_geometry([places.geometry[0], places.geometry[1].buffer(1.0)]), "zinc")


@given(st.integers(2, 40), st.integers(2, 40), st.integers(1, 5), st.floats(1e-3, 1e3), st.floats(-1e6, 1e6),
       st.booleans(), st.sampled_from([np.float64, np.float32]))
@settings(max_examples=60, deadline=None)
def test_grids_and_templates(nx, ny, nz, dx, x0, descending, dtype):
    if dtype is np.float32:
        x0 = x0 * 1e-3 * dx
    grid = ks.Grid(nx, ny, nz, dx=dx, dy=2.0, dz=0.5, x0=x0, y0=-3.0)
    template = grid.to_xarray(np.zeros(grid.shape))
    template = template.assign_coords(x=template.x.astype(dtype))
    back = ks.Grid.from_xarray(template.isel(y=slice(None, None, -1)) if descending else template)
    assert back.shape == grid.shape and back.dims == grid.dims
    for axis in grid.dims:
        # Rounded coordinates stay within the tolerance of a regular axis.
        assert np.allclose(back.coords[axis], grid.coords[axis], rtol=1e-6, atol=1e-3 * getattr(grid, "d" + axis))


@given(st.floats(1e-2, 1e4), st.floats(0.0, 50.0), st.floats(-1e5, 1e5))
@settings(max_examples=50, deadline=None)
def test_covering_covers(cell, margin, shift):
    places = np.random.default_rng(3).uniform(0.0, 90.0, (20, 2)) + shift
    grid = ks.Grid.covering(ks.Points(places, np.zeros(20)), cell, margin)
    low = np.array([grid.x0, grid.y0])
    high = low + [grid.nx * cell, grid.ny * cell]
    assert (low <= places.min(axis=0) - margin + 1e-9).all() and (high > places.max(axis=0) + margin - 1e-9).all()
    assert (high - low < 90.0 + 2 * margin + 2 * cell + 1e-6).all()
