"""Cross-validation: against kriging from what is left, one by one, and against gstat."""

import itertools
from pathlib import Path

import numpy as np
import pandas as pd
import pytest
from test_krige import model_of, scattered

import kestrum as ks
from kestrum import _validate

ROOT = Path(__file__).resolve().parents[2]
RANDOM = np.random.default_rng(12)
N = 40


def one_by_one(points, model, labels, drift=None, **options):
    """Kriges the data of each label, but the first dozen alone, from all others."""
    estimate, variance = np.full((2, len(points)), np.nan)
    errors = points.error_variance
    for label in np.unique(labels)[:12]:
        own = labels == label
        rest = ks.Points(points.coordinates[~own], points.values[~own], error_variance=None if errors is None else errors[~own])
        given = drift if not isinstance(drift, dict) else {name: (field[~own], field[own]) for name, field in drift.items()}
        result = ks.krige(rest, model, points.coordinates[own], drift=given, threads=1, **options)
        estimate[own], variance[own] = result.estimate, result.variance
    done = np.isin(labels, np.unique(labels)[:12])
    return done, estimate, variance + (0.0 if errors is None else errors)


DRIFTS = {"ordinary": {}, "simple": {"mean": 20.0}, "linear": {"drift": "linear"}, "quadratic": {"drift": "quadratic"},
          "external": {"drift": {"height": RANDOM.normal(5e3, 1.0, N), "slope": RANDOM.uniform(0.0, 1e-3, N)}}}
NEAR = {"all": {}, "near": {"neighbors": 14}, "far": {"neighbors": N - 2}, "radius": {"radius": 70.0},
        "ellipsoid": {"neighbors": 12, "radius": (90.0, 75.0, 80.0)}, "many": {"neighbors": 150}}


@pytest.mark.parametrize("drift, near", itertools.product(DRIFTS, NEAR))
@pytest.mark.filterwarnings("ignore::kestrum.KestrumWarning")
def test_every_kind_against_kriging_from_the_rest(drift, near):
    for dimension, noisy, folds in ((2, False, None), (2, True, None), (2, True, 7), (2, False, "blocks"), (3, False, None), (3, False, 7)):
        n = 5 * N if near == "many" else N
        points = scattered(n, dimension)
        options = dict(DRIFTS[drift])
        if isinstance(options.get("drift"), dict):
            options["drift"] = {name: np.resize(field, n) + np.arange(n) // N for name, field in options["drift"].items()}
        if noisy:
            # Some data share a place.
            places = points.coordinates[np.arange(n) // 2 * 2] if drift == "ordinary" else points.coordinates
            points = ks.Points(places, points.values, error_variance=RANDOM.uniform(0.1, 2.0, n))
        given = np.array([f"block {int(x > 50.0)}{int(y > 50.0)}" for x, y, *_ in points.coordinates], object) if folds == "blocks" else folds
        table = ks.cross_validate(points, model_of(dimension), folds=given, threads=1, **options, **NEAR[near])
        assert np.array_equal(table["fold"], given) if folds == "blocks" else table["fold"].nunique() == (folds or n)
        done, estimate, variance = one_by_one(points, model_of(dimension), table["fold"].to_numpy(), **options, **NEAR[near])
        np.testing.assert_allclose(table["estimate"][done], estimate[done], rtol=1e-9, atol=1e-9)
        np.testing.assert_allclose(table["variance"][done], variance[done], rtol=1e-9, atol=1e-11)
        if folds == "blocks":
            with pytest.MonkeyPatch.context() as patch:
                patch.setattr(_validate, "LARGE_FOLD", 0)
                other = ks.cross_validate(points, model_of(dimension), folds=given, threads=1, **options, **NEAR[near])
            pd.testing.assert_frame_equal(table, other, check_exact=False, rtol=1e-9)


def test_meuse_agrees_with_gstat():
    meuse = pd.read_csv(ROOT / "examples/data/meuse/meuse.csv").assign(log=lambda t: np.log(t.zinc))
    expected = np.loadtxt(ROOT / "tests/engine/meuse/gstat_cv.csv", delimiter=",")
    spherical = ks.Nugget(0.05) + ks.Spherical(0.59, range=900.0)
    root, folds = {"root": np.sqrt(meuse.dist)}, expected[:, 0].astype(int)
    kinds = [{}, {"model": ks.Nugget(20000.0) + ks.Spherical(140000.0, range=850.0), "value": "zinc"}, {"mean": 5.9}, {"drift": "linear"},
             {"drift": root}, {"neighbors": 20}, {"drift": root, "neighbors": 40}, {"radius": 800.0, "neighbors": 15},
             {"drift": root, "folds": folds}, {"neighbors": 20, "folds": folds}]
    assert expected.shape == (155, 1 + 2 * len(kinds))
    tied = 0
    for number, kind in enumerate(kinds):
        options = {"model": spherical, **kind}
        points = ks.Points.from_dataframe(meuse, options.pop("value", "log"))
        table = ks.cross_validate(points, **options)
        agree = np.ones(155, bool)
        if "neighbors" in kind:
            # Where two data are at one distance, which of them is among the nearest is up to the program.
            apart = np.hypot(*(points.coordinates[:, None] - points.coordinates).transpose(2, 0, 1))
            left = np.eye(155, dtype=bool) if "folds" not in kind else folds[:, None] == folds
            apart = np.sort(np.where(left, np.inf, apart), axis=1)
            agree = apart[:, kind["neighbors"] - 1] < apart[:, kind["neighbors"]]
        tied += (~agree).sum()
        for column, name in ((1, "estimate"), (2, "variance")):
            np.testing.assert_allclose(table[name][agree], expected[agree, 2 * number + column], rtol=1e-9, atol=0.0)
    assert tied < 20
    table = ks.cross_validate(ks.Points.from_dataframe(meuse, "log"), spherical)
    assert (table["error"] == table["estimate"] - table["value"]).all()
    figures = {"mean_error": table.error.mean(), "rmse": np.sqrt((table.error**2).mean()), "msdr": (table.error**2 / table.variance).mean(),
               "correlation": table[["value", "estimate"]].corr().iloc[0, 1]}
    assert table.attrs == {name: pytest.approx(figure, rel=1e-12) for name, figure in figures.items()}
    assert [axes.get_xlabel() for axes in ks.plot.validation(table).axes[:3]] == ["value", "x", "z-score"]


def test_the_same_bits_for_any_number_of_threads():
    points = scattered(700)
    for options in ({}, {"neighbors": 9}, {"folds": 5}, {"folds": 30, "drift": "linear"}, {"folds": 4, "neighbors": 12}):
        tables = [ks.cross_validate(points, model_of(), threads=threads, **options) for threads in (1, 2, 3)]
        for table in tables[1:]:
            pd.testing.assert_frame_equal(table, tables[0], check_exact=True)
    seen = []
    first = ks.cross_validate(points, model_of(), folds=5, neighbors=8, progress=seen.append)
    assert seen == sorted(seen) and seen[-1] == 1.0
    assert (first["fold"] != ks.cross_validate(points, model_of(), folds=5, neighbors=8, seed=2)["fold"]).any()
    assert np.bincount(first["fold"]).tolist() == [140] * 5


def test_data_that_cannot_be_told():
    places = np.array([[0.0, 0.0], [1.0, 0.0], [0.0, 1.0], [1.0, 1.0], [0.5, 0.4], [50.0, 50.0]])
    points = ks.Points(places, [1.0, 2.0, 3.0, 4.0, 2.0, 9.0])
    # Of a covariate that one datum alone has, and of a line with one datum beside it, the drift is not known without it.
    alone = {"drift": {"mark": np.eye(6)[2]}}
    on_line = ks.Points(places[[0, 1, 5, 2]] * [1.0, 0.0] + np.eye(4)[:, 3:] * [0.0, 1.0], [1.0, 2.0, 3.0, 4.0])
    for data, options, lost in ((points, alone, [2]), (on_line, {"drift": "linear"}, [3]), (points, {"folds": [0, 0, 1, 1, 0, 0], **alone}, [2, 3]),
                                (points, {"radius": 3.0}, [5]), (points, {"radius": 3.0, "folds": [0, 1, 2, 0, 1, 2]}, [5])):
        with pytest.warns(ks.KestrumWarning, match=f"{len(lost)} of {len(data)} data"):
            table = ks.cross_validate(data, ks.Spherical(range=4.0), **options)
        assert np.flatnonzero(table["estimate"].isna()).tolist() == lost and np.isfinite(table.attrs["rmse"])
    with pytest.warns(ks.KestrumWarning, match="1 of 6 data have no other in reach and have the mean"):
        table = ks.cross_validate(points, ks.Spherical(range=4.0), radius=3.0, mean=2.5)
    assert table["estimate"][5] == 2.5 and table["variance"][5] == 1.0
    close = ks.Points(np.vstack([places, places + 1e-9]), np.arange(12.0))
    with pytest.warns(ks.KestrumWarning, match="data are NaN and left out.*nugget"):
        assert ks.cross_validate(close, ks.Gaussian(range=80.0))["estimate"].isna().any()


def test_refusals():
    points, model = scattered(20), model_of()
    for options, text in (({"folds": 1}, "at least 2"), ({"folds": 21}, "at most 20"), ({"folds": [1, 2]}, "shape"),
                          ({"folds": [3] * 20}, "all 3"), ({"folds": [1.0, np.nan] * 10}, "rows 1, 3, 5"), ({"seed": -1}, "seed"),
                          ({"mean": 1.0, "drift": "linear"}, "both"), ({"drift": {}}, "empty"), ({"drift": {"h": [1.0]}}, "shape"),
                          ({"drift": {"h": [np.inf] * 20}}, "inf"), ({"drift": 3}, "mean|drift"), ({"drift": "cubic"}, "quadratic"),
                          ({"drift": "linear", "neighbors": 2}, "3 terms"), ({"mean": np.ones((2, 2))}, "mean must be a number"),
                          ({"points": points.coordinates}, "Points"), ({"model": 3.0}, "CovModel"), ({"neighbors": 0}, "at least 1"),
                          ({"model": ks.Spherical(np.ones((3, 3)), range=1.0)}, "constants"),
                          ({"points": ks.Points([[0.0, 0.0]], [1.0])}, "at least two"),
                          ({"points": ks.Points([[0.0, 0.0], [1.0, 1.0]], ["a", "b"])}, "labels"),
                          ({"points": ks.Points([[0.0, 0.0], [1.0, 1.0], [1.0, 1.0]], [1.0, 2.0, 3.0]), "folds": 2}, "rows 1, 2")):
        with pytest.raises(ks.KestrumError, match=text):
            ks.cross_validate(**{"points": points, "model": model, **options})
