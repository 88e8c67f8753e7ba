"""Image tools on realizations: bodies, how connected they are, depth in them, and a variogram map."""

from pathlib import Path

import matplotlib.pyplot as plt

import kestrum as ks

here = Path(__file__).parent
(here / "output").mkdir(exist_ok=True)

model = ks.Gaussian(1.0, range=(30, 15), azimuth=60) + ks.Nugget(0.01)
fields = ks.simulate(None, model, ks.Grid(200, 150), n=20, seed=5)
sand = fields[0] > ks.otsu(fields[0])[0]
inside = sand.where(sand)  # NaN elsewhere
bodies, count = ks.label(sand)
sizes = ks.body_sizes(bodies)["size"]
print(f"{count} bodies, the largest of {sizes.max():,} of {sizes.sum():,} nodes; Euler number {ks.euler_number(sand)}")

figure, axes = plt.subplots(2, 4, figsize=(21, 9), layout="constrained")
size = inside * sizes.reindex(range(count + 1)).to_numpy()[bodies]  # of the body that a node belongs to
panels = {"a realization": fields[0], "nodes of each body above Otsu's cut": size, "depth in sand": inside * ks.distance(~sand),
          "a quarter of its size": ks.pyramid(fields[0], levels=2)[1]}
for ax, (title, values) in zip(axes.flat, panels.items()):
    ks.plot.map(values, None, ax, label="")
    ax.set_title(title)

tenths = ks.indicator_variogram_map(fields[0], max_lag=60, thresholds=fields[0].quantile([0.1, 0.9]), method="fft").gamma
maps = {"variogram map": ks.variogram_map(fields[0], max_lag=60, method="fft").gamma, "of the lowest tenth": tenths[0], "of the highest tenth": tenths[1]}
for ax, (title, lags) in zip(axes[1], maps.items()):
    lags.plot.imshow(ax=ax, cbar_kwargs={"label": "semivariance"})
    ax.set(title=title, aspect="equal")
curves = ks.connectivity_curve(fields, thresholds=61)
axes[1, 3].plot(curves.threshold, curves.T, color="0.7", linewidth=0.8)
axes[1, 3].plot(curves.threshold, curves.mean("realization"), color="k", label="mean of 20 realizations")
axes[1, 3].set(title="are two nodes above a threshold in one body?", xlabel="threshold", ylabel="probability")
axes[1, 3].legend()
figure.savefig(here / "output/images.png", dpi=120, bbox_inches="tight")
