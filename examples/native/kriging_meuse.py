#!/usr/bin/env python3
"""Maps of zinc in the topsoil of the Meuse flood plain, by ordinary kriging.

Reads examples/data/meuse, kriges the logarithm of zinc on a 40 m grid, once from the 20 nearest samples of each node
and once from all samples, and leaves reports, result files (.gslib and .vtk) and pictures in examples/output.
"""

import os

import numpy as np

from kestrum import native
import meuse

VARIABLE = "log_zinc"


def krige(name, search_radius_relative, nneighbor_max, threads):
    """One run: its files go to the output, its estimate and standard deviation are returned as maps."""
    x, y, zinc = meuse.read_samples("x", "y", "zinc")
    run = native.vorl_kestrumInput()
    native.VORLKestrumInitKestrumInput(run)
    points = meuse.make_point_set(x, y, {VARIABLE: np.log(zinc)})
    meuse.prepare(run, native.KESTRUM_OK, VARIABLE, points, name)
    run.covModel = meuse.make_cov_model()
    run.searchRadiusRelative = search_radius_relative
    run.nneighborMax = nneighbor_max
    run.searchNeighborhoodSortMode = 2

    maps = meuse.execute(name, run, threads, vtk_file=name + ".vtk")
    for title, values in zip(("estimate", "standard deviation"), maps):
        print(f"  {title:<18} {np.nanmin(values):6.3f} to {np.nanmax(values):6.3f}, mean {np.nanmean(values):6.3f}")
    return maps


def draw(name, title, maps):
    """The estimate beside its standard deviation."""
    x, y, zinc = meuse.read_samples("x", "y", "zinc")
    value = np.log(zinc)
    figure, axes = meuse.new_figure(title, 1, 2, (12.5, 6.9))
    left, right = axes[0]

    # One colour scale for map and samples, and the same for every run.
    style = {"cmap": "viridis", "vmin": value.min(), "vmax": value.max()}
    picture = meuse.draw_map(left, maps[0], "Estimate, and the samples in their own colours", **style)
    meuse.draw_samples(left, x, y, value, **style)
    bar = meuse.draw_bar(figure, picture, left, "")
    meuse.label_concentrations(bar, "zinc", (125, 250, 500, 1000, 1750))

    # From the nugget's share, below which only the nodes of the samples lie (0), to a node far from all samples.
    style = {"cmap": "magma_r", "vmin": np.sqrt(meuse.NUGGET), "vmax": np.sqrt(meuse.SILL + meuse.NUGGET)}
    picture = meuse.draw_map(right, maps[1], "Standard deviation, and the samples", **style)
    meuse.draw_samples(right, x, y)
    meuse.draw_bar(figure, picture, right, "standard deviation of ln zinc", extend="min")
    meuse.save(figure, name)


def main():
    meuse.OUTPUT.mkdir(exist_ok=True)
    threads = os.cpu_count() or 1
    moving = krige("meuse_moving", 2.0, 20, threads)
    unique = krige("meuse_unique", -1.0, -1, threads)
    difference = np.nanmax(np.abs(moving[0] - unique[0]))
    print(f"largest difference of the two estimates: {difference:.3f}")
    draw("meuse_moving", "Zinc in the Meuse flood plain: ordinary kriging, 20 nearest samples", moving)
    draw("meuse_unique", "Zinc in the Meuse flood plain: ordinary kriging, all samples", unique)
    print(f"reports, result files and pictures: {meuse.OUTPUT}")


if __name__ == "__main__":
    main()
