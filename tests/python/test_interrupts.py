"""Ctrl-C, as a signal from outside, ends every call that can take long, and the next call is fine."""

import signal
import subprocess
import sys
import threading
import time

import pytest

from kestrum._watch import watched

PROGRAM = """
import signal, time, numpy as np, pandas as pd, xarray, kestrum as ks  # all of it: an import that is broken off is not begun anew
signal.signal(signal.SIGINT, signal.default_int_handler)  # which a shell without a terminal may have switched off
random = np.random.default_rng(1)
def scattered(n):
    return ks.Points(random.uniform(0, 1000, (n, 2)), random.normal(size=n))
model = ks.Nugget(0.1) + ks.Exponential(1.0, range=300)
few, many = scattered(600), scattered({many})
solid = ks.Points(random.uniform(0, 100, (50, 3)), random.normal(size=50))
labels = few.with_values(np.where(few.values > 0, "sand", "clay"))
mask = np.zeros((400, 400, 400), bool)
mask[::9, ::7, ::8] = True
grid = ks.Grid(2000, 2000, dx=0.5, dy=0.5)
print("begin", flush=True)
try:
    while True:  # what ends too soon begins again
        {call}
except KeyboardInterrupt:
    print(time.time(), flush=True)
small = ks.krige(few, model, ks.Grid(5, 5, dx=200.0, dy=200.0), neighbors=4)
print(bool(np.isfinite(small.estimate).all()))
"""
CALLS = [
    "ks.krige(few, model, grid, neighbors=60)",
    "ks.krige(few, model, grid)",
    "ks.krige(few, model, random.uniform(0, 1000, (400_000, 2)), neighbors=60)",
    "ks.krige(solid, model, ks.Grid(2, 2, 2, dx=50, dy=50, dz=50), neighbors=5, block=200, threads=1)",
    "ks.krige(few, model, grid, snap=True, solver='gmres', radius=40.0, neighbors=60)",
    "ks.krige(many, model, ks.Grid(2, 2, dx=500, dy=500))",
    "ks.krige(many, model, ks.Grid(400, 400, dx=2.5, dy=2.5), neighbors=2000)",
    "ks.simulate(few, model, grid, n=3)",
    "ks.simulate(None, model, grid, bounds=(few.coordinates, few.values - 0.1, few.values + 0.1))",
    "ks.krige_categories(labels, model, grid)",
    "ks.simulate_categories(labels, model, grid)",
    "ks.variogram(scattered(100_000), lag=20.0, n_lags=50)",
    "ks.cross_validate(many, model)",
    "ks.cross_validate(scattered(200_000), model, neighbors=40)",
    "ks.fit_likelihood(scattered(2500), model)",
    "ks.variogram(few, lag=50.0).fit(model)",
    "ks.krige(many, model, ks.Grid(900, 900), neighbors=20, chunks={'y': 100, 'x': 100}).compute()",
    "ks.distance(mask, threads=1)",
    "ks.nearest_label(mask, threads=1)",
    "ks.label(mask, 26, threads=2)",
    "ks.box_mean(mask, 31, threads=1)",
    "ks.box_mean(np.ones((400, 400, 400)), 9)",
    "ks.body_curves(mask.astype('f4'), 3)",
    "ks.expand(np.ones((200, 200, 200)), (400, 400, 400), threads=1)",
    "ks.resample(mask, 800, method='nearest')",
    "ks.pyramid(np.ones((300, 300, 300), 'f4'))",
    "ks.plot.map(ks.Grid(4000, 4000).to_xarray(np.ones((4000, 4000)), 'v')); ks.plot.plt.close()",
    "ks.erode(mask, np.indices((41, 41, 41)).sum(0) % 3 == 0, threads=1)",
    "ks.variogram_map(random.normal(size=(200, 200, 200)), 60, method='fft')",
    "ks.connectivity_curve(mask, 200, 26)",
    "ks.geodesic_steps(np.ones((500, 400, 400), bool), (0, 0, 0), 26)",
    "ks.connectivity_function(mask, 60, threads=1)",
    "ks.transiogram(np.arange(10**7).reshape(100, 1000, 100) % 10, 30, threads=2)",
    "ks.covariance_map(random.normal(size=(200, 200, 200)), 60)",
    "ks.body_curves(mask, 200, 26, threads=1)",
    "ks.proportion_cuts(random.normal(size=3 * 10**7), [0.2, 0.3, 0.5])",
    "ks.resample(np.ones((10, 10)), (10_000, 10_000), threads=1)",
    "ks.kmeans(random.normal(size=(400_000, 20)), 60)",
    "ks.kmeans(random.normal(size=(300, 2)), 5, restarts=10**6)",
    "ks.otsu(random.normal(size=400_000), 2000)",
    "ks.NormalScore(random.normal(size=5_000_000))",
    "scattered(2_000_000).merged()",
    "ks.declustering_weights(scattered(1_000_000))",
    "ks.variogram_cloud(scattered(8000), 300.0)",
    "ks.ensemble.quantile(random.normal(size=(100, 300_000)), 0.5)",
    "ks._watch.watched(10**6, time.sleep, 30)",  # a call that hears no signal
    "ks.write_gslib(ks.Grid(3000, 3000).to_xarray(random.normal(size=(3000, 3000)), 'v'), '/dev/null')",
]


def test_watched_work_gives_its_result_or_error():
    assert watched(10**6, lambda: threading.current_thread() is threading.main_thread()) is False
    assert watched(10**6, lambda: watched(10**6, threading.current_thread) is threading.current_thread()) is True
    assert watched(10, threading.current_thread) is threading.main_thread()
    with pytest.raises(ZeroDivisionError):
        watched(10**6, lambda: 1 // 0)


@pytest.mark.parametrize("call", CALLS)
def test_ctrl_c_ends_a_call(call):
    program = PROGRAM.format(call=call, many=6000 if "many" in call else 10)
    process = subprocess.Popen([sys.executable, "-W", "ignore", "-c", program], stdout=subprocess.PIPE, text=True)
    try:
        assert process.stdout.readline() == "begin\n"
        time.sleep(1.0)
        sent = time.time()
        process.send_signal(signal.SIGINT)
        ended, fine = process.communicate(timeout=60)[0].splitlines()
    finally:
        process.kill()
    # 0.2 s on a machine of its own; this one may be busy.
    assert float(ended) - sent < 4.0 and fine == "True"
