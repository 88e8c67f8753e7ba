"""The runs of the library written a second time, slowly and in NumPy alone: kriging estimation, Gaussian and indicator
simulation. Only sound inputs are served. Sums are not in the library's order, so values agree up to the last digits;
random numbers, node orders and neighbours agree exactly."""

import math
from collections import namedtuple
from dataclasses import dataclass, field
from decimal import Decimal
from functools import cached_property, lru_cache

import numpy as np

MISSING = -9999999.0
EPSILON = 1e-10
NUGGET, SPHERICAL, EXPONENTIAL, GAUSSIAN, LINEAR, CUBIC, SINUS, GAMMA, POWER, GENERALIZED, MATERN = range(11)


# What a caller gives. A parameter of a model is a number, or an array with a value for each node.

Element = namedtuple("Element", "kind weight ranges s", defaults=(0.0,))
Model = namedtuple("Model", "elements angles", defaults=((0.0, 0.0, 0.0),))
Search = namedtuple("Search", "radius limit order", defaults=(1.0, 8, 1))  # radius -1.0: all data; limit below 0: none


@dataclass
class Run:
    grid: dict
    models: list  # one, or one for each category; searches likewise
    searches: list
    simulated: bool = True
    ordinary: bool = False
    images: list = field(default_factory=list)  # of {variable: values}
    points: list = field(default_factory=list)  # of (coordinates, {variable: values})
    mask: object = None
    seed: int = 1
    increment: int = 1
    nrealization: int = 1
    name: str = "value"
    mean: object = None  # None: of the data
    variance: object = None  # None: the sill
    passes: tuple = (1, 10)
    categories: tuple = ()  # none: a continuous run
    probability: object = None  # None: proportions; a list; or an array with a row for each category

    shape = cached_property(lambda self: np.array([self.grid["n" + axis] for axis in "xyz"]))
    spacing = cached_property(lambda self: np.array([self.grid["s" + axis] for axis in "xyz"]))
    origin = cached_property(lambda self: np.array([self.grid["o" + axis] for axis in "xyz"]))
    strides = cached_property(lambda self: np.array([1, self.shape[0], self.shape[0] * self.shape[1]]))
    nnode = cached_property(lambda self: int(self.shape.prod()))
    places = cached_property(lambda self: np.arange(self.nnode)[:, None] // self.strides % self.shape)
    active = cached_property(lambda self: np.ones(self.nnode, bool) if self.mask is None else self.mask != 0.0)


def at(parameter, node):
    return parameter[node] if np.ndim(parameter) else parameter


def int32(value):
    return (value + 2**31) % 2**32 - 2**31


MODULUS = 1000009711.0
STEP = 2.0**-25


@lru_cache(maxsize=None)
def seeded(a):
    """The lagged values and the congruential one."""
    moduli, factors = (30269, 30307, 30323), (171, 172, 170)
    numbers, state, u = [int32(a + 1), int32(2 * a + 3), int32(3 * a + 4)], [], 0.0
    for k in range(-11, 101):
        if k >= 0:
            state.append(float(math.floor(u * MODULUS)))
        numbers = [int(math.fmod(int32(i * f), m)) for i, f, m in zip(numbers, factors, moduli)]
        t = numbers[0] / 30269.0 + numbers[1] / 30307.0 + numbers[2] / 30323.0
        u = t - math.floor(t)
    return tuple(state), math.floor(u * 2.0**25) * STEP


class Generator:
    state = ()

    def draw(self, seed=0):
        if seed != 0 or not self.state:
            state, self.y = seeded(abs(seed))
            self.state, self.position = list(state), 0
        i = self.position
        v = (4.0 * MODULUS - self.state[i - 64 if i >= 64 else i + 37] - 5.0 * self.state[i]) % MODULUS
        self.state[i], self.position = v, (i + 1) % 101
        self.y = (self.y * 37.0 + STEP) % 1.0 or STEP
        r = self.y + v / MODULUS
        return (r - 1.0 if r >= 1.0 else r) + 1e-17

    def shuffle(self, items):
        for i in range(len(items) - 1, 0, -1):
            j = int((i + 1) * self.draw())
            items[i], items[j] = items[j], items[i]


NORMAL = [float(round(1 - Decimal(0.5 * math.erfc(0.005 * i / math.sqrt(2.0))), 15)) for i in range(1500)]


def beyond_table(t):
    return int(abs(t) / 0.005) >= 1499


def normal_probability(t):
    a = abs(t) / 0.005
    i = int(a)
    p = NORMAL[1499] if i >= 1499 else NORMAL[i] + (a - i) * (NORMAL[i + 1] - NORMAL[i])
    return p if t >= 0.0 else 1.0 - p


def normal_quantile(p):
    q = 1.0 - p if p < 0.5 else p
    k = np.searchsorted(NORMAL, q, side="right") - 1
    z = 7.495 if k == 1499 else ((q - NORMAL[k]) / (NORMAL[k + 1] - NORMAL[k]) + k) * 0.005
    return -z if p < 0.5 else z


def matern(h, d2, s, zero):
    """The Bessel function K by the trapezoidal rule on its integral over t of exp(-u cosh t) cosh(s t)."""
    u, t = np.where(d2 < 1e-20, 1.0, h * math.sqrt(2.0 * s)), np.arange(0.0, 12.0, 0.02)
    bessel = 0.02 * (np.exp(-u[..., None] * np.cosh(t)) * np.cosh(s * t) @ np.where(t == 0.0, 0.5, 1.0))
    return np.where(d2 < 1e-20, 1.0, 2.0 / math.gamma(s) * (u / 2.0) ** s * bessel)


SHAPES = {
    NUGGET: lambda h, d2, s, zero: zero * 1.0,
    SPHERICAL: lambda h, d2, s, zero: np.where(h < 1.0, 1.0 - 1.5 * h + 0.5 * h**3, 0.0),
    EXPONENTIAL: lambda h, d2, s, zero: np.exp(-3.0 * h),
    GAUSSIAN: lambda h, d2, s, zero: np.exp(-3.0 * d2),
    LINEAR: lambda h, d2, s, zero: np.maximum(1.0 - h, 0.0),
    CUBIC: lambda h, d2, s, zero: np.where(h < 1.0, 1.0 - 7.0 * d2 + 8.75 * h**3 - 3.5 * h**5 + 0.75 * h**7, 0.0),
    SINUS: lambda h, d2, s, zero: np.where(zero, 0.0, np.sin(np.pi * h) / (np.pi * h)),  # none at the zero lag
    GAMMA: lambda h, d2, s, zero: (1.0 + (20.0 ** (1.0 / s) - 1.0) * h) ** -s,
    POWER: lambda h, d2, s, zero: 1.0 - d2 ** (s / 2.0),
    GENERALIZED: lambda h, d2, s, zero: np.exp(-3.0 * d2 ** (s / 2.0)),
    MATERN: matern,
}


def covariance(model, node, lags):
    """Covariances at lags in the model's axes, with the parameters of a node."""
    zero = (lags == 0.0).all(axis=-1)
    total = np.zeros(zero.shape)
    for element in model.elements:
        ranges = [at(size, node) for size in element.ranges]
        d2 = sum((lags[..., i] / r) ** 2 for i, r in enumerate(ranges) if r > 0.0) + np.zeros(zero.shape)
        with np.errstate(invalid="ignore"):
            shape = SHAPES[element.kind](np.sqrt(d2), d2, at(element.s, node), zero)
        total += at(element.weight, node) * shape
    return total


def rotation_matrix(angles):
    """Columns: the model's axes in the grid's coordinates."""
    (c1, c2, c3), (s1, s2, s3) = np.cos(np.deg2rad(angles)), np.sin(np.deg2rad(angles))
    x = [c1 * c3 + s1 * s2 * s3, s1 * c2, s1 * s2 * c3 - c1 * s3]
    y = [c1 * s2 * s3 - s1 * c3, c1 * c2, c1 * s2 * c3 + s1 * s3]
    return np.array([x, y, [c2 * s3, -s2, c2 * c3]])


class Structure:
    """A model with its rotation, sill and list of neighbours."""

    def __init__(self, run, model, search):
        self.run, self.search = run, search
        # The images of an element lose as many of their first values as nodes are masked, whichever these are.
        lost = np.where(np.arange(run.nnode) < (~run.active).sum(), MISSING, np.nan)
        cut = lambda values: np.where(np.isnan(lost), values, lost) if np.ndim(values) else values
        elements = [Element(e.kind, cut(e.weight), tuple(map(cut, e.ranges)), cut(e.s)) for e in model.elements]
        self.model = Model(elements, model.angles)
        self.turning = any(np.ndim(angle) for angle in model.angles)
        weights_vary = any(np.ndim(e.weight) for e in elements)
        self.sill = 0.0 if weights_vary else sum(e.weight for e in elements)
        # A categorical run with an image of weights does not turn, on purpose.
        fixed = not self.turning and not (weights_vary and run.categories)
        self.rotation = rotation_matrix(model.angles) if fixed else np.eye(3)
        if search.radius != -1.0:
            self.offsets = self.sorted_offsets()

    def rotation_at(self, node):
        return rotation_matrix([at(a, node) for a in self.model.angles]) if self.turning else self.rotation

    def sill_at(self, node):
        return sum(at(e.weight, node) for e in self.model.elements)

    def ellipsoid(self):
        """The largest ranges, widened over the planes in which the angles vary."""
        largest = lambda size: np.max(size[self.run.active]) if np.ndim(size) else size
        ranges = [max(0.0, *map(largest, sizes)) for sizes in zip(*(e.ranges for e in self.model.elements))]
        varying = tuple(i for i, angle in enumerate(self.model.angles) if np.ndim(angle))
        axes = {(): (), (0,): (0, 1), (1,): (1, 2), (2,): (0, 2)}.get(varying, (0, 1, 2))
        widest = max((ranges[i] for i in axes), default=0.0)
        return [widest if i in axes and r != 0.0 else r for i, r in enumerate(ranges)]

    def sorted_offsets(self):
        turned = (self.rotation != np.eye(3)).any()
        ranges, f = self.ellipsoid(), self.search.radius
        coefficients = [1.0 / (r * r * f * f) if r > 0.0 else 1e25 for r in ranges]
        extents = [max(ranges)] * 3 if turned else ranges
        hx, hy, hz = (min(int(f * r / s), n - 1) for r, s, n in zip(extents, self.run.spacing, self.run.shape))
        half = [(i, 0, 0) for i in range(1, hx + 1)]
        half += [(i, j, 0) for j in range(1, hy + 1) for i in range(-hx, hx + 1)]
        half += [(i, j, k) for k in range(1, hz + 1) for j in range(-hy, hy + 1) for i in range(-hx, hx + 1)]
        half = np.array(half, int).reshape(-1, 3)
        lags = half * self.run.spacing @ self.rotation
        d2 = lags**2 @ coefficients
        inside = d2 <= 1.0 + EPSILON
        half, lags, d2 = half[inside], lags[inside], d2[inside]
        key, first = (lags**2).sum(axis=1) if self.search.order == 0 else d2, 0.0
        if self.search.order == 2:
            values, first = covariance(self.model, 0, lags), -self.sill
            key = np.where(values == 0.0, d2, -values)
        offsets = np.concatenate([np.zeros((1, 3), int), np.stack([half, -half], axis=1).reshape(-1, 3)])
        key = np.concatenate([[first], np.repeat(key, 2)])

        # Equal keys come in a fixed random order.
        gaps, width = np.diff(np.sort(key)), key.max() - key.min()
        amplitude = 1.0 if width == 0.0 else min([width, *gaps[gaps > EPSILON]]) / 2.0
        generator = Generator()
        generator.draw(1)
        return offsets[np.argsort(key + amplitude * np.array([generator.draw() for _ in key]))]

    def neighbours(self, node, known):
        """Known nodes around a node, in the order of the search."""
        if self.search.radius == -1.0:
            return np.flatnonzero(known)
        places = self.run.places[node] + self.offsets
        nodes = places[((places >= 0) & (places < self.run.shape)).all(axis=1)] @ self.run.strides
        return nodes[known[nodes]][: self.search.limit if self.search.limit >= 0 else None]


def krige(structure, node, nodes, warn):
    """The data left, their weights, their covariances with the node, and the multiplier; None without a solution.
    warn(True): the last datum is dropped; warn(False): giving up. The system is solved directly: the guesses of the
    library's solver decide nothing but that, and a system that they do not solve is here one of NaN."""
    run, m, ordinary = structure.run, len(nodes), int(structure.run.ordinary)
    if not m:
        return None
    lags = (run.places[nodes] - run.places[node]) * run.spacing @ structure.rotation_at(node)
    right = covariance(structure.model, node, lags)
    left = covariance(structure.model, node, lags[None, :, :] - lags[:, None, :])
    np.fill_diagonal(left, structure.sill_at(node))
    while m > 0:
        matrix, b = np.ones((m + ordinary, m + ordinary)), np.ones(m + ordinary)
        matrix[:m, :m], b[:m] = left[:m, :m], right[:m]
        if ordinary:
            matrix[m, m] = 0.0
        x = np.linalg.solve(matrix, b)
        if np.isfinite(x).all():
            return nodes[:m], x[:m], right[:m], x[m] if ordinary else 0.0
        m -= 1
        if m == 0 or structure.search.radius == -1.0:
            break
        warn(True)
    warn(False)
    return None


def nearest_node(run, point):
    """None for a point outside the grid. Halves go to the lower node."""
    if (point < run.origin).any() or (point > run.origin + run.shape * run.spacing).any():
        return None
    a = (point - (run.origin + 0.5 * run.spacing)) / run.spacing
    return int(np.clip(np.ceil(a - 0.5), 0, run.shape - 1).astype(int) @ run.strides)


def conditioning(run, warn):
    """Values, lower and upper bounds at the nodes, after all data and the mask."""
    arrays = {suffix: np.full(run.nnode, MISSING) for suffix in ("", "_min", "_max")}
    merge = {"": lambda old, new: new, "_min": max, "_max": min}
    with_bounds = run.simulated and not run.categories

    def role(name):
        if name == run.name:
            return ""
        return name[-4:] if with_bounds and name[-4:] in arrays and run.name.startswith(name[:-4]) else None

    def put_all(nodes, variables, warnings):
        roles, nconflict = {name: role(name) for name in variables}, 0
        for name, values in variables.items():
            for node, datum in zip(nodes, values):
                if roles[name] is None or node is None or datum == MISSING:
                    continue
                old = arrays[roles[name]][node]
                arrays[roles[name]][node] = datum if old == MISSING else merge[roles[name]](old, datum)
                nconflict += roles[name] == "" and old != MISSING
        ndropped = list(nodes).count(None) if set(roles.values()) != {None} else 0
        for number, happened in zip(warnings, (None in roles.values(), ndropped, nconflict)):
            if happened:
                warn(number)

    for image in run.images:
        put_all(range(run.nnode), image, (44, 0, 45))
    for points, variables in run.points:
        put_all([nearest_node(run, np.array(point)) for point in points], variables, (43, 42, 41))

    value, lower, upper = arrays.values()
    if any((array[~run.active] != MISSING).any() for array in arrays.values()):
        warn(40)
    for array in arrays.values():
        array[~run.active] = MISSING
    hard, low, high = (array != MISSING for array in arrays.values())
    fixed = low & high & ~hard & (lower == upper)
    events = (hard & low & high, hard & low & ~high, hard & high & ~low, fixed)
    for number, where in zip((60, 61, 62, 63), events):
        if where.any():
            warn(number)
    value[fixed] = lower[fixed]
    lower[hard | fixed] = upper[hard | fixed] = MISSING
    return value, lower, upper


class Engine:
    def __init__(self, run):
        self.run, self.warnings = run, []
        self.structures = [Structure(run, model, search) for model, search in zip(run.models, run.searches)]
        self.value, self.lower, self.upper = conditioning(run, self.warnings.append)
        self.hard = self.value != MISSING
        bounded = (self.lower != MISSING) | (self.upper != MISSING)
        self.bounded, self.free = np.flatnonzero(bounded), np.flatnonzero(run.active & ~self.hard & ~bounded)

    def warn(self, dropped):
        self.warnings.append(2001 if dropped else 2015)

    def realizations(self):
        generator, run, results = Generator(), self.run, []
        for r in range(run.nrealization):
            seed = int32(run.seed + r * run.increment)
            generator.draw(seed)
            value, order = self.value.copy(), list(self.free)
            if self.bounded.size:
                self.settle_bounds(seed, value, generator)
            generator.shuffle(order)
            for position, node in enumerate(order, run.nnode - len(order)):
                generator.draw(int32(seed + position))
                value[node] = self.simulate(node, value, generator)
            results.append(value)
        return np.array(results)


class Gaussian(Engine):
    """A run on residuals."""

    def __init__(self, run):
        super().__init__(run)
        data_mean = self.value[self.hard].mean() if self.hard.any() else 0.0
        self.mean = np.broadcast_to(data_mean if run.mean is None else run.mean, run.nnode)
        sill = self.structures[0].sill
        self.factor = np.sqrt(np.broadcast_to(1.0 if run.variance is None else run.variance / sill, run.nnode))
        for array in (self.value, self.lower, self.upper):
            array[array != MISSING] -= self.mean[array != MISSING]

    def law(self, node, value, warn):
        """Mean and variance at a node from what is known elsewhere."""
        structure, f = self.structures[0], self.factor
        solution = krige(structure, node, structure.neighbours(node, value != MISSING), warn)
        if solution is None:
            return 0.0, structure.sill_at(node) * f[node] ** 2
        nodes, weight, right, multiplier = solution
        variance = structure.sill_at(node) - weight @ right - multiplier
        return weight @ (value[nodes] * f[node] / f[nodes]), max(0.0, variance) * f[node] ** 2

    def simulate(self, node, value, generator):
        mean, variance = self.law(node, value, self.warn)
        return mean + math.sqrt(variance) * normal_quantile(generator.draw())

    def result(self):
        if self.run.simulated:
            values = self.realizations()
            return np.where(values == MISSING, MISSING, values + self.mean)
        estimate, deviation = self.value.copy(), np.where(self.run.active, 0.0, MISSING)
        for node in self.free:
            estimate[node], variance = self.law(node, self.value, self.warn)
            deviation[node] = math.sqrt(variance)
        return np.array([np.where(estimate == MISSING, MISSING, estimate + self.mean), deviation])

    def settle_bounds(self, seed, value, generator):
        """Gibbs sampler over the nodes with bounds."""
        order, flags, clean, (least, most) = list(self.bounded), set(), False, self.run.passes
        position = seed + self.run.nnode - len(self.free) - len(order)
        for number in range(most):
            if clean and number >= least:
                return
            generator.shuffle(order)
            flags.clear()
            for j, node in enumerate(order):
                value[node] = MISSING
                generator.draw(int32(position + number * len(order) + j))
                mean, variance = self.law(node, value, lambda dropped: flags.add(2002 if dropped else 2016))
                if variance < EPSILON:
                    flags.add(2012)
                deviation = math.sqrt(max(variance, EPSILON))
                low, width = self.truncated(node, mean, deviation, flags)
                value[node] = mean + deviation * normal_quantile(width * generator.draw() + low)
            clean = not flags
        self.warnings += [number for number in (2002, 2016, 2012, 2005) if number in flags]

    def truncated(self, node, mean, deviation, flags):
        """The start and width of the probabilities that respect the bounds of a node."""
        lower, upper = ((array[node] - mean) / deviation for array in (self.lower, self.upper))
        low, high = normal_probability(lower), normal_probability(upper)
        if self.lower[node] == MISSING:
            if upper >= 0.0 or not (beyond_table(upper) or high < EPSILON):
                return 0.0, high
            flags.add(2005)
            return 0.0, 1e-10
        if self.upper[node] == MISSING:
            if lower < 0.0 and beyond_table(lower):
                return 3.297362383136715e-14, 0.999999999999967
            if lower < 0.0 or not (beyond_table(lower) or 1.0 - low < EPSILON):
                return low, 1.0 - low
            flags.add(2005)
            return 0.9999999999, 1.000000082740371e-10
        if high - low >= EPSILON:
            return low, high - low
        flags.add(2005)
        a, b = min(1.0, low + 5e-11), max(0.0, high - 5e-11)  # crossed on purpose
        if a - b >= EPSILON:
            return b, a - b
        c, e = max(0.0, a - 5e-11), min(1.0, b + 5e-11)
        return c, e - c


class Indicator(Engine):
    def __init__(self, run):
        super().__init__(run)
        n, data, prior = len(run.categories), self.value[self.hard], run.probability
        if prior is None:
            prior = [(data == c).mean() if len(data) else 1.0 / max(n, 2) for c in run.categories]
        total = np.sum(prior, axis=0)
        self.prior = np.where((abs(total - 1.0) > 1e-5) & (n > 1), prior / total, prior)

    def probability(self, c, node, value):
        """Of one category, before normalisation."""
        structure, prior = self.structures[c], at(self.prior[c], node)
        solution = krige(structure, node, structure.neighbours(node, value != MISSING), self.warn)
        if solution is None:
            return prior
        indicator = (value[solution[0]] == self.run.categories[c]) * 1.0
        p = solution[1] @ indicator if self.run.ordinary else prior + solution[1] @ (indicator - prior)
        return min(max(p, 0.0), 1.0)

    def law(self, node, value):
        p = np.array([self.probability(c, node, value) for c in range(len(self.run.categories))])
        if len(p) > 1 and p.sum() < EPSILON:
            self.warnings.append(2020)
            return np.array([at(prior, node) for prior in self.prior])
        return p / p.sum() if len(p) > 1 else p

    def simulate(self, node, value, generator):
        p, u, categories = self.law(node, value), generator.draw(), self.run.categories
        if len(p) == 1:
            return categories[0] if p[0] > u else 0.0
        return categories[min(int((np.cumsum(p) <= u).sum()), len(p) - 1)]

    def result(self):
        if self.run.simulated:
            return self.realizations()
        results = np.array([np.where(self.run.active, self.value == c, MISSING) for c in self.run.categories])
        for node in self.free:
            results[:, node] = self.law(node, self.value)
        return results


def result(run):
    """Names and values of the output variables, and the warnings in order."""
    engine = (Indicator if run.categories else Gaussian)(run)
    suffixes = [f"_prob{c:03d}" for c in range(len(run.categories))] or ["_est", "_std"]
    if run.simulated:
        suffixes = [f"_real{r:05d}" for r in range(run.nrealization)]
    return [run.name + suffix for suffix in suffixes], engine.result(), engine.warnings
