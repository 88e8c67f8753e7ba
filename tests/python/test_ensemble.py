"""Statistics of ensembles: against NumPy and SciPy, in any chunks, and without holding all of it."""

import weakref

import dask
import dask.array as da
import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage

import kestrum as ks


def fields_of(n=12, shape=(9, 7), seed=3):
    random = np.random.default_rng(seed)
    values = ndimage.gaussian_filter(random.normal(size=(n, *shape)), (0.0,) + (1.0,) * len(shape))
    values[:, 0, ..., 2] = np.nan
    values[:, 4, ..., 4] = 0.1
    return values


def connected(values, at, structure):
    labels = np.stack([ndimage.label(row > 0.0, structure)[0] for row in values])
    return np.stack([(one == one[at]) & (one[at] > 0) for one in labels]).mean(axis=0)


STATISTICS = {
    "mean": (ks.ensemble.mean, lambda v: v.mean(axis=0)),
    "variance": (ks.ensemble.variance, lambda v: v.var(axis=0, ddof=1)),
    "above": (lambda v: ks.ensemble.probability_above(v, 0.1), lambda v: np.where(np.isnan(v), np.nan, v > 0.1).mean(axis=0)),
    "above some": (lambda v: ks.ensemble.probability_above(v, [0.0, 0.3]),
                   lambda v: np.stack([np.where(np.isnan(v), np.nan, v > limit).mean(axis=0) for limit in (0.0, 0.3)])),
    "median": (lambda v: ks.ensemble.quantile(v, 0.5), lambda v: np.median(v, axis=0)),
    "quantiles": (lambda v: ks.ensemble.quantile(v, [0.05, 0.9]), lambda v: np.quantile(v, [0.05, 0.9], axis=0)),
    "connected": (lambda v: ks.ensemble.probability_connected(v, (4,) * (v.ndim - 1)), lambda v: connected(v, (4,) * (v.ndim - 1), None)),
    "by corners": (lambda v: ks.ensemble.probability_connected(v, (4,) * (v.ndim - 1), connectivity={3: 8, 4: 26}[v.ndim]),
                   lambda v: connected(v, (4,) * (v.ndim - 1), np.ones((3,) * (v.ndim - 1)))),
}


@pytest.mark.parametrize("name", STATISTICS)
@given(st.integers(1, 13), st.integers(1, 9), st.integers(1, 7), st.sampled_from([np.float64, np.float32]), st.booleans())
@settings(max_examples=12, deadline=None)
def test_any_chunks_give_the_same_bits(name, along, rows, columns, dtype, solid):
    statistic, expected = STATISTICS[name]
    values = fields_of(shape=(9, 5, 7) if solid else (9, 7)).astype(dtype)
    at_once = statistic(values)
    with np.errstate(invalid="ignore"):
        np.testing.assert_allclose(at_once, expected(values.astype(np.float64)), rtol=1e-12, atol=1e-14)
    lazy = statistic(da.from_array(values, chunks=(along, rows, *(5,) * solid, columns)))
    assert dask.is_dask_collection(lazy) and lazy.dtype == np.float64
    assert np.array_equal(lazy.compute(scheduler="synchronous"), at_once, equal_nan=True)


@given(st.integers(1, 13), st.integers(1, 9), st.sampled_from(["float64", "float32"]), st.booleans())
@settings(max_examples=12, deadline=None)
def test_a_summary_is_each_statistic(along, rows, dtype, ranked):
    values = xr.DataArray(fields_of(), dims=("realization", "y", "x"), coords={"y": np.arange(9.0), "x": np.arange(7.0)})
    e, at = ks.ensemble, {"place": (4, 4), "limit": -0.1, "connectivity": 8}
    expected = {"mean": e.mean(values), "variance": e.variance(values), "probability_above": e.probability_above(values, [0.0, 0.3]),
                "probability_connected": e.probability_connected(values, **at)}
    options = {"above": [0.0, 0.3], "connected": at, "dtype": dtype}
    if ranked:
        expected["quantiles"], options["quantiles"] = e.quantile(values, 0.8), 0.8
    for given_values in (values, values.chunk(realization=along, y=rows)):
        found = e.summary(given_values, **options)
        xr.testing.assert_identical(found.compute(), xr.Dataset(expected).astype(dtype))
        assert (found.chunks != {}) == (given_values is not values)


def test_coordinates_stay():
    grid = ks.Grid(8, 6, dx=10.0, dy=5.0)
    fields = ks.simulate(ks.Points([[25.0, 12.5]], [1.5]), ks.Spherical(range=30.0), grid, n=5, mean=0.0)
    at = {"x": 25.0, "y": 12.5}
    assert ks.ensemble.mean(fields).sel(at).item() == 1.5 and ks.ensemble.variance(fields).sel(at).item() == 0.0
    above = ks.ensemble.probability_above(fields.transpose("y", "x", "realization").chunk(realization=2), [1.0, 2.0]).compute()
    assert above.dims == ("limit", "y", "x") and above.sel(limit=1.0, **at).item() == 1.0 and above.sel(limit=2.0, **at).item() == 0.0
    reached = ks.ensemble.probability_connected(fields, at)
    assert reached.sel(at).item() == 1.0 and np.array_equal(reached, ks.ensemble.probability_connected(fields.values, (2, 2)))
    xr.testing.assert_equal(reached.x, fields.x)
    assert ks.ensemble.quantile(fields, [0.5]).dims == ("quantile", "y", "x")
    # A condition of categories.
    assert np.array_equal(ks.ensemble.probability_connected(fields > 0.0, at), reached)


@pytest.mark.parametrize("statistic", [ks.ensemble.mean, ks.ensemble.variance, lambda v: ks.ensemble.probability_above(v, 0.0),
                                       lambda v: ks.ensemble.probability_connected(v, (0, 0)),
                                       lambda v: da.concatenate([one.ravel() for one in ks.ensemble.summary(v, above=[0.0, 1.0], connected={"place": (0, 0)}).values()])])
def test_realizations_are_let_go(statistic):
    alive, most = weakref.WeakSet(), []

    class Held(np.ndarray):
        pass

    def make(block_id):
        block = np.random.default_rng(block_id[0]).normal(size=(1, 20, 20)).view(Held)
        alive.add(Key(block))
        most.append(len(alive))
        return block

    class Key:
        """Lives as long as a block."""

        def __init__(self, block):
            block.key = self

    values = da.map_blocks(make, chunks=((1,) * 40, (20,), (20,)), dtype=float, meta=np.empty((0, 0, 0)))
    statistic(values).compute(scheduler="synchronous", optimize_graph=False)
    assert len(most) == 40 and max(most) <= 3


def test_masked_chunks():
    values = np.ma.array(fields_of(), mask=np.random.default_rng(1).uniform(size=fields_of().shape) < 0.05)
    for statistic in (ks.ensemble.mean, ks.ensemble.variance, lambda given: ks.ensemble.quantile(given, 0.3), lambda given: ks.ensemble.probability_above(given, 0.1)):
        np.testing.assert_array_equal(statistic(da.from_array(values, 2)), statistic(values))


def test_refusals():
    values = fields_of()
    array = xr.DataArray(values, dims=("k", "y", "x"))
    for call, text in ((lambda: ks.ensemble.mean(array), "no dimension 'realization'"), (lambda: ks.ensemble.mean(3.0), "no realizations"),
                       (lambda: ks.ensemble.mean(["a"]), "numbers"), (lambda: ks.ensemble.variance(values[:1]), "one realization"),
                       (lambda: ks.ensemble.quantile(values, 1.5), "0 to 1"), (lambda: ks.ensemble.quantile(values, []), "list of numbers"),
                       (lambda: ks.ensemble.probability_above(values, np.nan), "finite"), (lambda: ks.ensemble.summary(values[:1]), "one realization"),
                       (lambda: ks.ensemble.summary(values, connected=(4, 4)), "a mapping with a place"),
                       (lambda: ks.ensemble.probability_connected(values[..., 0], (0,)), "1 axes"),
                       (lambda: ks.ensemble.probability_connected(values, (0, 7)), "at most 6"),
                       (lambda: ks.ensemble.probability_connected(values, (0, 0, 0)), "3 indices"),
                       (lambda: ks.ensemble.probability_connected(values, {"x": 1.0}), "no.*|none"),
                       (lambda: ks.ensemble.probability_connected(array.rename(k="realization"), {"x": 1.0}), "needs y, x"),
                       (lambda: ks.ensemble.probability_connected(values, (0, 0), connectivity=6), "one of 4, 8"),
                       (lambda: ks.ensemble.mean(da.from_array(values, 1)[da.arange(len(values), chunks=1) > 0]), "compute_chunk_sizes")):
        with pytest.raises(ks.KestrumError, match=text):
            call()
    with pytest.raises(MemoryError, match="zarr with smaller chunks"):
        ks.ensemble.quantile(da.zeros((1000, 10**5, 10**5), chunks=(1, 10**5, 10**5)), 0.5)
