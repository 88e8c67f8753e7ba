#!/usr/bin/env python3
"""Sequential simulation of the metals in the topsoil of the Meuse flood plain.

Reads examples/data/meuse and leaves result files (.gslib), reports and pictures in examples/output:
  - 100 realizations of the logarithm of zinc; their mean, standard deviation, and probability of exceeding a limit
  - zinc in three classes: probabilities by indicator kriging, and realizations
  - cadmium, of which low contents are known as "below the detection limit" only: bounds instead of values
  - zinc with a covariance model that turns with the river, against one of fixed direction
"""

import os

import matplotlib
import numpy as np
from matplotlib.colors import BoundaryNorm

from kestrum import native
import meuse

THREADS = os.cpu_count() or 1

# A node draws with the seed of its realization plus its position in the path: seeds must differ by more than the number
# of nodes (8112), or realizations share draws. The early draws of a seed s follow the fractional part of 0.57 s: an
# increment that is a multiple of 100 nearly repeats them. This prime spreads them well over (0, 1): 0.57 * 13487 ends
# on .59.
SEED, SEED_INCREMENT = 2026, 13487

INTERVENTION = 720.0  # mg/kg of zinc: the Dutch value for soil above which a clean-up is considered
CLASS_LIMITS = (200.0, 500.0)  # mg/kg of zinc
DETECTION_LIMIT = 1.0  # mg/kg of cadmium
ALONG, ACROSS = 1200.0, 700.0  # m, ranges of the model that has a direction

# Realizations go beyond the samples: so do the colours, and the tips of the bar stand for anything further out.
ZINC_STYLE = {"cmap": "viridis", "vmin": np.log(80.0), "vmax": np.log(2200.0)}
CADMIUM_STYLE = {"cmap": "viridis", "vmin": np.log(0.15), "vmax": np.log(20.0)}
PROBABILITY_STYLE = {"cmap": "YlGnBu", "vmin": 0.0, "vmax": 1.0}


def draw_zinc_bar(figure, picture, axes):
    bar = meuse.draw_bar(figure, picture, axes, "", extend="both")
    meuse.label_concentrations(bar, "zinc", (100, 200, 500, 1000, 2000))


def prepare(mode, variable, points, model, nrealization, sort_mode=2, masked=True):
    """The input of a run on a continuous variable, from the 20 nearest data and simulated nodes."""
    run = native.vorl_kestrumInput()
    native.VORLKestrumInitKestrumInput(run)
    meuse.prepare(run, mode, variable, points, masked=masked)
    run.covModel = model
    run.searchRadiusRelative, run.nneighborMax, run.searchNeighborhoodSortMode = 2.0, 20, sort_mode
    run.nGibbsSamplerPathMin, run.nGibbsSamplerPathMax = 10, 50  # used if there are bounds
    run.seed, run.seedIncrement, run.nrealization = SEED, SEED_INCREMENT, nrealization
    return run


def zinc_realizations():
    """100 realizations: four of them, and the statistics of all."""
    x, y, zinc = meuse.read_samples("x", "y", "zinc")
    points = meuse.make_point_set(x, y, {"log_zinc": np.log(zinc)})
    run = prepare(native.KESTRUM_SIM_SK, "log_zinc", points, meuse.make_cov_model(), 100)
    realizations = meuse.execute("zinc, 100 realizations", run, THREADS)

    mean, deviation = realizations.mean(axis=0), realizations.std(axis=0)
    exceeding = np.where(np.isnan(mean), np.nan, (realizations > np.log(INTERVENTION)).mean(axis=0))
    meuse.write_maps("meuse_realizations.gslib", {f"log_zinc_real{i:05d}": realizations[i] for i in range(4)})
    meuse.write_maps(
        "meuse_simulation.gslib",
        {"log_zinc_mean": mean, "log_zinc_std": deviation, "zinc_above_720_prob": exceeding},
    )
    areas = (realizations > np.log(INTERVENTION)).sum(axis=(1, 2)) * meuse.CELL**2 / 1e4
    print(
        f"  area above {INTERVENTION:.0f} mg/kg: {areas.mean():.0f} ha, "
        f"between {np.quantile(areas, 0.05):.0f} and {np.quantile(areas, 0.95):.0f} ha in 90 % of the realizations"
    )

    figure, axes = meuse.new_figure("Zinc in the Meuse flood plain: four of 100 realizations", 1, 4, (16, 5.4))
    for i, axis in enumerate(axes[0]):
        picture = meuse.draw_map(axis, realizations[i], f"Realization {i + 1}", **ZINC_STYLE)
        meuse.draw_samples(axis, x, y, np.log(zinc), **ZINC_STYLE)
    draw_zinc_bar(figure, picture, axes)
    meuse.save(figure, "meuse_realizations")

    figure, axes = meuse.new_figure("Zinc in the Meuse flood plain: what 100 realizations show", 1, 3, (16, 6.2))
    left, middle, right = axes[0]
    picture = meuse.draw_map(left, mean, "Mean", **ZINC_STYLE)
    draw_zinc_bar(figure, picture, left)
    picture = meuse.draw_map(middle, deviation, "Standard deviation", cmap="magma_r", vmin=0.2, vmax=0.8)
    meuse.draw_bar(figure, picture, middle, "standard deviation of ln zinc", extend="min")
    title = f"Probability of more than {INTERVENTION:.0f} mg/kg"
    picture = meuse.draw_map(right, exceeding, title, **PROBABILITY_STYLE)
    meuse.draw_bar(figure, picture, right, "probability   (white: samples above)")
    meuse.draw_samples(left, x, y)
    meuse.draw_samples(middle, x, y)
    meuse.draw_members(right, x, y, zinc > INTERVENTION)
    meuse.save(figure, "meuse_simulation")


def prepare_classes(mode, x, y, category, file_name):
    """The input of a run on the classes, each with its own covariance model."""
    parameters = (  # fitted by eye to the variograms of the indicators
        {"nugget": 0.04, "sill": 0.17, "along": 700.0},
        {"nugget": 0.08, "sill": 0.15, "along": 350.0},
        {"nugget": 0.06, "sill": 0.19, "along": 800.0},
    )
    n = len(parameters)
    run = native.vorl_kestrumIndicatorInput()
    native.VORLKestrumInitKestrumIndicatorInput(run)
    meuse.prepare(run, mode, "zinc_class", meuse.make_point_set(x, y, {"zinc_class": category}), file_name)
    run.ncategory = n
    run.categoryValue = native.new_real_array(n)
    run.covModel = native.new_VORL_COVMODEL_array(n)
    run.searchRadiusRelative = native.new_real_array(n)
    run.nneighborMax = native.new_int_array(n)
    run.searchNeighborhoodSortMode = native.new_int_array(n)
    for i, values in enumerate(parameters):
        native.real_array_setitem(run.categoryValue, i, float(i))
        native.VORL_COVMODEL_array_setitem(run.covModel, i, meuse.fill_cov_model(native.vorl_covModel(), **values))
        native.real_array_setitem(run.searchRadiusRelative, i, 2.0)
        native.int_array_setitem(run.nneighborMax, i, 20)
        native.int_array_setitem(run.searchNeighborhoodSortMode, i, 2)
    run.seed, run.seedIncrement, run.nrealization = SEED, SEED_INCREMENT, 2
    return run


def zinc_classes():
    """Zinc in three classes: indicator kriging, and two realizations."""
    x, y, zinc = meuse.read_samples("x", "y", "zinc")
    category = np.digitize(zinc, CLASS_LIMITS).astype(float)
    run = prepare_classes(native.KESTRUM_OK, x, y, category, "meuse_class_probabilities")
    probability = meuse.execute("zinc classes, indicator kriging", run, THREADS)
    run = prepare_classes(native.KESTRUM_SIM_SK, x, y, category, "meuse_class_realizations")
    realizations = meuse.execute("zinc classes, 2 realizations", run, THREADS)
    outside = np.isnan(probability[0])
    likeliest = np.where(outside, np.nan, np.argmax(np.nan_to_num(probability), axis=0))

    low, high = CLASS_LIMITS
    names = (f"below {low:.0f}", f"{low:.0f} to {high:.0f}", f"above {high:.0f}")
    figure, axes = meuse.new_figure("Zinc in three classes (mg/kg): indicator kriging and simulation", 2, 3, (13, 10.6))
    for i, axis in enumerate(axes[0]):
        title = f"Probability of zinc {names[i]} mg/kg"
        picture = meuse.draw_map(axis, probability[i], title, **PROBABILITY_STYLE)
        meuse.draw_members(axis, x, y, category == i)
    meuse.draw_bar(figure, picture, axes[0], "probability   (white: samples of the class)")

    style = {"cmap": matplotlib.colormaps["viridis"].resampled(3), "norm": BoundaryNorm((-0.5, 0.5, 1.5, 2.5), 3)}
    maps = {"Realization 1": realizations[0], "Realization 2": realizations[1], "Most probable class": likeliest}
    for axis, (title, values) in zip(axes[1], maps.items()):
        picture = meuse.draw_map(axis, values, title, **style)
        meuse.draw_samples(axis, x, y, category, **style)
    bar = meuse.draw_bar(figure, picture, axes[1], "zinc (mg/kg)")
    bar.set_ticks(range(3), labels=names)
    meuse.save(figure, "meuse_classes")


def cadmium_below_detection():
    """Cadmium as if the laboratory's limit were 1 mg/kg: low samples left out, as bounds, and as measured."""
    x, y, cadmium = meuse.read_samples("x", "y", "cadmium")
    value, limit = np.log(cadmium), np.log(DETECTION_LIMIT)
    below = cadmium < DETECTION_LIMIT
    hard = np.where(below, np.nan, value)
    upper = "log_cadmium" + native.VORL_INEQUALITY_DATA_SUFFIX_FOR_MAX
    cases = {
        "dropped": {"log_cadmium": hard},
        "bounds": {"log_cadmium": hard, upper: np.where(below, limit, np.nan)},
        "measured": {"log_cadmium": value},
    }
    means, firsts = [], []
    for name, variables in cases.items():
        model = meuse.make_cov_model(nugget=0.55, sill=1.30, along=1000.0)  # fitted by eye to all samples
        points = meuse.make_point_set(x, y, variables)
        run = prepare(native.KESTRUM_SIM_SK, "log_cadmium", points, model, 40)
        run.meanUsage, run.meanValue = 1, np.median(value)  # which does not depend on values below the limit
        realizations = meuse.execute(f"cadmium, 40 realizations, low samples {name}", run, THREADS)
        means.append(realizations.mean(axis=0))
        firsts.append(realizations[0])
    meuse.write_maps("meuse_detection.gslib", {f"log_cadmium_mean_{name}": m for name, m in zip(cases, means)})
    for name, values in zip(cases, means):
        print(f"  low samples {name}: mean over the map {np.nanmean(values):.2f}")

    words = f"{below.sum()} of {len(x)} samples are below {DETECTION_LIMIT:g} mg/kg (triangles: bounds)"
    title = "Cadmium in the Meuse flood plain: " + words
    figure, axes = meuse.new_figure(title, 2, 3, (13, 10.6))
    titles = ("low samples left out", f"low samples as “< {DETECTION_LIMIT:g} mg/kg”", "low samples as measured")
    for column, name in enumerate(titles):
        picture = meuse.draw_map(axes[0, column], means[column], "Mean of 40, " + name, **CADMIUM_STYLE)
        meuse.draw_map(axes[1, column], firsts[column], "A realization, " + name, **CADMIUM_STYLE)
        shown = np.ones(len(x), dtype=bool) if column == 2 else ~below
        for axis in axes[:, column]:
            meuse.draw_samples(axis, x[shown], y[shown], value[shown], **CADMIUM_STYLE)
            if column == 1:
                axis.scatter(x[below], y[below], s=22, marker="v", facecolors="none", edgecolors="white", zorder=3)
    bar = meuse.draw_bar(figure, picture, axes, "", extend="both")
    meuse.label_concentrations(bar, "cadmium", (0.2, 0.5, 1, 2, 5, 10, 20))
    meuse.save(figure, "meuse_detection")


def river_azimuth(reach=10):
    """The direction along the river at each node, in degrees from north to east: at right angles to the slope of a
    plane fitted to the distance to the river, over the nodes of the study area within `reach` nodes."""
    distance = meuse.read_map("dist")
    iy, ix = np.nonzero(np.isfinite(distance))
    azimuth = np.full(distance.shape, np.nan)
    for row, column in zip(iy, ix):
        near = np.hypot(ix - column, iy - row) <= reach
        plane = np.column_stack((ix[near] - column, iy[near] - row, np.ones(near.sum())))
        east, north, _ = np.linalg.lstsq(plane, distance[iy[near], ix[near]], rcond=None)[0]
        azimuth[row, column] = np.degrees(np.arctan2(-north, east)) % 180.0
    return azimuth


def turning_with_the_river():
    """A model of two ranges: kriging and a realization with one direction everywhere, and with that of the river, whose
    pull fades away from it."""
    x, y, zinc = meuse.read_samples("x", "y", "zinc")
    azimuth = river_azimuth()
    radians = np.radians(2.0 * azimuth[np.isfinite(azimuth)])  # doubled: a direction has no sense
    average = np.degrees(np.arctan2(np.sin(radians).mean(), np.cos(radians).mean())) / 2.0 % 180.0
    distance = meuse.read_map("dist")  # 0 at the river, 1 at the far end
    inside = meuse.study_area()
    fading = np.where(inside, ACROSS + (ALONG - ACROSS) * np.clip(1.5 - 1.5 * distance, 0.0, 1.0), ACROSS)
    directions = {"fixed": average, "local": np.where(inside, azimuth, average)}
    ranges = {"fixed": ALONG, "local": fading}

    maps = []
    for name, direction in directions.items():
        results = []
        for mode, title in ((native.KESTRUM_OK, "kriging"), (native.KESTRUM_SIM_SK, "1 realization")):
            model = meuse.make_cov_model(along=ranges[name], across=ACROSS, azimuth=direction)
            points = meuse.make_point_set(x, y, {"log_zinc": np.log(zinc)})
            # The nearest in units of the ranges: the order by covariance (2) is for models without images.
            # A mask would cost the range image its first values, so the whole grid is computed and cut afterwards.
            run = prepare(mode, "log_zinc", points, model, 1, sort_mode=1, masked=False)
            result = meuse.execute(f"zinc, {name} direction, {title}", run, THREADS)[0]
            results.append(np.where(inside, result, np.nan))
        maps.append(results)
    variables = {"azimuth": azimuth, "range": np.where(inside, fading, np.nan)}
    for name, results in zip(directions, maps):
        variables |= {f"log_zinc_est_{name}": results[0], f"log_zinc_real_{name}": results[1]}
    meuse.write_maps("meuse_direction.gslib", variables)

    title = (
        f"Zinc in the Meuse flood plain: range of {ACROSS:.0f} m across a direction and {ALONG:.0f} m along it\n"
        "(left: everywhere; right: near the river, fading away from it)"
    )
    figure, axes = meuse.new_figure(title, 2, 2, (11, 11.6))
    iy, ix = np.mgrid[3 : meuse.NY : 6, 3 : meuse.NX : 6]
    dash_x, dash_y = (corner + (i + 0.5) * meuse.CELL for corner, i in zip(meuse.CORNER, (ix, iy)))
    headless = {"pivot": "middle", "headwidth": 0, "headlength": 0, "headaxislength": 0, "scale": 26, "width": 0.004}
    words = (f"direction N {average:.0f}° E everywhere", "direction of the river, node by node")
    for column, direction in enumerate(directions.values()):
        for row, what in enumerate(("Estimate", "A realization")):
            picture = meuse.draw_map(axes[row, column], maps[column][row], f"{what}, {words[column]}", **ZINC_STYLE)
            meuse.draw_samples(axes[row, column], x, y, np.log(zinc), **ZINC_STYLE)
        turn = np.radians(np.where(np.isfinite(azimuth), direction, np.nan))[iy, ix]
        axes[0, column].quiver(dash_x, dash_y, np.sin(turn), np.cos(turn), color="white", zorder=2.5, **headless)
    draw_zinc_bar(figure, picture, axes)
    meuse.save(figure, "meuse_direction")


def main():
    meuse.OUTPUT.mkdir(exist_ok=True)
    zinc_realizations()
    zinc_classes()
    cadmium_below_detection()
    turning_with_the_river()
    print(f"reports, result files and pictures: {meuse.OUTPUT}")


if __name__ == "__main__":
    main()
