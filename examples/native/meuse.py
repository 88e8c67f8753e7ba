"""What the Meuse examples share: the data, the records of a run, the run itself, and the look of the maps."""

import csv
import threading
import time
from pathlib import Path

import numpy as np
from matplotlib.figure import Figure
from matplotlib.ticker import MultipleLocator

from kestrum import native

EXAMPLES = Path(__file__).resolve().parents[1]
DATA = EXAMPLES / "data" / "meuse"
OUTPUT = EXAMPLES / "output"

NX, NY, CELL = 78, 104, 40.0
CORNER = (178440.0, 329600.0)
EXTENT = (CORNER[0], CORNER[0] + NX * CELL, CORNER[1], CORNER[1] + NY * CELL)

# The covariance model of the logarithm of zinc.
RANGE, SILL, NUGGET = 897.0, 0.59, 0.05


def check(status):
    """Turns a status into an exception with its text."""
    if status != 0:
        raise RuntimeError(native.vorl_get_error_message(-status).strip())


def vector(pointer, n):
    """The first n values of a vector of reals, as a NumPy array."""
    array = np.empty(n)
    native.vorl_get_array_from_real_vector(pointer, 0, array)
    return array


def read_samples(*names):
    """The named columns of the samples."""
    with open(DATA / "meuse.csv", newline="") as stream:
        rows = list(csv.DictReader(stream))
    return [np.array([float(row[name]) for row in rows]) for name in names]


def read_map(name):
    """A column of the grid's file as a map of NY by NX nodes, NaN outside the study area."""
    values = np.full((NY, NX), np.nan)
    with open(DATA / "meuse_grid.csv", newline="") as stream:
        for row in csv.DictReader(stream):
            ix = int((float(row["x"]) - CORNER[0]) // CELL)
            iy = int((float(row["y"]) - CORNER[1]) // CELL)
            values[iy, ix] = float(row[name])
    return values


# The records below are in memory that the run input takes over and releases: calloc_..., which Python does not own.


def fill_grid(grid):
    grid.nx, grid.ny, grid.nz = NX, NY, 1
    grid.sx, grid.sy, grid.sz = CELL, CELL, 1.0
    grid.ox, grid.oy, grid.oz = CORNER[0], CORNER[1], -0.5
    grid.nxy = grid.nxyz = NX * NY


def fill_image(image, variables):
    """Gives an image the grid and the named maps; NaN becomes missing. The image is cleared before."""
    check(native.VORLMallocImage(image, NX * NY, len(variables)))
    fill_grid(image.grid)
    image.nvar, image.nxyzv = len(variables), NX * NY * len(variables)
    for i, (name, values) in enumerate(variables.items()):
        native.vorl_set_varname(image.varName, i, name)
        values = np.nan_to_num(values.ravel(), nan=native.VORL_MISSING_VALUE)
        native.vorl_set_real_vector_from_array(image.var, i * NX * NY, values)
    return image


def make_image(name, values):
    return fill_image(native.calloc_VORL_IMAGE(), {name: values})


def make_point_set(x, y, variables):
    """A vector of one point set with the named variables; NaN becomes missing."""
    points = native.vorl_pointSet()
    check(native.VORLMallocPointSet(points, len(x), len(variables)))
    points.npoint, points.nvar = len(x), len(variables)
    native.vorl_set_real_vector_from_array(points.x, 0, x)
    native.vorl_set_real_vector_from_array(points.y, 0, y)
    native.vorl_set_real_vector_to_cst(points.z, 0, 0.0, len(x))
    for i, (name, values) in enumerate(variables.items()):
        native.vorl_set_varname(points.varName, i, name)
        values = np.nan_to_num(values, nan=native.VORL_MISSING_VALUE)
        native.vorl_set_real_vector_from_array(points.var, i * len(x), values)
    point_sets = native.new_VORL_POINTSET_array(1)
    native.VORL_POINTSET_array_setitem(point_sets, 0, points)
    return point_sets


def fill_cov_model(model, nugget=NUGGET, sill=SILL, along=RANGE, across=None, azimuth=0.0):
    """A nugget and a spherical element. The range is `along` in the direction `azimuth` (degrees from north to east),
    and `across` at right angles to it, by default the same. `along` and `azimuth` may be maps."""
    elements = native.new_VORL_COVMODELELEM_array(2)
    for i, (kind, weight) in enumerate(((native.COV_NUGGET, nugget), (native.COV_SPHERICAL, sill))):
        element = native.vorl_covModelElem()
        element.covModelType, element.weightValue = kind, weight
        if kind != native.COV_NUGGET:  # no range along z: the map is flat
            element.rxValue = along if across is None else across
            if isinstance(along, np.ndarray):
                element.ryImageFlag, element.ryImage = native.TRUE, make_image("range", along)
            else:
                element.ryValue = along
        native.VORL_COVMODELELEM_array_setitem(elements, i, element)
    model.nelem, model.covModelElem = 2, elements
    if isinstance(azimuth, np.ndarray):
        model.angle1ImageFlag, model.angle1Image = native.TRUE, make_image("azimuth", azimuth)
    else:
        model.angle1Value = azimuth
    return model


def make_cov_model(**parameters):
    return fill_cov_model(native.calloc_VORL_COVMODEL(), **parameters)


def study_area():
    """Where the map is: a mask of the nodes."""
    return np.isfinite(read_map("dist"))


def prepare(run, mode, variable, point_sets, file_name=None, masked=True):
    """What the runs on continuous and on categorical variables have in common."""
    run.computationMode = mode
    run.varName = variable
    run.simGrid = native.calloc_VORL_GRID()
    fill_grid(run.simGrid)
    run.ndataPointSet, run.dataPointSet = 1, point_sets
    if masked:
        run.maskImageFlag = native.TRUE
        run.maskImage = make_image("mask", study_area().astype(float))
    run.formatString = native.VORL_FORMAT_DEFAULT
    if file_name:
        run.outputMode = native.KESTRUM_OUTPUT_ALL_IN_ONE_FILE
        run.outputImageFileName = str(OUTPUT / (file_name + native.VORL_EXTENSION_FOR_IMAGE_FILE))
        run.outputReportFlag = native.TRUE
        run.outputReportFileName = str(OUTPUT / (file_name + "_report.txt"))
    return run


def write_image(image, file_name, file_type):
    """A file of the image: text of file type 0 (GSLIB) or 1 (VTK)."""
    stream = native.fopen(str(OUTPUT / file_name), "w")
    if stream is None:
        raise OSError(f"can not write to {OUTPUT}")
    try:
        check(native.VORLWriteImage(image, native.VORL_FORMAT_DEFAULT, file_type, stream))
    finally:
        native.fclose(stream)


def write_maps(file_name, variables):
    """A GSLIB-style text file of the named maps."""
    image = native.vorl_image()
    native.VORLInitImage(image)
    try:
        write_image(fill_image(image, variables), file_name, 0)
    finally:
        native.VORLFreeImage(image)


def execute(title, run, threads, vtk_file=None):
    """Runs the filled input and releases it. Returns the result, one map per variable, NaN where missing."""
    categorical = isinstance(run, native.vorl_kestrumIndicatorInput)
    sim = native.VORLOMPKestrumIndicatorSim if categorical else native.VORLOMPKestrumSim
    free = native.VORLKestrumFreeKestrumIndicatorInput if categorical else native.VORLKestrumFreeKestrumInput
    result = native.vorl_kestrumOutput()
    native.VORLKestrumInitKestrumOutput(result)
    monitor = native.vorl_progressMonitor()
    native.VORLInitProgressMonitor(monitor)

    # A run lets other Python threads run meanwhile: this one shows the progress, if it takes more than a moment.
    ended = threading.Event()

    def tell_progress():
        while not ended.wait(1.0):
            print(f" {monitor.allRealizationProgress} %", end="", flush=True)

    print(f"{title}:", end="", flush=True)
    teller = threading.Thread(target=tell_progress)
    teller.start()
    try:
        start = time.perf_counter()
        try:
            status = sim(run, result, monitor, native.VORLUpdateProgressMonitor0_ptr, threads)
        finally:
            ended.set()
            teller.join()
        check(status)
        seconds = time.perf_counter() - start
        print(f" done in {seconds:.2f} s, {monitor.nwarning} warning(s)")
        image = result.outputImage
        if vtk_file:
            write_image(image, vtk_file, 1)
        maps = vector(image.var, image.nxyzv).reshape(image.nvar, NY, NX)
    finally:
        free(run)
        native.VORLKestrumFreeKestrumOutput(result)
    maps[maps == native.VORL_MISSING_VALUE] = np.nan
    return maps


# The look of the maps.


def new_figure(title, rows, columns, size):
    """A figure of map axes, and the axes in an array of rows by columns."""
    figure = Figure(figsize=size, layout="constrained")
    axes = figure.subplots(rows, columns, sharex=True, sharey=True, squeeze=False)
    figure.suptitle(title, fontsize=14)
    for axis in axes.flat:
        axis.xaxis.set_major_locator(MultipleLocator(1000))
        axis.yaxis.set_major_locator(MultipleLocator(1000))
        axis.ticklabel_format(style="plain", useOffset=False)
        axis.set_facecolor("0.94")
        axis.grid(color="white", linewidth=0.8, zorder=1)
    for axis in axes[-1]:
        axis.set_xlabel("Easting (m)")
    for axis in axes[:, 0]:
        axis.set_ylabel("Northing (m)")
    return figure, axes


def draw_map(axis, values, title, **style):
    axis.set_title(title, fontsize=11)
    return axis.imshow(values, origin="lower", extent=EXTENT, interpolation="nearest", zorder=2, **style)


def draw_samples(axis, x, y, value=None, **style):
    """The samples in their own colours, or, without values, as white dots."""
    if value is None:
        axis.scatter(x, y, s=9, facecolors="white", edgecolors="black", linewidths=0.6, zorder=3)
    else:
        axis.scatter(x, y, c=value, s=22, edgecolors="white", linewidths=0.7, zorder=3, **style)


def draw_members(axis, x, y, member):
    """The samples that belong to a class as white dots, the others as small black ones."""
    axis.scatter(x[~member], y[~member], s=3, color="black", zorder=3)
    draw_samples(axis, x[member], y[member])


def draw_bar(figure, picture, axes, label, **style):
    bar = figure.colorbar(picture, ax=axes, shrink=0.85, pad=0.02, extendfrac=0.03, **style)
    bar.set_label(label, labelpad=8)
    return bar


def label_concentrations(bar, name, concentrations):
    """Ticks of a bar of logarithms at round concentrations, in mg/kg."""
    low, high = bar.mappable.get_clim()
    shown = [c for c in concentrations if low <= np.log(c) <= high]
    bar.set_ticks(np.log(shown), labels=[f"{np.log(c):.2f}   ({c:g})" for c in shown])
    bar.set_label(f"ln {name}   (in brackets: {name}, mg/kg)", labelpad=8)


def save(figure, name):
    figure.savefig(OUTPUT / (name + ".png"), dpi=130)
