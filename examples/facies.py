"""Facies of a realization: classes, which follow which, how they are connected by distance, a way through, and the nearest body."""

from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

field = ks.simulate(None, ks.Gaussian(1.0, range=(40, 14), azimuth=90) + ks.Nugget(0.02), ks.Grid(240, 150), n=1, seed=11)[0]
facies = ks.categorize(field, ks.proportion_cuts(field, [0.45, 0.25, 0.3]))
print(ks.category_proportions(facies), "\nin order:", ks.category_order(facies))
sand = np.asarray(facies == 2)
bodies, count = ks.label(sand)
body = bodies == ks.body_sizes(bodies)["extent_x"].idxmax()
places = np.argwhere(body)
west, east = (places[places[:, 1] == end(places[:, 1])] for end in (np.min, np.max))
path = ks.shortest_path(body, west, east)
print(f"{count} bodies of sand; one crosses {np.ptp(places[:, 1]) + 1} columns, by a way of {len(path)} nodes")

figure, axes = plt.subplots(2, 3, figsize=(16, 9), layout="constrained")
nearest = ks.nearest_label(bodies)[1]
for ax, title, image, colors in ((axes[0, 0], "three facies, of 45, 25 and 30 %", facies, "YlOrBr"),
                                 (axes[1, 1], "the shortest way through a body", np.where(sand, 1 + body, 0), "YlOrBr"),
                                 (axes[1, 2], "the nearest body of sand", np.where(sand, np.nan, nearest * 7919 % count), "tab20")):
    ax.imshow(image, cmap=colors, origin="lower", interpolation="nearest")
    ax.set_title(title)
axes[1, 1].plot(path[:, 1], path[:, 0], "c", linewidth=2)
lags = ks.transiogram(facies, max_lag=(0, 80)).probability.sel(lag_y=0, lag_x=slice(0, None))
for to in (0, 1, 2):
    axes[0, 1].plot(lags.lag_x, lags.sel({"from": 2, "to": to}), label=f"to facies {to}")
axes[0, 1].set(title="transiogram of facies 2 along x", xlabel="lag in cells", ylabel="probability")
gamma = ks.indicator_variogram_map(facies, max_lag=60).gamma.sel(category=2)
gamma.plot.imshow(ax=axes[0, 2], cbar_kwargs={"label": "semivariance"})
axes[0, 2].set(title="variogram map of facies 2", aspect="equal")
linked = ks.connectivity_function(sand, max_lag=100).probability
for name, along in (("along x", linked.sel(lag_y=0)), ("along y", linked.sel(lag_x=0))):
    axes[1, 0].plot(along[along.size // 2:], label=name)
axes[1, 0].set(title="are two nodes of sand in one body?", xlabel="lag in cells", ylabel="probability", ylim=(0, 1.05))
axes[0, 1].legend()
axes[1, 0].legend()
figure.savefig(here / "output/facies.png", dpi=120, bbox_inches="tight")
