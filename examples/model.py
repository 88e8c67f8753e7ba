"""From samples to a model: a variogram in two directions, and models fitted to it."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import pandas as pd

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

samples = pd.read_csv(here / "data/meuse/meuse.csv")
points = ks.Points(samples[["x", "y"]], np.log(samples.zinc), "ln zinc")

along = ks.variogram(points, lag=120, n_lags=14, azimuth=[45, 135], tolerance=30)
first = ks.Nugget(0.05) + ks.Spherical(0.6, range=(1200, 700), azimuth=45)
other = ks.Nugget(0.05) + ks.Exponential(0.6, range=(1200, 700), azimuth=45)
fitted = along.fit([first, other], fixed=["azimuth"])

figure, axes = plt.subplots(1, 3, figsize=(14, 4.5), layout="constrained")
ks.plot.histogram(samples.zinc, ks.NormalScore(samples.zinc), axes[:2], label="zinc (mg/kg)")
ks.plot.variogram(along, fitted, axes[2])
figure.savefig(here / "output/model.png", dpi=120, bbox_inches="tight")
print(fitted)
print(fitted.ranking.to_string(index=False))
