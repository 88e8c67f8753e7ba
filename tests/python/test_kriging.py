"""Runs against a textbook kriging in NumPy: dense systems, solved directly, every datum at the centre of its cell."""

import threading
import time
from dataclasses import dataclass, field

import numpy as np
import pytest

from kestrum import native as k
import records

NAME = "value"


@dataclass
class Case:
    """One run: what differs from ordinary kriging of a mean of the data with a spherical model and a nugget effect."""

    grid: dict = field(default_factory=lambda: records.grid(17, 13, sx=2.0, sy=1.3, ox=100.0, oy=-7.0))
    mode: int = k.KESTRUM_OK
    ndata: int = 25
    weight: float = 2.0
    nugget: float = 0.3
    ranges: tuple = (14.0, 9.0, 0.0)
    azimuth: float = 0.0
    radius: float = 100.0
    nneighbor: int = 25
    sort_mode: int = 1
    mean: object = None  # None: mean of the data; a number; or an image of means
    variance: object = None  # None: the sill; a number; or an image of variances
    mask: bool = False
    threads: int = 1

    @property
    def nnode(self):
        return self.grid["nx"] * self.grid["ny"] * self.grid["nz"]

    def nodes(self):
        """Centres of all cells, in node order."""
        g = self.grid
        iz, iy, ix = np.meshgrid(np.arange(g["nz"]), np.arange(g["ny"]), np.arange(g["nx"]), indexing="ij")
        axes = [g["o" + a] + (i.ravel() + 0.5) * g["s" + a] for a, i in zip("xyz", (ix, iy, iz))]
        return np.stack(axes, axis=1)

    def random(self):
        return np.random.default_rng(20240322)

    def data(self):
        """Nodes that hold a datum, and the values."""
        random = self.random()
        where = np.sort(random.choice(self.nnode, self.ndata, replace=False))
        return where, random.normal(5.0, 1.5, self.ndata)

    def mask_values(self):
        return (np.arange(self.nnode) % 3 != 0).astype(float) if self.mask else np.ones(self.nnode)

    def distances(self, a, b):
        """Distances in the model's axes, in units of the ranges."""
        lags = a[:, None, :] - b[None, :, :]
        angle = np.deg2rad(self.azimuth)
        # The azimuth turns the model's y axis from north to east.
        axes = np.array([[np.cos(angle), -np.sin(angle), 0.0], [np.sin(angle), np.cos(angle), 0.0], [0.0, 0.0, 1.0]])
        squares = [(lags @ axis / r) ** 2 for axis, r in zip(axes, self.ranges) if r > 0.0]
        return np.sqrt(sum(squares))

    def covariance(self, a, b):
        h = self.distances(a, b)
        return np.where(h < 1.0, self.weight * (1.0 - 1.5 * h + 0.5 * h**3), 0.0) + self.nugget * (h == 0.0)


def make_image(case, values):
    return records.image(case.grid, ["image"], values)


def run(case):
    """Estimate and standard deviation by the library."""
    where, values = case.data()
    inp = k.vorl_kestrumInput()
    k.VORLKestrumInitKestrumInput(inp)
    inp.varName = NAME
    inp.simGrid = k.calloc_VORL_GRID()
    records.fill_grid(inp.simGrid, case.grid)
    inp.computationMode = case.mode
    inp.covModel = records.cov_model(
        [(k.COV_SPHERICAL, case.weight, case.ranges), (k.COV_NUGGET, case.nugget, (0.0, 0.0, 0.0))], (case.azimuth, 0.0, 0.0)
    )
    inp.searchRadiusRelative, inp.nneighborMax, inp.searchNeighborhoodSortMode = case.radius, case.nneighbor, case.sort_mode
    inp.ndataPointSet, inp.dataPointSet = 1, records.point_sets(case.nodes()[where], values, NAME)
    if case.mask:
        inp.maskImageFlag, inp.maskImage = k.TRUE, make_image(case, case.mask_values())
    for quantity, value in (("mean", case.mean), ("variance", case.variance)):
        if np.ndim(value):
            setattr(inp, quantity + "Usage", 2)
            setattr(inp, quantity + "Image", make_image(case, value))
        elif value is not None:
            setattr(inp, quantity + "Usage", 1)
            setattr(inp, quantity + "Value", value)
    out = k.vorl_kestrumOutput()
    monitor = k.vorl_progressMonitor()
    k.VORLInitProgressMonitor(monitor)
    status = k.VORLOMPKestrumSim(inp, out, monitor, k.VORLUpdateProgressMonitor0_ptr, case.threads)
    assert status == 0, k.vorl_get_error_message(-status)
    assert (monitor.nwarning, monitor.allRealizationProgress) == (1 if case.mask else 0, 100)
    image = out.outputImage
    assert [k.vorl_get_varname(image.varName, i) for i in range(2)] == [NAME + "_est", NAME + "_std"]
    result = records.reals(image.var, 2 * case.nnode).reshape(2, -1)
    k.VORLKestrumFreeKestrumOutput(out)
    k.VORLKestrumFreeKestrumInput(inp)
    return result


def textbook(case):
    """The same by dense linear algebra. Nodes where the choice of neighbours is a matter of ties are NaN."""
    where, values = case.data()
    mask = case.mask_values()
    kept = mask[where] == 1.0
    where, values = where[kept], values[kept]
    nodes = case.nodes()
    mean = np.full(case.nnode, values.mean() if case.mean is None else case.mean)
    sill = case.weight + case.nugget
    factor = np.sqrt(np.full(case.nnode, sill if case.variance is None else case.variance) / sill)
    residual = (values - mean[where]) / factor[where]
    ordinary = case.mode == k.KESTRUM_OK

    estimate = np.full(case.nnode, float(k.VORL_MISSING_VALUE))
    deviation = estimate.copy()
    estimate[where], deviation[where] = values, 0.0
    for node in np.flatnonzero(mask):
        if node in where:
            continue
        distance = case.distances(nodes[[node]], nodes[where])[0]
        order = np.argsort(distance)
        if case.radius > 0.0:
            order = order[distance[order] <= case.radius]
            if len(order) > case.nneighbor:
                if distance[order[case.nneighbor]] - distance[order[case.nneighbor - 1]] < 1e-9:
                    estimate[node] = deviation[node] = np.nan
                    continue
                order = order[: case.nneighbor]
        m = len(order)
        near = nodes[where[order]]
        matrix = np.ones((m + ordinary, m + ordinary))
        matrix[:m, :m] = case.covariance(near, near)
        right = np.ones(m + ordinary)
        right[:m] = case.covariance(near, nodes[[node]])[:, 0]
        if ordinary and m:
            matrix[m, m] = 0.0
        weight = np.linalg.solve(matrix, right) if m else np.zeros(0)
        estimate[node] = mean[node] + factor[node] * (weight[:m] @ residual[order] if m else 0.0)
        variance = sill - (weight @ right if m else 0.0)
        deviation[node] = factor[node] * np.sqrt(max(variance, 0.0))
    return np.stack([estimate, deviation])


def trend(case):
    return 4.0 + 0.05 * np.arange(case.nnode) / case.nnode


CASES = {
    "ordinary": Case(),
    "simple": Case(mode=k.KESTRUM_SK),
    "simple, mean given": Case(mode=k.KESTRUM_SK, mean=4.5),
    "simple, mean image": Case(mode=k.KESTRUM_SK, mean=trend(Case())),
    "simple, variance given": Case(mode=k.KESTRUM_SK, variance=5.0),
    "simple, variance image": Case(mode=k.KESTRUM_SK, mean=5.0, variance=trend(Case()) ** 2),
    "ordinary, mask": Case(mask=True),
    "ordinary, covariance order": Case(sort_mode=2),
    "ordinary, turned": Case(azimuth=30.0),
    "ordinary, 3-D": Case(grid=records.grid(7, 6, 5, sx=1.1), ranges=(6.0, 5.0, 4.0)),
    "ordinary, 6 nearest": Case(nneighbor=6),
    "ordinary, 6 nearest, turned": Case(nneighbor=6, azimuth=-50.0),
    "simple, short radius": Case(mode=k.KESTRUM_SK, radius=0.3, mean=5.0),
    "ordinary, all data": Case(radius=-1.0),
    "simple, all data": Case(radius=-1.0, mode=k.KESTRUM_SK, mean=4.5),
    "simple, all data, variance image": Case(radius=-1.0, mode=k.KESTRUM_SK, mean=5.0, variance=trend(Case()) ** 2),
    "ordinary, all data, turned, mask": Case(radius=-1.0, azimuth=75.0, mask=True),
    "ordinary, 120 data": Case(radius=-1.0, ndata=120),
}


@pytest.mark.parametrize("case", CASES.values(), ids=CASES.keys())
def test_against_textbook(case):
    expected = textbook(case)
    decided = np.isfinite(expected)
    assert decided.mean() > 0.5
    # The solver stops at a residual of 1e-10; the systems' condition numbers stay below 1e3.
    result = run(case)
    np.testing.assert_allclose(result[decided], expected[decided], rtol=0.0, atol=1e-6)
    for threads in (2, 3, 8):
        case.threads = threads
        assert (run(case) == result).all()


def test_a_refused_input_has_its_status():
    inp, out, monitor = k.vorl_kestrumInput(), k.vorl_kestrumOutput(), k.vorl_progressMonitor()
    inp.simGrid = k.calloc_VORL_GRID()
    callback = k.VORLUpdateProgressMonitor0_ptr
    assert k.VORLOMPKestrumSim(inp, out, monitor, callback, 1) == -601
    records.fill_grid(inp.simGrid, records.grid(2, 2))
    assert k.VORLOMPKestrumSim(inp, out, monitor, callback, 1) == -71046
    monitor.abortedJobFlag = k.TRUE
    assert k.VORLOMPKestrumSim(inp, out, monitor, callback, 1) == -1000
    assert out.outputImage is None
    k.VORLKestrumFreeKestrumInput(inp)


@pytest.mark.parametrize("mode", [k.KESTRUM_OK, k.KESTRUM_SIM_SK])
def test_another_thread_can_stop_a_run(mode):
    """The other thread can act during the run only if the run has released the interpreter. A threaded estimation
    looks at the flag now and then, a simulation after the current realization, which takes a second at most."""
    case = Case(grid=records.grid(400, 100) if mode == k.KESTRUM_OK else records.grid(100, 50), ndata=60)
    where, values = case.data()
    inp, out, monitor = k.vorl_kestrumInput(), k.vorl_kestrumOutput(), k.vorl_progressMonitor()
    inp.varName = NAME
    inp.simGrid = k.calloc_VORL_GRID()
    records.fill_grid(inp.simGrid, case.grid)
    inp.covModel = records.cov_model([(k.COV_SPHERICAL, 1.0, (100.0, 100.0, 0.0)), (k.COV_NUGGET, 1.0, (0.0, 0.0, 0.0))])
    inp.computationMode = mode
    if mode == k.KESTRUM_OK:
        inp.searchRadiusRelative, inp.nneighborMax = -1.0, -1
    else:
        inp.searchRadiusRelative, inp.nneighborMax = 1.0, 20
        inp.nGibbsSamplerPathMin = inp.nGibbsSamplerPathMax = 1
        inp.seed, inp.seedIncrement, inp.nrealization = 1, 5003, 500
    inp.ndataPointSet, inp.dataPointSet = 1, records.point_sets(case.nodes()[where], values, NAME)

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
    if mode != k.KESTRUM_OK:
        assert 0 < monitor.currentRealization < 500
    k.VORLKestrumFreeKestrumInput(inp)
