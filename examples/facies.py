"""Facies of a realization: classes, which follow which, how they are connected by distance, and a way through."""

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

figure, axes = plt.subplots(2, 2, figsize=(12, 8), layout="constrained")
for ax, title, image in ((axes[0, 0], "three facies, of 45, 25 and 30 %", facies), (axes[1, 0], "the shortest way through a body", np.where(sand, 1 + body, 0))):
    ax.imshow(image, cmap="YlOrBr", origin="lower", interpolation="nearest")
    ax.set_title(title)
axes[1, 0].plot(path[:, 1], path[:, 0], color="#00798c", linewidth=2)
lags = ks.transiogram(facies, max_lag=(0, 80)).probability.sel(lag_y=0, lag_x=slice(0, None))
for to in (0, 1, 2):
    axes[0, 1].plot(lags.lag_x, lags.sel({"from": 2, "to": to}), label=f"to facies {to}")
axes[0, 1].set(title="from facies 2, along x", xlabel="lag in cells", ylabel="probability of transition")
linked = ks.connectivity_function(sand, max_lag=100).probability
for name, along in (("along x", linked.sel(lag_y=0)), ("along y", linked.sel(lag_x=0))):
    axes[1, 1].plot(along[along.size // 2:], label=name)
axes[1, 1].set(title="two nodes of sand", xlabel="lag in cells", ylabel="probability that one body has both", ylim=(0, 1.05))
for ax in axes[:, 1]:
    ax.legend(frameon=False)
figure.savefig(here / "output/facies.png", dpi=120)
