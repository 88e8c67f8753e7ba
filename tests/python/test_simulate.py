"""The law of realizations: conditioning, moments, covariances, and independence."""

import itertools

import numpy as np
import pytest

import kestrum as ks

GRID = ks.Grid(24, 18, dx=2.0, dy=3.0, x0=100.0)
MODEL = ks.Nugget(0.2) + ks.Spherical(0.8, range=(14.0, 9.0), azimuth=30.0)
DATA = ks.Points([[105.0, 10.5], [121.0, 22.5], [139.0, 43.5]], [1.2, -0.7, 0.4], "zinc")


class Exponent:
    """A transform of values above 0."""

    forward = staticmethod(np.log)
    inverse = staticmethod(np.exp)


def test_realization_k_is_the_same_however_it_is_asked_for():
    fields = ks.simulate(DATA, MODEL, GRID, n=6, seed=2**64 - 1, mean=0.3)
    assert fields.dims == ("realization", "y", "x") and fields.realization.values.tolist() == list(range(6))
    for first, n, threads in ((0, 2, 1), (2, 3, 2), (5, 1, 3)):
        part = ks.simulate(DATA, MODEL, GRID, first=first, n=n, seed=2**64 - 1, mean=0.3, threads=threads)
        assert np.array_equal(part.values, fields.sel(realization=part.realization).values)
    single = ks.simulate(DATA, MODEL, GRID, n=6, seed=2**64 - 1, mean=0.3, dtype="float32")
    assert single.dtype == np.float32 and np.array_equal(single.values, fields.values.astype(np.float32))
    assert not np.array_equal(ks.simulate(DATA, MODEL, GRID, seed=0, mean=0.3).values, fields.values[:1])


def test_structures_with_one_range_and_with_several():
    grid = ks.Grid(12, 9)
    mixed, full = (ks.Gaussian(0.9, range=(6, 3)) + ks.Spherical(0.1, range=few) for few in (4, (4, 4)))
    assert ks.simulate(None, mixed, grid, seed=1).equals(ks.simulate(None, full, grid, seed=1))


def test_law_of_the_ensemble():
    n = 1500
    model = ks.Exponential(2.0, range=(18.0, 10.0), azimuth=60.0)
    grid = ks.Grid(5, 4, dx=2.0, dy=2.0)
    points = ks.Points([[3.0, 3.0], [7.0, 5.0]], [2.5, 4.0])
    fields = ks.simulate(points, model, grid, n=n, seed=5, mean=3.0, neighbors=20, radius=60.0, threads=1).values.reshape(n, -1)
    axes = np.meshgrid(grid.coords["x"], grid.coords["y"])
    places = np.column_stack([axis.ravel() for axis in axes])
    covariance = model.covariance((places[:, None] - places).reshape(-1, 2)).reshape(20, 20)
    data = [6, 13]
    weights = np.linalg.solve(covariance[np.ix_(data, data)], covariance[data])
    mean = 3.0 + weights.T @ (points.values - 3.0)
    expected = covariance - covariance[:, data] @ weights
    assert (fields[:, data] == points.values).all()
    free = [i for i in range(20) if i not in data]
    deviation = np.sqrt(np.diag(expected))
    # With neighbours enough for all cells the law is exact: five standard errors, for means and for covariances.
    assert (np.abs(fields.mean(axis=0) - mean)[free] < 5.0 * deviation[free] / np.sqrt(n)).all()
    scatter = np.cov(fields.T)
    error = np.sqrt((expected**2 + np.outer(deviation, deviation) ** 2) / n)
    assert (np.abs(scatter - expected)[np.ix_(free, free)] < 5.0 * error[np.ix_(free, free)]).all()
    # Realizations are independent, near each other or far, and so are seeds.
    scores = ((fields - mean)[:, free] / deviation[free])[:, ::3]
    for step in (1, 2, 7):
        assert np.abs((scores[step:] * scores[:-step]).mean(axis=0)).max() < 5.0 / np.sqrt(n - step)
    seeds = np.stack([ks.simulate(points, model, grid, seed=s, mean=3.0, neighbors=20, radius=60.0, threads=1).values.ravel() for s in range(200)])
    other = ((seeds - mean)[:, free] / deviation[free])[:, ::3]
    assert np.abs((other[1:] * other[:-1]).mean(axis=0)).max() < 5.0 / np.sqrt(199)


def test_masks_transforms_and_bounds():
    mask = np.arange(18 * 24).reshape(18, 24) % 4 != 0
    template = GRID.to_xarray(mask).isel(y=slice(None, None, -1))
    values = ks.Points(DATA.coordinates, np.exp(DATA.values))
    full = ks.simulate(DATA, MODEL, GRID, n=2, mean=0.0)
    lognormal = ks.simulate(values, MODEL, template, n=2, transform=Exponent, mask=template)
    assert np.array_equal(np.isnan(lognormal.values[:, ::-1]), np.broadcast_to(~mask, (2, 18, 24)))
    assert np.isfinite(full.values).all() and (lognormal.values[:, ::-1][:, mask] > 0.0).all()
    places = DATA.coordinates + [[2.0, 3.0], [-4.0, 0.0], [0.0, -6.0]]
    lower, upper = [0.5, np.nan, -0.1], [np.nan, -0.2, 0.1]
    bounded = ks.simulate(DATA, MODEL, GRID, n=40, mean=0.0, bounds=(places, lower, upper))
    at = np.stack([bounded.sel(x=x, y=y, method="nearest").values for x, y in places], axis=1)
    assert (at[:, 0] >= 0.5).all() and (at[:, 1] <= -0.2).all() and (np.abs(at[:, 2]) <= 0.1).all()
    assert at.std(axis=0).min() > 0.01
    # The mask leaves out the cell of a datum, which counts all the same.
    mask[:], mask[3, 2] = True, False
    part, whole = (ks.krige(DATA, ks.Spherical(range=99.0), GRID, snap=True, mask=m).estimate.values for m in (mask, None))
    assert np.array_equal(part[mask], whole[mask]) and np.isnan(part[3, 2])


def test_models_that_are_not_positive_definite():
    """Some of the systems leave a variance below 0, though each of them can be solved."""
    with pytest.warns(ks.KestrumWarning, match="not positive definite"):
        ks.simulate(None, ks.Power(1.0, range=10.0, power=1.5), ks.Grid(60, 60), seed=1)


def test_data_of_one_cell():
    points = ks.Points([[105.0, 10.5], [104.5, 10.0], [500.0, 0.0]], [1.0, 4.0, 9.0])
    for how, expected in (("mean", 2.5), ("first", 1.0), ("last", 4.0)):
        with pytest.warns(ks.KestrumWarning, match="1 data outside .*row 2.*1 data share"):
            fields = ks.simulate(points, MODEL, GRID, duplicates=how)
        assert fields.sel(x=105.0, y=10.5, method="nearest").item() == expected
    assert fields.attrs["data_moved_max"] == pytest.approx(np.hypot(0.5, 0.5))


def test_categories():
    random = np.random.default_rng(3)
    points = ks.Points(random.uniform([100.0, 0.0], [148.0, 54.0], (60, 2)), random.choice(["clay", "peat", "sand"], 60), "soil")
    models = {label: ks.Exponential(0.2, range=r) for label, r in (("sand", 20.0), ("clay", 12.0), ("peat", 30.0))}
    for model, ordinary in itertools.product((models, models["sand"]), (False, True)):
        with pytest.warns(ks.KestrumWarning, match="share a cell"):
            chances = ks.krige_categories(points, model, GRID, ordinary=ordinary)
        assert chances.category.values.tolist() == (["sand", "clay", "peat"] if model is models else ["clay", "peat", "sand"])
        np.testing.assert_allclose(chances.sum("category"), 1.0, rtol=1e-12)
        assert float(chances.min()) >= 0.0
    n = 800
    proportions = {"clay": 0.5, "peat": 0.2, "sand": 0.3}
    grid = ks.Grid(8, 5, dx=3.0, dy=3.0)
    soil = ks.simulate_categories(ks.Points([[1.5, 1.5]], ["peat"]), ks.Exponential(1.0, range=9.0), grid, n=n, proportions=proportions)
    assert soil.dtype == np.int16 and soil.attrs["categories"] == list(proportions)
    assert (soil.values[:, 0, 0] == 1).all()
    # Far from the datum, the proportions; beside it, indicator kriging by one datum.
    share = (soil.values[:, 4, 7, None] == np.arange(3)).mean(axis=0)
    assert np.abs(share - list(proportions.values())).max() < 5.0 * 0.5 / np.sqrt(n)
    near = (soil.values[:, 0, 1] == 1).mean()
    assert abs(near - (0.2 + 0.8 * np.exp(-1.0))) < 5.0 * 0.5 / np.sqrt(n)
    assert np.array_equal(soil.values[7:9], ks.simulate_categories(ks.Points([[1.5, 1.5]], ["peat"]), ks.Exponential(1.0, range=9.0), grid,
                                                                  n=2, first=7, proportions=proportions, threads=3).values)
    part = ks.simulate_categories(None, ks.Exponential(1.0, range=9.0), grid, proportions=proportions, mask=np.eye(5, 8))
    assert ((part.values[0] >= 0) == np.eye(5, 8, dtype=bool)).all() and (part.values[0][~np.eye(5, 8, dtype=bool)] == -1).all()
