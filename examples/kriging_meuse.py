#!/usr/bin/env python3
"""Maps of zinc in the topsoil of the Meuse flood plain, by ordinary kriging.

Reads examples/data/meuse, kriges the logarithm of zinc on a 40 m grid, once from the 20 nearest samples of each node and
once from all samples, and leaves reports, result files (.gslib and .vtk) and pictures in examples/output.
"""

import csv
import os
import time
from pathlib import Path

import numpy as np

import kestrum

HERE = Path(__file__).resolve().parent
DATA = HERE / "data" / "meuse"
OUTPUT = HERE / "output"

NX, NY, CELL = 78, 104, 40.0
CORNER = (178440.0, 329600.0)
RANGE, SILL, NUGGET = 897.0, 0.59, 0.05
VARIABLE = "log_zinc"


def check(status):
    """Turns a status into an exception with its words."""
    if status != 0:
        raise RuntimeError(kestrum.vorl_get_error_message(-status).strip())


def vector(pointer, n):
    """The first n values of a vector of reals, as a NumPy array."""
    array = np.empty(n)
    kestrum.vorl_get_array_from_real_vector(pointer, 0, array)
    return array


def read_samples():
    """Coordinates and log zinc of the samples."""
    with open(DATA / "meuse.csv", newline="") as stream:
        rows = list(csv.DictReader(stream))
    x, y, zinc = (np.array([float(row[name]) for row in rows]) for name in ("x", "y", "zinc"))
    return x, y, np.log(zinc)


def read_mask():
    """1.0 at the nodes in the study area and 0.0 elsewhere, in node order (x runs fastest)."""
    mask = np.zeros((NY, NX))
    with open(DATA / "meuse_grid.csv", newline="") as stream:
        for row in csv.DictReader(stream):
            ix = int((float(row["x"]) - CORNER[0]) // CELL)
            iy = int((float(row["y"]) - CORNER[1]) // CELL)
            mask[iy, ix] = 1.0
    return mask.ravel()


# The records below lie in memory that the run input takes over and releases: hence calloc_..., which Python does not own.


def fill_grid(grid):
    grid.nx, grid.ny, grid.nz = NX, NY, 1
    grid.sx, grid.sy, grid.sz = CELL, CELL, 1.0
    grid.ox, grid.oy, grid.oz = CORNER[0], CORNER[1], -0.5
    grid.nxy = grid.nxyz = NX * NY


def make_image(name, values):
    image = kestrum.calloc_VORL_IMAGE()
    check(kestrum.VORLMallocImage(image, NX * NY, 1))
    fill_grid(image.grid)
    image.nvar, image.nxyzv = 1, NX * NY
    kestrum.vorl_set_varname(image.varName, 0, name)
    kestrum.vorl_set_real_vector_from_array(image.var, 0, values)
    return image


def make_point_set(x, y, value):
    points = kestrum.vorl_pointSet()
    check(kestrum.VORLMallocPointSet(points, len(x), 1))
    points.npoint, points.nvar = len(x), 1
    kestrum.vorl_set_real_vector_from_array(points.x, 0, x)
    kestrum.vorl_set_real_vector_from_array(points.y, 0, y)
    kestrum.vorl_set_real_vector_to_cst(points.z, 0, 0.0, len(x))
    kestrum.vorl_set_varname(points.varName, 0, VARIABLE)
    kestrum.vorl_set_real_vector_from_array(points.var, 0, value)
    point_sets = kestrum.new_VORL_POINTSET_array(1)
    kestrum.VORL_POINTSET_array_setitem(point_sets, 0, points)
    return point_sets


def make_cov_model():
    nugget = kestrum.vorl_covModelElem()
    nugget.covModelType, nugget.weightValue = kestrum.COV_NUGGET, NUGGET
    spherical = kestrum.vorl_covModelElem()
    spherical.covModelType, spherical.weightValue = kestrum.COV_SPHERICAL, SILL
    spherical.rxValue = spherical.ryValue = RANGE  # no range along z: the map is flat
    model = kestrum.calloc_VORL_COVMODEL()
    model.nelem = 2
    model.covModelElem = kestrum.new_VORL_COVMODELELEM_array(2)
    for i, element in enumerate((nugget, spherical)):
        kestrum.VORL_COVMODELELEM_array_setitem(model.covModelElem, i, element)
    return model


def krige(name, search_radius_relative, nneighbor_max, threads):
    """One run: its files go to OUTPUT, its estimate and standard deviation are returned as maps."""
    run = kestrum.vorl_kestrumInput()
    kestrum.VORLKestrumInitKestrumInput(run)
    run.varName = VARIABLE
    run.simGrid = kestrum.calloc_VORL_GRID()
    fill_grid(run.simGrid)
    run.computationMode = kestrum.KESTRUM_OK
    run.covModel = make_cov_model()
    run.searchRadiusRelative = search_radius_relative
    run.nneighborMax = nneighbor_max
    run.searchNeighborhoodSortMode = 2
    run.ndataPointSet = 1
    run.dataPointSet = make_point_set(*read_samples())
    run.maskImageFlag = kestrum.TRUE
    run.maskImage = make_image("mask", read_mask())
    run.formatString = kestrum.VORL_FORMAT_DEFAULT
    run.outputMode = kestrum.KESTRUM_OUTPUT_ALL_IN_ONE_FILE
    run.outputImageFileName = str(OUTPUT / (name + kestrum.VORL_EXTENSION_FOR_IMAGE_FILE))
    run.outputReportFlag = kestrum.TRUE
    run.outputReportFileName = str(OUTPUT / (name + "_report.txt"))

    result = kestrum.vorl_kestrumOutput()
    kestrum.VORLKestrumInitKestrumOutput(result)
    monitor = kestrum.vorl_progressMonitor()
    kestrum.VORLInitProgressMonitor(monitor)
    try:
        start = time.perf_counter()
        check(kestrum.VORLOMPKestrumSim(run, result, monitor, kestrum.VORLUpdateProgressMonitor0_ptr, threads))
        seconds = time.perf_counter() - start

        image = result.outputImage
        stream = kestrum.fopen(str(OUTPUT / (name + ".vtk")), "w")
        if stream is None:
            raise OSError(f"can not write to {OUTPUT}")
        try:
            check(kestrum.VORLWriteImage(image, kestrum.VORL_FORMAT_DEFAULT, 1, stream))
        finally:
            kestrum.fclose(stream)
        maps = vector(image.var, image.nxyzv).reshape(2, NY, NX)
    finally:
        kestrum.VORLKestrumFreeKestrumInput(run)
        kestrum.VORLKestrumFreeKestrumOutput(result)

    maps[maps == kestrum.VORL_MISSING_VALUE] = np.nan
    print(f"{name}: {np.isfinite(maps[0]).sum()} nodes in {seconds:.2f} s, {monitor.nwarning} warning(s)")
    for title, values in zip(("estimate", "standard deviation"), maps):
        print(f"  {title:<18} {np.nanmin(values):6.3f} to {np.nanmax(values):6.3f}, mean {np.nanmean(values):6.3f}")
    return maps


def draw(name, title, maps):
    """The estimate beside its standard deviation."""
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.ticker import MultipleLocator

    x, y, value = read_samples()
    extent = (CORNER[0], CORNER[0] + NX * CELL, CORNER[1], CORNER[1] + NY * CELL)
    figure, axes = plt.subplots(1, 2, figsize=(12.5, 7.4), sharey=True, layout="constrained")
    figure.suptitle(title, fontsize=14)

    # One colour scale for map and samples, and the same for every run.
    estimate_style = {"cmap": "viridis", "vmin": value.min(), "vmax": value.max()}
    map_style = {"origin": "lower", "extent": extent, "interpolation": "nearest", "zorder": 2}
    picture = axes[0].imshow(maps[0], **map_style, **estimate_style)
    axes[0].scatter(x, y, c=value, s=22, edgecolors="white", linewidths=0.7, zorder=3, **estimate_style)
    axes[0].set_title("Estimate, and the samples in their own colours", fontsize=11)
    bar = figure.colorbar(picture, ax=axes[0], shrink=0.85, pad=0.02)
    concentrations = [c for c in (125, 250, 500, 1000, 1750) if value.min() <= np.log(c) <= value.max()]
    bar.set_ticks(np.log(concentrations), labels=[f"{np.log(c):.2f}   ({c})" for c in concentrations])
    bar.set_label("ln zinc   (in brackets: zinc, mg/kg)")

    # From the nugget's share, below which only the nodes of the samples lie (0), to that of a node far from all samples.
    picture = axes[1].imshow(maps[1], **map_style, cmap="magma_r", vmin=np.sqrt(NUGGET), vmax=np.sqrt(SILL + NUGGET))
    axes[1].scatter(x, y, s=9, facecolors="white", edgecolors="black", linewidths=0.6, zorder=3)
    axes[1].set_title("Standard deviation, and the samples", fontsize=11)
    bar = figure.colorbar(picture, ax=axes[1], shrink=0.85, pad=0.02, extend="min")
    bar.set_label("standard deviation of ln zinc")

    for axis in axes:
        axis.set_xlabel("Easting (m)")
        axis.xaxis.set_major_locator(MultipleLocator(1000))
        axis.yaxis.set_major_locator(MultipleLocator(1000))
        axis.ticklabel_format(style="plain", useOffset=False)
        axis.set_facecolor("0.94")
        axis.grid(color="white", linewidth=0.8, zorder=1)
    axes[0].set_ylabel("Northing (m)")
    figure.savefig(OUTPUT / (name + ".png"), dpi=130)
    plt.close(figure)


def main():
    OUTPUT.mkdir(exist_ok=True)
    threads = os.cpu_count() or 1
    moving = krige("meuse_moving", 2.0, 20, threads)
    unique = krige("meuse_unique", -1.0, -1, threads)
    difference = np.nanmax(np.abs(moving[0] - unique[0]))
    print(f"largest difference of the two estimates: {difference:.3f}")
    draw("meuse_moving", "Zinc in the Meuse flood plain: ordinary kriging, 20 nearest samples", moving)
    draw("meuse_unique", "Zinc in the Meuse flood plain: ordinary kriging, all samples", unique)
    print(f"reports, result files and pictures: {OUTPUT}")


if __name__ == "__main__":
    main()
