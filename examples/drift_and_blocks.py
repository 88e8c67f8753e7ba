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
pictures = {"ordinary kriging": ordinary.estimate, "with the drift": external.estimate,
            "standard deviation of points": np.sqrt(external.variance), "standard deviation of blocks": np.sqrt(blocks.variance)}
for ax, (title, values) in zip(axes.flat, pictures.items()):
    limits = {"vmin": low, "vmax": high} if "deviation" not in title else {"vmin": 0.05, "vmax": 0.45, "cmap": "magma_r"}
    ks.plot.map(values, points if "deviation" not in title else None, ax, label=title, **limits)
figure.savefig(here / "output/drift_and_blocks.png", dpi=120)
print(f"mean variance: {float(ordinary.variance.mean()):.3f}, with the drift {float(external.variance.mean()):.3f}")
