"""Lazy results: the same bytes as one call, for any tiles, schedulers and processes."""

import os
import re
import signal
import time
import warnings
from contextlib import contextmanager
from pathlib import Path

import dask
import dask.array as da
import numpy as np
import pytest
import xarray as xr
from hypothesis import given, settings
from hypothesis import strategies as st

import kestrum as ks

RANDOM = np.random.default_rng(21)
PLANE = ks.Grid(23, 17, dx=11.0, dy=9.0, x0=-20.0, y0=5.0)
SOLID = ks.Grid(9, 8, 5, dx=20.0, dy=25.0, dz=30.0)
MODEL = ks.Nugget(0.3) + ks.Exponential(2.0, range=(80.0, 40.0), azimuth=30.0)
MODEL3 = ks.Nugget(0.3) + ks.Exponential(2.0, range=(80.0, 40.0, 60.0), azimuth=30.0)


def scattered(dimension, n=60, **options):
    return ks.Points(RANDOM.uniform(0.0, 180.0, (n, dimension)), RANDOM.normal(20.0, 4.0, n), "zinc", **options)


POINTS, POINTS3 = scattered(2), scattered(3)
HOLES = RANDOM.uniform(size=PLANE.shape) > 0.3
HOLES[:6, :9] = False
FIELD = np.where(HOLES, RANDOM.normal(20.0, 3.0, PLANE.shape), np.nan)
DOWN = PLANE.to_xarray(FIELD).isel(y=slice(None, None, -1))
LOCAL = ks.Nugget(0.3) + ks.Spherical(RANDOM.uniform(1.0, 3.0, PLANE.shape), range=70.0, azimuth=RANDOM.uniform(0.0, 90.0, PLANE.shape))
AT = RANDOM.normal(20.0, 3.0, 60)
KINDS = {
    "near": {"neighbors": 8}, "all": {}, "radius": {"radius": 35.0}, "quadratic": {"drift": "quadratic", "neighbors": 14},
    "block": {"block": 3, "neighbors": 9}, "simple": {"mean": 20.0, "radius": 30.0, "mask": HOLES}, "snap": {"snap": True, "neighbors": 10},
    "means": {"mean": np.nan_to_num(FIELD, nan=20.0), "neighbors": 7}, "local": {"model": LOCAL, "neighbors": 9, "mask": HOLES},
    "external": {"drift": {"height": (AT, FIELD)}, "mask": HOLES, "neighbors": 12},
    "template": {"where": DOWN, "drift": {"height": (AT, DOWN)}, "mask": DOWN.notnull(), "neighbors": 12},
    "solid": {"points": POINTS3, "model": MODEL3, "where": SOLID, "neighbors": 10, "drift": "linear"},
    "places": {"where": RANDOM.uniform(0.0, 180.0, (150, 2)), "neighbors": 9},
}


@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
@given(st.integers(1, 30), st.integers(1, 30), st.integers(1, 6), st.sampled_from(["synchronous", "threads"]))
@settings(max_examples=8, deadline=None)
def test_tiles_are_the_bits_of_the_whole(kind, along_x, along_y, along_z, scheduler):
    options = {"points": POINTS, "model": MODEL, "where": PLANE, **KINDS[kind]}
    whole = ks.krige(**options)
    sizes = {"x": along_x, "y": along_y, "z": along_z} if kind == "solid" else {"point": along_x} if kind == "places" else {"x": along_x, "y": along_y}
    lazy = ks.krige(chunks=sizes, **options)
    assert all(max(size) <= sizes[dim] for dim, size in lazy.chunks.items())
    xr.testing.assert_identical(lazy.compute(scheduler=scheduler), whole)


def test_ways_to_give_chunks():
    grid = ks.Grid(3000, 1700, dx=0.05, dy=0.08)
    for chunks, sizes in ((500, ((500,) * 3 + (200,), (500,) * 6)), ({"y": -1, "x": 2500}, ((1700,), (2500, 500))), ({}, ((1700,), (3000,))),
                          ({"y": np.int64(1000)}, ((1000, 700), (3000,))), ({"x": 3000, "y": "auto"}, ((349,) * 4 + (304,), (3000,)))):
        assert ks.krige(POINTS, MODEL, grid, neighbors=3, chunks=chunks).estimate.chunks == sizes
    sizes = ks.krige(POINTS, MODEL, grid, neighbors=3, chunks="auto").estimate.chunks
    assert 0.5e6 < max(sizes[0]) * max(sizes[1]) <= 2**20


@pytest.mark.parametrize("kind", [*KINDS, "gmres"])
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_windows_and_float32(kind, monkeypatch):
    options = {"points": POINTS, "model": MODEL, "where": PLANE, **KINDS.get(kind, {"solver": "gmres", "snap": True, "radius": 40.0})}
    whole = ks.krige(**options)
    monkeypatch.setattr("kestrum._krige._WINDOW", 50)
    xr.testing.assert_identical(ks.krige(**options), whole)
    single = whole.astype(np.float32)
    xr.testing.assert_identical(ks.krige(dtype="float32", **options), single)
    if kind != "gmres":
        lazy = ks.krige(dtype="float32", chunks=dict.fromkeys(whole.sizes, 4), **options)
        assert lazy.estimate.dtype == np.float32
        xr.testing.assert_identical(lazy.compute(), single)


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_lazy_arrays_on_the_grid_stay_lazy():
    def forbidden(block):
        assert block.size <= 30, "more than a chunk was read at once"
        return block

    def lazily(array, limit=True):
        chunked = da.from_array(np.asarray(array), (5, 6))
        return chunked.map_blocks(forbidden, dtype=chunked.dtype, meta=np.empty((0, 0), chunked.dtype)) if limit else chunked

    cases = [{"mask": HOLES}, {"drift": {"height": (AT, FIELD)}, "mask": HOLES}, {"mean": np.nan_to_num(FIELD, nan=20.0)}]
    for case in cases:
        whole = ks.krige(POINTS, MODEL, PLANE, neighbors=9, **case)
        given = {name: {"height": (AT, lazily(FIELD))} if name == "drift" else lazily(value) for name, value in case.items()}
        xr.testing.assert_identical(ks.krige(POINTS, MODEL, PLANE, neighbors=9, chunks={"y": 5, "x": 6}, **given).compute(), whole)
    down = xr.DataArray(lazily(DOWN.values), DOWN.coords, DOWN.dims)
    lazy = ks.krige(POINTS, MODEL, DOWN, neighbors=9, mask=down.notnull(), drift={"height": (AT, down.transpose("x", "y"))}, chunks={"x": 6, "y": 5})
    xr.testing.assert_identical(lazy.compute(), ks.krige(POINTS, MODEL, DOWN, neighbors=9, mask=DOWN.notnull(), drift={"height": (AT, DOWN)}))
    # What is masked is missing.
    some = np.ma.array(np.full(PLANE.shape, 20.0), mask=np.asarray(HOLES) == 0)
    heights = np.ma.array(np.nan_to_num(FIELD), mask=some.mask)
    lazy = ks.krige(POINTS, MODEL, PLANE, neighbors=9, mask=da.from_array(some > 0, (5, 6)), drift={"height": (AT, da.from_array(heights, (5, 6)))}, chunks={"y": 5, "x": 6})
    xr.testing.assert_identical(lazy.compute(), ks.krige(POINTS, MODEL, PLANE, neighbors=9, mask=some > 0, drift={"height": (AT, heights)}))
    holes = np.argwhere(~np.isfinite(FIELD))
    for options, error, text in (({"drift": {"height": (AT, lazily(FIELD))}}, ks.GridError, r"drift 'height' is not finite at .*index \("),
                                 ({"mask": da.from_array(np.full(PLANE.shape, "a"), (5, 6))}, ks.ArgumentTypeError, "mask must be numbers")):
        with pytest.raises(error, match=text) as said:
            ks.krige(POINTS, MODEL, PLANE, neighbors=9, chunks={"y": 5, "x": 6}, **options).compute()
        if "index" in text:
            assert any(str(tuple(hole)) in str(said.value) for hole in holes.tolist())


def test_maps_larger_than_memory():
    grid = ks.Grid(200_000, 100_000, dx=0.001, dy=0.0018)
    lazy = ks.krige(POINTS, MODEL, grid, neighbors=10, chunks={"x": 2000, "y": 1000})
    assert lazy.estimate.shape == (100_000, 200_000) and len(lazy.__dask_graph__()) < 4 * 10_000
    part = lazy.isel(x=slice(119_990, 120_010), y=slice(70_995, 71_005))
    places = np.column_stack([axis.ravel() for axis in np.meshgrid(part.x, part.y)])
    at = ks.krige(POINTS, MODEL, places, neighbors=10)
    for name in ("estimate", "variance"):
        np.testing.assert_allclose(part[name].values.ravel(), at[name], rtol=1e-12)


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
@given(st.integers(1, 8), st.sampled_from(["synchronous", "threads"]))
@settings(max_examples=10, deadline=None)
def test_realizations_in_chunks(size, scheduler):
    skewed = POINTS.with_values(np.exp(0.1 * POINTS.values))
    bounds = ([[50.0, 50.0], [90.0, 60.0]], [5.0, np.nan], [np.nan, 6.0])
    for options in ({"mask": HOLES, "dtype": "float32"}, {"transform": "normal-score", "mean": 0.0, "bounds": bounds, "grid": DOWN}):
        given = {"points": skewed, "model": MODEL * 0.5, "grid": PLANE, "n": 7, "first": 3, "neighbors": 8, **options}
        whole, lazy = ks.simulate(**given), ks.simulate(chunks=size, **given)
        assert lazy.chunks[0][0] == min(size, 7) and lazy.dtype == whole.dtype
        xr.testing.assert_identical(lazy.compute(scheduler=scheduler), whole)
    soil = ks.Points(POINTS.coordinates, np.array(["clay", "peat", "sand"])[RANDOM.integers(0, 3, 60)])
    given = {"points": soil, "model": ks.Exponential(0.2, range=50.0), "grid": PLANE, "n": 5, "mask": HOLES}
    xr.testing.assert_identical(ks.simulate_categories(chunks=size, **given).compute(scheduler=scheduler), ks.simulate_categories(**given))


def test_what_realizations_share_is_made_once(monkeypatch):
    from kestrum import _core

    made = []
    native = _core.GridRun
    monkeypatch.setattr(_core, "GridRun", lambda *arguments: made.append(1) or native(*arguments))
    soil = ks.Points(POINTS.coordinates, RANDOM.integers(0, 3, 60).astype(str))
    for lazy in (ks.simulate(POINTS, MODEL, PLANE, n=12, chunks=1), ks.simulate_categories(soil, MODEL, PLANE, n=12, chunks=1)):
        made.clear()
        lazy.compute(scheduler="threads", num_workers=4)
        assert len(made) == 1


@contextmanager
def cluster(workers, **options):
    distributed = pytest.importorskip("distributed")
    with (dask.config.set({"distributed.worker.daemon": False}),
          distributed.LocalCluster(n_workers=workers, threads_per_worker=1, host="127.0.0.1", dashboard_address=None, **options) as made, distributed.Client(made) as client):
        yield client


def counted(block, file, most):
    """A block, with a line in a file for each time that it is asked for; some time nothing goes on."""
    with open(file, "a") as stream:
        stream.write("block\n")
    if lines(file) > most:
        raise OSError("interrupted")
    time.sleep(0.05)
    return block


def lines(file):
    return len(file.read_text().splitlines()) if file.exists() else 0


def counting_mask(file, most=1000):
    return da.ones((120, 100), bool, chunks=(10, 20)).map_blocks(counted, file, most, dtype=bool, meta=np.empty((0, 0), bool))


TILED = {"points": POINTS, "model": MODEL, "where": ks.Grid(100, 120, dx=2.0, dy=1.5), "neighbors": 8}


def wait_for(happened, seconds=60.0):
    end = time.monotonic() + seconds
    while not happened():
        assert time.monotonic() < end
        time.sleep(0.02)


def test_other_processes_of_a_killed_worker(tmp_path):
    pytest.importorskip("zarr")
    asked = tmp_path / "asked"
    with cluster(2) as client:
        written = ks.krige(mask=counting_mask(asked), chunks={"y": 10, "x": 20}, **TILED).to_zarr(tmp_path / "map.zarr", compute=False)
        future = client.compute(written)
        wait_for(lambda: lines(asked) > 10)
        os.kill(next(iter(client.run(os.getpid).values())), signal.SIGKILL)
        begun = lines(asked)
        future.result()
    xr.testing.assert_identical(xr.open_zarr(tmp_path / "map.zarr").load(), ks.krige(**TILED))
    # What the killed one made is made again, written or not: Dask remembers by its workers which tiles are.
    assert 60 <= lines(asked) <= 60 + begun


def test_an_interrupted_write_is_resumed(tmp_path):
    pytest.importorskip("zarr")
    guide = (Path(__file__).parents[2] / "docs/guide/large.md").read_text()
    recipe = {}
    exec("import numpy as np\n" + re.search(r"```python\n(import os.*?def write.*?)\n\n\n", guide, re.DOTALL)[1], recipe)
    path, asked = str(tmp_path / "map.zarr"), tmp_path / "asked"
    with pytest.raises(OSError, match="interrupted"), dask.config.set(scheduler="threads", num_workers=2):
        recipe["write"](ks.krige(mask=counting_mask(asked, 25), chunks={"y": 10, "x": 20}, **TILED), path)
    first = lines(asked)
    assert 25 < first < 30
    recipe["write"](ks.krige(mask=counting_mask(asked), chunks={"y": 10, "x": 20}, **TILED), path)
    # Some tiles were at hand when the first write was interrupted.
    assert 60 <= lines(asked) <= 60 + 6
    xr.testing.assert_identical(xr.open_zarr(path).load(), ks.krige(**TILED))
    recipe["write"](ks.krige(mask=counting_mask(asked, 0), chunks={"y": 10, "x": 20}, **TILED), path)  # nothing is left


def test_other_processes_that_are_cancelled():
    grid = ks.Grid(20_000, 20_000, dx=0.01, dy=0.009)
    calls = (ks.krige(POINTS, MODEL, grid, neighbors=50, chunks={"y": 10_000}).estimate,
             ks.simulate(POINTS, MODEL, ks.Grid(4000, 4000, dx=0.05, dy=0.04), neighbors=60, chunks=1))
    with cluster(1) as client:
        def busy():
            return sum(client.run(lambda dask_worker: len(dask_worker.active_threads)).values())

        for lazy in calls:
            future = client.compute(lazy)
            wait_for(lambda: busy() == 1)
            time.sleep(0.5)
            future.cancel()
            wait_for(lambda: busy() == 0, 20.0)  # the call would take minutes


def test_other_processes_give_the_same_bytes():
    with cluster(2):
        for options in (KINDS["template"], KINDS["local"]):
            options = {"points": POINTS, "model": MODEL, "where": PLANE, **options}
            xr.testing.assert_identical(ks.krige(chunks={"y": 5, "x": 9}, **options).compute(), ks.krige(**options))
        fields = ks.simulate(POINTS, MODEL, PLANE, n=6, chunks=2, transform=ks.NormalScore(POINTS.values), neighbors=8)
        whole = ks.simulate(POINTS, MODEL, PLANE, n=6, transform=ks.NormalScore(POINTS.values), neighbors=8)
        xr.testing.assert_identical(fields.compute(), whole)
        assert np.array_equal(ks.ensemble.probability_above(fields, 21.0).compute(), ks.ensemble.probability_above(whole, 21.0))


def test_refusals():
    same = ks.Points([[1.0, 1.0], [1.0, 1.0]], [1.0, 2.0])
    for call, text in ((lambda: ks.krige(POINTS, MODEL, PLANE, chunks=[100]), "a mapping"), (lambda: ks.krige(POINTS, MODEL, PLANE, chunks="all"), "'auto'"), (lambda: ks.krige(POINTS, MODEL, PLANE, chunks={"z": 2}), "'z'.*y, x"),
                       (lambda: ks.krige(POINTS, MODEL, PLANE, chunks={"x": 0}), "at least 1"),
                       (lambda: ks.krige(POINTS, MODEL, ks.Grid(10**6, 10**6), chunks={"x": 10**5}), "smaller"),
                       (lambda: ks.krige(POINTS, MODEL, ks.Grid(10**6, 10**6), chunks={"x": 10**3, "y": 10**3}, snap=True), "2,147,483,647"),
                       (lambda: ks.krige(POINTS, MODEL, PLANE, chunks={"x": 5}, solver="gmres", snap=True), "gmres"),
                       (lambda: ks.krige(same, MODEL, PLANE, chunks={"x": 5}), "rows 0, 1"), (lambda: ks.simulate(None, MODEL, PLANE, chunks=0), "at least 1"),
                       (lambda: ks.simulate(None, MODEL, PLANE, chunks=1, transform=Unpicklable()), "another process")):
        with pytest.raises(ks.KestrumError, match=text), warnings.catch_warnings():
            warnings.simplefilter("ignore", ks.KestrumWarning)
            call()


def test_chunks_that_memory_does_not_hold_together(monkeypatch):
    monkeypatch.setattr("kestrum._memory.available", lambda: 3_000_000)
    grid = ks.Grid(200, 200)
    calls = (lambda: ks.krige(POINTS, MODEL, grid, neighbors=8, chunks={"y": 100, "x": 200}), lambda: ks.krige(POINTS, MODEL, ks.Grid(1000, 1000), neighbors=8, chunks={"y": 100}),
             lambda: ks.simulate(None, MODEL, grid, n=9, chunks=3),
             lambda: ks.simulate_categories(None, MODEL, grid, n=30, chunks=10, proportions={"a": 0.5, "b": 0.5}))
    for number, call in enumerate(calls):
        # Of the first there are two chunks, which fit.
        for settings, fits in (({"num_workers": 16}, number == 0), ({"num_workers": 1}, True), ({"scheduler": "synchronous"}, True)):
            with dask.config.set(**settings), warnings.catch_warnings(record=True) as caught:
                warnings.simplefilter("always")
                call()
            said = " ".join(str(one.message) for one in caught)
            assert ("chunks at a time" in said) != fits and (fits or re.search(r"\b\d+ chunks .* dask.config.set\(num_workers=[12]\)", said)), (number, settings, said)


def large_chunks(side):
    grid = ks.Grid(side, side)
    return ((lambda: ks.krige(POINTS, MODEL, grid, chunks={"y": side}, neighbors=8), "smaller chunks"),
            (lambda: ks.simulate(None, MODEL, grid, n=2, chunks=2), "at a time"),
            (lambda: ks.ensemble.quantile(da.zeros((9, side, side), chunks=(3, side, side)), 0.5), "smaller chunks"))


def test_chunks_that_memory_does_not_hold(monkeypatch):
    monkeypatch.setattr("kestrum._memory.available", lambda: 3_000_000)
    for call, remedy in large_chunks(500):
        with pytest.raises(MemoryError, match=remedy):
            call()


def test_other_processes_have_memory_of_their_own(monkeypatch):
    monkeypatch.setattr("kestrum._memory.available", lambda: 3_000_000)
    with cluster(1, memory_limit="1GB"):
        for call, _ in large_chunks(500):
            call()
        for call, remedy in large_chunks(10_000):
            with pytest.raises(MemoryError, match=remedy):
                call()


class Unpicklable:
    forward = inverse = staticmethod(np.exp)

    def __init__(self):
        self.function = lambda: None
