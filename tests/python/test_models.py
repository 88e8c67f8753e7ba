"""Covariance models against their formulas."""

import copy
import pickle
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import special

import kestrum as ks

FORMULAS = {
    "Nugget": lambda h, s: (h == 0.0) * 1.0,
    "Spherical": lambda h, s: np.where(h < 1.0, 1.0 - 1.5 * h + 0.5 * h**3, 0.0),
    "Exponential": lambda h, s: np.exp(-3.0 * h),
    "Gaussian": lambda h, s: np.exp(-3.0 * h**2),
    "Cubic": lambda h, s: np.where(h < 1.0, 1.0 - 7 * h**2 + 8.75 * h**3 - 3.5 * h**5 + 0.75 * h**7, 0.0),
    "Linear": lambda h, s: np.where(h < 1.0, 1.0 - h, 0.0),
    "CardinalSine": lambda h, s: np.sinc(h),
    "Gamma": lambda h, s: (1.0 + (20.0 ** (1.0 / s) - 1.0) * h) ** -s,
    "Power": lambda h, s: 1.0 - h**s,
    "Stable": lambda h, s: np.exp(-3.0 * h**s),
    "Matern": lambda h, s: matern(np.sqrt(2.0 * s) * h, s),
}


def matern(u, s):
    with np.errstate(all="ignore"):
        value = 2.0 ** (1.0 - s) / special.gamma(s) * u**s * special.kv(s, u)
    return np.where(u < 1e-8, 1.0 - special.gamma(1.0 - s) / special.gamma(1.0 + s) * (u / 2.0) ** (2.0 * s), value) if s < 1 else \
        np.where(u == 0.0, 1.0, value)


SHAPES = {"Gamma": "power", "Power": "power", "Stable": "power", "Matern": "smoothness"}


def make(kind, sill=1.0, shape=1.3, **options):
    if kind == "Nugget":
        return ks.Nugget(sill)
    return getattr(ks, kind)(sill, **options, **({SHAPES[kind]: shape} if kind in SHAPES else {}))


@pytest.mark.parametrize("kind", FORMULAS)
def test_formulas(kind):
    h = np.concatenate(([0.0], np.geomspace(1e-9, 30.0, 500)))
    for shape in (0.3, 1.0, 1.7):
        model = make(kind, 2.5, shape, range=40.0)
        expected = 2.5 * FORMULAS[kind](h, shape)
        assert np.abs(model.covariance(40.0 * h) - expected).max() <= 1e-13 * max(2.5, np.abs(expected).max())
        assert np.array_equal(model.variogram(40.0 * h), 2.5 - model.covariance(40.0 * h))
        assert model.sill == 2.5 and model.covariance(0.0) == pytest.approx(2.5, rel=1e-15)


@given(st.floats(-400, 400), st.floats(-90, 90), st.floats(-180, 180))
@settings(max_examples=30, deadline=None)
def test_orientation(azimuth, dip, plunge):
    # Unit vectors along the azimuth, across, and up, turned by dip and plunge.
    a, d, p = np.deg2rad([azimuth, dip, plunge])
    along = np.array([np.sin(a) * np.cos(d), np.cos(a) * np.cos(d), -np.sin(d)])
    across = np.array([np.cos(a), -np.sin(a), 0.0])
    up = np.cross(across, along)
    turned = (np.cos(p) * across + np.sin(p) * up, np.cos(p) * up - np.sin(p) * across)
    model = ks.Exponential(1.0, range=(30.0, 20.0, 5.0), azimuth=azimuth, dip=dip, plunge=plunge)
    for axis, reach in zip((along, *turned), (30.0, 20.0, 5.0)):
        assert model.covariance([axis * reach])[0] == pytest.approx(np.exp(-3.0), rel=1e-9)
    lag = np.array([3.0, -2.0, 1.0])
    assert model.covariance([lag])[0] == pytest.approx(model.covariance([-lag])[0], rel=1e-12)


def test_identity():
    model = ks.Nugget(0.05) + ks.Matern(0.59, range=(900, 500), azimuth=45, smoothness=1.5)
    local = ks.Spherical(np.full((3, 4), 2.0), range=(np.full((3, 4), 5.0), 3.0), azimuth=np.ones((3, 4)))
    grid = ks.Grid(3, 4, dx=2.0, x0=7.0)
    points = ks.Points([[1, 2], [3, 4]], ["a", "b"], "facies", [0.0, 1.0])
    scores = ks.NormalScore([1.0, 2.0, 4.0], maximum=9.0)
    measured = ks.Points([[0, 0], [0, 1], [0, 3]], [1.0, 2.0, 4.0])
    experimental = ks.variogram(measured, lag=0.5, n_lags=6)
    assert scores != ks.NormalScore([1.0, 2.0, 4.0]) and experimental != ks.variogram(measured.with_values([1.0, 2.0, 5.0]), lag=0.5, n_lags=6)
    for thing in (model, local, grid, points, scores, experimental):
        for twin in (copy.copy(thing), copy.deepcopy(thing), pickle.loads(pickle.dumps(thing))):
            assert twin == thing and repr(twin) == repr(thing)
            assert type(thing).__hash__ is None or hash(twin) == hash(thing)
    assert model != model * 2 == 2 * model and (2 * model).sill == 2 * model.sill
    assert eval(str(model), vars(ks)) == model and sum([ks.Nugget(), ks.Spherical(range=3)]) == ks.Nugget() + ks.Spherical(range=3)
    assert local != ks.Spherical(np.full((3, 4), 2.0), range=(5.0, 3.0), azimuth=np.ones((3, 4)))
    # The orientation of an isotropic model is no part of it, and the anisotropic one's stays in a sum.
    turned = ks.Spherical(range=5, azimuth=30)
    assert turned == ks.Spherical(range=5) and (turned + model).azimuth == (model + turned).azimuth == 45
    assert eval(repr(grid).partition("\n")[0], vars(ks)) == grid


def test_local_parameters_are_kept_as_they_were():
    field = np.full((3, 4), 2.0)
    model = ks.Spherical(field, range=5.0)
    field[:] = 7.0
    assert (model.structures[0].sill == 2.0).all()
    with pytest.raises(ValueError):
        model.structures[0].sill[0, 0] = 1.0
    raster = xr.DataArray([[1.0, 2.0], [3.0, 4.0]], {"y": [1.5, 0.5], "x": [0.5, 1.5]}, ("y", "x"))
    assert ks.Spherical(raster, range=5.0) == ks.Spherical(raster.copy(), range=5.0) != ks.Spherical(raster.values, range=5.0)


def test_models_are_gstat_s_with_the_parameters_of_the_conventions():
    models = {"Spherical": ks.Spherical(1, 900), "Exponential": ks.Exponential(1, 900), "Gaussian": ks.Gaussian(1, 900), "Linear": ks.Linear(1, 900),
              "CardinalSine": ks.CardinalSine(1, 900), "Stable": ks.Stable(1, 900, power=1.3), "Matern": ks.Matern(1, 900, smoothness=0.7),
              "anisotropic": ks.Nugget(0.05) + ks.Exponential(0.59, (900, 500), azimuth=45)}
    table = pd.read_csv(Path(__file__).parent / "gstat/models.csv")
    assert set(table.model) == set(models)
    for name, rows in table.groupby("model"):
        np.testing.assert_allclose(models[name].covariance(rows[["x", "y"]]), rows.covariance, rtol=0, atol=2e-13, err_msg=name)
