"""What a call of the package costs beside the engine's own: the same work through kestrum._core and through kestrum.

For each size of grid the best of some calls, in milliseconds; the engine is given what the package gives it.
"""

import time

import numpy as np

import kestrum as ks
from kestrum import _core


def best(works, repeats):
    """The shortest time of each work, which take turns."""
    times = [[] for _ in works]
    for _ in range(repeats):
        for own, work in zip(times, works):
            start = time.perf_counter()
            work()
            own.append(time.perf_counter() - start)
    return [1000.0 * min(own) for own in times]


def main():
    random = np.random.default_rng(1)
    points = ks.Points(random.uniform(0.0, 1000.0, (2000, 2)), random.normal(size=2000))
    model = ks.Nugget(0.1) + ks.Spherical(0.9, range=200)
    threads = 1
    print(f"{'call':28}{'cells':>10}{'engine':>12}{'package':>12}{'more':>10}")
    for side in (10, 100, 1000):
        grid = ks.Grid(side, side, dx=1000 / side, dy=1000 / side)
        numbers = (side, side, 1, grid.dx, grid.dy, 1.0, 0.0, 0.0, 0.0)
        native = model._native(2, None)
        repeats = 5 if side == 1000 else 20

        def krige():
            estimate, variance = np.empty(side * side), np.empty(side * side)
            kriging = _core.PlaceKriging(native, points.coordinates, points.values, None, None, None, 20, (0.0, 0.0, 0.0), True, 0,
                                         0.0, (1, 1, 1), threads)
            kriging.on_grid(numbers, (0, 0, 0), (side, side, 1), None, None, None, estimate, variance, threads, None)

        few = points.with_values(points.values) if side > 10 else ks.Points(points.coordinates[:50], points.values[:50])
        nodes, first = np.unique(_core.nodes_of(numbers, few.coordinates), return_index=True)

        def simulate():
            rows = np.empty((1, side * side))
            run = _core.GridRun(numbers, [native], False, 20, None, nodes, few.values[first], None, None, 0.0, True, threads)
            run.simulate(1, 0, 0, rows, None)

        for name, engine, package in (
                ("krige", krige, lambda: ks.krige(points, model, grid, neighbors=20, threads=threads)),
                ("simulate", simulate, lambda: ks.simulate(few, model, grid, mean=0.0, duplicates="first", threads=threads))):
            own, whole = best((engine, package), repeats)
            print(f"{name:28}{side * side:10,}{own:12.2f}{whole:12.2f}{whole - own:+10.2f}")


if __name__ == "__main__":
    import warnings

    warnings.simplefilter("ignore")
    main()
