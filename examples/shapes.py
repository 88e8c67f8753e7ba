"""Image tools on masks and scales: opened bodies, distances within and between them, clusters, and levels of detail."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

model = ks.Gaussian(1.0, range=(24, 12), azimuth=60) + ks.Nugget(0.02)
field = ks.simulate(None, model, ks.Grid(200, 150), seed=2)[0]
sand = field > 0.3
opened = sand & ks.dilate(ks.erode(sand, 5), 5)  # without what is thinner than 5 nodes
bodies, count = ks.label(opened)
print(f"{count} bodies of opened sand, {ks.label(sand)[1]} before")

slope = np.hypot(*np.gradient(field.to_numpy()))
samples = np.column_stack([np.nan_to_num(ks.box_mean(field, 9)).ravel(), slope.ravel()])
kinds = ks.kmeans(samples / samples.std(0), clusters=4, restarts=3)[1]
steps = ks.geodesic_steps(opened, tuple(np.argwhere(opened.to_numpy())[0]))

panels = {"opened: 1, lost: 0": opened.where(sand), "distance to other bodies or none": field.copy(data=ks.label_depth(bodies)).where(opened),
          "the nearest body": ks.nearest_label(bodies)[1], "steps within a body": field.copy(data=steps).where(steps >= 0),
          "clusters of means and slopes": field.copy(data=kinds.reshape(field.shape)),
          "detail that half the size loses": field - ks.expand(ks.pyramid(field)[0], field.shape),
          "sand about each node": ks.proportion_map(sand, 31).sel(category=True), "most frequent, 50 x 40 cells": ks.resample(sand, (40, 50), method="mode")}
figure, axes = plt.subplots(2, 5, figsize=(26, 9), layout="constrained")
for ax, (title, values) in zip(axes.flat, panels.items()):
    ks.plot.map(values, None, ax, label="")
    ax.set_title(title)
ks.covariance_map(field, max_lag=50).covariance.plot.imshow(ax=axes[1, 3], cbar_kwargs={"label": "covariance"})
axes[1, 3].set(title="covariance map", aspect="equal")
curves = ks.body_curves(field, thresholds=41)
curves.to_dataframe()[["count", "euler_number"]].plot(ax=axes[1, 4], title="bodies above a threshold")
figure.savefig(here / "output/shapes.png", dpi=120, bbox_inches="tight")
