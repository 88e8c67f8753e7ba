"""How sure is the map? Zinc in the Meuse flood plain: validation, realizations, and the probability of more than 500 mg/kg."""

from pathlib import Path

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
chance = ks.ensemble.probability_above(fields, 500.0)
axes = ks.plot.map(chance, points.with_values((points.values > 500.0) * 1.0), label="probability of more than 500 mg/kg")
axes.figure.savefig(here / "output/probability.png", dpi=120)
