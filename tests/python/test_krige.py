"""Kriging by the package: against dense systems in NumPy, and against the C interface's bits."""

import threading
import warnings

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import kestrum as ks
from test_simulation_reference import Search, continuous, library, nugget, records, spherical

GRID = ks.Grid(9, 7, dx=11.0, dy=13.0, x0=2.0, y0=5.0)
GRID3 = ks.Grid(5, 4, 3, dx=20.0, dy=25.0, dz=30.0)


def scattered(n=40, dimension=2, seed=5):
    random = np.random.default_rng(seed)
    return ks.Points(random.uniform(0.0, 100.0, (n, dimension)), random.normal(20.0, 4.0, n), "zinc")


def centres(grid):
    axes = np.meshgrid(*grid.coords.values(), indexing="ij")
    return np.column_stack([axis.ravel() for axis in reversed(axes)])


def model_of(dimension=2):
    return ks.Nugget(0.4) + ks.Exponential(3.0, range=(60.0, 35.0, 25.0)[:dimension], azimuth=30.0)


def dense(points, model, places, neighbors=None, radius=None, mean=None, terms=None, errors=None, covariates=None, blocks=None):
    """Estimate, variance and weights of all data by one dense system for each place."""
    at, z = points.coordinates, points.values
    dimension = at.shape[1]
    ranges = np.array(model.structures[-1].range)[:dimension]
    angle = np.deg2rad(model.azimuth)
    axes = np.eye(dimension)
    axes[:2, :2] = [[np.sin(angle), np.cos(angle)], [np.cos(angle), -np.sin(angle)]]  # along, across
    smooth = ks.CovModel._of(tuple(s for s in model.structures if s.type != "Nugget"), model._angles)
    drift = lambda p: np.column_stack([term(p) for term in terms])  # noqa: E731
    estimate, variance = np.full(len(places), np.nan), np.full(len(places), np.nan)
    table = np.zeros((len(places), len(at)))
    for i, place in enumerate(places):
        lags = (at - place) @ axes.T
        h = np.sqrt(((lags / ranges) ** 2).sum(axis=1))
        use = np.argsort(h, kind="stable")
        if radius is not None:
            use = use[(np.sqrt(((lags[use] / np.broadcast_to(radius, dimension)) ** 2).sum(axis=1)) <= 1.0)]
        use = np.sort(use[:neighbors])
        n = len(use)
        if n == 0:
            continue
        matrix = model.covariance((at[use, None] - at[None, use]).reshape(-1, dimension)).reshape(n, n)
        if errors is not None:
            matrix = matrix + np.diag(errors[use])
        if blocks is None:
            right, own, parts = model.covariance(at[use] - place), model.sill, place[None]
        else:
            parts = place + blocks
            right = smooth.covariance((at[use, None] - parts).reshape(-1, dimension)).reshape(n, -1).mean(axis=1)
            own = smooth.covariance((parts[:, None] - parts).reshape(-1, dimension)).mean()
        if mean is not None:
            table[i, use] = weights = np.linalg.solve(matrix, right)
            estimate[i] = mean + weights @ (z[use] - mean)
            variance[i] = own - weights @ right
            continue
        # Coordinates about the place keep the system sound.
        f = np.ones((n, 1)) if terms is None else drift((at[use] - place) / 50.0)
        g = np.ones(1) if terms is None else drift((parts - place) / 50.0).mean(axis=0)
        if covariates is not None:
            f, g = np.column_stack((f, covariates[0][use])), np.append(g, covariates[1][i])
        m = f.shape[1]
        solution = np.linalg.solve(np.block([[matrix, f], [f.T, np.zeros((m, m))]]), np.concatenate((right, g)))
        table[i, use] = solution[:n]
        estimate[i] = solution[:n] @ z[use]
        variance[i] = own - solution @ np.concatenate((right, g))
    return estimate, variance, table


LINEAR = [lambda p: np.ones(len(p)), lambda p: p[:, 0], lambda p: p[:, 1]]
QUADRATIC = LINEAR + [lambda p: p[:, 0] ** 2, lambda p: p[:, 1] ** 2, lambda p: p[:, 0] * p[:, 1]]
RNG = np.random.default_rng(11)
HEIGHTS = RNG.normal(size=40), RNG.normal(size=63)
ERRORS = RNG.uniform(0.0, 2.0, 40)
QUARTERS = np.stack(np.meshgrid((np.arange(3) - 1) / 3 * 11.0, (np.arange(4) - 1.5) / 4 * 13.0), axis=-1).reshape(-1, 2)
CASES = {
    "ordinary, all": ({}, {}),
    "ordinary, nearest": (dict(neighbors=8), dict(neighbors=8)),
    "radius": (dict(radius=45.0), dict(radius=45.0)),
    "turned radius": (dict(radius=(50.0, 20.0), neighbors=6), dict(radius=(50.0, 20.0), neighbors=6)),
    "simple": (dict(mean=18.0, neighbors=12), dict(mean=18.0, neighbors=12)),
    "linear": (dict(drift="linear"), dict(terms=LINEAR)),
    "quadratic, nearest": (dict(drift="quadratic", neighbors=20), dict(terms=QUADRATIC, neighbors=20)),
    "external": (dict(drift={"height": (HEIGHTS[0], HEIGHTS[1].reshape(7, 9))}), dict(covariates=HEIGHTS)),
    "block": (dict(block=(3, 4), neighbors=10), dict(blocks=QUARTERS, neighbors=10)),
    "block, linear": (dict(block=(3, 4), drift="linear"), dict(blocks=QUARTERS, terms=LINEAR)),
}


@pytest.mark.parametrize("name", CASES)
def test_against_dense_systems(name):
    options, reference = CASES[name]
    points, model = scattered(), model_of()
    result = ks.krige(points, model, GRID, **options)
    estimate, variance, weights = dense(points, model, centres(GRID), **reference)
    np.testing.assert_allclose(result.estimate.values.ravel(), estimate, rtol=1e-9)
    np.testing.assert_allclose(result.variance.values.ravel(), variance, rtol=1e-8)
    assert result.estimate.dims == ("y", "x") and np.array_equal(result.x, GRID.coords["x"])
    if not {"drift", "block"} & set(options):
        there = ks.krige(points, model, centres(GRID), **options)
        assert there.estimate.dims == ("point",) and np.array_equal(there.estimate.values, result.estimate.values.ravel())
    weighed = ks.krige(points, model, GRID, weights=True, **options)
    assert weighed[["estimate", "variance"]].identical(result)
    assert weighed.weights.dims == weighed.weight_data.dims == ("y", "x", "neighbor") and weighed.sizes["neighbor"] == options.get("neighbors", 40)
    assert weighed["data"].dtype == np.int32 and np.array_equal(weighed["data"].values.ravel(), np.count_nonzero(weights, axis=1))
    there = np.arange(weighed.sizes["neighbor"]) < weighed["data"].values[..., None]
    assert np.array_equal(weighed.weight_data >= 0, there) and np.array_equal(weighed.weights.notnull(), there) and weighed.weight_data.min() >= -1
    table = np.zeros((63, 41))  # the last column takes what belongs to no datum
    np.put_along_axis(table, weighed.weight_data.values.reshape(63, -1), weighed.weights.values.reshape(63, -1), 1)
    np.testing.assert_allclose(table[:, :-1], weights, rtol=0.0, atol=1e-10)
    mean, served = options.get("mean", 0.0), there.any(axis=2).ravel()
    np.testing.assert_allclose((mean + table[:, :-1] @ (points.values - mean))[served], weighed.estimate.values.ravel()[served], rtol=1e-12)
    if mean == 0.0:
        np.testing.assert_allclose(table[served, :-1].sum(axis=1), 1.0, rtol=1e-12)


def test_weights_are_of_given_rows_in_the_order_of_the_result():
    places, values = scattered().coordinates, np.array(scattered().values)
    values[[0, 7, 20]] = np.nan
    with pytest.warns(ks.KestrumWarning, match="3 of 40 rows"):
        points = ks.Points(places, values)
    means, mask = 18.0 + 0.1 * np.arange(63).reshape(7, 9), np.arange(63).reshape(7, 9) % 3 != 0
    down = GRID.to_xarray(means).isel(y=slice(None, None, -1))
    options = dict(mean=down, mask=mask[::-1], neighbors=9, radius=45.0, weights=True)
    result, rounded = ks.krige(points, model_of(), down, **options), ks.krige(points, model_of(), down, dtype="float32", **options)
    column, row = np.clip((places - (2.0, 5.0)) // (11.0, 13.0), 0, (8, 6)).astype(int).T
    rest = values - means[row, column]
    # The sum leaves out what belongs to no datum, but no datum that has no value.
    terms = np.where(result.weight_data >= 0, result.weights * rest[result.weight_data.values], 0.0)
    np.testing.assert_allclose((down + terms.sum(axis=2)).values[mask[::-1]], result.estimate.values[mask[::-1]], rtol=1e-12)
    assert (result["data"].values[~mask[::-1]] == 0).all() and (result.weight_data.values[~mask[::-1]] == -1).all()
    assert rounded.drop_vars(("estimate", "variance")).identical(result.drop_vars(("estimate", "variance")))
    there = ks.krige(points, model_of(), centres(GRID)[mask.ravel()], **{**options, "mean": 0.0, "mask": None})
    assert there.weights.dims == ("point", "neighbor")
    for name in ("data", "weights", "weight_data"):
        np.testing.assert_array_equal(there[name].values, result[name].values[::-1][mask])


def test_weights_where_grids_are_kriged_by_cells():
    points, model, grid = scattered(2000), model_of(), ks.Grid(30, 20, dx=3.0, dy=4.0)
    weighed = ks.krige(points, model, grid, neighbors=8, weights=True)
    assert np.array_equal(weighed.estimate.values.ravel(), ks.krige(points, model, centres(grid), neighbors=8).estimate)
    np.testing.assert_allclose(weighed.estimate, ks.krige(points, model, grid, neighbors=8).estimate, rtol=1e-12)
    np.testing.assert_allclose((weighed.weights * points.values[weighed.weight_data.values]).sum("neighbor"), weighed.estimate, rtol=1e-12)


def test_errors_of_measurement_are_filtered():
    points, model = scattered(), model_of()
    noisy = ks.Points(points.coordinates, points.values, error_variance=ERRORS)
    estimate, variance, _ = dense(points, model, centres(GRID), errors=ERRORS)
    result = ks.krige(noisy, model, GRID)
    np.testing.assert_allclose(result.estimate.values.ravel(), estimate, rtol=1e-9)
    np.testing.assert_allclose(result.variance.values.ravel(), variance, rtol=1e-8)


def test_three_dimensions():
    points, model = scattered(50, 3), model_of(3)
    result = ks.krige(points, model, GRID3, neighbors=12)
    estimate, variance, _ = dense(points, model, centres(GRID3), neighbors=12)
    assert result.estimate.dims == ("z", "y", "x")
    np.testing.assert_allclose(result.estimate.values.ravel(), estimate, rtol=1e-9)
    np.testing.assert_allclose(result.variance.values.ravel(), variance, rtol=1e-8)


def test_masks_means_and_templates():
    points, model = scattered(), model_of()
    mask = np.arange(63).reshape(7, 9) % 3 != 0
    means = 18.0 + 0.1 * np.arange(63).reshape(7, 9)
    full = ks.krige(points, model, GRID, mean=means, neighbors=9)
    part = ks.krige(points, model, GRID, mean=np.where(mask, means, means), neighbors=9, mask=mask.astype(np.float32))
    assert np.array_equal(part.estimate.values[mask], full.estimate.values[mask]) and np.isnan(part.estimate.values[~mask]).all()
    # With the mean's own value at the data, residuals are kriged with mean 0.
    column = np.clip((points.coordinates[:, 0] - 2.0) // 11.0, 0, 8).astype(int)
    row = np.clip((points.coordinates[:, 1] - 5.0) // 13.0, 0, 6).astype(int)
    residuals = ks.krige(points.with_values(points.values - means[row, column]), model, GRID, mean=0.0, neighbors=9)
    np.testing.assert_allclose(full.estimate, residuals.estimate + means, rtol=1e-12)
    # A template's order is the result's, and that of arrays; a DataArray goes by its coordinates.
    down = GRID.to_xarray(means).isel(y=slice(None, None, -1))
    for given in (means[::-1], down, GRID.to_xarray(means), down.transpose("x", "y")):
        turned = ks.krige(points, model, down, mean=given, neighbors=9)
        assert np.array_equal(turned.y, down.y) and np.array_equal(turned.estimate.values[::-1], full.estimate.values)
    # A model that varies is evaluated with the parameters of the cell.
    sills = np.linspace(1.0, 5.0, 63).reshape(7, 9)
    local = ks.krige(points, ks.Exponential(sills, range=50.0), down, mean=18.0, neighbors=9)
    other = ks.krige(points, ks.Exponential(GRID.to_xarray(sills[::-1]), range=50.0), GRID, mean=18.0, neighbors=9)
    assert np.array_equal(local.variance.values[::-1], other.variance.values)
    same = ks.krige(points, ks.Exponential(sills[::-1][3, 4], range=50.0), GRID, mean=18.0, neighbors=9)
    np.testing.assert_allclose(other.variance[3, 4], same.variance[3, 4], rtol=1e-12)


@pytest.mark.parametrize("local", [
    lambda a: ks.Spherical(a, range=50.0), lambda a: ks.Spherical(1.0, range=(50.0, 30.0 * a), azimuth=30.0),
    lambda a: ks.Spherical(1.0, range=(50.0, 30.0), azimuth=30.0 * a), lambda a: ks.Matern(1.0, 20.0, smoothness=a)], ids=["sill", "range", "azimuth", "shape"])
def test_parameters_may_be_missing_where_nothing_is_computed(local):
    field = np.random.default_rng(8).uniform(0.5, 2.0, GRID.shape)
    mask = field < 1.7
    whole, missing = local(field), local(np.where(mask, field, np.nan))
    for tool in (lambda model: ks.krige(scattered(), model, GRID, neighbors=9, mask=mask).estimate, lambda model: ks.simulate(scattered(), model, GRID, mask=mask, radius=40.0)):
        assert np.array_equal(tool(missing).values, tool(whole).values, equal_nan=True)


@pytest.mark.parametrize("kind, name, within, beyond", [
    (ks.Gamma, "power", [1e-6, 100.0], [1e-7, 101.0]), (ks.Power, "power", [1e-6, 1.9], [1e-7]), (ks.Stable, "power", [1e-6, 2.0], [1e-7]),
    (ks.Matern, "smoothness", [1e-6, 100.0], [1e-7, 101.0])])
def test_shapes_that_kriging_takes(kind, name, within, beyond):
    for shape in within + beyond:
        model = kind(1.0, 90.0, **{name: shape})
        # The others do have covariances.
        assert np.isfinite(model.covariance([0.0, 9.0])).all() and np.isfinite(ks.simulate(None, model, GRID)).all()
        if shape in within:
            assert np.isfinite(ks.krige(scattered(), ks.Nugget(0.5) + model, GRID, neighbors=5).estimate).all()
        else:
            with pytest.raises(ks.ModelError, match=name):
                ks.krige(scattered(), model, GRID)


def test_lonely_places():
    points, model = scattered(), model_of()
    with pytest.warns(ks.KestrumWarning, match="no datum in reach") as heard:
        result = ks.krige(points, model, GRID, radius=6.0)
    lonely = np.isnan(result.estimate.values)
    assert f"{lonely.sum()} of 63" in str(heard[0].message) and heard[0].filename == __file__
    with pytest.warns(ks.KestrumWarning, match="no datum in reach") as heard:
        simple = ks.krige(points, model, GRID, radius=6.0, mean=18.0)
    assert lonely.mean() > 0.5 and len(heard) == 1  # which tells nothing of the range
    assert (simple.estimate.values[lonely] == 18.0).all() and np.allclose(simple.variance.values[lonely], model.sill)


@pytest.mark.parametrize("layout, drift, options", [
    ("few", "quadratic", {}), ("few", "quadratic", {"radius": 1e4}), ("plane", "linear", {"neighbors": 12}), ("circle", "quadratic", {"neighbors": 12})])
def test_drifts_that_data_do_not_determine(layout, drift, options):
    """Rounding alone tells the terms apart there: numbers would be anything, with variances of 1e14."""
    for seed in range(12):
        random = np.random.default_rng(seed)
        if layout == "few":  # one less than terms; half of them in one plane
            places = random.uniform(0.0, 100.0, (9, 3))
            places[:4, 1] = 50.0
        elif layout == "plane":
            places = 50.0 + 20.0 * random.uniform(-1.0, 1.0, (30, 2)) @ random.normal(size=(2, 3))
        else:
            angles = random.uniform(-3.2, 3.2, 100)
            places = 5e5 + 300.0 * np.column_stack([np.cos(angles), np.sin(angles)])
        targets = places.mean(axis=0) + random.uniform(-60.0, 60.0, (5, places.shape[1]))
        model = ks.Nugget(0.05) + ks.Spherical(1.0, range=6.0 * float(np.ptp(places[:, 0])) / 10.0)
        if layout == "few":
            points = ks.Points(np.vstack([places, targets[:1]]), random.normal(size=10))
            with pytest.warns(ks.KestrumWarning, match="drift"):
                assert np.isnan(ks.cross_validate(points, model, drift=drift, **options).estimate).all()
        with pytest.warns(ks.KestrumWarning, match="do not determine the drift at 5 of 5"):
            assert np.isnan(ks.krige(ks.Points(places, random.normal(size=len(places))), model, targets, drift=drift, **options).estimate).all()


def test_snapping_averages_or_takes_the_last():
    places = [[3.0, 6.0], [4.0, 7.0], [60.0, 50.0], [500.0, 50.0]]
    points = ks.Points(places, [1.0, 5.0, 2.0, 9.0])
    model = ks.Spherical(1.0, range=80.0)
    with pytest.warns(ks.KestrumWarning, match="1 data outside .*row 3.*1 data share"):
        result = ks.krige(points, model, GRID, snap=True)
    assert result.estimate.values[0, 0] == pytest.approx(3.0) and result.variance.values[0, 0] == pytest.approx(0.0, abs=1e-12)
    with pytest.warns(ks.KestrumWarning, match="last counts"):
        assert ks.krige(points, model, GRID, snap=True, solver="gmres").estimate.values[0, 0] == 5.0


@pytest.mark.parametrize("azimuth, radius, limit, mean", [
    (0.0, 100.0, 25, None), (0.0, 0.4, 5, None), (35.0, 100.0, 7, None), (0.0, -1.0, 25, None), (35.0, -1.0, 25, None), (0.0, 100.0, 25, 4.0),
    (0.0, -1.0, 25, 4.0)])
@pytest.mark.parametrize("ranges", [(14.0, 9.0), (12.0, 8.0, 3.0)], ids=str)
def test_gmres_gives_the_bits_of_the_c_interface(azimuth, radius, limit, mean, ranges):
    dimension = len(ranges)
    grid = ks.Grid(17, 13, dx=2.0, dy=1.3, x0=100.0, y0=-7.0) if dimension == 2 else ks.Grid(8, 7, 6, dy=1.5, dz=0.5)
    native = records.grid(grid.nx, grid.ny, grid.nz, grid.dx, grid.dy, 1.0 if dimension == 2 else grid.dz, grid.x0, grid.y0)
    random = np.random.default_rng(20240322)
    places = centres(grid)[random.choice(grid.nx * grid.ny * grid.nz, 25, replace=False)]
    values = random.normal(5.0, 1.5, 25)
    data = [(np.column_stack((places, np.full((25, 3 - dimension), 0.5))), {"value": values})]
    run = continuous(native, spherical(*ranges, *(0.0,) * (3 - dimension), weight=2.0), nugget(0.3), angles=(azimuth, 0.0, 0.0), points=data,
                     search=Search(radius, limit), ordinary=mean is None, mean=mean, simulated=False)
    ranges = (ranges[1], ranges[0], *ranges[2:])
    model = ks.Spherical(2.0, range=ranges, azimuth=azimuth) + ks.Nugget(0.3)
    search = {} if radius < 0.0 else {"radius": tuple(radius * r for r in ranges), "neighbors": limit}
    for threads in (1, 2, 3):
        result = ks.krige(ks.Points(places, values), model, grid, mean=mean, snap=True, solver="gmres", threads=threads, **search)
        estimate, deviation = library(run, threads)[1]
        assert np.array_equal(result.estimate.values.ravel(), estimate)
        assert np.array_equal(result.variance.values.ravel(), deviation**2)


@given(st.sampled_from([1e-9, 0.3048, 1000.0, 1e9]), st.sampled_from([1e-6, 1e3, 1e12]))
@settings(max_examples=12, deadline=None)
def test_units_do_not_matter(length, unit):
    points, model = scattered(), ks.Nugget(0.4) + ks.Spherical(3.0, range=50.0)
    one = ks.krige(points, model, GRID, neighbors=10)
    scaled = ks.Points(points.coordinates * length, points.values * unit)
    other = ks.krige(scaled, (ks.Nugget(0.4) + ks.Spherical(3.0, range=50.0 * length)) * unit**2,
                     ks.Grid(9, 7, dx=11.0 * length, dy=13.0 * length, x0=2.0 * length, y0=5.0 * length), neighbors=10)
    np.testing.assert_allclose(other.estimate / unit, one.estimate.values, rtol=1e-9)
    np.testing.assert_allclose(other.variance / unit**2, one.variance.values, rtol=1e-9)


def test_threads_and_callers_at_once_give_the_same_bits():
    points, model = scattered(200), model_of()
    grid = ks.Grid(60, 50, dx=2.0, dy=2.0)
    one = ks.krige(points, model, grid, neighbors=12, threads=1)
    results = [None] * 4

    def work(i):
        results[i] = ks.krige(points, model, grid, neighbors=12, threads=i + 1)

    callers = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    [caller.start() for caller in callers]
    [caller.join() for caller in callers]
    assert all(result.identical(one) for result in results)


def test_arrays_at_odd_addresses():
    """As they come from other processes: the sanitiser would find them read in place."""
    def odd(values):
        copy = np.empty(values.nbytes + 1, np.uint8)[1:].view(values.dtype).reshape(values.shape)
        copy[...] = values
        assert not copy.flags.aligned
        return copy

    points, at = scattered(), np.random.default_rng(3).normal(size=40)
    field, other = np.random.default_rng(4).normal(size=GRID.shape), ks.Points(odd(scattered().coordinates), odd(scattered().values), "zinc")
    for tool in (lambda points, at, field: ks.krige(points, model_of(), GRID, neighbors=12, drift={"height": (at, field)}),
                 lambda points, at, field: ks.simulate(points, model_of(), GRID, mean=field), lambda points, at, field: ks.variogram_map(field, 3)):
        assert tool(other, odd(at), odd(field)).identical(tool(points, at, field))


@pytest.mark.parametrize("ranges", [(1.0, 1.0), (1.0, 0.4), (1.0, 0.4, 0.2), (900.0, 700.0)], ids=str)
@pytest.mark.parametrize("power, sill", [(0.5, 0.0), (0.5, 0.7), (1.0, 0.0), (1.5, 0.7), (1.9, 0.0)])
def test_power_models_are_their_variograms(power, sill, ranges):
    """Whatever their range, and that of a spherical structure of another anisotropy, by the system of semivariances."""
    dimension = len(ranges)
    nested = (40.0, 90.0, 25.0)[:dimension]
    points = scattered(60, dimension)
    places = np.random.default_rng(9).uniform(-100.0, 200.0, (25, dimension))
    axes = np.eye(dimension)
    axes[:2, :2] = [[0.5, np.sqrt(0.75)], [np.sqrt(0.75), -0.5]]

    def gamma(a, b):
        distance = np.linalg.norm((a[:, None] - b) @ axes.T / ranges, axis=2)
        h = np.minimum(np.linalg.norm((a[:, None] - b) @ axes.T / nested, axis=2), 1.0)
        return np.where(distance > 0.0, 0.3 + 0.5 * distance**power + sill * (1.5 * h - 0.5 * h**3), 0.0)

    n = len(points)
    matrix = np.ones((n + 1, n + 1))
    matrix[:n, :n], matrix[n, n] = gamma(points.coordinates, points.coordinates), 0.0
    right = np.vstack([gamma(points.coordinates, places), np.ones(len(places))])
    solved = np.linalg.solve(matrix, right)
    model = ks.Nugget(0.3) + ks.Power(0.5, range=ranges, power=power, azimuth=30.0)
    if sill > 0.0:
        model += ks.Spherical(sill, range=nested, azimuth=30.0)
    result = ks.krige(points, model, places)
    np.testing.assert_allclose(result.estimate, solved[:n].T @ points.values, rtol=1e-6)
    np.testing.assert_allclose(result.variance, (solved * right).sum(axis=0), rtol=1e-7)
    # Neighbours are searched for by the longest range along each axis.
    longest = np.maximum(ranges, nested) if sill > 0.0 else ranges
    near = np.argsort(np.linalg.norm((points.coordinates - places[0]) @ axes.T / longest, axis=1))[:20]
    chosen = ks.krige(points, model, places[:1], neighbors=20)
    alone = ks.krige(ks.Points(points.coordinates[near], points.values[near]), model, places[:1])
    np.testing.assert_allclose([chosen.estimate, chosen.variance], [alone.estimate, alone.variance], rtol=1e-7)
    left = ks.krige(ks.Points(points.coordinates[1:], points.values[1:]), model, points.coordinates[:1], neighbors=20)
    table = ks.cross_validate(points, model, neighbors=20)
    np.testing.assert_allclose(table[["estimate", "variance"]].iloc[0], [left.estimate.item(), left.variance.item()], rtol=1e-7)


@pytest.mark.parametrize("model", [ks.Gaussian(1.0, range=60.0), ks.Gaussian(1.0, range=90.0), ks.CardinalSine(1.0, range=60.0)])
def test_smooth_models_without_a_nugget_leave_data_out(model):
    """Hundreds of pivots are nothing but rounding; what is left gives the smooth field back."""
    random = np.random.default_rng(2)
    places, targets = random.uniform(0.0, 100.0, (600, 2)), random.uniform(5.0, 95.0, (50, 2))

    def field(at):
        return np.sin(at[:, 0] / 20.0) + np.cos(at[:, 1] / 25.0)

    with pytest.warns(ks.KestrumWarning, match="follow from others"):
        result = ks.krige(ks.Points(places, field(places)), model, targets, weights=True)
    assert np.abs(result.estimate - field(targets)).max() < 1e-3
    assert ((result.variance >= 0.0) & (result.variance < 1e-5)).all()
    assert (result.weights == 0.0).any() and (result["data"] == 600).all()
