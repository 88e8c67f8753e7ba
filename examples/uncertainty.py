"""How sure is the map? Zinc in the Meuse flood plain: validation, realizations, and where a limit is exceeded."""

from pathlib import Path

import matplotlib.pyplot as plt
import pandas as pd

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

samples = pd.read_csv(here / "data/meuse/meuse.csv")
points = ks.Points.from_dataframe(samples, "zinc")
plain = pd.read_csv(here / "data/meuse/meuse_grid.csv").set_index(["y", "x"]).dist.to_xarray()

# Zinc is skewed, and sampled denser along the river: its scores are normal, by weights that undo the clusters.
transform = ks.NormalScore(points.values, ks.declustering_weights(points), minimum=0.0)
scores = points.with_values(transform.forward(points.values), "score of zinc")
model = ks.variogram(scores, lag=100.0, n_lags=15).fit(ks.Nugget(0.1) + ks.Spherical(0.9, range=900.0))

table = ks.cross_validate(scores, model, neighbors=20)
print("leave one out:", ", ".join(f"{name} {figure:.3f}" for name, figure in table.attrs.items()))
ks.plot.validation(table).savefig(here / "output/validation.png", dpi=120)

fields = ks.simulate(points, model, plain, n=100, transform=transform, mask=plain.notnull(), seed=7)
maps = {"realization 0": fields[0], "realization 1": fields[1], "mean of 100 realizations": fields.mean("realization")}
figure, axes = plt.subplots(2, 2, figsize=(10, 11), layout="constrained", sharex=True, sharey=True)
for ax, (title, values) in zip(axes.flat, maps.items()):
    ks.plot.map(values, None, ax, label="zinc (mg/kg)", vmin=100, vmax=1800)
    ax.set_title(title)
ks.plot.map(ks.ensemble.probability_above(fields, 500.0), None, axes[1, 1], label="probability", cmap="magma_r", vmin=0, vmax=1)
axes[1, 1].set_title("more than 500 mg/kg")
figure.savefig(here / "output/uncertainty.png", dpi=120, bbox_inches="tight")
