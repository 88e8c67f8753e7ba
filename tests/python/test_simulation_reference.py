"""Runs of the library, node by node, against the reference in reference_simulation.py; and runs that are stopped."""

import threading
import time
from dataclasses import replace

import numpy as np
import pytest

from kestrum import native as k
import records
import reference_simulation as reference
from reference_simulation import Element, Model, Run, Search

FLAT = records.grid(12, 9, sx=1.0, sy=1.5, ox=10.0, oy=-3.0)
SOLID = records.grid(7, 5, 3, sx=2.0, sy=1.0, sz=0.5)
LINE = records.grid(15, 1, ox=-7.0)
WIDE = records.grid(41, 29, sy=0.5)
CATEGORIES = (1.0, 2.5, -4.0)


def reals(values):
    array = k.new_real_array(len(values))
    k.vorl_set_real_vector_from_array(array, 0, np.array(values, float))
    return array


def array_of(kind, items):
    array = getattr(k, f"new_{kind}_array")(len(items))
    for index, item in enumerate(items):
        getattr(k, f"{kind}_array_setitem")(array, index, item)
    return array


def set_parameter(record, name, value, grid):
    if np.ndim(value):
        setattr(record, name + "ImageFlag", k.TRUE)
        setattr(record, name + "Image", records.image(grid, [name], value))
    else:
        setattr(record, name + "Value", value)


def native_model(model, grid):
    record = k.vorl_covModel()
    for name, angle in zip(("angle1", "angle2", "angle3"), model.angles):
        set_parameter(record, name, angle, grid)
    elements = []
    for element in model.elements:
        elements.append(k.vorl_covModelElem())
        elements[-1].covModelType = element.kind
        for name, value in zip(("weight", "rx", "ry", "rz", "s"), (element.weight, *element.ranges, element.s)):
            set_parameter(elements[-1], name, value, grid)
    record.nelem, record.covModelElem = len(elements), array_of("VORL_COVMODELELEM", elements)
    return record


def native_point_set(coordinates, variables):
    record, n = k.vorl_pointSet(), len(coordinates)
    assert k.VORLMallocPointSet(record, n, len(variables)) == 0
    record.npoint, record.nvar = n, len(variables)
    for vector, values in zip((record.x, record.y, record.z), np.transpose(coordinates)):
        k.vorl_set_real_vector_from_array(vector, 0, np.array(values, float))
    for index, (name, values) in enumerate(variables.items()):
        k.vorl_set_varname(record.varName, index, name)
        k.vorl_set_real_vector_from_array(record.var, index * n, np.array(values, float))
    return record


def set_usage(inp, name, value, grid):
    """Mean, variance or probabilities: 0 without a value, 1 for a value, 2 for an image."""
    if value is not None:
        by_node = np.size(value) >= nnode(grid)
        setattr(inp, name + "Usage", 1 + by_node)
        if by_node:
            names = [f"p{i}" for i in range(np.size(value) // nnode(grid))]
            setattr(inp, name + "Image", records.image(grid, names, value))
        else:
            setattr(inp, name + "Value", reals(value) if np.ndim(value) else value)


def native_input(run):
    continuous = not run.categories
    inp = k.vorl_kestrumInput() if continuous else k.vorl_kestrumIndicatorInput()
    inp.varName, inp.simGrid = run.name, k.calloc_VORL_GRID()
    records.fill_grid(inp.simGrid, run.grid)
    inp.computationMode = 2 * run.simulated + (not run.ordinary)
    inp.seed, inp.seedIncrement, inp.nrealization = run.seed, run.increment, run.nrealization
    inp.covModel = array_of("VORL_COVMODEL", [native_model(model, run.grid) for model in run.models])
    images = [records.image(run.grid, list(i), np.concatenate(list(i.values()))) for i in run.images]
    inp.ndataImage, inp.dataImage = len(images), array_of("VORL_IMAGE", images)
    inp.ndataPointSet = len(run.points)
    inp.dataPointSet = array_of("VORL_POINTSET", [native_point_set(*points) for points in run.points])
    if run.mask is not None:
        inp.maskImageFlag, inp.maskImage = k.TRUE, records.image(run.grid, ["mask"], run.mask)
    radii, limits, orders = zip(*((search.radius, search.limit, search.order) for search in run.searches))
    if continuous:
        inp.searchRadiusRelative, inp.nneighborMax, inp.searchNeighborhoodSortMode = radii[0], limits[0], orders[0]
        inp.nGibbsSamplerPathMin, inp.nGibbsSamplerPathMax = run.passes
        set_usage(inp, "mean", run.mean, run.grid)
        set_usage(inp, "variance", run.variance, run.grid)
    else:
        inp.ncategory, inp.categoryValue = len(run.categories), reals(run.categories)
        inp.searchRadiusRelative, inp.nneighborMax = reals(radii), array_of("int", limits)
        inp.searchNeighborhoodSortMode = array_of("int", orders)
        set_usage(inp, "probability", run.probability, run.grid)
    return inp


def library(run, threads):
    """Names and values of the output variables, the number of warnings and the distinct ones."""
    inp, out, monitor = native_input(run), k.vorl_kestrumOutput(), k.vorl_progressMonitor()
    continuous = not run.categories
    function = k.VORLOMPKestrumSim if continuous else k.VORLOMPKestrumIndicatorSim
    status = function(inp, out, monitor, k.VORLUpdateProgressMonitor0_ptr, threads)
    assert status == 0, k.vorl_get_error_message(-status)
    image = out.outputImage
    names = [k.vorl_get_varname(image.varName, i) for i in range(image.nvar)]
    values = records.reals(image.var, image.nvar * run.nnode).reshape(image.nvar, -1)
    k.VORLKestrumFreeKestrumOutput(out)
    (k.VORLKestrumFreeKestrumInput if continuous else k.VORLKestrumFreeKestrumIndicatorInput)(inp)
    numbers = np.zeros(monitor.nwarningNumber, np.intc)
    if len(numbers):
        k.vorl_get_array_from_int_vector(monitor.warningNumberList, 0, numbers)
    return names, values, monitor.nwarning, set(numbers)


def nnode(grid):
    return grid["nx"] * grid["ny"] * grid["nz"]


def ramp(grid, low, high):
    return np.linspace(low, high, nnode(grid))


def sparse(grid, count, values=None, first=0):
    """An image variable with data at some nodes."""
    where = np.random.default_rng(5).permutation(nnode(grid))[first : first + count]
    variable = np.full(nnode(grid), reference.MISSING)
    variable[where] = np.random.default_rng(7).normal(4.0, 1.0, count) if values is None else np.resize(values, count)
    return variable


def mask(grid):
    return (np.arange(nnode(grid)) % 5 != 2).astype(float)


def spherical(rx, ry=None, rz=None, weight=1.0):
    return Element(reference.SPHERICAL, weight, (rx, rx if ry is None else ry, rx if rz is None else rz))


def nugget(weight=0.2):
    return Element(reference.NUGGET, weight, (0.0, 0.0, 0.0))


def continuous(grid, *elements, angles=(0.0, 0.0, 0.0), search=Search(), **fields):
    return Run(grid, [Model(list(elements or (spherical(5.0), nugget())), angles)], [search], **fields)


def indicator(grid, *models, searches=None, data=None, **fields):
    """A model may be given by its range alone: spherical with a nugget effect. Data: their values, in turn."""
    models = [m if isinstance(m, Model) else Model([spherical(m), nugget(0.05 * m)]) for m in models]
    if data:
        fields["images"] = [{"value": sparse(grid, 12, data)}]
    return Run(grid, models, searches or [Search()] * 3, categories=CATEGORIES[: len(models)], **fields)


def with_data(grid, **variables):
    return dict(images=[{"value": sparse(grid, 10), **variables}])


def bounds(grid, low=3.0, high=3.5, first=10):
    """Lower bounds, both, and upper bounds at four nodes each; nodes from the tenth on are not those of the data."""
    return {"value_min": sparse(grid, 8, [low], first), "value_max": sparse(grid, 8, [high], first + 4)}


# A sinus cardinal without ranges along x and y is not a number there: systems with such lags are never solved.
UNSOLVED = Element(reference.SINUS, 0.5, (0.0, 0.0, 4.0))
RANGES = (6.0, 4.0, 0.0)
KINDS = {
    "exponential": [Element(reference.EXPONENTIAL, 1.0, RANGES)],
    "gaussian": [Element(reference.GAUSSIAN, 1.0, RANGES), nugget(0.1)],
    "linear": [Element(reference.LINEAR, 1.0, RANGES), nugget(0.5)],
    "cubic": [Element(reference.CUBIC, 1.0, RANGES), nugget(0.01)],
    "sinus cardinal": [Element(reference.SINUS, 1.0, RANGES), nugget(0.2)],
    "gamma": [Element(reference.GAMMA, 1.0, RANGES, 1.7)],
    "power": [Element(reference.POWER, 1.0, (12.0, 9.0, 0.0), 1.2)],
    "generalized exponential": [Element(reference.GENERALIZED, 1.0, RANGES, 1.3)],
    "matern": [Element(reference.MATERN, 1.0, (3.0, 2.0, 0.0), 1.5), nugget(0.3)],
    "spherical with a power image": [spherical(5.0), Element(reference.GENERALIZED, 1.0, RANGES, ramp(FLAT, 0.7, 1.6))],
}
TURNED = (spherical(9.0, 4.0, 2.0), nugget())
CONTINUOUS = {
    "realizations": continuous(FLAT, ordinary=True, **with_data(FLAT), nrealization=3, increment=7),
    "line": continuous(LINE, Element(reference.EXPONENTIAL, 1.0, (9.0, 0.0, 0.0)), search=Search(2.0, 2)),
    "turned": continuous(SOLID, *TURNED, angles=(30.0, 20.0, -10.0), **with_data(SOLID)),
    "euclidean order": continuous(SOLID, *TURNED, search=Search(1.0, 6, 0), ordinary=True),
    "covariance order": continuous(
        FLAT, spherical(2.0, 8.0, 1.0), spherical(2.5), angles=(70.0, 0.0, 0.0), search=Search(1.5, 6, 2), ordinary=True
    ),
    "no limit": continuous(LINE, search=Search(3.0, -1)),
    "limit above the list": continuous(LINE, search=Search(1.0, 50), ordinary=True),
    "angle images": continuous(SOLID, *TURNED, angles=(ramp(SOLID, 0, 90), ramp(SOLID, 40, -40), 5.0)),
    "azimuth image": continuous(FLAT, *TURNED, angles=(np.maximum(ramp(FLAT, -80, 90), 0.0), 0.0, 0.0)),
    "dip image": continuous(SOLID, *TURNED, angles=(0.0, ramp(SOLID, 0, 60), 0.0), ordinary=True),
    "plunge image": continuous(SOLID, *TURNED, angles=(10.0, 0.0, ramp(SOLID, -50, 30))),
    "weight image": continuous(FLAT, spherical(5.0, 2.0, 1.0, ramp(FLAT, 0.5, 3)), nugget(), angles=(25.0, 0.0, 0.0)),
    "range images": continuous(SOLID, spherical(ramp(SOLID, 3, 9), 4.0, ramp(SOLID, 2, 1)), nugget(), ordinary=True),
    "mask": continuous(FLAT, mask=mask(FLAT), **with_data(FLAT), ordinary=True, nrealization=2, seed=-77),
    "mask, range image": continuous(FLAT, spherical(ramp(FLAT, 2, 7), 4.0, 0.0), nugget(0.5), mask=mask(FLAT)),
    "mean given": continuous(FLAT, mean=3.0, **with_data(FLAT)),
    "mean image": continuous(FLAT, mean=ramp(FLAT, 2, 6), ordinary=True, **with_data(FLAT)),
    "variance given": continuous(FLAT, mean=3.0, variance=4.0, **with_data(FLAT)),
    "variance image": continuous(FLAT, mean=3.0, variance=ramp(FLAT, 0.5, 4), **with_data(FLAT)),
    "data of all sorts": continuous(
        FLAT,
        images=[{"value": sparse(FLAT, 5), "other": sparse(FLAT, 5)}, {"value": sparse(FLAT, 8)}],
        points=[
            ([(10.5, -3, 0), (12, 0, 0.5), (40, 0, 0)], {"value": [1, 2, 3], "val_min": [0, 1, 9], "odd": [1, 1, 1]})
        ],
    ),
    "bounds": continuous(FLAT, **with_data(FLAT, **bounds(FLAT)), nrealization=2, passes=(3, 10)),
    "bounds, mask": continuous(
        FLAT, **with_data(FLAT, **bounds(FLAT, 0.0, 9.0, first=2)), mask=mask(FLAT), ordinary=True, passes=(2, 2)
    ),
    "bounds, variance image": continuous(
        FLAT, **with_data(FLAT, **bounds(FLAT, 4.0, 4.5)), mean=ramp(FLAT, 4, 5), variance=ramp(FLAT, 0.5, 4)
    ),
    "bounds far above": continuous(FLAT, **with_data(FLAT, **bounds(FLAT, 23.0, 23.5)), passes=(1, 4)),
    "bounds far below": continuous(FLAT, **with_data(FLAT, **bounds(FLAT, -17.0, -16.5)), passes=(1, 4)),
    "bounds that merge": continuous(
        FLAT,
        images=[bounds(FLAT), {"val_min": sparse(FLAT, 8, [3.2], 12), "value_max": sparse(FLAT, 6, [3.2], 8)}],
        passes=(1, 3),
    ),
    # Each node with bounds has a variance below zero between its two data.
    "bounds, no variance": continuous(
        LINE,
        Element(reference.POWER, 1.0, (1.48, 0.0, 0.0), 1.77),
        points=[
            ([(x - 0.5, 0.5, 0.5) for x in (-5, -3, -1, 1, 3, 5)], {"value": [1.1, 0.9, 1.0, 1.2, 0.8, 1.0]}),
            ([(x - 0.5, 0.5, 0.5) for x in (-4, 0, 4)], {"value_min": [0, reference.MISSING, 0]}),
            ([(x - 0.5, 0.5, 0.5) for x in (-4, 0, 4)], {"value_max": [reference.MISSING, 2, 2]}),
        ],
        passes=(1, 3),
    ),
    "bounds, unsolved": continuous(
        LINE, spherical(4.0), UNSOLVED, images=[bounds(LINE, first=0)], search=Search(1.0, 2)
    ),
    "unsolved": continuous(FLAT, spherical(4.0), UNSOLVED, search=Search(1.0, 3)),
    "neighbours dropped": continuous(SOLID, spherical(8.0, 4.0, 4.0), UNSOLVED, search=Search(1.0, 4), ordinary=True),
    "estimation": continuous(FLAT, simulated=False, ordinary=True, **with_data(FLAT), mask=mask(FLAT)),
    "estimation, all data": continuous(FLAT, simulated=False, **with_data(FLAT), search=Search(-1.0)),
    "estimation, all data, turned": continuous(
        FLAT, *TURNED, angles=(75.0, 0.0, 0.0), simulated=False, images=[{"value": sparse(FLAT, 60)}], search=Search(-1.0),
        mean=ramp(FLAT, 2, 6), variance=ramp(FLAT, 0.5, 4), mask=mask(FLAT)
    ),
    "estimation, few data": continuous(
        WIDE, spherical(30.0, 12.0), nugget(), simulated=False, ordinary=True, images=[{"value": sparse(WIDE, 9)}], search=Search(1.0, 5)
    ),
}
INDICATOR = {
    "binary": indicator(FLAT, 5.0, nrealization=2),
    "binary, mask": indicator(FLAT, 5.0, data=[0.0, 1.0, 1.0], ordinary=True, mask=mask(FLAT)),
    "binary, probability": indicator(FLAT, 5.0, data=[0.0, 1.0], probability=[0.3]),
    "two": indicator(FLAT, 5.0, 3.0, data=[1.0, 2.5], nrealization=3, increment=-2),
    "two, orders": indicator(
        SOLID, 7.0, 4.0, searches=[Search(1.0, 4, 2), Search(2.0, 9, 0)], data=[1.0, 2.5, 2.5], ordinary=True
    ),
    "three": indicator(FLAT, 5.0, 3.0, 4.0, probability=[0.5, 0.3, 0.205], seed=-400),
    "three, probability image": indicator(
        FLAT,
        *(5.0, 3.0, 4.0),
        data=CATEGORIES,
        probability=np.array([ramp(FLAT, 0.1, 0.5), ramp(FLAT, 0.6, 0.1), ramp(FLAT, 0.3, 0.4)]),
    ),
    "two, bounds ignored": indicator(FLAT, 5.0, 3.0, images=[bounds(FLAT), {"value": sparse(FLAT, 9, [1.0, 2.5])}]),
    "three, images": indicator(
        FLAT,
        Model([spherical(5.0, 3.0, 1.0, ramp(FLAT, 0.5, 2))], (30.0, 0.0, 0.0)),
        Model(TURNED, (ramp(FLAT, 0, 90), 10.0, 0.0)),
        Model([spherical(ramp(FLAT, 3, 6), 2.0, 1.0), nugget()], (40.0, 0.0, 0.0)),
        data=CATEGORIES,
    ),
    # The systems of one model are solved once where the limits are one as well.
    "two alike": indicator(FLAT, 5.0, 5.0, data=[1.0, 2.5]),
    "estimation, two alike, turned": indicator(
        FLAT, *(Model(list(TURNED), (angle, 0.0, 0.0)) for angle in (40.0, -20.0)), searches=[Search(-1.0)] * 2, data=[1.0, 2.5], simulated=False
    ),
    "two alike, limits": indicator(FLAT, 5.0, 5.0, searches=[Search(1.0, 9), Search(1.0, 2)], data=[1.0, 2.5], ordinary=True),
    "unsolved": indicator(LINE, Model([spherical(4.0), UNSOLVED]), 4.0),
    "estimation": indicator(FLAT, 5.0, data=[1.0, 0.0], simulated=False),
    "estimation, sum above one": indicator(
        FLAT, 5.0, 3.0, 4.0, data=CATEGORIES, simulated=False, probability=[0.5, 0.3, 0.208]
    ),
    "estimation, mixed": indicator(
        FLAT,
        *(5.0, 3.0, 4.0),
        searches=[Search(-1.0), Search(1.0, 6), Search(-1.0)],
        data=CATEGORIES,
        simulated=False,
        ordinary=True,
        mask=mask(FLAT),
    ),
    # Between the two data both categories come out as impossible.
    "zeros": indicator(
        LINE,
        Model([Element(reference.POWER, 1.0, (1.25, 0.0, 0.0), 1.2)]),
        Model([Element(reference.POWER, 1.0, (1.0 / 1.2, 0.0, 0.0), 1.0)]),
        searches=[Search(2.0, 2), Search(3.0, 1)],
        probability=[1.0, 0.0],
        points=[([(-1.5, 0.5, 0.5), (0.5, 0.5, 0.5)], {"value": [2.5, 2.5]})],
    ),
}
CASES = {f"continuous, {name}": run for name, run in CONTINUOUS.items()}
CASES |= {f"indicator, {name}": run for name, run in INDICATOR.items()}
for name, elements in KINDS.items():
    for kriging in ("simple", "ordinary"):
        search = Search(1.0, 6)
        CASES[f"{name}, {kriging}"] = continuous(FLAT, *elements, ordinary=kriging == "ordinary", search=search)
CASES |= {f"{name}, estimated": replace(run, simulated=False) for name, run in CASES.items() if run.simulated and (run.images or run.points)}


def check(run):
    names, expected, warnings = reference.result(run)
    # The library's Bessel functions are of single precision for small arguments.
    tolerance = 1e-5 if run.models[0].elements[0].kind == reference.MATERN else 1e-9
    for threads in (1, 3):
        result = library(run, threads)
        assert (result[0], result[2], result[3]) == (names, len(warnings), set(warnings))
        np.testing.assert_allclose(result[1], expected, rtol=0.0, atol=tolerance)


@pytest.mark.parametrize("run", CASES.values(), ids=CASES.keys())
def test_run_against_reference(run):
    check(run)


# The node at place i of the path has the seed of the realization plus i. The first places are those of the data.
@pytest.mark.parametrize("seed, increment", [(-10, 1), (-13, 1), (-100, 3), (-5, 5), (0, 1), (-35, 0)])
def test_a_seed_of_zero_goes_on_with_the_sequence(seed, increment):
    fields = dict(seed=seed, increment=increment, nrealization=2)
    check(continuous(FLAT, **with_data(FLAT), **fields))
    check(continuous(FLAT, **with_data(FLAT, **bounds(FLAT)), passes=(3, 3), **fields))
    check(indicator(FLAT, 5.0, 3.0, data=[1.0, 2.5], **fields))


@pytest.mark.parametrize("simulated", [False, True])
def test_another_thread_can_stop_a_run(simulated):
    """The other thread can act during the run only if the run has released the interpreter. A threaded estimation
    looks at the flag now and then, a simulation after the current realization, which takes a second at most."""
    grid = records.grid(100, 50) if simulated else records.grid(400, 100)
    search = Search(1.0, 20) if simulated else Search(-1.0)
    run = continuous(grid, spherical(100.0), nugget(1.0), search=search, simulated=simulated, ordinary=not simulated,
                     images=[{"value": sparse(grid, 60)}], increment=5003, nrealization=500)
    inp, out, monitor = native_input(run), k.vorl_kestrumOutput(), k.vorl_progressMonitor()
    seen = []

    def stop():
        while not seen or seen[-1] < 1:
            time.sleep(0.001)
            seen.append(monitor.allRealizationProgress)
        monitor.abortedJobFlag = k.TRUE

    other = threading.Thread(target=stop, daemon=True)
    other.start()
    status = k.VORLOMPKestrumSim(inp, out, monitor, k.VORLUpdateProgressMonitor0_ptr, 2)
    other.join()
    assert status == -1000
    assert 1 <= monitor.allRealizationProgress < 100
    assert out.outputImage is None
    assert not simulated or 0 < monitor.currentRealization < 500
    k.VORLKestrumFreeKestrumInput(inp)
