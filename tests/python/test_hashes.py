"""Results have the same bytes on every machine: hashes of some runs, for any instructions, threads, chunks and scheduler.

They are in hashes.txt. Where results change on purpose, `python test_hashes.py` prints the new ones."""

import hashlib
import inspect
import warnings
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import dask
import dask.array
import numpy as np
import pytest

import kestrum as ks
from kestrum import _core

TABLE = Path(__file__).parent / "hashes.txt"


def spread(n, step, low, high):
    """Numbers between two others, by whole numbers alone: the same everywhere."""
    return low + (high - low) * ((np.arange(1, n + 1) * step) % 1009) / 1009.0


def field(grid, step, low, high):
    return spread(int(np.prod(grid.shape)), step, low, high).reshape(grid.shape)


PLANE = ks.Grid(31, 23, dx=8.0, dy=7.0, x0=-20.0, y0=5.0)
BLOCK = ks.Grid(66, 13, 12)
SOLID = ks.Grid(13, 11, 5, dx=20.0, dy=16.0, dz=30.0)
AT = np.column_stack([spread(70, 389, 0.0, 210.0), spread(70, 617, 0.0, 160.0), spread(70, 211, 0.0, 140.0)])
POINTS = ks.Points(AT[:, :2], spread(70, 733, 1.0, 30.0), "zinc")
NOISY = ks.Points(AT[:, :2], POINTS.values, "zinc", error_variance=spread(70, 97, 0.0, 3.0))
DEEP = ks.Points(AT, POINTS.values, "zinc")
SOIL = ks.Points(AT[:, :2], np.array(["clay", "peat", "sand"])[np.arange(70) * 389 % 1009 % 3])
MANY = ks.Points(np.column_stack([spread(1000, 389, 0.0, 210.0), spread(1000, 617, 0.0, 160.0)]), spread(1000, 733, 1.0, 30.0))
MODEL = ks.Nugget(0.2) + ks.Exponential(1.0, range=(90.0, 50.0), azimuth=33.0)
LOCAL = ks.Nugget(0.1) + ks.Matern(field(PLANE, 53, 0.5, 2.0), range=70.0, smoothness=field(PLANE, 31, 0.4, 1.6), azimuth=field(PLANE, 17, 0.0, 80.0))
MASK = field(PLANE, 271, 0.0, 1.0) > 0.2
HEIGHT = {"height": (spread(70, 41, 0.0, 9.0), field(PLANE, 59, 0.0, 9.0))}
TYPES = {
    "nugget": ks.Nugget(0.9), "spherical": ks.Spherical(1.0, range=60.0), "exponential": MODEL, "gaussian": ks.Gaussian(1.0, range=50.0),
    "cubic": ks.Cubic(1.0, range=60.0), "linear": ks.Linear(1.0, range=900.0), "sine": ks.CardinalSine(1.0, range=40.0),
    "gamma": ks.Gamma(1.0, range=60.0, power=1.7), "stable": ks.Stable(1.0, range=(80.0, 50.0), power=1.3, azimuth=12.0),
    "matern": ks.Matern(1.0, range=60.0, smoothness=1.3), "power": ks.Power(0.01, range=10.0, power=1.4), "local": LOCAL,
}


def runs():
    """Name, call and chunks."""
    tiles = [{"x": 7, "y": 9}, {"x": 40, "y": 5}]
    for name, model in TYPES.items():
        noisy = model + ks.Nugget(0.2) if name in ("gaussian", "sine") else model
        yield f"krige {name}", ks.krige, {"points": POINTS, "model": noisy, "where": PLANE, "neighbors": 12}, tiles
        if name != "power":
            yield f"simulate {name}", ks.simulate, {"points": POINTS, "model": noisy, "grid": PLANE, "n": 3, "neighbors": 10}, [1, 2]
    for name, options in {"all": {}, "drift": {"drift": "quadratic", "neighbors": 20}, "external": {"drift": HEIGHT, "mask": MASK}, "block": {"block": 3, "neighbors": 9},
                          "simple": {"mean": 12.0, "radius": 40.0}, "snap": {"snap": True, "neighbors": 9}, "errors": {"points": NOISY, "neighbors": 15},
                          "solid": {"points": DEEP, "where": SOLID, "neighbors": 12, "model": ks.Exponential(1.0, range=(90.0, 50.0, 60.0), azimuth=33.0, dip=20.0)}}.items():
        yield f"krige {name}", ks.krige, {"points": POINTS, "model": MODEL, "where": PLANE, **options}, tiles
    bounds = (AT[:9, :2] + 3.0, spread(9, 71, 1.0, 9.0), spread(9, 301, 12.0, 40.0))
    for name, options in {"scores": {"transform": "normal-score", "bounds": bounds, "mask": MASK}, "ordinary": {"ordinary": True, "dtype": "float32", "seed": 2**63},
                          "deep": {"points": DEEP, "grid": SOLID, "model": ks.Spherical(1.0, range=90.0)}}.items():
        yield f"simulate {name}", ks.simulate, {"points": POINTS, "model": MODEL, "grid": PLANE, "n": 3, **options}, [1, 2]
    for model in (MODEL, {"clay": MODEL, "peat": ks.Gaussian(1.0, range=60.0) + ks.Nugget(0.2), "sand": LOCAL}):
        name = "one model" if model is MODEL else "three models"
        yield f"categories {name}", ks.simulate_categories, {"points": SOIL, "model": model, "grid": PLANE, "n": 3}, [1, 2]
        yield f"probabilities {name}", ks.krige_categories, {"points": SOIL, "model": model, "grid": PLANE}, []
    image, gaps = field(BLOCK, 733, 1.0, 30.0), np.where(field(BLOCK, 59, 0.0, 1.0) < 0.9, field(BLOCK, 733, 1.0, 30.0), np.nan)
    mask, classes = ks.box_mean(np.pad(image, 1), 3)[1:-1, 1:-1, 1:-1] > 15.5, field(BLOCK, 211, 0.0, 3.99).astype(np.uint8)
    labels, inside = ks.label(mask)[0], np.argwhere(mask)
    blocks = {ks.label, ks.distance, ks.erode, ks.box_mean, ks.transiogram, ks.connectivity_function}  # give the same to the bit
    for call, *options in (
            (ks.label, {"mask": mask, "connectivity": 18}), (ks.distance, {"mask": mask, "spacing": (3.0, 2.0, 1.1), "signed": True}), (ks.erode, {"mask": mask, "element": 5}),
            (ks.box_mean, {"image": gaps, "size": (3, 5, 7)}), (ks.variogram_map, {"image": gaps, "max_lag": (3, 5, 20)}), (ks.covariance_map, {"image": gaps, "max_lag": 3}),
            (ks.transiogram, {"image": classes, "max_lag": 4}), (ks.connectivity_function, {"mask": mask, "max_lag": 4}), (ks.proportion_map, {"image": classes, "size": 5}),
            (ks.shortest_path, {"mask": mask, "start": tuple(inside[0]), "end": tuple(np.argwhere(labels == labels[tuple(inside[0])])[-1])}), (ks.nearest_label, {"labels": labels, "spacing": (3.0, 2.0, 1.1)}),
            (ks.label_depth, {"labels": classes}), (ks.body_curves, {"image": gaps}), (ks.connectivity_curve, {"image": gaps}, {"image": gaps, "thresholds": 99}),
            (ks.pyramid, {"image": gaps, "levels": 2}), (ks.expand, {"image": ks.pyramid(gaps)[0], "shape": gaps.shape}), (ks.otsu, {"values": gaps, "classes": 5}), (ks.kmeans, {"samples": image.reshape(-1, 3), "clusters": 7}),
            (ks.resample, {"image": gaps, "shape": (9, 4, 100)}), (ks.body_sizes, {"labels": labels}), (ks.categorize, {"image": gaps, "cuts": [9.0, 20.0]}),
            (ks.category_order, {"image": classes}), (ks.category_proportions, {"image": classes}), (ks.dilate, {"mask": gaps > 29.0, "element": 5}), (ks.euler_number, {"mask": mask}),
            (ks.geodesic_steps, {"mask": mask, "start": tuple(inside[0])}), (ks.indicator_variogram_map, {"image": gaps, "max_lag": 4, "thresholds": [9.0, 20.0]}),
            (ks.proportion_cuts, {"values": image, "proportions": [0.2, 0.5, 0.3]}), (ks.variogram, {"points": MANY}, {"points": MANY, "azimuth": [0.0, 60.0], "estimator": "cressie"}),
            (ks.cross_validate, {"points": POINTS, "model": MODEL}, {"points": MANY, "model": MODEL, "neighbors": 9}, {"points": POINTS, "model": MODEL, "folds": 4})):
        for number, arguments in enumerate(options):
            yield f"{call.__name__} {number}", call, arguments, [(2, 5, 40), (99, 3, 7)] if call in blocks else []


def in_chunks(call, options, chunks):
    """Lazy by chunks=, or of an image in blocks."""
    if not isinstance(chunks, tuple):
        return call(chunks=chunks, **options)
    name, image = next(iter(options.items()))
    return call(**{**options, name: dask.array.from_array(image, chunks)})


def hashed(result):
    if isinstance(result, ks.Variogram):
        result = result.lag, result.gamma, result.pairs
    parts = (result[name] for name in sorted(result)) if hasattr(result, "data_vars") else result if isinstance(result, (tuple, list)) else (result,)
    digest = hashlib.sha256()
    for part in parts:
        values = np.array(part)
        # A NaN is a NaN, whatever its bits.
        if values.dtype.kind == "f":
            values[np.isnan(values)] = np.nan
        digest.update(values.tobytes())
    return digest.hexdigest()[:24]


RUNS = {name: rest for name, *rest in runs()}


@pytest.fixture(scope="module")
def expected():
    return dict(line.rsplit(maxsplit=1) for line in TABLE.read_text().splitlines())


@pytest.fixture(params=["baseline", "avx2", "avx512"])
def instructions(request):
    if not _core.limit_instructions(["baseline", "avx2", "avx512"].index(request.param)):
        pytest.skip("not on this machine")
    yield
    _core.limit_instructions(2)


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
@pytest.mark.parametrize("name", RUNS)
def test_threads_and_instructions(name, instructions, expected):
    call, options, _ = RUNS[name]
    assert {threads: hashed(call(threads=threads, **options)) for threads in range(1, 9)} == dict.fromkeys(range(1, 9), expected[name])


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
@pytest.mark.parametrize("name", [name for name, (_, _, sizes) in RUNS.items() if sizes])
def test_chunks_and_schedulers(name, expected):
    call, options, sizes = RUNS[name]
    for chunks in sizes:
        for scheduler in ("synchronous", "threads"):
            with dask.config.set(scheduler=scheduler):
                assert hashed(in_chunks(call, options, chunks)) == expected[name], (chunks, scheduler)


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_other_processes(expected):
    lazy = {name: in_chunks(call, options, sizes[0]) for name, (call, options, sizes) in RUNS.items() if sizes}
    made = dask.compute(lazy, scheduler="processes", num_workers=2)[0]
    assert {name: hashed(result) for name, result in made.items()} == {name: expected[name] for name in lazy}


@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_callers_at_once(expected):
    with ThreadPoolExecutor(6) as pool:
        made = dict(zip(RUNS, pool.map(lambda run: hashed(run[0](threads=2, **run[1])), RUNS.values())))
    assert made == expected


def test_the_table_has_all_that_takes_threads_and_no_other_rows(expected):
    assert list(expected) == list(RUNS)
    functions = [value for module in (ks, ks.ensemble) for value in vars(module).values() if inspect.isfunction(value) and value.__module__.startswith("kestrum")]
    assert {value for value in functions if "threads" in inspect.signature(value).parameters} == {call for call, _, _ in RUNS.values()}


if __name__ == "__main__":
    warnings.simplefilter("ignore", ks.KestrumWarning)
    for name, (call, options, _) in RUNS.items():
        print(f"{name:30} {hashed(call(**options))}")
