"""How often the land is flooded: probabilities of three classes, the likeliest one, and realizations."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
import pandas as pd

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

samples = pd.read_csv(here / "data/meuse/meuse.csv")
names = {1: "often", 2: "seldom", 3: "hardly ever"}
points = ks.Points(samples[["x", "y"]], samples.ffreq.map(names), "flooded")
plain = pd.read_csv(here / "data/meuse/meuse_grid.csv").set_index(["y", "x"]).dist.to_xarray()
inside = plain.notnull()

# One model of the indicator of each class; classes come in this order.
models = {name: 0.03 * ks.Nugget() + 0.2 * ks.Spherical(1.0, range=1200) for name in names.values()}
chances = ks.krige_categories(points, models, plain, mask=inside)
fields = ks.simulate_categories(points, models, plain, n=2, seed=3, mask=inside)

figure, axes = plt.subplots(2, 3, figsize=(16, 9.4), layout="constrained", sharex=True, sharey=True)
for ax, name in zip(axes[0], names.values()):
    ks.plot.map(chances.sel(category=name), None, ax, label="probability", cmap="Blues", vmin=0, vmax=1)
    ax.set_title(f"flooded {name}")
likeliest = chances.fillna(0).argmax("category")
colors = plt.get_cmap("viridis", len(models))
codes = points.with_values([list(models).index(name) for name in points.values])
for ax, values, title in zip(axes[1], [likeliest, *fields], ["the likeliest", "realization 0", "realization 1"]):
    ks.plot.map(values.where(inside), codes, ax, label="flooded", cmap=colors, vmin=-0.5, vmax=2.5)
    ax.images[0].colorbar.set_ticks(range(3), labels=list(models))
    ax.set_title(title)
figure.savefig(here / "output/categories.png", dpi=120, bbox_inches="tight")
print("share of each class:", dict(zip(models, np.round(chances.mean(["x", "y"]).values, 2))))
