"""What tiles and workers cost: a map in tiles against one call, two workers against one, a task, a large graph.

python3 benchmarks/large_work.py [--cells 20000000] [--repeat 3]. Times are the best of some rounds, in which all
variants take turns: on the clock, and of all processors, which other programs on the machine disturb less.
"""

import argparse
import os
import sys
import time
from collections.abc import Callable

# Threads of a call that has ended shall leave the cores to the next variant.
os.environ.setdefault("OMP_WAIT_POLICY", "passive")

import distributed
import numpy as np

import kestrum as ks

RANDOM = np.random.default_rng(1)
POINTS = ks.Points(RANDOM.uniform(0.0, 1000.0, (5000, 2)), RANDOM.normal(size=5000))
MODEL = ks.Nugget(0.1) + ks.Exponential(1.0, range=60.0)
NEIGHBORS = 16


def memory(name: str) -> int:
    with open("/proc/self/status") as stream:
        return next(int(line.split()[1]) * 1024 for line in stream if line.startswith(name))


def graph_of_tiles() -> None:
    before, begin = memory("VmRSS"), time.perf_counter()
    lazy = ks.krige(POINTS, MODEL, ks.Grid(100_000, 100_000, dx=0.01, dy=0.01), neighbors=NEIGHBORS, chunks={"y": 250, "x": 400})
    print(f"graph of {len(lazy.__dask_graph__()):,} tasks, 100,000 tiles: {time.perf_counter() - begin:.1f} s, {(memory('VmHWM') - before) / 2**20:.0f} MB", flush=True)


def workers(n: int) -> distributed.LocalCluster:
    return distributed.LocalCluster(n_workers=n, threads_per_worker=1, host="127.0.0.1", dashboard_address=":0")


def in_turn(rounds: int, variants: dict[str, Callable[[], object]], clients: list[distributed.Client]) -> dict[str, tuple[float, float]]:
    """Seconds on the clock, and of processors in this process and all workers."""
    def processors() -> float:
        return time.process_time() + sum(sum(client.run(time.process_time).values()) for client in clients)

    best = dict.fromkeys(variants, (np.inf, np.inf))
    for _ in range(rounds):
        for name, variant in variants.items():
            used, begin = processors(), time.perf_counter()
            variant()
            took = time.perf_counter() - begin
            best[name] = min(best[name][0], took), min(best[name][1], processors() - used)
    return best


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cells", type=int, default=20_000_000)
    parser.add_argument("--repeat", type=int, default=3)
    options = parser.parse_args()
    graph_of_tiles()
    side = int(options.cells**0.5 / 1000) * 1000 or 1000
    grid = ks.Grid(side, options.cells // side, dx=1000.0 / side, dy=1000.0 / side)
    given = {"points": POINTS, "model": MODEL, "where": grid, "neighbors": NEIGHBORS}
    lazy = ks.krige(chunks={"y": 1000, "x": 1000}, **given)
    tiles = 2_500
    small = ks.krige(POINTS, MODEL, ks.Grid(1000, 1000), neighbors=1, chunks={"y": 20, "x": 20})
    fields = ks.simulate(POINTS, MODEL, ks.Grid(1000, 1000), n=8, neighbors=NEIGHBORS, chunks=1)
    with workers(1) as lone, workers(2) as pair, distributed.Client(lone) as one, distributed.Client(pair) as two:
        def on(client: distributed.Client, work: object) -> Callable[[], object]:
            # Kept by the workers: what is measured is neither a file nor the way home.
            return lambda: distributed.wait(client.persist(work)) and None

        times = in_turn(options.repeat, {
            "one call, two threads": lambda: ks.krige(threads=2, **given), "one call, one thread": lambda: ks.krige(threads=1, **given),
            "tiles, two threads": lambda: lazy.compute(scheduler="threads", num_workers=2),
            "tiles, two workers": on(two, lazy), "tiles, one worker": on(one, lazy),
            "realizations, one call": lambda: ks.simulate(POINTS, MODEL, ks.Grid(1000, 1000), n=8, neighbors=NEIGHBORS, threads=1),
            "realizations, two workers": on(two, fields), "realizations, one worker": on(one, fields),
            f"{tiles:,} small tiles, one worker": on(one, small), f"{tiles:,} small tiles, two workers": on(two, small),
            "the same in one call": lambda: ks.krige(POINTS, MODEL, ks.Grid(1000, 1000), neighbors=1, threads=1)}, [one, two])
    for name, (clock, used) in times.items():
        print(f"{name:30} {clock:8.2f} s {used:8.2f} s of processors")
    for number, of in ((0, "on the clock"), (1, "of processors")):
        def ratio(a: str, b: str) -> float:
            return times[a][number] / times[b][number]

        print(f"{of}: tiles by two workers over one call of two threads {ratio('tiles, two workers', 'one call, two threads'):.2f}, by one over "
              f"one {ratio('tiles, one worker', 'one call, one thread'):.2f}; one worker over two {ratio('tiles, one worker', 'tiles, two workers'):.2f} (tiles), "
              f"{ratio('realizations, one worker', 'realizations, two workers'):.2f} (realizations)")
        tasks = len(small.__dask_graph__())
        extra = times[f"{tiles:,} small tiles, one worker"][number] - times["the same in one call"][number]
        print(f"{of}: {extra / tasks * 1e3:.2f} ms for each of {tasks:,} tasks")


if __name__ == "__main__":
    sys.exit(main())
