"""The distance from the river as a drift, and means over blocks with their standard deviations."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import pandas as pd

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

samples = pd.read_csv(here / "data/meuse/meuse.csv")
points = ks.Points(samples[["x", "y"]], np.log(samples.zinc), "ln zinc")
plain = pd.read_csv(here / "data/meuse/meuse_grid.csv").set_index(["y", "x"]).dist.to_xarray()
inside = plain.notnull()

# What the distance from the river does not explain varies less, and over a shorter range.
ordinary = ks.krige(points, ks.Nugget(0.05) + ks.Spherical(0.59, range=900), plain, mask=inside)
rest = ks.Nugget(0.06) + ks.Spherical(0.17, range=830)
distance = {"root of the distance": (np.sqrt(samples.dist), np.sqrt(plain))}
external = ks.krige(points, rest, plain, drift=distance, mask=inside)
blocks = ks.krige(points, rest, plain, drift=distance, mask=inside, block=4)

figure, axes = plt.subplots(2, 2, figsize=(11, 11), layout="constrained", sharex=True, sharey=True)
low, high = float(ordinary.estimate.min()), float(external.estimate.max())
for ax, name, result in zip(axes[0], ("ordinary kriging", "with the drift"), (ordinary, external)):
    ks.plot.map(result.estimate, points, ax, label=name, vmin=low, vmax=high)
for ax, name, result in zip(axes[1], ("points", "blocks"), (external, blocks)):
    ks.plot.map(np.sqrt(result.variance), None, ax, label=f"standard deviation of {name}", cmap="magma_r", vmin=0.05, vmax=0.45)
figure.savefig(here / "output/drift_and_blocks.png", dpi=120, bbox_inches="tight")
print(f"mean variance: {float(ordinary.variance.mean()):.3f}, with the drift {float(external.variance.mean()):.3f}")
