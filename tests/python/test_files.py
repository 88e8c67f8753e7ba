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


@pytest.mark.parametrize("read, text, line", [(ks.read_gslib, *row) for row in GRID_FILES]
                         + [(ks.read_gslib_points, *row) for row in TABLES])
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
])
def test_the_system_s_errors_come_through(tmp_path, call, error):
    with pytest.raises(error) as caught:
        call(tmp_path)
    assert caught.value.filename is not None


@pytest.mark.parametrize("data", [
    np.zeros((2, 2)), ks.Grid(1, 3).to_xarray(np.zeros((3, 1)), "a"), pd.DataFrame({"a": ["x"]}), pd.DataFrame(),
    pd.DataFrame([[1, 2]], columns=["a", "a"]), pd.DataFrame({"a": [2**53 + 1]}), xr.Dataset(coords=ks.Grid(2, 2).coords),
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
