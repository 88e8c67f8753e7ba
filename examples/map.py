"""A map of zinc in the soil of the Meuse flood plain, by ordinary kriging."""

from pathlib import Path

import pandas as pd

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

samples = pd.read_csv(here / "data/meuse/meuse.csv")
points = ks.Points.from_dataframe(samples, "zinc")
plain = pd.read_csv(here / "data/meuse/meuse_grid.csv").set_index(["y", "x"]).dist.to_xarray()
model = ks.Nugget(25_000) + ks.Spherical(135_000, range=830)
result = ks.krige(points, model, plain, neighbors=20, mask=plain.notnull())
axes = ks.plot.map(result.estimate, points, label="zinc (mg/kg)")
axes.figure.savefig(here / "output/map.png", dpi=120)
