#!/usr/bin/env python3
"""A gallery of the image analysis, on unconditional simulations of a continuous and a categorical variable.

Leaves examples/output/image_analysis.png. From the continuous variable: variogram map, variograms and model, moving
average, pyramid, curves of connectivity. From the categories: geobodies, signed distance, dilation and erosion,
transiogram and connectivity function.
"""

import os
from contextlib import contextmanager

import numpy as np
from matplotlib.colors import BoundaryNorm, ListedColormap
from matplotlib.figure import Figure
from matplotlib.patches import Patch

from kestrum import native
import meuse

THREADS = os.cpu_count() or 1

N, CELL = 200, 10.0  # nodes along x and y; m
SIDE = N * CELL
EXTENT = (0.0, SIDE, 0.0, SIDE)
LAG_MAX = 60  # cells, of the maps of lags

# The direction of the longest ranges goes two cells along x for one along y: the lags (2k, k) lie on it.
ALONG, ACROSS = (2, 1), (-1, 2)
AZIMUTH = float(np.degrees(np.arctan2(*ALONG)))  # degrees from north to east
STEP = CELL * np.hypot(*ALONG)  # m, between two such lags

# Elements of the models: type, share of the variance, range along and across the direction (m).
FIELD = ((native.COV_CUBIC, 0.9, 700.0, 300.0), (native.COV_SPHERICAL, 0.1, 120.0, 120.0))
CATEGORY = ((native.COV_SPHERICAL, 1.0, 450.0, 180.0),)
CLASSES = {"clay": 0.28, "silt": 0.42, "sand": 0.30}  # with their proportions
SAND = 2.0
NREALIZATION = 8

FIELD_STYLE = {"cmap": "viridis", "vmin": -2.5, "vmax": 2.5}


# Vectors and images of the library.


@contextmanager
def reals(values):
    """A vector of reals with these values."""
    vector = native.new_real_array(len(values))
    native.vorl_set_real_vector_from_array(vector, 0, values)
    yield vector
    native.delete_real_array(vector)


@contextmanager
def ints(values):
    vector = native.new_int_array(len(values))
    native.vorl_set_int_vector_from_array(vector, 0, np.asarray(values, dtype=np.intc))
    yield vector
    native.delete_int_array(vector)


def read_ints(vector, n):
    array = np.empty(n, dtype=np.intc)
    native.vorl_get_array_from_int_vector(vector, 0, array)
    return array


def fill_grid(grid, n=N):
    """A square of n by n nodes and SIDE metres."""
    grid.nx, grid.ny, grid.nz = n, n, 1
    grid.sx, grid.sy, grid.sz = SIDE / n, SIDE / n, 1.0
    grid.nxy = grid.nxyz = n * n


@contextmanager
def image_of(values):
    image = native.vorl_image()
    native.VORLInitImage(image)
    meuse.check(native.VORLMallocImage(image, values.size, 1))
    fill_grid(image.grid, len(values))
    image.nvar, image.nxyzv = 1, values.size
    native.vorl_set_varname(image.varName, 0, "v")
    native.vorl_set_real_vector_from_array(image.var, 0, values.ravel())
    yield image
    native.VORLFreeImage(image)


def read_map(image):
    """The first variable of a flat image as rows of nodes, NaN where missing."""
    values = meuse.vector(image.var, image.grid.nxy).reshape(image.grid.ny, image.grid.nx)
    return np.where(values == native.VORL_MISSING_VALUE, np.nan, values)


def analyse(function, values, *arguments):
    """The map that `function` makes of a map."""
    result = native.vorl_image()
    native.VORLInitImage(result)
    with image_of(values) as image:
        meuse.check(function(image, result, *arguments))
    answer = read_map(result)
    native.VORLFreeImage(result)
    return answer


# Simulation.


def fill_cov_model(model, elements, sill=1.0):
    vector = native.new_VORL_COVMODELELEM_array(len(elements))
    for i, (kind, weight, along, across) in enumerate(elements):
        element = native.vorl_covModelElem()
        element.covModelType, element.weightValue = kind, weight * sill
        element.rxValue, element.ryValue = across, along
        native.VORL_COVMODELELEM_array_setitem(vector, i, element)
    model.nelem, model.covModelElem, model.angle1Value = len(elements), vector, AZIMUTH
    return model


def simulate(sim, free, run, seed, nrealization):
    """Runs the filled input and releases it; one map per realization."""
    run.computationMode, run.varName = native.KESTRUM_SIM_SK, "v"
    run.simGrid = native.calloc_VORL_GRID()
    fill_grid(run.simGrid)
    # Seeds of realizations further apart than there are nodes: each node draws with a seed of its own.
    run.seed, run.seedIncrement, run.nrealization = seed, 53987, nrealization
    result = native.vorl_kestrumOutput()
    native.VORLKestrumInitKestrumOutput(result)
    monitor = native.vorl_progressMonitor()
    native.VORLInitProgressMonitor(monitor)
    try:
        meuse.check(sim(run, result, monitor, native.VORLUpdateProgressMonitor0_ptr, THREADS))
        return meuse.vector(result.outputImage.var, result.outputImage.nxyzv).reshape(-1, N, N)
    finally:
        free(run)
        native.VORLKestrumFreeKestrumOutput(result)


def simulate_field():
    """Realizations of a variable of mean 0 and variance 1, from the 24 nearest nodes simulated before."""
    run = native.vorl_kestrumInput()
    native.VORLKestrumInitKestrumInput(run)
    run.covModel = fill_cov_model(native.calloc_VORL_COVMODEL(), FIELD)
    run.searchRadiusRelative, run.nneighborMax, run.searchNeighborhoodSortMode = 1.0, 24, 1
    run.nGibbsSamplerPathMin = run.nGibbsSamplerPathMax = 1
    run.meanUsage = 1  # meanValue, which is 0
    return simulate(native.VORLOMPKestrumSim, native.VORLKestrumFreeKestrumInput, run, 1234, NREALIZATION)


def simulate_categories():
    run = native.vorl_kestrumIndicatorInput()
    native.VORLKestrumInitKestrumIndicatorInput(run)
    n = run.ncategory = len(CLASSES)
    run.probabilityUsage = 1
    run.categoryValue = native.new_real_array(n)
    run.probabilityValue = native.new_real_array(n)
    run.searchRadiusRelative = native.new_real_array(n)
    run.nneighborMax = native.new_int_array(n)
    run.searchNeighborhoodSortMode = native.new_int_array(n)
    run.covModel = native.new_VORL_COVMODEL_array(n)
    for i, proportion in enumerate(CLASSES.values()):
        model = fill_cov_model(native.vorl_covModel(), CATEGORY, proportion * (1.0 - proportion))
        native.VORL_COVMODEL_array_setitem(run.covModel, i, model)
        native.real_array_setitem(run.categoryValue, i, float(i))
        native.real_array_setitem(run.probabilityValue, i, proportion)
        native.real_array_setitem(run.searchRadiusRelative, i, 1.0)
        native.int_array_setitem(run.nneighborMax, i, 24)
        native.int_array_setitem(run.searchNeighborhoodSortMode, i, 1)
    sim, free = native.VORLOMPKestrumIndicatorSim, native.VORLKestrumFreeKestrumIndicatorInput
    return simulate(sim, free, run, 77, 1)[0]


# Analysis.


def lag_map(function, values):
    """A two-point statistic for all lags up to LAG_MAX cells; the lag 0 lies in the middle."""
    lags = (-LAG_MAX, LAG_MAX, 1)
    return analyse(function, values, 0, *lags, *lags, 0, 0, 1, native.FALSE, THREADS)


def profile(values, direction):
    """The lags of a map on a line through the middle."""
    n = LAG_MAX // max(map(abs, direction)) + 1
    return np.array([values[LAG_MAX + k * direction[1], LAG_MAX + k * direction[0]] for k in range(n)])


def model_variogram(elements, distances, along):
    """Values of the model at these distances along or across its direction."""
    model = fill_cov_model(native.vorl_covModel(), elements)
    zeros, cov = np.zeros(len(distances)), native.new_real_array(len(distances))
    with reals(zeros if along else distances) as x, reals(distances if along else zeros) as y, reals(zeros) as z:
        meuse.check(native.VORLKestrumEvaluateCovModelFixParamNoRotation(model, len(distances), x, y, z, cov))
    values = meuse.vector(cov, len(distances))
    native.delete_real_array(cov)
    native.VORLKestrumFreeCovModel(model)
    return sum(weight for _, weight, _, _ in elements) - values


def box_average(image, result, size):
    values = (native.FALSE, 0.0)  # as they are, not the proportion of one of them
    return native.VORLOMPMovingBoxAverageImage(size, size, 1.0, image, result, *values, native.FALSE, THREADS)


def halve(values):
    """The next level of a Gaussian pyramid."""
    defaults = (-1.0, -1.0, -1.0, -1.0)  # weights at the centre, smallest weight
    return analyse(native.VORLOMPImagePyramidReduce, values, 2, 2, 0, *defaults, THREADS)


def indicator(values, category):
    with reals([category]) as bound, ints([0]) as count:
        interval = (1, bound, bound, native.FALSE, native.FALSE)
        return analyse(native.VORLOMPImageIndicator, values, 0, native.FALSE, *interval, count, THREADS)


def geobodies(function, values, category):
    """Labels, and the sizes of the geobodies in nodes."""
    with reals([category]) as bound, ints([0]) as count:
        interval = (1, bound, bound, native.FALSE, native.FALSE)
        labels = analyse(function, values, 0, native.FALSE, *interval, count)
        outputs = [native.new_intp_array(1) for _ in range(4)]  # sizes, and extents along x, y, z
        with image_of(labels) as image:
            meuse.check(native.VORLImageGeobodySize(image, count, *outputs))
        vectors = [native.intp_array_getitem(output, 0) for output in outputs]
        sizes = read_ints(vectors[0], native.int_array_getitem(count, 0))
    for output, vector in zip(outputs, vectors):
        native.delete_int_array(vector)
        native.delete_intp_array(output)
    return labels, sizes


def by_disc(function, values, radius):
    """Dilation or erosion by a disc; the radius in cells."""
    y, x = (i.ravel() for i in np.mgrid[-radius : radius + 1, -radius : radius + 1])
    disc = x**2 + y**2 <= radius**2
    with ints(x[disc]) as shift_x, ints(y[disc]) as shift_y, ints(0 * x[disc]) as shift_z:
        shifts = (disc.sum().item(), shift_x, shift_y, shift_z)
        return analyse(function, values, *shifts, 1, native.FALSE, THREADS)


def gamma_curves(values, thresholds):
    """Gamma of the nodes at or below each of the equally spaced thresholds, and of those above it."""
    n, zeros = len(thresholds), np.zeros(len(thresholds))
    with image_of(values) as image, reals(zeros) as used, reals(zeros) as below, reals(zeros) as above:
        series = (n, thresholds[0], thresholds[1] - thresholds[0], used)
        function = native.VORLOMPImageConnectivity6GlobalIndicatorCurve
        meuse.check(function(image, *series, below, above, native.FALSE, THREADS))
        return meuse.vector(below, n), meuse.vector(above, n)


def euler_curves(values, thresholds):
    """The same of the Euler number: geobodies less holes."""
    n, zeros = len(thresholds), np.zeros(len(thresholds), dtype=np.intc)
    with image_of(values) as image, reals(thresholds) as used, ints(zeros) as below, ints(zeros) as above:
        series = (n, thresholds[0], thresholds[1] - thresholds[0], used)
        function = native.VORLOMPImageConnectivity6EulerNumberCurve
        meuse.check(function(image, *series, below, above, native.FALSE, THREADS))
        return read_ints(below, n), read_ints(above, n)


# The page: every panel a square, with its colours explained below.

BELOW_COLOR, ABOVE_COLOR = "#21618c", "#ca6f1e"


def draw_map(axis, values, title, extent=EXTENT, **style):
    axis.set_title(title, fontsize=11)
    axis.set_xticks(np.linspace(extent[0], extent[1], 5))
    axis.set_yticks(np.linspace(extent[2], extent[3], 5))
    return axis.imshow(values, origin="lower", extent=extent, interpolation="nearest", **style)


def draw_bar(axis, picture, label, **style):
    place = axis.inset_axes((0.1, -0.13, 0.8, 0.035))
    axis.figure.colorbar(picture, cax=place, orientation="horizontal", **style).set_label(label, fontsize=9, labelpad=1)


def draw_legend(axis, handles=None, top=-0.09, columns=4):
    place = {"loc": "upper center", "bbox_to_anchor": (0.5, top), "columnspacing": 1.0, "handlelength": 1.4}
    axis.legend(handles=handles, ncol=columns, frameon=False, fontsize=9, **place)


def draw_classes(axis, values, title, colors, top=-0.09):
    """A map of numbers from 0, with the colour of each; those without a name have no legend."""
    n = len(colors)
    style = {"cmap": ListedColormap(list(colors.values())), "norm": BoundaryNorm(np.arange(n + 1) - 0.5, n)}
    draw_map(axis, values, title, **style)
    handles = [Patch(facecolor=color, label=name) for name, color in colors.items() if name]
    draw_legend(axis, handles, top)


def prepare_curves(axis, title, xlabel, ylabel):
    axis.set_title(title, fontsize=11)
    axis.set_xlabel(xlabel, labelpad=2)
    axis.set_ylabel(ylabel, labelpad=2)
    axis.set_box_aspect(1.0)
    axis.grid(color="0.92", linewidth=0.8)
    axis.spines[["top", "right"]].set_visible(False)
    axis.margins(x=0.0)


def draw_family(axis, x, curves, color, label):
    """Each curve thin, their mean thick."""
    axis.plot(x, np.transpose(curves), color=color, linewidth=0.6, alpha=0.5)
    axis.plot(x, np.mean(curves, axis=0), color=color, linewidth=2.2, label=label)


def draw_variograms(axis, maps):
    prepare_curves(axis, f"Variograms of {len(maps)} realizations and the model", "lag (m)", "variogram")
    words = (f"along N {AZIMUTH:.0f}° E", "across")
    for direction, color, label in zip((ALONG, ACROSS), (BELOW_COLOR, ABOVE_COLOR), words):
        curves = [profile(values, direction) for values in maps]
        distances = STEP * np.arange(len(curves[0]))
        draw_family(axis, distances, curves, color, label)
        model = model_variogram(FIELD, distances, direction is ALONG)
        axis.plot(distances, model, "k--", linewidth=1.2, label="model" if direction is ACROSS else None)
    axis.set_ylim(0.0, 1.6)
    draw_legend(axis, top=-0.12)


def draw_pyramid(axis, field):
    """Four levels in the quarters of the panel."""
    axis.set_title("Pyramid: four levels of the realization", fontsize=11)
    axis.set_box_aspect(1.0)
    axis.axis("off")
    for i in range(4):
        field = halve(field)
        inset = axis.inset_axes((0.54 * (i % 2), 0.54 * (1 - i // 2), 0.46, 0.46))
        inset.imshow(field, origin="lower", extent=EXTENT, interpolation="nearest", **FIELD_STYLE)
        inset.set(xticks=[], yticks=[])
        inset.set_xlabel(f"{len(field)} × {len(field)} nodes", fontsize=9, labelpad=2)


def draw_geobodies(axis, categories, labels, sizes):
    """The largest geobodies in colours, the others grey."""
    palette = ("#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00", "#f0e442")
    largest = np.argsort(-sizes, kind="stable")[: len(palette)]
    number = np.ones(len(sizes) + 1, dtype=int)
    number[0] = 0
    number[largest + 1] = 2 + np.arange(len(largest))
    hectares = sizes * CELL**2 / 1e4
    colors = {"": "white", "smaller": "0.75"} | {f"{hectares[i]:.1f} ha": c for i, c in zip(largest, palette)}
    _, by_corner = geobodies(native.VORLImageGeobody26, categories, SAND)
    title = f"Geobodies of sand: {len(sizes)}, across corners {len(by_corner)}"
    draw_classes(axis, number[labels.astype(int)], title, colors, top=-0.07)


def draw_dilation(axis, sand):
    dilated = by_disc(native.VORLOMPImageDilate, sand, 2)
    eroded = by_disc(native.VORLOMPImageErode, sand, 2)
    colors = {"": "white", "added by dilation": "#a6cee3", "lost by erosion": "#fdbf6f", "left": "#1f4e79"}
    draw_classes(axis, dilated + sand + eroded, "Sand dilated and eroded by 20 m", colors)


def draw_transiograms(axis, sand, labels):
    prepare_curves(axis, "Transiogram and connectivity function of sand", "lag (m)", "probability")
    transiogram = lag_map(native.VORLOMPImageTransiogram, sand)
    connectivity = lag_map(native.VORLOMPImageConnectivityFunction1, labels)
    for direction, color, words in ((ALONG, BELOW_COLOR, "along"), (ACROSS, ABOVE_COLOR, "across")):
        for values, line, label in ((transiogram, "-", "sand"), (connectivity, "--", "same geobody")):
            curve = profile(values, direction)
            axis.plot(STEP * np.arange(len(curve)), curve, line, color=color, label=f"{label}, {words}")
    axis.axhline(sand.mean(), color="0.6", linewidth=0.8)
    axis.text(0.98 * axis.get_xlim()[1], sand.mean() + 0.01, "proportion of sand", ha="right", fontsize=9, color="0.4")
    axis.set_ylim(0.0, 1.0)
    draw_legend(axis, top=-0.12, columns=2)


def draw_connectivity(axis, realizations, function, title, ylabel):
    prepare_curves(axis, title, "threshold", ylabel)
    thresholds = np.linspace(-2.0, 2.0, 41)
    below, above = zip(*(function(values, thresholds) for values in realizations))
    draw_family(axis, thresholds, below, BELOW_COLOR, "nodes at or below")
    draw_family(axis, thresholds, above, ABOVE_COLOR, "nodes above")
    draw_legend(axis, top=-0.12)


def draw(realizations, categories):
    field = realizations[0]
    sand = indicator(categories, SAND)
    labels, sizes = geobodies(native.VORLImageGeobody6, categories, SAND)
    figure = Figure(figsize=(18.0, 15.0))
    figure.subplots_adjust(left=0.035, right=0.985, top=0.925, bottom=0.065, wspace=0.2, hspace=0.33)
    axes = figure.subplots(3, 4)
    figure.suptitle("Image analysis of a simulated variable and of categories (axes of maps: metres)", fontsize=16)

    picture = draw_map(axes[0, 0], field, f"A realization: {N} × {N} nodes", **FIELD_STYLE)
    draw_bar(axes[0, 0], picture, "simulated value", extend="both")
    variograms = [lag_map(native.VORLOMPImageVariogram, values) for values in realizations]
    extent = LAG_MAX * CELL * np.array((-1.0, 1.0, -1.0, 1.0))
    picture = draw_map(axes[0, 1], variograms[0], "Its variogram map (lags in m)", extent, cmap="viridis", vmin=0.0)
    draw_bar(axes[0, 1], picture, "variogram")
    draw_variograms(axes[0, 2], variograms)
    picture = draw_map(axes[0, 3], analyse(box_average, field, 210.0), "Moving average: box of 210 m", **FIELD_STYLE)
    draw_bar(axes[0, 3], picture, "average (white: the box leaves the grid)", extend="both")

    draw_classes(axes[1, 0], categories, "Categories", dict(zip(CLASSES, ("#35496b", "#a59c74", "#fdea45"))))
    draw_geobodies(axes[1, 1], categories, labels, sizes)
    distance = analyse(native.VORLOMPImageDistanceEuclideanSign, sand, THREADS)
    style = {"cmap": "RdBu_r", "vmin": -200.0, "vmax": 200.0}
    picture = draw_map(axes[1, 2], distance, "Signed Euclidean distance to sand", **style)
    draw_bar(axes[1, 2], picture, "metres (negative: inside)", extend="both")
    draw_dilation(axes[1, 3], sand)

    draw_pyramid(axes[2, 0], field)
    draw_transiograms(axes[2, 1], sand, labels)
    draw_connectivity(axes[2, 2], realizations, gamma_curves, "Connectivity of the realizations", "connectivity Γ")
    draw_connectivity(axes[2, 3], realizations, euler_curves, "Euler number of the realizations", "bodies less holes")
    meuse.save(figure, "image_analysis")


def main():
    meuse.OUTPUT.mkdir(exist_ok=True)
    draw(simulate_field(), simulate_categories())
    print(f"picture: {meuse.OUTPUT / 'image_analysis.png'}")


if __name__ == "__main__":
    main()
