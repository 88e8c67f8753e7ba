"""Experimental variograms and models fitted to them: brute force, closed forms, and gstat on the Meuse data."""

import dataclasses
import pickle
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from hypothesis import example, given, settings
from hypothesis import strategies as st
from scipy import linalg
from scipy.stats import multivariate_normal

import kestrum as ks

HERE = Path(__file__).resolve().parent
MEUSE = pd.read_csv(HERE.parents[1] / "examples/data/meuse/meuse.csv")
GSTAT = pd.read_csv(HERE / "gstat/variogram.csv")


def meuse(column="zinc"):
    return ks.Points(MEUSE[["x", "y"]], np.log(MEUSE[column]), column)


def scattered(n=400, dimension=2, seed=1, step=None):
    random = np.random.default_rng(seed)
    places = random.uniform(0.0, 100.0, (n, dimension))
    places = places if step is None else np.round(places / step) * step
    return ks.Points(places, np.sin(places[:, 0] / 20.0) + random.normal(size=n))


def brute(points, lag, n_lags, cone=None):
    """The pairs of each lag: numbers of the points, and distances."""
    i, j = np.triu_indices(len(points), 1)
    difference = points.coordinates[j] - points.coordinates[i]
    distance = np.linalg.norm(difference, axis=1)
    k = np.searchsorted(lag * np.arange(n_lags + 1), distance, side="left") - 1
    taken = (k >= 0) & (k < n_lags)
    if cone is not None:
        axis, tolerance, bandwidth = cone
        along = np.abs(difference @ axis)
        across = np.sqrt(np.maximum(distance**2 - along**2, 0.0))
        angle = np.rad2deg(np.arctan2(across, along))
        taken &= (angle <= tolerance + 1e-5) & (across <= bandwidth * (1.0 + 1e-9))
    return [(i[taken & (k == lag)], j[taken & (k == lag)], distance[taken & (k == lag)]) for lag in range(n_lags)]


def gamma_of(estimator, d, e):
    n = len(d)
    if n == 0:
        return np.nan
    if estimator == "cressie":
        return 0.5 * np.mean(np.sqrt(np.abs(d))) ** 4 / (0.457 + 0.494 / n + 0.045 / n**2)
    return 0.5 * np.mean(np.abs(d)) if estimator == "madogram" else 0.5 * np.mean(d * e)


@given(st.integers(2, 150), st.sampled_from([2, 3]), st.sampled_from([None, 2.5, 10.0]), st.sampled_from([0.7, 5.0, 12.5, 60.0]),
       st.integers(1, 20), st.sampled_from([None, (0.0,), (90.0, 0.0), (30.0, 75.0, 120.0, 165.0, 30.0)]),
       st.sampled_from([5.0, 22.5, 45.0, 90.0]), st.sampled_from([None, 4.0]), st.sampled_from(["matheron", "cressie", "madogram", "cross"]),
       st.integers(0, 999), st.sampled_from([1.0, 1e-9, 3e11]))
@settings(max_examples=150, deadline=None)
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_brute_force(n, dimension, step, lag, n_lags, azimuth, tolerance, bandwidth, estimator, seed, unit):
    points = scattered(n, dimension, seed, step)
    if np.ptp(points.coordinates, axis=0).max() == 0.0:
        return
    other = points.with_values(np.random.default_rng(seed + 1).normal(size=n) + points.values)
    dip = 20.0 if dimension == 3 and azimuth is not None else 0.0
    options = dict(lag=lag, n_lags=n_lags, azimuth=azimuth, tolerance=tolerance, dip=dip,
                   bandwidth=bandwidth if azimuth is not None else None, threads=1 + seed % 3)
    options |= dict(other=other) if estimator == "cross" else dict(estimator=estimator)
    d, e = points.values, (other if estimator == "cross" else points).values
    cones = [None]
    if azimuth is not None:
        a, b = np.deg2rad(azimuth), np.deg2rad(dip)
        axes = np.column_stack((np.sin(a) * np.cos(b), np.cos(a) * np.cos(b), np.full(len(a), -np.sin(b))))[:, :dimension]
        cones = [(axis, tolerance, np.inf if bandwidth is None else bandwidth) for axis in axes]
    expected = [brute(points, lag, n_lags, cone) for cone in cones]
    pairs = np.array([[len(i) for i, _, _ in row] for row in expected])
    if pairs.sum() == 0:
        with pytest.raises(ks.DataError, match="no pair of points"):
            ks.variogram(points, **options)
        return
    # The variable's unit plays no part.
    if estimator == "cross":
        unit = 1.0
    result = ks.variogram(points.with_values(points.values * unit), **options)
    assert np.array_equal(result.pairs, pairs)
    gammas = [[gamma_of(estimator, d[i] - d[j], e[i] - e[j]) for i, j, _ in row] for row in expected]
    power = 1 if estimator == "madogram" else 2
    np.testing.assert_allclose(result.gamma / unit**power, gammas, rtol=1e-11, atol=1e-14)
    np.testing.assert_allclose(result.lag, [[h.mean() if len(h) else np.nan for _, _, h in row] for row in expected], rtol=1e-13)


@pytest.mark.parametrize("name, options", {
    "all": {}, "robust": dict(estimator="cressie"), "cross": dict(other=meuse("lead")),
    "four": dict(lag=150.0, n_lags=8, azimuth=[0, 45, 90, 135])}.items(), ids=str)
def test_meuse_is_that_of_gstat(name, options):
    result = ks.variogram(meuse(), **dict(dict(lag=100.0, n_lags=15), **options)).to_dataframe()
    expected = GSTAT[GSTAT.name == name].sort_values(["azimuth", "lag"])
    found = result[result.pairs > 0]
    assert found.pairs.tolist() == expected.pairs.tolist()
    np.testing.assert_allclose(found.lag, expected.lag, rtol=1e-12)
    # gstat leaves out the least term of the correction of bias.
    bias = 1.0 + 0.045 / found.pairs**2 / (0.457 + 0.494 / found.pairs) if name == "robust" else 1.0
    np.testing.assert_allclose(found.gamma * bias, expected.gamma, rtol=1e-11)


def test_threads_give_the_same_bits():
    points = scattered(30_000, 3)
    options = dict(lag=0.7, n_lags=12, azimuth=[0, 60, 120, 20, 40, 0], dip=[0, 0, 0, 10, 20, 90])
    one = ks.variogram(points, threads=1, **options)
    for threads in (2, 3, 8):
        other = ks.variogram(points, threads=threads, **options)
        assert all(getattr(one, name).tobytes() == getattr(other, name).tobytes() for name in ("lag", "gamma", "pairs"))


def test_many_points():
    # Nodes of a grid, the last line of them not full: neighbours can be counted.
    count = 814_084
    x, y = np.divmod(np.arange(count), 902.0)
    result = ks.variogram(ks.Points(np.column_stack((x, y)), x + 1000.0), lag=1.0, n_lags=2, azimuth=[90, 0], tolerance=1.0)
    full, rest = divmod(count, 902)
    assert result.pairs.tolist() == [[count - 902, count - 2 * 902], [full * 901 + max(rest - 1, 0), full * 900 + max(rest - 2, 0)]]
    assert result.gamma.tolist() == [[0.5, 2.0], [0.0, 0.0]]


ONE_PLACE = ks.Points([[1.0, 1.0]] * 3, [1.0, 2.0, 3.0])
LABELS = ks.Points([[0.0, 0.0], [1.0, 0.0]], ["a", "b"])
FEW = ks.Points([[0.0, 0.0], [3.0, 4.0], [3.0, 4.0], [30.0, 40.0]], [1.0, 2.0, 3.0, 5.0])


@pytest.mark.parametrize("points, options, text", [
    (ks.Points([[0.0, 0.0]], [1.0]), {}, "one point"), (ONE_PLACE, {}, "all at one place"), (LABELS, {}, "labels"),
    (FEW, dict(lag=0.1), "no pair of points .* reach to 1.5"), (FEW, dict(lag=-1.0), "lag is -1"), (FEW, dict(n_lags=0), "n_lags"),
    (FEW, dict(lag=float("nan")), "lag is nan"), (FEW, dict(estimator="dowd"), "estimator"), (FEW, dict(azimuth=[]), "azimuth is empty"),
    (FEW, dict(dip=10.0, azimuth=0.0), "in the plane"), (FEW, dict(bandwidth=1.0), "without an azimuth"),
    (FEW, dict(azimuth=0.0, tolerance=91.0), "tolerance"), (FEW, dict(azimuth=0.0, bandwidth=0.0), "bandwidth"),
    (scattered(9, 3), dict(azimuth=[0, 1, 2], dip=[1, 2]), "dip has 2 numbers"), (FEW, dict(other=LABELS), "labels"),
    (FEW, dict(other=scattered(4)), "other places"), (FEW, dict(other=FEW, estimator="cressie"), "matheron")], ids=str)
def test_refusals(points, options, text):
    with pytest.raises(ks.KestrumError, match=text):
        ks.variogram(points, **options)


@pytest.mark.parametrize("points, options, text", [
    (FEW, dict(lag=10.0, n_lags=6), "1 pairs are at distance 0"), (FEW.with_values([2.0] * 4).merged(), dict(lag=10.0, n_lags=5), "all values .* are 2.0"),
    (FEW.merged(), dict(lag=10.0, n_lags=6), "lags reach to 60, but .* 50 apart"), (FEW.merged(), dict(lag=10.0, n_lags=5), r"3 of 5 lags .* \(lags 1, 2, 3\)"),
    (FEW.merged(), dict(lag=1e300), "lags reach to 1.5e.301, but .* 50 apart"),
    (FEW.merged(), dict(lag=10.0, n_lags=5, other=FEW.merged().with_values([7.0] * 3, "flat")), "all values of 'flat' are 7"),
    (FEW.merged(), dict(lag=50.0, n_lags=1, azimuth=[37, 127]), "no pair of points is in the direction of azimuth 127"),
    (FEW.merged(), dict(lag=60.0, n_lags=1, azimuth=[37, 127]), "no pair of points is in the direction of azimuth 127")], ids=str)
def test_warnings(points, options, text):
    with pytest.warns(ks.KestrumWarning, match=text) as heard:
        result = ks.variogram(points, **options)
    assert heard[0].filename == __file__ and np.array_equal(np.isnan(result.gamma), result.pairs == 0)


def test_indicators():
    labels = np.where(MEUSE.soil == 1, "rendzina", np.where(MEUSE.soil == 2, "clay", "brick"))
    points = ks.Points(MEUSE[["x", "y"]], labels, "soil")
    options = dict(lag=100.0, n_lags=12, azimuth=[0, 90])
    result = ks.indicator_variograms(points, **options)
    assert list(result) == ["brick", "clay", "rendzina"]
    for label, found in result.items():
        expected = ks.variogram(ks.Points(points.coordinates, labels == label, "x").with_values((labels == label) * 1.0), **options)
        assert np.array_equal(found.gamma, expected.gamma) and found.name == f"soil = {label}"
    assert list(ks.indicator_variograms(points.with_values(MEUSE.soil.to_numpy()), **options)) == [1, 2, 3]
    for bad, text in ((points.with_values(["a"] * 155), "1 categories"), (meuse(), "categories, but"), (ks.Points([[0, 0]], ["a"]), "one point")):
        with pytest.raises(ks.DataError, match=text):
            ks.indicator_variograms(bad)
    for option in ("other", "warning", "azimut"):
        with pytest.raises(ks.KestrumError, match=f"option is '{option}', but must be one of"):
            ks.indicator_variograms(points, **{option: 1.0})


@pytest.mark.parametrize("dimension", [2, 3])
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_cloud(dimension):
    points = scattered(80, dimension, step=5.0)
    cloud = ks.variogram_cloud(points, 40.0)
    i, j, distance = (np.concatenate(parts) for parts in zip(*brute(points, 8.0, 5)))
    order = np.lexsort((j, i))
    apart = cloud[cloud.distance > 0.0]
    assert np.array_equal(apart[["i", "j"]], np.column_stack((i, j))[order])
    np.testing.assert_allclose(apart.distance, distance[order], rtol=1e-14)
    np.testing.assert_allclose(apart.gamma, 0.5 * (points.values[i] - points.values[j])[order] ** 2)
    a, d = np.deg2rad(apart.azimuth), np.deg2rad(apart.dip if dimension == 3 else 0.0 * apart.azimuth)
    axis = np.column_stack((np.sin(a) * np.cos(d), np.cos(a) * np.cos(d), -np.sin(d)))[:, :dimension]
    difference = (points.coordinates[j] - points.coordinates[i])[order]
    np.testing.assert_allclose(np.abs(np.sum(axis * difference, axis=1)), apart.distance, rtol=1e-12)
    assert ((apart.azimuth >= 0.0) & (apart.azimuth < 180.0)).all() and cloud[cloud.distance == 0.0].azimuth.isna().all()
    # Its mean by lag is the variogram.
    mean = apart.groupby(np.ceil(apart.distance / 8.0)).gamma.mean()
    np.testing.assert_allclose(mean, ks.variogram(points, lag=8.0, n_lags=5).gamma[0])


FITS = pd.read_csv(HERE / "gstat/fit.csv")
# Types of gstat with the range of ours over that of gstat.
TYPES = {"Sph": (ks.Spherical, 1.0), "Exp": (ks.Exponential, 3.0), "Gau": (ks.Gaussian, np.sqrt(3.0))}
DIRECTIONS = {2: ([0, 45, 90, 135], [0, 0, 0, 0]), 3: ([0, 45, 90, 135, 0, 90], [0, 0, 0, 0, 90, 30])}


@pytest.mark.parametrize("row", FITS.itertuples(index=False), ids=lambda row: f"{row.type}-{row.method}")
def test_fits_are_those_of_gstat(row):
    kind, factor = TYPES[row.type]
    first = ks.Nugget(0.1) + kind(0.6, range=300.0)
    fitted = ks.variogram(meuse(), lag=100.0, n_lags=15).fit(first, weights={1: "pairs", 6: "equal", 7: "pairs/lag2"}[row.method])
    if row.type == "Gau":  # where gstat stops before the minimum
        assert fitted.residual <= row.residual
        return
    nugget, structure = fitted.structures
    np.testing.assert_allclose([nugget.sill, structure.sill, structure.range[0] / factor], [row.nugget, row.sill, row.range], rtol=1e-6)
    assert fitted.residual == pytest.approx(row.residual, rel=1e-9)


def exact(model, dimension, n_lags=12, largest=60.0):
    """The variogram of a model itself."""
    azimuth, dip = ([np.nan], [np.nan]) if model.isotropic else DIRECTIONS[dimension]
    lag = np.tile((np.arange(n_lags) + 0.7) * largest / n_lags, (len(azimuth), 1))
    result = ks.Variogram(np.array(azimuth, float), np.array(dip, float), lag, np.empty_like(lag),
                          np.full(lag.shape, 50) + np.arange(n_lags), dimension, "v", "matheron")
    result.gamma[:] = model.variogram((lag[..., None] * result._axes()[:, None]).reshape(-1, dimension)).reshape(lag.shape)
    return result


@pytest.mark.parametrize("true, first, fixed", [
    (ks.Nugget(0.2) + ks.Spherical(0.8, range=35.0), ks.Nugget(1.0) + ks.Spherical(1.0, range=500.0), ()),
    (ks.Exponential(3.0, range=70.0), ks.Exponential(1.0, range=1.0), ()),
    (ks.Cubic(3e-9, range=40.0), ks.Nugget() + ks.Cubic(range=7.0), ()),
    (ks.Nugget(1.0) + ks.Spherical(2.0, range=12.0) + ks.Spherical(4.0, range=50.0), ks.Nugget() + ks.Spherical(range=5.0) + ks.Spherical(range=9.0), ()),
    (ks.Matern(2.0, range=9.0, smoothness=1.4), ks.Matern(range=5.0, smoothness=0.5), ()),
    (ks.Nugget(0.1) + ks.Power(0.02, range=1.0, power=1.3), ks.Nugget() + ks.Power(range=1.0, power=0.5), ()),
    (ks.Power(0.02, range=(1.0, 0.4), power=1.3, azimuth=60.0), ks.Nugget() + ks.Power(range=(1.0, 0.9), power=0.5), ()),
    (ks.Nugget(0.3) + ks.Stable(2.0, range=30.0, power=1.7), ks.Nugget(0.3) + ks.Stable(range=9.0, power=1.7), ("nugget", "shape")),
    (ks.Nugget(0.2) + ks.Spherical(0.8, range=(50.0, 20.0), azimuth=70.0), ks.Nugget() + ks.Spherical(range=(9.0, 8.0)), ()),
    (ks.Gaussian(0.8, range=(50.0, 20.0), azimuth=115.0), ks.Gaussian(range=(10.0, 30.0), azimuth=80.0), ()),
    (ks.Nugget(0.2) + ks.Spherical(0.8, range=(50.0, 20.0), azimuth=30.0), ks.Nugget() + ks.Spherical(range=(5.0, 2.0), azimuth=30.0), ("anisotropy", "azimuth")),
    (ks.Nugget(0.2) + ks.Spherical(0.8, range=(50.0, 20.0), azimuth=30.0), ks.Nugget() + ks.Spherical(0.8, range=(50.0, 40.0)), ("sill", "range")),
    (ks.Exponential(0.8, range=(50.0, 20.0, 8.0), azimuth=30.0), ks.Nugget() + ks.Exponential(range=(9.0, 8.0, 7.0)), ()),
    (ks.Spherical(0.8, range=(40.0, 40.0, 8.0)), ks.Spherical(range=(9.0, 9.0, 7.0)), ()),
    (ks.Spherical(0.8, range=(40.0, 15.0, 8.0), azimuth=20.0, dip=30.0), ks.Spherical(range=(9.0, 8.0, 7.0), dip=30.0), ())], ids=str)
def test_fits_find_the_model_of_a_variogram(true, first, fixed):
    dimension = 2 if true.isotropic else len(true.structures[-1].range)
    fitted = exact(true, dimension).fit(first, fixed=fixed)
    found = [s for s in fitted.structures if s.sill > 1e-6 * fitted.sill]
    assert [s.type for s in found] == [s.type for s in true.structures]
    for wanted, s in zip(true.structures, found):
        np.testing.assert_allclose([s.sill, *s.range, s.shape or 0.0], [wanted.sill, *wanted.range, wanted.shape or 0.0], rtol=2e-4)
    assert fitted.azimuth == pytest.approx(true.azimuth, abs=1e-2) and fitted.residual < 1e-6 * true.sill**2


def test_candidates_that_cannot_be_fitted_are_left_out():
    variogram = exact(ks.Nugget(0.2) + ks.Spherical(0.8, range=35.0), 2)
    directional, linear = ks.Spherical(range=(30.0, 20.0)), ks.Linear(range=30.0)
    with pytest.warns(ks.KestrumWarning, match="^2 of 3 candidates were left out. The first, .*: the model is anisotropic"):
        fitted = variogram.fit([directional, ks.Nugget() + ks.Spherical(range=30.0), linear])
    assert fitted.structures[1].range[0] == pytest.approx(35.0) and len(fitted.ranking) == 1
    with pytest.raises(ks.ModelError, match="Linear"):
        variogram.fit([linear, directional])


def test_what_a_fit_tells():
    points = scattered(600, step=0.5).merged()
    v = ks.variogram(points, lag=3.0)
    fitted = v.fit([ks.Nugget(0.5) + ks.Gaussian(range=30.0), ks.Nugget(0.5) + ks.Spherical(range=30.0), ks.Spherical(range=10.0)])
    found = v.pairs[0] > 0
    lag, gamma, pairs = v.lag[0, found], v.gamma[0, found], v.pairs[0, found]
    assert fitted.residual == pytest.approx(np.sum(pairs / lag**2 * (gamma - fitted.variogram(lag)) ** 2), rel=1e-12)
    assert fitted.ranking.residual.is_monotonic_increasing and len(fitted.ranking) == 3 and fitted.ranking.parameters.max() == 3
    # The covariance is that of linear least squares about the result.
    names = list(fitted.parameter_covariance)
    assert names == ["structures[0].sill", "structures[1].sill", "structures[1].range"]
    nugget, structure = fitted.structures
    kind = getattr(ks, structure.type)

    def at(values):
        return (ks.Nugget(values[0]) + kind(values[1], range=values[2])).variogram(lag)

    best = np.array([nugget.sill, structure.sill, structure.range[0]])
    slopes = np.stack([(at(best + step) - at(best - step)) / (2 * step.max()) for step in np.diag(best * 1e-5)])
    expected = fitted.residual / (len(lag) - 3) * np.linalg.inv((slopes * pairs / lag**2) @ slopes.T)
    np.testing.assert_allclose(fitted.parameter_covariance, expected, rtol=1e-5)
    again = pickle.loads(pickle.dumps(fitted))
    assert again == fitted and again.residual == fitted.residual and again.ranking.equals(fitted.ranking)
    assert type(fitted + ks.Nugget(1.0)) is ks.CovModel


def test_bounds():
    n = np.arange(10.0)
    line = ks.Variogram(np.array([np.nan]), np.array([np.nan]), n[None] + 1.0, n[None] + 1.0, np.full((1, 10), 9), 2, "v", "matheron")
    fitted = line.fit(ks.Nugget(1.0) + ks.Spherical(1.0, range=5.0))
    assert fitted.structures[1].range[0] == pytest.approx(30.0, rel=1e-12) and list(fitted.parameter_covariance) == ["structures[1].sill"]
    assert fitted.at_bounds == ("structures[0].sill", "structures[1].range") and fitted.structures[0].sill == 0.0
    # Both axes end on the bound.
    both = exact(ks.Power(1.0, range=(9.0, 8.99), power=1.0), 2).fit(ks.Nugget(1.0) + ks.Spherical(1.0, range=(5.0, 4.0)))
    assert both.isotropic and both.at_bounds == fitted.at_bounds and both.ranking.parameters[0] == 5


@given(st.integers(0, 10_000), st.sampled_from([2, 3]), st.sampled_from(["Spherical", "Exponential", "Gaussian", "Cubic", "CardinalSine", "Matern", "Power"]))
@example(1, 2, "Power")  # whose sill ends at 0
@settings(max_examples=30, deadline=None)
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_kriging_takes_what_a_fit_gives(seed, dimension, kind):
    points = scattered(60, dimension, seed)
    shape = {"Matern": {"smoothness": 1.0}, "Power": {"power": 1.0}}.get(kind, {})
    fitted = ks.variogram(points, lag=6.0).fit(ks.Nugget() + getattr(ks, kind)(range=20.0, **shape))
    result = ks.krige(points, fitted, np.random.default_rng(seed).uniform(0.0, 100.0, (20, dimension)))
    assert np.isfinite(result.estimate).all() and (result.variance >= 0.0).all()


@pytest.mark.parametrize("model, options, text", [
    (ks.Linear(range=5.0), {}, "Linear is no covariance"), (ks.Spherical(range=(5.0, 3.0)), {}, "all directions"), ([], {}, "empty list"),
    (ks.Spherical(), dict(weights="np"), "weights"), (ks.Spherical(), dict(fixed=("nuget",)), "Did you mean 'nugget'"), (3.0, {}, "CovModel"),
    (ks.Spherical(range=np.ones((3, 3))), {}, "varies over a grid"), (sum(ks.Spherical() for _ in range(9)), {}, "18 parameters are free")], ids=str)
def test_fits_refuse(model, options, text):
    with pytest.raises(ks.KestrumError, match=text):
        ks.variogram(meuse()).fit(model, **options)


def test_fits_refuse_variograms_that_do_not_tell():
    points = meuse()
    with pytest.raises(ks.ModelError, match="one direction, which does not tell azimuth"):
        ks.variogram(points, azimuth=0.0).fit(ks.Spherical(range=(900.0, 500.0)))
    # Directions that are one, or of which one alone has pairs, are no more.
    line = ks.Points(np.column_stack((np.zeros(50), np.arange(50.0))), np.sin(np.arange(50.0)))
    with pytest.warns(ks.KestrumWarning, match="azimuth 90"):
        one = ks.variogram(line, lag=1.0, azimuth=[0, 90])
    for found in (ks.variogram(points, azimuth=[30, 210]), one):
        with pytest.raises(ks.ModelError, match="one direction, which does not tell azimuth"):
            found.fit(ks.Spherical(range=(9.0, 5.0)))
    true = ks.Exponential(0.8, range=(50.0, 20.0, 8.0))
    level = exact(true, 3)
    level.dip[:] = 0.0
    with pytest.raises(ks.ModelError, match=r"horizontal, which does not tell structures\[0\].range\[2\]"):
        level.fit(true)
    assert level.fit(true, fixed=["anisotropy"]).structures[0].range[2] > 0.0
    # Two directions that the axes of the model are, too, say nothing of small turns.
    two = exact(ks.Spherical(2.0, range=(50.0, 20.0)), 2)
    two = dataclasses.replace(two, **{name: getattr(two, name)[::2] for name in ("azimuth", "dip", "lag", "gamma", "pairs")})
    errors = np.diag(two.fit(ks.Spherical(1.0, range=(50.0, 20.0))).parameter_covariance)
    assert np.isnan(errors).tolist() == [False, False, False, True]
    with pytest.warns(ks.KestrumWarning, match="all values"):
        level = ks.variogram(points.with_values(np.ones(len(points))))
    with pytest.raises(ks.DataError, match="no semivariance is above 0"):
        level.fit(ks.Spherical())


def restricted_likelihood(points, model, terms):
    """Of contrasts that the terms of the drift do not touch."""
    contrasts = linalg.null_space(terms.T)
    lags = points.coordinates[:, None] - points.coordinates
    matrix = model.covariance(lags.reshape(-1, lags.shape[2])).reshape(lags.shape[:2])
    matrix = matrix + np.diag(np.zeros(len(points)) if points.error_variance is None else points.error_variance)
    return multivariate_normal(np.zeros(contrasts.shape[1]), contrasts.T @ matrix @ contrasts).logpdf(contrasts.T @ points.values)


@pytest.mark.parametrize("first, drift, fixed, factor", [
    (ks.Nugget(1.0) + ks.Exponential(2.0, range=10.0), None, (), 1.0),
    (ks.Nugget(1.0) + ks.Matern(2.0, range=10.0, smoothness=1.0), "linear", ("shape",), 1e-6),
    (ks.Nugget(1.0) + ks.Spherical(1.0, range=(40.0, 30.0)), "quadratic", (), 1.0),
    (ks.Nugget(0.4) + ks.Exponential(1.0, range=30.0), "height", ("nugget",), 1.0)], ids=str)
def test_likelihood_is_at_its_maximum(first, drift, fixed, factor):
    random = np.random.default_rng(5)
    places = random.uniform(0.0, 100.0, (150, 2))
    x, y = places.T
    lags = (places[:, None] - places).reshape(-1, 2)
    true = (ks.Nugget(0.3) + ks.Exponential(1.0, range=40.0)).covariance(lags).reshape(150, 150)
    values = np.linalg.cholesky(true) @ random.normal(size=150) + 0.03 * y
    points = ks.Points(places, values * factor, error_variance=np.linspace(0.0, 0.2, 150) * factor**2)
    terms = np.column_stack([np.ones(150), *{None: [], "linear": [x, y], "quadratic": [x, y, x * x, x * y, y * y], "height": [y]}[drift]])
    fitted = ks.fit_likelihood(points, first, drift={"height": y} if drift == "height" else drift, fixed=fixed)
    best = restricted_likelihood(points, fitted, terms)
    assert fitted.log_likelihood == pytest.approx(best, rel=1e-9)

    def changed(name, by):
        parts = []
        for k, s in enumerate(fitted.structures):
            sill = s.sill * by if name == f"structures[{k}].sill" else s.sill
            ranges = [r * by if name in (f"structures[{k}].range", f"structures[{k}].range[{a}]") else r for a, r in enumerate(s.range)]
            shape = {"smoothness": s.shape} if s.shape else {}
            azimuth = fitted.azimuth + (by - 1.0) * 90.0 * (name == "azimuth")
            parts.append(ks.Nugget(sill) if s.type == "Nugget" else getattr(ks, s.type)(sill, range=ranges, azimuth=azimuth, **shape))
        return sum(parts)

    names = list(fitted.parameter_covariance)
    assert len(names) + len(fitted.at_bounds) == fitted.ranking.parameters[0] and len(names) > 1
    for name in names:
        assert max(restricted_likelihood(points, changed(name, by), terms) for by in (0.99, 1.01)) < best
    assert (np.linalg.eigvalsh(fitted.parameter_covariance / np.outer(*[np.sqrt(np.diag(fitted.parameter_covariance))] * 2)) > 0.0).all()


def test_likelihood_without_a_nugget():
    # A first step takes the only sill to 0, where there is no likelihood; the best range is at the bound.
    places = np.random.default_rng(0).uniform(0.0, 100.0, (150, 2))
    smooth = ks.Points(places, np.sin(places[:, 0] / 25.0) + np.cos(places[:, 1] / 30.0))
    fitted = ks.fit_likelihood(smooth, ks.Exponential(1.0, range=20.0))
    sill, longest = fitted.sill, fitted.structures[0].range[0]
    assert fitted.at_bounds == ("structures[0].range",)
    tried = [restricted_likelihood(smooth, ks.Exponential(sill * r / longest * by, range=r), np.ones((150, 1)))
             for r in np.geomspace(0.05, 1.0, 6) * longest for by in (0.8, 1.0, 1.25)]
    assert max(tried) <= fitted.log_likelihood + 1e-6
    with pytest.warns(ks.KestrumWarning, match="ended before the maximum.*nugget"):
        ks.fit_likelihood(smooth, ks.Gaussian(1.0, range=20.0))


def test_errors_of_a_likelihood_are_those_of_its_curvature():
    points, first = scattered(250), ks.Nugget(0.5) + ks.Spherical(1.0, range=60.0)
    fitted = ks.fit_likelihood(points, first, fixed="range")
    sills = np.array([s.sill for s in fitted.structures])

    def at(a, b):
        return restricted_likelihood(points, ks.Nugget(a) + ks.Spherical(b, range=60.0), np.ones((250, 1)))

    a, b = np.diag(sills * 1e-2)
    bend = np.array([[at(*(sills + p + q)) - at(*(sills + p - q)) - at(*(sills - p + q)) + at(*(sills - p - q)) for q in (a, b)] for p in (a, b)])
    curvature = -bend / np.outer(2.0 * a + 2.0 * b, 2.0 * a + 2.0 * b).diagonal().reshape(2, 1) ** 0.5 / (2.0 * (a + b))
    # The information is the average of this and of what it is expected to be.
    errors = np.sqrt(np.diag(fitted.parameter_covariance))
    np.testing.assert_allclose(errors, np.sqrt(np.diag(np.linalg.inv(curvature))), rtol=0.2)


@pytest.mark.parametrize("points, model, options, text", [
    (FEW, ks.Spherical(), {}, "1 data share a place"), (LABELS, ks.Spherical(), {}, "labels"), (FEW.merged(), ks.Power(power=1.0), {}, "Power has no sill"),
    (FEW.merged(), ks.Spherical(), dict(drift="linear"), "3 terms"), (scattered(9), ks.Spherical(), dict(drift="cubic"), "drift"),
    (scattered(9), ks.Spherical(), dict(drift={"h": np.ones(9)}), "told apart"), (scattered(9), ks.Spherical(), dict(drift={"h": [1.0]}), "shape"),
    (scattered(9).with_values(np.ones(9)), ks.Spherical(), {}, "nothing else"), (scattered(9), ks.Spherical(0.0), {}, "sill")], ids=str)
def test_likelihoods_refuse(points, model, options, text):
    with pytest.raises(ks.KestrumError, match=text):
        ks.fit_likelihood(points, model, **options)
