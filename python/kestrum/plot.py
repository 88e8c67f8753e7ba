"""Pictures, by matplotlib, which is imported here alone.

Each function draws on given axes, or makes a figure of its own, and returns the axes or the figure.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np
from matplotlib import pyplot as plt
from matplotlib.axes import Axes
from matplotlib.colors import Colormap
from matplotlib.figure import Figure

from . import _door
from ._errors import ArgumentError, GridError, warn
from ._models import CovModel, require_model
from ._points import Points
from ._variogram import Variogram
from ._watch import watched

if TYPE_CHECKING:
    import xarray as xr

# Both read well in grey and with any sight of colours.
COLORS = "viridis"
DIVERGING = "PuOr_r"
INK = "#33415c"
POINT = "#d1495b"
LINE = "#00798c"


def map(values: xr.DataArray, points: Points | None = None, ax: Axes | None = None, *, cmap: str = COLORS,
        vmin: float | None = None, vmax: float | None = None, label: str | None = None) -> Axes:
    """A map, with the data in the same colours.

    Parameters
    ----------
    values : xarray.DataArray
        Of dimensions y and x. Missing values stay blank. Those of `simulate_categories` have a colour for each category.
    points : Points, optional
        Data to draw, coloured by their values.
    ax : matplotlib.axes.Axes, optional
        Where to draw; a new figure by default.
    cmap, vmin, vmax
        Colours and their limits; by default the least and the greatest value shown.
    label : str, optional
        What the bar is labelled; by default the long name or the name of the values.

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import kestrum as ks
    >>> grid = ks.Grid(4, 3)
    >>> axes = ks.plot.map(grid.to_xarray([[1.0, 2.0, 3.0, 4.0]] * 3, "zinc"))
    >>> axes.get_xlabel()
    'x'
    """
    _require_map(values)
    if points is not None and not isinstance(points, Points):
        _door.wrong_type("points", points, "Points (of a table: Points.from_dataframe(table, 'column'))")
    values, cmap, labels = _by_category(values, cmap)
    if labels:
        vmin, vmax = -0.5, len(labels) - 0.5
        if points is not None and set(points.values.tolist()) <= set(labels):
            points = points.with_values([labels.index(value) for value in points.values.tolist()])
    vmin, vmax = (None if limit is None else _door.number(name, limit) for name, limit in (("vmin", vmin), ("vmax", vmax)))
    image = values.transpose("y", "x")
    wide, tall = (abs(float(image[axis][-1] - image[axis][0])) + 1e-30 for axis in ("x", "y"))
    ax = _axes(ax, (min(10.0, max(3.5, 6.0 * wide / tall)) + 1.6, 6.0))
    shown = [_finite(image)]
    if shown[0].size == 0:
        raise ArgumentError("values are all missing: there is nothing to draw.")
    if points is not None and points.values.dtype.kind in "iuf":
        shown.append(points.values)
    everything = shown[0] if len(shown) == 1 else np.concatenate(shown)
    low = float(everything.min()) if vmin is None else vmin
    high = float(everything.max()) if vmax is None else vmax
    mesh = _draw(ax, image, cmap, low, high)
    if points is not None:
        style: dict[str, Any] = dict(s=18, edgecolors="white", linewidths=0.6)
        numbers = points.values.dtype.kind in "iuf"
        colors = dict(c=points.values, cmap=cmap, vmin=low, vmax=high) if numbers else dict(c=INK)
        ax.scatter(points.coordinates[:, 0], points.coordinates[:, 1], **colors, **style)
    beyond = {(False, False): "neither", (True, False): "min", (False, True): "max", (True, True): "both"}[
        bool(everything.min() < low), bool(everything.max() > high)]
    _bar(mesh, ax, label if label is not None else str(values.attrs.get("long_name", values.name or "")), labels, extend=beyond)
    _as_map(ax)
    return ax


def realizations(simulations: xr.DataArray, n: int = 4, figure: Figure | None = None, *, cmap: str = COLORS) -> Figure:
    """The first few realizations beside each other, in one scale of colours.

    Parameters
    ----------
    simulations : xarray.DataArray
        Of dimensions realization, y and x.
    n : int
        How many.
    figure : matplotlib.figure.Figure, optional
        Where to draw; a new one by default.
    cmap : str
        Colours.

    Returns
    -------
    matplotlib.figure.Figure

    Examples
    --------
    >>> import numpy as np
    >>> import xarray as xr
    >>> import kestrum as ks
    >>> fields = xr.DataArray(np.random.default_rng(1).normal(size=(5, 8, 9)), dims=("realization", "y", "x"))
    >>> len(ks.plot.realizations(fields, n=2).axes)
    3
    """
    if not _door.is_xarray(simulations) or "realization" not in simulations.dims:
        _door.wrong_type("simulations", simulations, "a DataArray with the dimension 'realization'")
    n = min(_door.whole("n", n, 1), simulations.sizes["realization"])
    simulations, cmap, labels = _by_category(simulations, cmap)
    columns = int(np.ceil(np.sqrt(n)))
    rows = -(-n // columns)
    finite = _finite(simulations)
    if finite.size == 0:
        raise ArgumentError("simulations are all missing: there is nothing to draw.")
    limits = (-0.5, len(labels) - 0.5) if labels else (float(finite.min()), float(finite.max()))
    figure = _figure(figure, (4.0 * columns + 1.0, 4.0 * rows))
    grid = figure.subplots(rows, columns, sharex=True, sharey=True, squeeze=False)
    for k, ax in enumerate(grid.flat):
        if k >= n:
            ax.set_visible(False)
            continue
        field = simulations.isel(realization=k)
        _require_map(field)
        field = field.transpose("y", "x")
        mesh = _draw(ax, field, cmap, *limits)
        number = int(field.realization) if "realization" in field.coords else k
        ax.set_title(f"realization {number}", fontsize=10, color=INK)
        _as_map(ax, k + columns >= n, k % columns == 0)
        if k // columns < rows - 1 and k + columns >= n:  # over a place without a panel
            ax.tick_params(labelbottom=True)
            ax.set_xlabel("x")
    _bar(mesh, grid, str(simulations.attrs.get("long_name", simulations.name or "")), labels)
    return figure


def variogram(variogram: Any, model: CovModel | None = None, ax: Axes | None = None) -> Axes:
    """An experimental variogram, direction by direction, with the model.

    Parameters
    ----------
    variogram : Variogram
        Rows of azimuth, lag, gamma and pairs.
    model : CovModel, optional
        Drawn as a line along each direction.
    ax : matplotlib.axes.Axes, optional
        Where to draw; a new figure by default.

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import kestrum as ks
    >>> points = ks.Points([[0, 0], [0, 1], [0, 2], [0, 4]], [1.0, 2.0, 4.0, 4.0])
    >>> axes = ks.plot.variogram(ks.variogram(points, lag=1.0, n_lags=4))
    >>> axes.get_ylabel()
    'semivariance'
    """
    if not isinstance(variogram, Variogram):
        _door.wrong_type("variogram", variogram, "a Variogram (of points: kestrum.variogram(points))")
    if model is not None:
        require_model(model, "A curve needs")
    ax = _axes(ax)
    colors = plt.get_cmap("viridis")(np.linspace(0.1, 0.8, len(variogram.azimuth)))
    pairs = variogram.pairs / max(1, variogram.pairs.max())
    end = float(np.nanmax(variogram.lag)) * 1.05
    for row, color in enumerate(colors):
        azimuth, dip = variogram.azimuth[row], variogram.dip[row]
        name = "all directions" if np.isnan(azimuth) else f"azimuth {azimuth:g}°" + f", dip {dip:g}°" * bool(dip != 0.0)
        ax.scatter(variogram.lag[row], variogram.gamma[row], s=12 + 60 * pairs[row], color=color, label=name, zorder=3,
                   edgecolors="white", linewidths=0.5)
        if model is not None:
            _curve(ax, model, end, *np.nan_to_num([azimuth, dip]), color=color)
    _as_variogram(ax, end)
    if len(variogram.azimuth) > 1:
        ax.legend(frameon=False)
    return ax


def model(model: CovModel, ax: Axes | None = None, max_distance: float | None = None) -> Axes:
    """The variogram of a model, along its azimuth and across.

    Parameters
    ----------
    model : CovModel
        What to draw.
    ax : matplotlib.axes.Axes, optional
        Where to draw; a new figure by default.
    max_distance : float, optional
        How far; by default 1.3 times the longest range.

    Returns
    -------
    matplotlib.axes.Axes

    Examples
    --------
    >>> import kestrum as ks
    >>> axes = ks.plot.model(ks.Spherical(1.0, range=(10, 5), azimuth=30))
    >>> [line.get_label() for line in axes.lines]
    ['along azimuth 30°', 'across']
    """
    require_model(model, "A curve needs")
    ax = _axes(ax)
    reach = max((r for s in model.structures for r in s.range), default=1.0)
    end = 1.3 * reach if max_distance is None else _door.number("max_distance", max_distance, above=0.0)
    if model.isotropic:
        _curve(ax, model, end, 0.0, 0.0, color=LINE)
    else:
        _curve(ax, model, end, model.azimuth, 0.0, color=LINE, label=f"along azimuth {model.azimuth:g}°")
        _curve(ax, model, end, model.azimuth + 90.0, 0.0, color=POINT, label="across")
        ax.legend(frameon=False)
    _as_variogram(ax, end)
    ax.set_title(str(model), fontsize=10, color=INK)
    return ax


def histogram(values: Any, transform: Any = None, ax: Any = None, *, label: str | None = None) -> Any:
    """A histogram; with a transform a second one, of what it makes of the values.

    Parameters
    ----------
    values : array_like or Points
        Missing values are left out.
    transform : NormalScore, optional
        Anything with a method ``forward``.
    ax : matplotlib.axes.Axes, optional
        Where to draw; two of them with a transform. A new figure by default.
    label : str, optional
        What the values are; by default their name.

    Returns
    -------
    matplotlib.axes.Axes
        Or, with a transform, the matplotlib.figure.Figure of both.

    Warns
    -----
    KestrumWarning
        Values have infinite scores, which are not drawn.

    Examples
    --------
    >>> import kestrum as ks
    >>> axes = ks.plot.histogram([1.0, 2.0, 2.5, 4.0], label="zinc")
    >>> axes.get_xlabel()
    'zinc'
    """
    name = label if label is not None else str(getattr(values, "name", None) or "value")
    given = _door.reals("values", values.values if isinstance(values, Points) else values).reshape(-1)
    numbers = watched(given.size, lambda: np.asarray(given[np.isfinite(given)]))
    if numbers.size == 0:
        raise ArgumentError("values are all missing: there is nothing to draw.")
    if transform is None:
        return _bars(_axes(ax), numbers, name)
    if isinstance(transform, type) or not hasattr(transform, "forward"):
        _door.wrong_type("transform", transform, "a NormalScore, made of values: NormalScore(values)")
    scores = transform.forward(numbers)
    finite = scores[np.isfinite(scores)]
    if finite.size == 0:
        raise ArgumentError("values lie all beyond what the transform was fitted to: there is no score to draw.")
    if finite.size < scores.size:
        warn(f"{scores.size - finite.size:,} of {scores.size:,} values have an infinite score, which is not drawn: they lie at or beyond "
             "the minimum or the maximum of the transform.")
    axes = ax if ax is not None else plt.figure(figsize=(9.0, 3.6), layout="constrained").subplots(1, 2)
    if np.shape(axes) != (2,):
        _door.wrong_type("ax", ax, "two axes, for the values and for their scores, as pyplot.subplots(1, 2) gives them")
    _bars(axes[0], numbers, name)
    _bars(axes[1], finite, f"normal score of {name}")
    return axes[0].figure


def validation(table: Any, figure: Figure | None = None) -> Figure:
    """A cross-validation at a glance: estimate against value, errors on the map, and z-scores.

    Parameters
    ----------
    table : pandas.DataFrame
        With columns x, y, value, estimate, error and zscore.
    figure : matplotlib.figure.Figure, optional
        Where to draw; a new one by default.

    Returns
    -------
    matplotlib.figure.Figure

    Examples
    --------
    >>> import pandas as pd
    >>> import kestrum as ks
    >>> table = pd.DataFrame({"x": [0.0, 1.0], "y": [0.0, 1.0], "value": [1.0, 2.0], "estimate": [1.5, 1.6],
    ...                       "error": [0.5, -0.4], "zscore": [1.0, -0.8]})
    >>> [axes.get_xlabel() for axes in ks.plot.validation(table).axes[:3]]
    ['value', 'x', 'z-score']
    """
    missing = [name for name in ("x", "y", "value", "estimate", "error", "zscore") if name not in getattr(table, "columns", ())]
    if missing:
        raise ArgumentError(f"table has no column {missing[0]!r}. Give a table of cross_validate.")
    figure = _figure(figure, (14.0, 4.4))
    scatter, errors, scores = figure.subplots(1, 3)
    known = table[np.isfinite(table["error"].to_numpy())]
    if len(known) == 0:
        raise ArgumentError("errors of the table are all missing: there is nothing to draw.")
    low, high = (float(getattr(known[["value", "estimate"]].to_numpy(), side)()) for side in ("min", "max"))
    scatter.plot([low, high], [low, high], color="0.6", linewidth=1.0, zorder=1)
    scatter.scatter(known["value"], known["estimate"], s=16, color=LINE, alpha=0.8, edgecolors="white", linewidths=0.4)
    scatter.set(xlabel="value", ylabel="estimate", aspect="equal")
    root = float(np.sqrt(np.mean(known["error"] ** 2)))
    scatter.set_title(f"mean error {known['error'].mean():.3g}, root mean square {root:.3g}", fontsize=10, color=INK)
    bound = float(np.abs(known["error"]).max()) or 1.0
    dots = errors.scatter(known["x"], known["y"], c=known["error"], cmap=DIVERGING, vmin=-bound, vmax=bound, s=24, edgecolors="0.4",
                          linewidths=0.4)
    _as_map(errors)
    bar = figure.colorbar(dots, ax=errors, shrink=0.85, pad=0.02)
    bar.set_label("error (estimate - value)")
    bar.outline.set_visible(False)
    z = known["zscore"].to_numpy()
    z = z[np.isfinite(z)]
    _bars(scores, z, "z-score", density=True)
    span = np.linspace(min(-3.5, z.min(initial=0.0)), max(3.5, z.max(initial=0.0)), 200)
    scores.plot(span, np.exp(-0.5 * span**2) / np.sqrt(2.0 * np.pi), color=POINT, linewidth=1.5, label="standard normal")
    scores.legend(frameon=False, fontsize=9)
    return figure


def _axes(ax: Axes | None, size: tuple[float, float] | None = None) -> Axes:
    if ax is not None and not isinstance(ax, Axes):
        _door.wrong_type("ax", ax, "the axes of a figure, as pyplot.subplots() gives them")
    return ax if ax is not None else plt.figure(figsize=size, layout="constrained").add_subplot()


def _figure(figure: Figure | None, size: tuple[float, float]) -> Figure:
    if figure is not None and not hasattr(figure, "subplots"):
        _door.wrong_type("figure", figure, "a Figure of matplotlib")
    return figure if figure is not None else plt.figure(figsize=size, layout="constrained")


def _draw(ax: Axes, image: Any, cmap: str, low: float | None, high: float | None) -> Any:
    """Values on (y, x) as cells about their coordinates. Missing ones are not drawn."""
    numbers = image.values
    values: Any = watched(image.size, np.ma.array, numbers, mask=~np.isfinite(numbers))
    style: dict[str, Any] = dict(cmap=cmap, vmin=low, vmax=high)
    edges: list[float] = []
    for axis in ("x", "y"):
        centres = image[axis].values
        steps = np.diff(centres)
        if len(steps) == 0 or not np.allclose(steps, steps[0]):
            return ax.pcolormesh(image.x.values, image.y.values, values, shading="nearest", rasterized=True, **style)
        edges += [float(centres[0] - 0.5 * steps[0]), float(centres[-1] + 0.5 * steps[0])]
    # Where the figure follows each change, windows may want it in their own thread.
    size = 0 if plt.isinteractive() else values.size
    drawn = watched(size, ax.imshow, values, extent=edges, origin="lower", interpolation="nearest", **style)
    ax.set(xlim=sorted(edges[:2]), ylim=sorted(edges[2:]))  # north is up, also where y descends
    return drawn


def _by_category(values: Any, cmap: Any) -> tuple[Any, Any, list[Any]]:
    """What is to be drawn of codes: NaN where there is no category, a colour for each, and their labels. No labels for others."""
    if isinstance(cmap, str) and cmap not in plt.colormaps():
        raise ArgumentError(f"cmap is {cmap!r}, which is no map of colours.{_door.nearest(cmap, plt.colormaps())}")
    if not isinstance(cmap, (str, Colormap)):
        _door.wrong_type("cmap", cmap, "the name of a map of colours, or a Colormap of matplotlib")
    labels = list(values.attrs.get("categories", ()))
    return (values.where(values >= 0), plt.get_cmap(cmap).resampled(len(labels)), labels) if labels else (values, cmap, labels)


def _bar(mesh: Any, ax: Any, label: str, categories: list[Any], **style: Any) -> None:
    bar = mesh.figure.colorbar(mesh, ax=ax, shrink=0.85, pad=0.02, **style)
    if categories:
        bar.set_ticks(range(len(categories)), labels=[str(category) for category in categories])
        bar.minorticks_off()
    bar.set_label(label)
    bar.outline.set_visible(False)


def _finite(values: Any) -> Any:
    numbers = values.values
    return watched(values.size, lambda: np.asarray(numbers[np.isfinite(numbers)]))


def _require_map(values: Any) -> None:
    if not _door.is_xarray(values) or hasattr(values, "data_vars"):
        _door.wrong_type("values", values, "a DataArray, such as result.estimate")
    if set(values.dims) != {"x", "y"}:
        other = next((dim for dim in values.dims if dim not in ("x", "y")), "z")
        raise GridError(f"values have the dimensions {tuple(values.dims)}, but a map has y and x. "
                        f"Choose one of the others: values.isel({other}=0).")


def _as_map(ax: Axes, x: bool = True, y: bool = True) -> None:
    ax.set_aspect("equal")
    ax.ticklabel_format(style="plain", useOffset=False)
    ax.locator_params(nbins=5)
    ax.tick_params(labelsize=8, color="0.6")
    ax.set_facecolor("0.95")
    for spine in ax.spines.values():
        spine.set_color("0.7")
    ax.set_xlabel("x" if x else "")
    ax.set_ylabel("y" if y else "")
    # Of panels that share an axis, the outer ones alone have its labels.
    if len(ax.get_shared_x_axes().get_siblings(ax)) > 1 and len(ax.get_shared_y_axes().get_siblings(ax)) > 1:
        ax.label_outer()


def _as_variogram(ax: Axes, end: float) -> None:
    ax.set(xlabel="distance", ylabel="semivariance", xlim=(0.0, end))
    ax.set_ylim(bottom=0.0)
    ax.spines[["top", "right"]].set_visible(False)


def _curve(ax: Axes, model: CovModel, end: float, azimuth: float, dip: float, **style: Any) -> None:
    distance = np.linspace(0.0, end, 301)[1:]
    a, d = np.deg2rad(azimuth), np.deg2rad(dip)
    lags = distance[:, None] * [np.sin(a) * np.cos(d), np.cos(a) * np.cos(d), -np.sin(d)]
    if model.isotropic:
        lags = distance
    elif not any(len(s.range) == 3 and not s.isotropic for s in model.structures):
        lags = lags[:, :2]
    ax.plot(distance, model.variogram(lags), linewidth=1.8, **style)


def _bars(ax: Axes, numbers: Any, label: str, density: bool = False) -> Axes:
    counts, edges = watched(len(numbers), np.histogram, numbers, min(40, max(5, int(2 * len(numbers) ** (1 / 3)))))
    ax.hist(edges[:-1], edges, weights=counts, color=LINE, alpha=0.85, edgecolor="white", linewidth=0.6, density=density)
    ax.set(xlabel=label, ylabel="density" if density else "count")
    ax.spines[["top", "right"]].set_visible(False)
    return ax
