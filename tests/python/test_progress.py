"""Every call with progress= says how far it is."""

import inspect
import pickle

import numpy as np
import pytest

import kestrum as ks

RANDOM = np.random.default_rng(1)
IMAGE = RANDOM.normal(size=(50, 50, 50))
WIDE = np.repeat(np.repeat(RANDOM.normal(size=(20, 30, 20)), 8, 0), 8, 2) + RANDOM.normal(size=(160, 30, 160))
ENSEMBLE = RANDOM.normal(size=(12, 50, 50, 50))
MODEL = ks.Nugget(0.1) + ks.Exponential(1.0, range=300)
GRID = ks.Grid(700, 700, dx=2, dy=2)
BODIES, LONG = ks.label(WIDE > 0)[0], WIDE[:, :, None].repeat(3, 2).reshape(160, -1)
LARGE = ks.Grid(1500, 1500).to_xarray(np.pi * np.arange(1500 * 1500.0).reshape(1500, 1500), "v")


def scattered(n):
    return ks.Points(RANDOM.uniform(0, 1000, (n, 2)), RANDOM.normal(size=n))


FEW, SOME, MANY = scattered(300), scattered(1000), scattered(20_000)
DIRECTED, SCORES = ks.variogram(SOME, azimuth=[0, 45, 90, 135]), ks.NormalScore(FEW.values)
LABELS = FEW.with_values(np.where(FEW.values > 0, "sand", "clay"))
CALLS = {
    "krige": lambda p, _: ks.krige(FEW, MODEL, GRID, neighbors=30, progress=p),
    "krige by the other solver": lambda p, _: ks.krige(FEW, MODEL, ks.Grid(90, 90, dx=12, dy=12), snap=True, solver="gmres", progress=p),
    "simulate": lambda p, _: ks.simulate(FEW, MODEL, GRID, progress=p),
    "krige_categories": lambda p, _: ks.krige_categories(LABELS, MODEL, GRID, progress=p),
    "simulate_categories": lambda p, _: ks.simulate_categories(LABELS, MODEL, GRID, progress=p),
    "cross_validate": lambda p, _: ks.cross_validate(MANY, MODEL, neighbors=30, progress=p),
    "variogram": lambda p, _: ks.variogram(MANY, progress=p),
    "indicator_variograms": lambda p, _: ks.indicator_variograms(MANY.with_values(np.where(MANY.values > 0, "sand", "clay")), progress=p),
    "fit_likelihood": lambda p, _: ks.fit_likelihood(FEW, MODEL, progress=p),
    "declustering_weights": lambda p, _: ks.declustering_weights(MANY, offsets=2, progress=p),
    "declustering_weights by one size": lambda p, _: ks.declustering_weights(MANY, cell=20.0, progress=p),
    "declustering_weights by kriging": lambda p, _: ks.declustering_weights(SOME, model=MODEL, grid=ks.Grid(80, 80, dx=12.5, dy=12.5), progress=p),
    "variogram_cloud": lambda p, _: ks.variogram_cloud(SOME, 300.0, progress=p),
    "Variogram.fit": lambda p, _: DIRECTED.fit([MODEL, ks.Spherical(1.0, range=(300, 200))], progress=p),
    "Points.merged": lambda p, _: MANY.merged(progress=p),
    "NormalScore": lambda p, _: ks.NormalScore(MANY.values, progress=p),
    "NormalScore.forward": lambda p, _: SCORES.forward(ENSEMBLE, progress=p),
    "NormalScore.inverse": lambda p, _: SCORES.inverse(ENSEMBLE, progress=p),
    "ensemble.mean": lambda p, _: ks.ensemble.mean(ENSEMBLE, progress=p),
    "ensemble.variance": lambda p, _: ks.ensemble.variance(ENSEMBLE, progress=p),
    "ensemble.probability_above": lambda p, _: ks.ensemble.probability_above(ENSEMBLE, [0.0, 1.0], progress=p),
    "ensemble.probability_connected": lambda p, _: ks.ensemble.probability_connected(ENSEMBLE, (0, 0, 0), progress=p),
    "ensemble.summary": lambda p, _: ks.ensemble.summary(ENSEMBLE, quantiles=0.5, progress=p),
    "ensemble.quantile": lambda p, _: ks.ensemble.quantile(ENSEMBLE, 0.5, progress=p),
    "label": lambda p, _: ks.label(WIDE > 0, progress=p),
    "body_sizes": lambda p, _: ks.body_sizes(BODIES, progress=p),
    "distance": lambda p, _: ks.distance(WIDE > 3, progress=p),
    "distance with signs": lambda p, _: ks.distance(np.where(WIDE < -3, np.nan, WIDE > 2), signed=True, metric="manhattan", progress=p),
    "nearest_label": lambda p, _: ks.nearest_label(BODIES, progress=p),
    "label_depth": lambda p, _: ks.label_depth(BODIES, progress=p),
    "dilate": lambda p, _: ks.dilate(WIDE > 3, np.hypot(*np.indices((31, 31)) - 15)[None] < 15, progress=p),
    "erode": lambda p, _: ks.erode(WIDE, 9, progress=p),
    "box_mean": lambda p, _: ks.box_mean(WIDE, 9, progress=p),
    "box_mean with NaN": lambda p, _: ks.box_mean(np.where(WIDE > 2, np.nan, WIDE), 9, progress=p),
    "resample": lambda p, _: ks.resample(WIDE, (100, 20, 90), progress=p),
    "resample to modes": lambda p, _: ks.resample(WIDE > 0, (100, 20, 90), method="mode", progress=p),
    "pyramid": lambda p, _: ks.pyramid(WIDE, 3, progress=p),
    "expand": lambda p, _: ks.expand(WIDE, (319, 60, 320), progress=p),
    "geodesic_steps": lambda p, _: ks.geodesic_steps(WIDE > -9, (0, 0, 0), progress=p),
    "shortest_path": lambda p, _: ks.shortest_path(WIDE > -9, (0, 0, 0), (159, 29, 159), progress=p),
    "otsu": lambda p, _: ks.otsu(WIDE, 4, progress=p),
    "otsu of distinct values": lambda p, _: ks.otsu(WIDE**9, 3, progress=p),
    "categorize": lambda p, _: ks.categorize(LONG, [0, 1], progress=p),
    "proportion_cuts": lambda p, _: ks.proportion_cuts(WIDE, np.full(20, 0.05), progress=p),
    "category_proportions": lambda p, _: ks.category_proportions(LONG > 0, progress=p),
    "proportion_map": lambda p, _: ks.proportion_map(WIDE > 0, 9, progress=p),
    "category_order": lambda p, _: ks.category_order(LONG > 0, progress=p),
    "kmeans": lambda p, _: ks.kmeans(IMAGE.reshape(-1, 2), 9, restarts=5, progress=p),
    "variogram_map": lambda p, _: ks.variogram_map(IMAGE, 16, progress=p),
    "covariance_map": lambda p, _: ks.covariance_map(IMAGE, 16, progress=p),
    "transiogram": lambda p, _: ks.transiogram((IMAGE > 0).astype(int), 12, progress=p),
    "indicator_variogram_map": lambda p, _: ks.indicator_variogram_map(IMAGE, 12, thresholds=[-1, 0, 1], progress=p),
    "connectivity_function": lambda p, _: ks.connectivity_function(IMAGE > 0, 12, progress=p),
    "connectivity_curve": lambda p, _: ks.connectivity_curve(ENSEMBLE, 30, progress=p),
    "connectivity_curve of many": lambda p, _: ks.connectivity_curve(ENSEMBLE, 100, progress=p),
    "body_curves": lambda p, _: ks.body_curves(ENSEMBLE, 8, progress=p),
    "write_gslib": lambda p, path: ks.write_gslib(LARGE, path / "x", progress=p),
    "write_gslib of a table": lambda p, path: ks.write_gslib(LARGE.to_dataframe().reset_index(), path / "x", progress=p),
    "write_vtk": lambda p, path: ks.write_vtk(LARGE, path / "x", progress=p),
    "read_gslib": lambda p, path: ks.read_gslib(path / "grid.gslib", progress=p),
    "read_gslib_points": lambda p, path: ks.read_gslib_points(path / "table.dat", progress=p),
    "read_vtk": lambda p, path: ks.read_vtk(path / "grid.vtk", progress=p),
}


@pytest.fixture(scope="module")
def path(tmp_path_factory):
    path = tmp_path_factory.mktemp("files")
    ks.write_gslib(LARGE, path / "grid.gslib")
    ks.write_vtk(LARGE, path / "grid.vtk")
    ks.write_gslib(LARGE.to_dataframe().reset_index(), path / "table.dat")
    return path


def test_all_are_here():
    things = {name: getattr(ks, name) for name in ks.__all__} | {f"ensemble.{name}": getattr(ks.ensemble, name) for name in ks.ensemble.__all__}
    things |= {f"{kind}.{name}": method for kind in (*ks.__all__,) if inspect.isclass(things[kind])
               for name, method in vars(things[kind]).items() if inspect.isfunction(method) and not name.startswith("_")}
    taking = {name for name, thing in things.items() if callable(thing) and not (inspect.isclass(thing) and issubclass(thing, Exception | Warning))
              and "progress" in inspect.signature(thing).parameters}
    assert taking | {"indicator_variograms"} == {name.split(" ")[0] for name in CALLS}


@pytest.mark.filterwarnings("ignore")
@pytest.mark.parametrize("name", CALLS)
def test_progress(name, path, capsys):
    heard = []
    spoken = CALLS[name](heard.append, path)
    assert heard == sorted(heard) and heard[0] >= 0.0 and heard[-1] == 1.0
    if len(heard) > 4:  # where there is time to look
        assert len(set(heard)) > 2 and heard[1] < 1.0

    class Enough(Exception):
        pass

    def stop(fraction):
        raise Enough

    with pytest.raises(Enough):
        CALLS[name](stop, path)
    silent, barred = CALLS[name](False, path), CALLS[name](True, path)
    assert capsys.readouterr().err
    assert pickle.dumps(spoken) == pickle.dumps(silent) == pickle.dumps(barred)  # to the last bit
