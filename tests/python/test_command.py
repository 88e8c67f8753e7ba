"""The command line: it gives what the package gives, and its errors are one line and status 2."""

import os
import subprocess
import sys
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
import xarray as xr

import kestrum as ks
from kestrum._command import main, model_text, parse_model

MEUSE = str(Path(__file__).resolve().parents[2] / "examples/data/meuse/meuse.csv")
MODEL = "25000 Nug + 135000 Sph(897, 600, az=30)"
KRIGE = ["krige", MEUSE, "--value", "zinc", "--model", MODEL, "--cell", "100", "--neighbors", "12"]


@pytest.fixture
def points():
    return ks.Points.from_dataframe(pd.read_csv(MEUSE), "zinc")


@pytest.mark.parametrize("text, model", [
    ("Sph(500)", ks.Spherical(1.0, 500)),
    ("  0.05 Nug+0.59   Sph( 897 ) ", ks.Nugget(0.05) + ks.Spherical(0.59, 897)),
    (".5*nugget + 1e+3 exponential(1e3,500,20)", ks.Nugget(0.5) + ks.Exponential(1e3, (1e3, 500, 20))),
    ("2 Gau(900, 500, az=45) + Nug", ks.Gaussian(2.0, (900, 500), azimuth=45) + ks.Nugget(1.0)),
    ("Car(9) + 3Mat(8,smoothness=1.5)", ks.CardinalSine(1.0, 9) + ks.Matern(3.0, 8, smoothness=1.5)),
    ("Gam(9,power=2)+Pow(7,power=1.5)+Sta(3,power=.5)+Lin(1)+Cub(2)",
     ks.Gamma(1.0, 9, power=2) + ks.Power(1.0, 7, power=1.5) + ks.Stable(1.0, 3, power=0.5) + ks.Linear(1.0, 1) + ks.Cubic(1.0, 2)),
    ("Exp(9, 5, 2, azimuth=10, dip=20, plunge=30)", ks.Exponential(1.0, (9, 5, 2), azimuth=10, dip=20, plunge=30)),
])
def test_models(text, model):
    assert parse_model(text) == model and parse_model(model_text(model)) == model


@pytest.mark.parametrize("text, words", [
    ("", "cannot be read"), ("5", "cannot be read"), ("Sph(9) +", "cannot be read"), ("Sph(9", "cannot be read"),
    ("Sph(9) Exp(3)", "cannot be read"), ("Sph", "no range"), ("Sph()", "no range"), ("Sfp(9)", "no type"), ("Sp(9)", "no type"),
    ("Sherical(9)", "Did you mean 'Spherical'"), ("Nug(9)", "no arguments"), ("Sph(a)", "'a' in Sph(a) is no number"),
    ("Sph(9, az=)", "no number"), ("Sph(9, angle=3)", "no 'angle'"), ("Mat(9)", "smoothness"), ("Sph(9, power=2)", "power"),
    ("-1 Sph(9)", "sill"), ("Sph(-9)", "range"), ("Sph(1,2,3,4)", "range"), ("Sph(nan)", "range"),
])
def test_models_that_cannot_be_read(text, words):
    with pytest.raises(ks.ModelError) as caught:
        parse_model(text)
    assert words in str(caught.value)


@pytest.mark.filterwarnings("ignore:.*share a cell")
def test_krige_and_simulate_write_what_the_package_gives(tmp_path, points, capsys):
    grid = ks.Grid.covering(points, 100)
    model = parse_model(MODEL)
    expected = ks.krige(points, model, grid, neighbors=12)
    assert main([*KRIGE, "-o", str(tmp_path / "a.nc")]) == 0
    with xr.open_dataset(tmp_path / "a.nc") as found:
        xr.testing.assert_identical(found.load(), expected)
    assert main([*KRIGE, "-o", str(tmp_path / "a.gslib")]) == 0
    np.testing.assert_array_equal(ks.read_gslib(tmp_path / "a.gslib").variance, expected.variance)
    for like in ("a.gslib", "a.nc"):
        assert main([*KRIGE[:6], "--like", str(tmp_path / like), "--neighbors", "12", "-o", str(tmp_path / "b.vtk")]) == 0
        np.testing.assert_array_equal(ks.read_vtk(tmp_path / "b.vtk").estimate, expected.estimate)
    capsys.readouterr()
    assert main(["info", str(tmp_path / "b.vtk")]) == 0
    assert "estimate (y, x): " in capsys.readouterr().out
    scores = "0.2 Nug + 0.8 Sph(900)"
    fields = ks.simulate(points, parse_model(scores), grid, n=3, first=5, seed=9, neighbors=8, transform="normal-score")
    capsys.readouterr()
    command = ["simulate", MEUSE, "--value", "zinc", "--model", scores, "--like", str(tmp_path / "a.nc"), "-n", "3", "--first", "5",
               "--seed", "9", "--neighbors", "8", "--normal-score"]
    assert main([*command, "-o", str(tmp_path / "s.nc")]) == 0
    with xr.open_dataset(tmp_path / "s.nc") as found:
        np.testing.assert_array_equal(found.zinc, fields)
    assert all(line.startswith("kestrum simulate: warning: ") for line in capsys.readouterr().err.splitlines())
    assert main(["info", str(tmp_path / "s.nc")]) == 0
    assert "zinc (realization, y, x)" in capsys.readouterr().out


def test_a_fitted_model_can_be_given_back(tmp_path, points, capsys):
    expected = ks.variogram(points, lag=100, n_lags=12)
    command = ["variogram", MEUSE, "--value", "zinc", "--lag", "100", "--n-lags", "12"]
    assert main([*command, "--fit", "1e4 Nug + 1e5 Sph(500)", "-o", str(tmp_path / "v.csv")]) == 0
    pd.testing.assert_frame_equal(pd.read_csv(tmp_path / "v.csv"), expected.to_dataframe(), check_dtype=False)
    fitted = expected.fit(ks.Nugget(1e4) + ks.Spherical(1e5, 500))
    printed = parse_model(capsys.readouterr().out.strip())
    np.testing.assert_allclose(printed.variogram([10.0, 300.0, 2000.0]), fitted.variogram([10.0, 300.0, 2000.0]), rtol=1e-5)
    assert main([*command, "--azimuth", "0,90"]) == 0
    assert len(capsys.readouterr().out.splitlines()) == 25
    assert main([*command, "-o", str(tmp_path / "v.png")]) == 0


@pytest.mark.parametrize("ending", [".vtk", ".tif", ".png"])
def test_other_endings(ending, tmp_path, points, capsys):
    if ending == ".tif":
        pytest.importorskip("rioxarray")
    path = tmp_path / f"map{ending}"
    assert main([*KRIGE, "-o", str(path)]) == 0
    assert path.stat().st_size > 5000
    if ending == ".tif":
        expected = ks.krige(points, parse_model(MODEL), ks.Grid.covering(points, 100), neighbors=12)
        with xr.open_dataarray(path, engine="rasterio") as found:
            np.testing.assert_array_equal(found[0, ::-1], expected.estimate)
            np.testing.assert_allclose(found.x, expected.x)
        assert main([*KRIGE[:6], "--like", str(path), "--neighbors", "12", "-o", str(tmp_path / "again.tif")]) == 0
        with xr.open_dataarray(tmp_path / "again.tif", engine="rasterio") as found:
            np.testing.assert_array_equal(found[0, ::-1], expected.estimate)
            assert found.y[0] > found.y[-1]  # from north to south, as the template and others have it


@pytest.mark.parametrize("change, words", [
    (["--value", "zink"], "Did you mean 'zinc'"), (["--model", "Sph"], "no range"), (["--cell", "a"], "must be a number"),
    (["--cell", "0"], "cell is 0"), (["-o", "map.jpg"], "must end in"), (["-o", "none/map.nc"], "no folder"),
    (["--neighbors", "0"], "neighbors is 0"), (["--neighbors", "x"], "invalid int"), (["--like", "x.nc"], "not allowed with"),
    (["--colour"], "unrecognized"), (["--threads", "-2"], "threads is -2"), (["--radius", "5,x"], "must be a number"),
    (["--z", "elev"], "one layer"), (["--cell", "1e-7"], ""),
])
def test_errors_are_one_line(change, words, tmp_path, capsys, monkeypatch):
    monkeypatch.chdir(tmp_path)
    try:
        status = main([*KRIGE, "-o", "map.nc", *change])
    except SystemExit as exit:
        status = exit.code
    text = capsys.readouterr().err
    assert status == 2 and text.count("\n") == 1 and words in text, text
    assert not os.listdir(tmp_path)


@pytest.mark.parametrize("name, content", [("none.csv", None), ("empty.csv", b""), ("binary.csv", bytes(range(256)) * 9),
                                           ("a.gslib", b"q"), ("a.nc", b"q"), (".", None)])
def test_files_of_another_kind_are_one_line(name, content, tmp_path, capsys):
    path = tmp_path / name
    if content is not None:
        path.write_bytes(content)
    for command in (["info", str(path)], ["krige", str(path), *KRIGE[2:], "-o", str(tmp_path / "map.png")]):
        assert main(command) == 2
        text = capsys.readouterr().err
        assert text.count("\n") == 1 and text.startswith("kestrum "), text


def test_as_a_program(tmp_path):
    def run(*arguments):
        return subprocess.run([sys.executable, "-m", "kestrum", *arguments], capture_output=True, text=True, cwd=tmp_path)

    assert run("--version").stdout == f"kestrum {ks.__version__}\n"
    for command in ("krige", "simulate", "variogram", "info"):
        assert command in run("--help").stdout and "usage: kestrum " + command in run(command, "--help").stdout
    failed = run("info", "none.csv")
    assert failed.returncode == 2 and failed.stderr == "kestrum info: none.csv: No such file or directory\n"
