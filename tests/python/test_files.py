"""Files: numbers come back bit for bit, other files are refused with the line, and the system's errors come through."""

import os
import signal
import subprocess
import sys

import numpy as np
import pandas as pd
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

import kestrum as ks
from kestrum import native

NUMBERS = st.floats(allow_nan=True, allow_infinity=True, width=64).filter(lambda value: value != -9999999.0)


@settings(max_examples=60, deadline=None)
@given(hnp.arrays(np.float64, hnp.array_shapes(min_dims=2, max_dims=3, min_side=2, max_side=5), elements=NUMBERS),
       st.floats(1e-3, 1e3), st.floats(-1e6, 1e6))
def test_a_grid_comes_back_bit_for_bit(tmp_path_factory, values, size, corner):
    path = tmp_path_factory.mktemp("grid") / "values.gslib"
    nz, ny, nx = (1,) * (3 - values.ndim) + values.shape
    grid = ks.Grid(nx, ny, nz, dx=size, dy=2.0 * size, x0=corner)
    ks.write_gslib(grid.to_xarray(values, "clay"), path, grid=grid)
    back = ks.read_gslib(path)
    # NaN is written as the missing value, so that its sign does not come back.
    assert np.where(np.isnan(values), np.nan, values).tobytes() == back.clay.values.tobytes()
    assert ks.Grid.from_xarray(back) == ks.Grid.from_xarray(grid.to_xarray(values))
    assert all(np.array_equal(back[axis], centres) for axis, centres in grid.coords.items())


@settings(max_examples=30, deadline=None)
@given(hnp.arrays(np.float64, st.tuples(st.integers(0, 6), st.integers(1, 4)), elements=NUMBERS))
def test_a_table_comes_back_bit_for_bit(tmp_path_factory, values):
    path = tmp_path_factory.mktemp("table") / "values.dat"
    frame = pd.DataFrame(values, columns=["x", "y (m)", "zinc, ppm", "µ"][:values.shape[1]])
    ks.write_gslib(frame, path)
    pd.testing.assert_frame_equal(ks.read_gslib_points(path), frame, check_exact=True)


def test_the_library_reads_and_writes_the_same_files(tmp_path):
    values = np.random.default_rng(3).normal(size=(2, 3, 4))
    grid = ks.Grid(4, 3, 2, dx=0.1, z0=-7.0)
    path = str(tmp_path / "grid.gslib")
    ks.write_gslib(xr.Dataset({"a": grid.to_xarray(values), "b": grid.to_xarray(-values)}), path, grid=grid)
    image = native.vorl_image()
    native.VORLInitImage(image)
    stream = native.fopen(path, "r")
    assert native.VORLReadImage(image, 0, stream) == 0
    native.fclose(stream)
    assert (image.grid.nx, image.grid.sx, image.grid.oz, image.nvar) == (4, 0.1, -7.0, 2)
    stream = native.fopen(path, "w")
    assert native.VORLWriteImage(image, "%.17g", 0, stream) == 0
    native.fclose(stream)
    native.VORLFreeImage(image)
    back = ks.read_gslib(path)
    assert back.a.values.tobytes() == values.tobytes() and back.b.values.tobytes() == (-values).tobytes()


def test_order_and_names(tmp_path):
    """Descending and transposed values are written in the file's order; each realization is a variable."""
    path = tmp_path / "order"
    grid = ks.Grid(3, 2, dx=5.0)
    up = xr.concat([grid.to_xarray(np.arange(6.0).reshape(2, 3) + 10 * k, "my zinc") for k in (0, 1)],
                   xr.DataArray([4, 7], dims="realization", name="realization"))
    ks.write_gslib(up, path)
    expected = path.read_bytes()
    assert list(ks.read_gslib(path)) == ["my_zinc_4", "my_zinc_7"]
    assert expected.split()[-12:] == [b"%d" % (i + 10 * k) for i in range(6) for k in (0, 1)]
    ks.write_gslib(up[:, ::-1].transpose("x", "realization", "y"), path)
    assert path.read_bytes() == expected


def test_vtk_has_points_at_centres_and_an_array_for_each_variable(tmp_path):
    path = tmp_path / "map.vtk"
    grid = ks.Grid(3, 2, dx=10, dy=20, x0=100)
    values = np.array([[0.1, 1 / 3, 1e-300], [4.0, np.nan, 6.0]])
    ks.write_vtk(xr.Dataset({"estimate": grid.to_xarray(values), "variance": grid.to_xarray(2 * values)}), path, grid=grid)
    lines = path.read_text().splitlines()
    assert lines[2:8] == ["ASCII", "DATASET STRUCTURED_POINTS", "DIMENSIONS 3 2 1", "ORIGIN 105 10 0.5", "SPACING 10 20 1",
                          "POINT_DATA 6"]
    for start, name, factor in ((8, "estimate", 1), (16, "variance", 2)):
        assert lines[start:start + 2] == [f"SCALARS {name} double 1", "LOOKUP_TABLE default"]
        found = np.array(lines[start + 2:start + 8], float)
        np.testing.assert_array_equal(found, np.where(np.isnan(values), -9999999.0, factor * values).ravel())


@settings(max_examples=40, deadline=None)
@given(hnp.arrays(np.float64, hnp.array_shapes(min_dims=2, max_dims=3, min_side=2, max_side=5), elements=NUMBERS),
       st.sampled_from([0.1, 1 / 3, 40.0]), st.sampled_from([0.0, 178440.0, -0.3, 1e7 / 7]), st.text("a%2/µ\"", min_size=1))
def test_vtk_comes_back_bit_for_bit(tmp_path_factory, values, size, corner, name):
    path = tmp_path_factory.mktemp("vtk") / "values.vtk"
    nz, ny, nx = (1,) * (3 - values.ndim) + values.shape
    grid = ks.Grid(nx, ny, nz, dx=size, dy=2.0 * size, x0=corner)
    ks.write_vtk(grid.to_xarray(values, name), path, grid=grid)
    back = ks.read_vtk(path)
    assert np.where(np.isnan(values), np.nan, values).tobytes() == back[name].values.tobytes()
    for axis, centres in grid.coords.items():
        np.testing.assert_allclose(back[axis], centres, rtol=1e-15)
        assert size == 1 / 3 or corner > 1e6 or np.array_equal(back[axis], centres)


VTK = "# vtk DataFile Version {0}\n{1}\n{2}\nDATASET STRUCTURED_POINTS\nDIMENSIONS 3 2 1\nSPACING 10 20 0\nORIGIN 5 10 0\n"


@pytest.mark.parametrize("name", ["bit", "unsigned_char", "char", "short", "unsigned_short", "int", "unsigned_int", "long",
                                  "vtktypeuint64", "float", "double"])
def test_vtk_of_binary_numbers(tmp_path, name):
    """Against NumPy's big-endian numbers; more of them than are read at once."""
    path = tmp_path / "binary.vtk"
    code = {"bit": "u1", "unsigned_char": "u1", "char": "i1", "short": "i2", "unsigned_short": "u2", "int": "i4", "unsigned_int": "u4",
            "long": "i8", "vtktypeuint64": "u8", "float": "f4", "double": "f8"}[name]
    random = np.random.default_rng(5)
    shape = (30, 50, 3)
    if name == "bit":
        values = random.integers(0, 2, shape)
        stored = np.packbits(values).tobytes()
    else:
        values = random.integers(0, 256, (*shape, int(code[1])), np.uint8).view(">" + code)[..., 0]
        values = np.where(np.isfinite(values), values, 1).astype(">" + code)
        stored = values.tobytes()
    text = VTK.format("4.2", "of a viewer", "BINARY").replace("3 2 1", "50 30 1") + "POINT_DATA 1500\nMETADATA\nINFORMATION 0\n\n"
    path.write_bytes(text.encode() + f"FIELD FieldData 2\nflow 3 1500 {name}\n".encode() + stored
                     + b"\nlast%20one 1 1500 double\n" + np.arange(1500.0).astype(">f8").tobytes() + b"\n")
    found = ks.read_vtk(path)
    assert list(found) == ["flow_0", "flow_1", "flow_2", "last one"]
    for k in range(3):
        np.testing.assert_array_equal(found[f"flow_{k}"], values[..., k].astype(float))
    np.testing.assert_array_equal(found["last one"].values.ravel(), np.arange(1500.0))


def test_vtk_of_cells_and_of_the_library(tmp_path):
    path = tmp_path / "other.vtk"
    path.write_text(VTK.format("3.0", "", "ASCII") + "CELL_DATA 2\nSCALARS a int\nLOOKUP_TABLE t\n1 2\nLOOKUP_TABLE t 2\n0 0 0 1\n1 1 1 1\n")
    found = ks.read_vtk(path)
    assert found.a.values.tolist() == [[1.0, 2.0]] and found.x.values.tolist() == [10.0, 20.0] and found.y.values.tolist() == [20.0]
    image = native.vorl_image()
    native.VORLInitImage(image)
    grid = ks.Grid(3, 2, dx=10, dy=20, x0=100)
    ks.write_gslib(xr.Dataset({"a": grid.to_xarray([[1, 2, 3], [4, 5, 6]]), "b/c": grid.to_xarray(np.ones((2, 3)))}), path)
    stream = native.fopen(str(path), "r")
    assert native.VORLReadImage(image, 0, stream) == 0
    native.fclose(stream)
    stream = native.fopen(str(path), "w")
    assert native.VORLWriteImage(image, "%g", 1, stream) == 0
    native.fclose(stream)
    native.VORLFreeImage(image)
    found = ks.read_vtk(path)
    assert list(found) == ["a", "b/c"] and found.a.values.ravel().tolist() == [1, 2, 3, 4, 5, 6]
    assert all(np.array_equal(found[axis], centres) for axis, centres in grid.coords.items())


GRID_FILES = [
    ("", 1), ("x\n", 1), ("3 2\n1\na\n", 1), ("3 2 1 0 1 1 0 0 0\n1\na\n1 2 3 4 5 6", 1), ("3 2 1\n", 2), ("3 2 1\nq\n", 2),
    ("3 2 1\n2\na\n", 4), ("3 2 1\n2\na\na\n" + "1 " * 12, 4), ("3 2 1\n1\na\n1 2 3\n4 5 x6\n", 5), ("3 2 1\n1\na\n1 2 3 4\n\n", 6),
    ("\x7fELF\0\1\n" * 90, 1), ("2000000000 2000000000 1\n1\na\n", 1),
]
TABLES = [
    ("", 1), ("x\n", 2), ("title\nno\n", 2), ("title\n0\n", 2), ("title\n2\na\n", 4), ("title\n2\n\nb\n1 2\n", 3), ("title\n2\na\na\n1 2\n", 4),
    ("3\n1\na\n1 2\n", 5), ("3\n1\na\n1 2\n3 4\n", 6), ("3 samples\n2\na\nb\n1 2 3\n4 5 six\n", 6), ("t\n2\na\nb\n1 2\n3\n", 7),
    ("east,north\n1,2\n", 3),
]
HEAD = VTK.format("3.0", "t", "ASCII")
BINARY = VTK.format("3.0", "t", "BINARY")
VTKS = [
    ("", 1), ("<?xml version='1.0'?>\n", 1), ("# vtk DataFile Version 2.0\nt\nTEXT\n", 3), (HEAD.replace("STRUCTURED_POINTS", "POLYDATA"), 4),
    (HEAD.replace("3 2 1", "3 0 1"), 5), (HEAD.replace("3 2 1", "9999999 9999999 9999999"), 5), (HEAD.replace("10 20 0", "1 2"), 6),
    (HEAD, 8), (HEAD + "POINT_DATA 5\n", 8), (HEAD + "SCALARS a int\nLOOKUP_TABLE t\n", 8), (HEAD + "POINT_DATA 6\nSCALARS a string\n", 9),
    (HEAD + "POINT_DATA 6\nSCALARS a int\n1 2 3 4 5 6\n", 10), (HEAD + "POINT_DATA 6\nSCALARS a int\nLOOKUP_TABLE t\n1 2 3\n4 x 6\n", 12),
    (HEAD + "POINT_DATA 6\nSCALARS a int\nLOOKUP_TABLE t\n1 2 3\n4 5\n", 13), (HEAD + "POINT_DATA 6\nDIMENSIONS 1 1 1\n", 9),
    (HEAD + "POINT_DATA 6\nVECTORS a int\n" + "1 " * 18 + "\nCELL_DATA 2\nSCALARS b int\n", 11),
    (HEAD + "FIELD f 3\na 2000000000 2000000000 int\n1 2\n", 11), (BINARY + "POINT_DATA 6\nSCALARS a double\nLOOKUP_TABLE t\n1234567", 9),
    (BINARY + "POINT_DATA 6\nSCALARS a double 2000000000\nLOOKUP_TABLE t\n1234567", 9),
]


@pytest.mark.parametrize("read, text, line", [(ks.read_gslib, *row) for row in GRID_FILES]
                         + [(ks.read_gslib_points, *row) for row in TABLES] + [(ks.read_vtk, *row) for row in VTKS])
def test_another_file_is_refused_with_its_line(tmp_path, read, text, line):
    path = tmp_path / "other"
    path.write_bytes(text.encode("latin-1"))
    with pytest.raises(ks.KestrumError, match=rf"other, line {line}: "):
        read(path)


def test_missing_values(tmp_path):
    path = tmp_path / "missing"
    path.write_text("2 2 1\n1\na\n-999 1 -9999999 nan\n")
    assert np.isnan(ks.read_gslib(path).a.values).tolist() == [[False, False], [True, True]]
    assert np.isnan(ks.read_gslib(path, missing=[-999, 1]).a.values).tolist() == [[True, True], [False, True]]
    with pytest.raises(ks.DataError, match="marks a missing value"):
        ks.write_gslib(pd.DataFrame({"a": [1.0, -9999999.0]}), path)


@pytest.mark.parametrize("call, error", [
    (lambda path: ks.read_gslib(path / "none"), FileNotFoundError),
    (lambda path: ks.read_gslib_points(path), IsADirectoryError),
    (lambda path: ks.write_vtk(ks.Grid(2, 2).to_xarray(np.zeros((2, 2)), "a"), path / "none" / "a"), FileNotFoundError),
    (lambda path: ks.write_gslib(ks.Grid(2, 2).to_xarray(np.zeros((2, 2)), "a"), "/dev/full"), OSError),
    (lambda path: ks.write_gslib(pd.DataFrame({"a": [1.0]}), "/dev/full"), OSError),
    (lambda path: ks.write_vtk(ks.Grid(2, 2).to_xarray(np.zeros((2, 2)), "a"), "/dev/full"), OSError),
    (lambda path: ks.read_gslib("/proc/self/mem"), OSError),
    (lambda path: ks.read_vtk(path / "none"), FileNotFoundError),
])
def test_the_system_s_errors_come_through(tmp_path, call, error):
    with pytest.raises(error) as caught:
        call(tmp_path)
    assert caught.value.filename is not None


@pytest.mark.parametrize("data", [
    np.zeros((2, 2)), ks.Grid(1, 3).to_xarray(np.zeros((3, 1)), "a"), pd.DataFrame({"a": ["x"]}), pd.DataFrame(),
    pd.DataFrame([[1, 2]], columns=["a", "a"]), pd.DataFrame({"a" * 256: [1.0]}), ks.Grid(2, 2).to_xarray(np.zeros((2, 2)), "µ" * 128), pd.DataFrame({"a": [2**53 + 1]}), xr.Dataset(coords=ks.Grid(2, 2).coords),
    ks.krige(ks.Points([[0, 0], [1, 1]], [1, 2]), ks.Spherical(1.0, 5.0), [[0.5, 0.5]]),
])
def test_what_does_not_fit_a_file_is_refused_and_the_file_left_alone(tmp_path, data):
    path = tmp_path / "kept"
    path.write_text("precious")
    with pytest.raises(ks.KestrumError):
        ks.write_gslib(data, path)
    assert path.read_text() == "precious"


def test_a_reader_that_waits_for_a_pipe_can_be_interrupted(tmp_path):
    fifo = tmp_path / "fifo"
    os.mkfifo(fifo)
    code = ("import signal\nsignal.signal(signal.SIGINT, signal.default_int_handler)\nimport kestrum as ks\n"
            f"print('ready', flush=True)\nks.read_gslib({str(fifo)!r})")
    with subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        try:
            assert process.stdout.readline() == "ready\n"
            with open(fifo, "w"):
                process.send_signal(signal.SIGINT)
                assert "KeyboardInterrupt" in process.communicate(timeout=20)[1]
        finally:
            process.kill()
