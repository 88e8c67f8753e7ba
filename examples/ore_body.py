"""From drill holes to how much ore there is, in three dimensions."""

from pathlib import Path

import numpy as np

import kestrum as ks

output = Path(__file__).parent / "output"
output.mkdir(exist_ok=True)

# The truth is made here, so that the answer can be checked: a skewed grade in g/t on blocks of 10 m x 10 m x 5 m, longest
# along the azimuth 45, and 90 vertical holes.
grid = ks.Grid(60, 60, 30, dx=10, dy=10, dz=5)
shape = ks.Nugget(0.1) + ks.Spherical(0.9, range=(220, 120, 40), azimuth=45)
truth = np.exp(ks.simulate(None, shape, grid, seed=7, neighbors=32)[0] - 0.5)
collar = np.random.default_rng(5).choice(60 * 60, 90, replace=False)
samples = truth.to_series().unstack("z").iloc[collar].stack().rename("grade").reset_index()
points = ks.Points.from_dataframe(samples, "grade", z="z")

# The model, from the samples: across and along the body, and down the holes.
transform = ks.NormalScore(points.values)
scores = points.with_values(transform.forward(points.values), "score")
table = ks.variogram(scores, lag=20, n_lags=7, azimuth=[45, 135, 0], dip=[0, 0, 90], tolerance=22.5)
model = table.fit(ks.Nugget(0.1) + ks.Spherical(0.9, range=(200, 100, 30), azimuth=45), fixed=["azimuth"])
print(model)
ks.plot.variogram(table, model).figure.savefig(output / "ore_variogram.png", dpi=120)
print("each hole left out:", ks.cross_validate(scores, model, neighbors=32, folds=samples.groupby(["x", "y"]).ngroup()).attrs)

# How much of the body is above 2 g/t?
fields = ks.simulate(points, model, grid, n=40, transform=transform, neighbors=32, seed=11)
share = (fields > 2.0).mean(("z", "y", "x"))
low, middle, high = share.quantile([0.1, 0.5, 0.9]).values
print(f"above 2 g/t: {100 * middle:.1f} % of the blocks, {100 * low:.1f} to {100 * high:.1f} % (80 % of the realizations);"
      f" in truth {100 * float((truth > 2.0).mean()):.1f} %")
chance = ks.ensemble.probability_above(fields, 2.0).isel(z=10)
ks.plot.map(chance, label="probability of more than 2 g/t, 52.5 m up").figure.savefig(output / "ore_body.png", dpi=120)
