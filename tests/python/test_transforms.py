"""Normal scores and declustering: against definitions written out, and back and forth."""

import pickle

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import stats

import kestrum as ks

RANDOM = np.random.default_rng(8)
PLACES = np.vstack([RANDOM.uniform(0.0, 100.0, (60, 2)), RANDOM.normal([70.0, 70.0], 3.0, (60, 2))])
SKEWED = np.exp(RANDOM.normal(1.0, 1.2, 120)) + 5.0 * (PLACES[:, 0] > 60.0)
POINTS = ks.Points(PLACES, SKEWED, "gold")


@given(st.lists(st.integers(-20, 20), min_size=2, max_size=60), st.booleans(), st.floats(0.0, 50.0), st.floats(0.0, 50.0),
       st.floats(1e-6, 1e9), st.integers(0, 99))
@settings(max_examples=150, deadline=None)
def test_back_and_forth(numbers, weighted, below, above, unit, seed):
    values = np.array(numbers) * unit
    if len(np.unique(values)) < 2:
        return
    random = np.random.default_rng(seed)
    weights = random.uniform(0.01, 3.0, len(values)) if weighted else None
    low, high = values.min() - below * unit, values.max() + above * unit
    transform = pickle.loads(pickle.dumps(ks.NormalScore(values, weights, low, high)))
    scores = transform.forward(values)
    # The definition: weights below, and half the weights of equal values.
    shares = np.ones(len(values)) if weights is None else weights
    for value, score in zip(values, scores):
        share = (shares[values < value].sum() + 0.5 * shares[values == value].sum()) / shares.sum()
        assert stats.norm.cdf(score) == pytest.approx(share, rel=1e-9)
    assert np.array_equal(transform.inverse(scores), values)
    between = random.uniform(low, high, 50)
    at = transform.forward(between)
    np.testing.assert_allclose(transform.inverse(at), between, rtol=1e-9, atol=1e-9 * (high - low))
    assert (np.diff(transform.forward(np.sort(between))) >= 0.0).all()
    drawn = transform.inverse(random.normal(0.0, 3.0, 200))
    assert drawn.min() >= low and drawn.max() <= high
    # Tails are linear in probability.
    for score, end, extreme in ((transform.scores[0] - 1.0, low, values.min()), (transform.scores[-1] + 0.5, high, values.max())):
        nearest = stats.norm.cdf(-abs(transform.scores[0 if end == low else -1]))
        share = stats.norm.cdf(-abs(score)) / nearest
        if transform.scores[0] < 0.0 < transform.scores[-1]:
            assert transform.inverse(score) == pytest.approx(end + (extreme - end) * share, rel=1e-9, abs=1e-9 * unit)


def test_weights_of_0_leave_finite_scores():
    # Weights by kriging are often 0, where they would be below it.
    values = np.array([4.0, 1.0, 2.0, 3.0, 5.0, 6.0])
    transform = ks.NormalScore(values, [1e308, 0.0, 0.0, 1e308, 1e308, 0.0])
    scores = transform.forward(values)
    assert np.isfinite(scores).all() and np.array_equal(transform.inverse(scores), values) and len(set(scores)) == 6
    np.testing.assert_allclose(scores[[3, 0, 4]], stats.norm.ppf(np.array([1.0, 3.0, 5.0]) / 6.0), atol=1e-5)
    between = transform.forward([1.5, 2.5])
    np.testing.assert_allclose(transform.inverse(between), [1.5, 2.5], rtol=1e-9)


def test_ends_and_refusals():
    transform = ks.NormalScore(SKEWED, minimum=0.0)
    beyond = transform.forward([[-1.0, 0.0], [SKEWED.max() + 1.0, np.nan]])
    assert np.array_equal(beyond, [[-np.inf, -np.inf], [np.inf, np.nan]], equal_nan=True)
    assert transform.inverse([-np.inf, np.inf]).tolist() == [0.0, SKEWED.max()]
    with pytest.raises(AttributeError):
        transform.minimum = 1.0
    for arguments, text in ((([3.0, 3.0],), "all 3"), (([],), "none"), (([1.0, np.nan],), "row 1"), (([1.0, 2.0], [1.0]), "shape"),
                            (([1.0, 2.0], [1.0, -1.0]), "row 1"), (([1.0, 2.0], [0.0, 0.0]), "all 0"),
                            (([1.0, 2.0], None, 1.5), "at most 1"), (([1.0, 2.0], None, None, np.inf), "finite")):
        with pytest.raises(ks.KestrumError, match=text):
            ks.NormalScore(*arguments)


def test_cell_weights():
    def brute(cell, offsets):
        sums = np.zeros(len(PLACES))
        for k in range(offsets):
            cells = [tuple(np.floor((place - PLACES.min(axis=0)) / cell + k / offsets)) for place in PLACES]
            own = np.array([1.0 / cells.count(one) for one in cells])
            sums += own / own.sum()
        return sums * len(PLACES) / sums.sum()

    np.testing.assert_allclose(ks.declustering_weights(POINTS, 9.0), brute(np.array([9.0, 9.0]), 8), rtol=1e-12)
    np.testing.assert_allclose(ks.declustering_weights(POINTS, (9.0, 4.0), 3), brute(np.array([9.0, 4.0]), 3), rtol=1e-12)
    # The size that is sought is at least as good as any near it, and the area's mean comes out.
    sought = ks.declustering_weights(POINTS)
    means = [np.average(SKEWED, weights=brute(np.array([c, c]), 8)) for c in (3.0, 6.0, 12.0, 24.0)]
    best = np.average(SKEWED, weights=sought)
    assert sought.sum() == pytest.approx(120.0) and best <= min(means) + 0.01 * SKEWED.mean() < SKEWED.mean()
    assert np.average(SKEWED, weights=ks.declustering_weights(POINTS, minimize=False)) >= SKEWED.mean() > best
    assert ks.declustering_weights(ks.Points([[1.0, 1.0], [1.0, 1.0]], [1.0, 2.0])).tolist() == [1.0, 1.0]


def test_kriging_weights():
    model, grid = ks.Nugget(0.2) + ks.Spherical(1.0, range=30.0), ks.Grid(20, 16, dx=5.0, dy=6.0)
    weights = ks.declustering_weights(POINTS, model=model, grid=grid)
    # What each datum adds to the mean of the map: estimates are linear in the data.
    expected = np.array([float(ks.krige(POINTS.with_values(np.eye(120)[i]), model, grid).estimate.mean()) for i in range(120)])
    expected = np.maximum(expected, 0.0)
    np.testing.assert_allclose(weights, expected * 120.0 / expected.sum(), rtol=1e-9, atol=1e-12)


def test_refusals_of_declustering():
    labels = ks.Points([[0.0, 0.0], [1.0, 1.0]], ["a", "b"])
    model, grid = ks.Spherical(range=3.0), ks.Grid(3, 3)
    for arguments, text in (((PLACES,), "must be Points"), ((POINTS, 0.0), "above 0"), ((POINTS, (1.0, 2.0, 3.0)), "3 numbers"),
                            ((POINTS, 1e-5), "millionth"), ((labels,), "labels"), ((POINTS, None, 0), "at least 1")):
        with pytest.raises(ks.KestrumError, match=text):
            ks.declustering_weights(*arguments)
    for options, text in (({"model": model}, "both"), ({"model": model, "grid": grid, "cell": 3.0}, "cell and model"),
                          ({"model": ks.Spherical(np.ones((3, 3)), range=3.0), "grid": grid}, "constants")):
        with pytest.raises(ks.KestrumError, match=text):
            ks.declustering_weights(POINTS, **options)
    with pytest.raises(ks.DataError, match="share a place"):
        ks.declustering_weights(ks.Points([[1.0, 1.0], [1.0, 1.0]], [1.0, 2.0]), model=model, grid=grid)


def test_simulation_of_a_skewed_variable():
    grid, model = ks.Grid(25, 25, dx=4.0, dy=4.0), ks.Exponential(1.0, range=25.0)
    inside = ks.Points(grid_centres(grid)[::20], np.exp(RANDOM.normal(1.0, 1.2, 32)), "gold")
    options = dict(n=3, seed=4, neighbors=12)
    fields = ks.simulate(inside, model, grid, transform="normal-score", **options)
    transform = ks.NormalScore(inside.values)
    assert np.array_equal(fields.values, ks.simulate(inside, model, grid, transform=transform, **options).values)
    scores = ks.simulate(inside.with_values(transform.forward(inside.values)), model, grid, mean=0.0, **options)
    assert (fields.values.reshape(3, -1)[:, ::20] == inside.values).all()
    free = np.arange(625) % 20 != 0
    assert np.array_equal(fields.values.reshape(3, -1)[:, free], transform.inverse(scores.values).reshape(3, -1)[:, free])
    single = ks.simulate(inside, model, grid, transform=transform, dtype="float32", **options)
    assert np.array_equal(single.values, fields.values.astype(np.float32))
    # Without data, the values have the distribution that the transform was fitted to.
    many = ks.simulate(None, model, ks.Grid(60, 60, dx=30.0, dy=30.0), transform=ks.NormalScore(SKEWED, minimum=0.0, maximum=300.0))
    assert stats.ks_2samp(many.values.ravel(), SKEWED).pvalue > 0.01
    # Bounds are in the variable's unit; one below all values is none.
    places = grid_centres(grid)[[5, 101, 211]]
    bounded = ks.simulate(inside, model, grid, transform=transform, bounds=(places, [2.0, -5.0, np.nan], [np.nan, 3.0, 1.5]), **options)
    at = bounded.values.reshape(3, -1)[:, [5, 101, 211]]
    assert (at[:, 0] >= 2.0).all() and (at[:, 1] <= 3.0).all() and (at[:, 2] <= 1.5).all()
    for options, text in (({"points": None, "transform": "normal-score"}, "no points"), ({"transform": "log"}, "must be one of"),
                          ({"transform": 3}, "NormalScore"), ({"transform": ks.NormalScore([1.0, 2.0])}, "does not cover"),
                          ({"transform": transform, "bounds": (places[:1], 1e9, np.nan)}, "leave no value")):
        with pytest.raises(ks.KestrumError, match=text):
            ks.simulate(**{"points": inside, "model": model, "grid": grid, **options})
    with pytest.warns(ks.KestrumWarning, match="sill of 50"):
        ks.simulate(inside, model * 50.0, grid, transform="normal-score")


def grid_centres(grid):
    x, y = np.meshgrid(grid.coords["x"], grid.coords["y"])
    return np.column_stack([x.ravel(), y.ravel()])
