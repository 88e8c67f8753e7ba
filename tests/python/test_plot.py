"""Pictures, by the data in them."""

import numpy as np
import pytest
import xarray as xr
from matplotlib import pyplot as plt

import kestrum as ks

random = np.random.default_rng(4)
points = ks.Points(random.uniform(0, 30, (40, 2)), random.normal(5.0, 2.0, 40), "zinc")
model = ks.Nugget(0.3) + ks.Spherical(2.0, range=(12, 6), azimuth=30)
values = random.normal(size=(3, 4))
values[1, 2] = np.nan
field = ks.Grid(4, 3, dx=10.0, dy=5.0, x0=100.0).to_xarray(values, "clay")


@pytest.fixture(autouse=True)
def close():
    yield
    plt.close("all")


@pytest.mark.parametrize("given", [field, field[::-1], field.T, field[:, [0, 1, 3]]])
def test_map(given):
    """Each value in its place, missing ones blank, in any order of the coordinates, and where these are no grid."""
    ax = ks.plot.map(given, points)
    ax.figure.canvas.draw()
    drawn = ax.images[0] if ax.images else ax.collections[0]
    shown = np.ma.filled(drawn.get_array().reshape(given.transpose("y", "x").shape).astype(float), np.nan)
    np.testing.assert_array_equal(shown, given.transpose("y", "x"))
    if ax.images:
        left, right, bottom, top = drawn.get_extent()
        assert (min(left, right), max(left, right), min(bottom, top), max(bottom, top)) == (100.0, 140.0, 0.0, 15.0)
        assert (bottom < top) == bool(given.y[0] < given.y[-1]) and ax.get_ylim()[0] < ax.get_ylim()[1]
    dots = ax.collections[-1]
    np.testing.assert_array_equal(dots.get_offsets(), points.coordinates)
    np.testing.assert_array_equal(dots.get_array(), points.values)
    assert drawn.get_clim() == dots.get_clim() == (np.nanmin(values), points.values.max())
    assert ax.get_aspect() == 1.0 and ax.figure.axes[1].get_ylabel() == "clay"


def test_realizations_share_their_colours():
    fields = xr.DataArray(random.normal(size=(7, 5, 6)), dims=("realization", "y", "x"), name="clay")
    figure = ks.plot.realizations(fields, n=3)
    images = [ax.images[0] for ax in figure.axes if ax.images]
    assert len(images) == 3 and {image.get_clim() for image in images} == {(float(fields.min()), float(fields.max()))}
    for k, image in enumerate(images):
        np.testing.assert_array_equal(image.get_array(), fields[k])


def test_categories_have_a_colour_each():
    grid = ks.Grid(15, 15, dx=2.0, dy=2.0)
    labelled = points.with_values(np.where(points.values > np.median(points.values), "sand", "clay"))
    mask = np.ones(grid.shape, bool)
    mask[:, 0] = False
    rock = ks.simulate_categories(labelled, model, grid, n=2, mask=mask)
    for figure in (ks.plot.map(rock[0], labelled).figure, ks.plot.realizations(rock)):
        panel, bar = figure.axes[0], figure.axes[-1]
        shown = panel.images[0].get_array()
        assert np.array_equal(shown.mask, ~mask) and set(shown.compressed()) <= {0.0, 1.0}
        assert [text.get_text() for text in bar.get_yticklabels()] == ["clay", "sand"] and panel.images[0].cmap.N == 2
    drawn = ks.plot.map(rock[0], labelled).collections[0].get_array()
    assert np.array_equal(drawn, labelled.values == "sand")


def test_variogram_and_model():
    found = ks.variogram(points, lag=3.0, n_lags=5, azimuth=[30, 120], tolerance=45)
    ax = ks.plot.variogram(found, model)
    for row, (dots, line) in enumerate(zip(ax.collections, ax.lines)):
        np.testing.assert_array_equal(dots.get_offsets(), np.column_stack((found.lag[row], found.gamma[row])))
        angle = np.deg2rad(found.azimuth[row])
        distance = line.get_xdata()
        np.testing.assert_allclose(line.get_ydata(), model.variogram(distance[:, None] * [np.sin(angle), np.cos(angle)]))
    lines = ks.plot.model(model, max_distance=20.0).lines
    assert len(lines) == 2 and lines[0].get_xdata()[-1] == 20.0


def test_histogram_and_validation():
    scores = ks.NormalScore(points.values)
    for ax, numbers in zip(ks.plot.histogram(points, scores).axes, (points.values, scores.scores)):
        assert sum(bar.get_height() for bar in ax.patches) == 40
        assert ax.patches[0].get_x() == pytest.approx(numbers.min())
    table = ks.cross_validate(points, model)
    scatter, errors, _, *_ = ks.plot.validation(table).axes
    np.testing.assert_array_equal(scatter.collections[0].get_offsets(), table[["value", "estimate"]])
    np.testing.assert_array_equal(errors.collections[0].get_array(), table["error"])
