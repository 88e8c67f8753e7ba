"""What work in pieces costs, beside what it may cost: python3 benchmarks/large_work.py [figure ...] [--cells 20000000] [--repeat 5].

Figures: graph, tiles, realizations, tasks, functions, map, realization; all by default, in a quarter of an hour. Times are the
best of some rounds, in which all variants take turns: on the clock, which wants an idle machine, and of all processors,
which other programs disturb less.
"""

import argparse
import itertools
import json
import os
import subprocess
import sys
import time
from collections.abc import Callable
from pathlib import Path

# Threads of a call that has ended shall leave the cores to the next variant.
os.environ.setdefault("OMP_WAIT_POLICY", "passive")

import dask
import dask.array as da
import distributed
import numpy as np

import kestrum as ks

ROOT = Path(__file__).parents[1]
RANDOM = np.random.default_rng(1)
POINTS = ks.Points(RANDOM.uniform(0.0, 1000.0, (5000, 2)), RANDOM.normal(size=5000))
MODEL = ks.Nugget(0.1) + ks.Exponential(1.0, range=60.0)
NEIGHBORS = 16


def memory(name: str) -> int:
    with open("/proc/self/status") as stream:
        return next(int(line.split()[1]) * 1024 for line in stream if line.startswith(name))


def graph(_: argparse.Namespace) -> None:
    before, begin = memory("VmRSS"), time.perf_counter()
    lazy = ks.krige(POINTS, MODEL, ks.Grid(100_000, 100_000, dx=0.01, dy=0.01), neighbors=NEIGHBORS, chunks={"y": 250, "x": 400})
    print(f"graph of {len(lazy.__dask_graph__()):,} tasks, 100,000 tiles: {time.perf_counter() - begin:.1f} s (below 10), "
          f"{(memory('VmHWM') - before) / 2**20:.0f} MB (below 1024)")


def workers(n: int) -> distributed.LocalCluster:
    return distributed.LocalCluster(n_workers=n, threads_per_worker=1, host="127.0.0.1", dashboard_address=":0")


def on(client: distributed.Client, work: object) -> Callable[[], object]:
    """Kept by the workers: what is measured is neither a file nor the way home."""
    return lambda: distributed.wait(client.persist(work)) and None


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
    for name, (clock, used) in best.items():
        print(f"  {name:30} {clock:8.2f} s {used:8.2f} s of processors")
    return best


def ratio(what: str, wanted: str, upper: tuple[float, float], lower: tuple[float, float]) -> None:
    print(f"{what}: {upper[0] / lower[0]:.2f} on the clock ({wanted}), {upper[1] / lower[1]:.2f} of processors")


def tiles(options: argparse.Namespace) -> None:
    side = int(options.cells**0.5 / 1000) * 1000 or 1000
    grid = ks.Grid(side, options.cells // side, dx=1000.0 / side, dy=1000.0 / side)
    lazy = ks.krige(POINTS, MODEL, grid, neighbors=NEIGHBORS, chunks={"y": 1000, "x": 1000})
    # Each cluster alone: idle workers take time as well.
    with workers(2) as cluster, distributed.Client(cluster) as client:
        two = in_turn(options.repeat, {"one call, two threads": lambda: ks.krige(POINTS, MODEL, grid, neighbors=NEIGHBORS, threads=2),
                                       "tiles, two workers": on(client, lazy)}, [client])
    with workers(1) as cluster, distributed.Client(cluster) as client:
        one = in_turn(options.repeat, {"tiles, one worker": on(client, lazy)}, [client])
    ratio("tiles by two workers over one call of two threads", "at most 1.10", two["tiles, two workers"], two["one call, two threads"])
    ratio("tiles, one worker over two", "at least 1.8", one["tiles, one worker"], two["tiles, two workers"])


def realizations(options: argparse.Namespace) -> None:
    fields = ks.simulate(POINTS, MODEL, ks.Grid(1000, 1000), n=8, neighbors=NEIGHBORS, chunks=1)
    times = {}
    for n in (1, 2):
        with workers(n) as cluster, distributed.Client(cluster) as client:
            times |= in_turn(options.repeat, {f"realizations, workers: {n}": on(client, fields)}, [client])
    ratio("realizations, one worker over two", "at least 1.8", times["realizations, workers: 1"], times["realizations, workers: 2"])


def empty_tile(shared: None, extent: tuple[int, ...]) -> np.ndarray:
    return np.zeros((2, *extent))


def tasks(options: argparse.Namespace) -> None:
    grid = ks.Grid(1000, 1000)
    small = ks.krige(POINTS, MODEL, grid, neighbors=1, chunks={"y": 20, "x": 20})
    places = list(itertools.product(range(50), range(50)))
    graph = {"shared": None} | {("empty", 0, *at): (empty_tile, "shared", (20, 20)) for at in places}
    empty = da.Array(graph, "empty", ((2,), (20,) * 50, (20,) * 50), dtype=np.float64)
    count = len(small.__dask_graph__())
    for setting, saturation in (("as Dask comes", None), ("worker-saturation 10", 10)):
        with (dask.config.set({} if saturation is None else {"distributed.scheduler.worker-saturation": saturation}),
              workers(1) as cluster, distributed.Client(cluster) as client):
            times = in_turn(options.repeat, {"2,500 small tiles, one worker": on(client, small), "tiles that do nothing, one worker": on(client, [empty[0], empty[1]]),
                                             "small tiles without a cluster": lambda: small.persist(scheduler="synchronous"),
                                             "the same in one call": lambda: ks.krige(POINTS, MODEL, grid, neighbors=1, threads=1)}, [client])
        wanted = "" if saturation is None else " (below 2)"
        for what, name, least in ((f"a task of a cluster, {setting}{wanted}", "2,500 small tiles, one worker", "the same in one call"),
                                  (f"a task of a cluster that does nothing, {setting}", "tiles that do nothing, one worker", None),
                                  ("a task without a cluster", "small tiles without a cluster", "the same in one call")):
            clock, used = (1e3 * (of - base) / count for of, base in zip(times[name], times[least] if least else (0.0, 0.0)))
            print(f"{what}: {clock:.2f} ms on the clock, {used:.2f} ms of processors")


def functions(options: argparse.Namespace) -> None:
    said = subprocess.run([ROOT / "build/release/bin/covariance_benchmark", "--benchmark_filter=^(Elementary|OfLibrary)", "--benchmark_format=json",
                           f"--benchmark_repetitions={options.repeat}"], check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    best: dict[str, float] = {}
    for run in json.loads(said.stdout)["benchmarks"]:
        if run["run_type"] == "iteration":
            best[run["run_name"]] = min(best.get(run["run_name"], np.inf), run["cpu_time"])
    for name in ("exp", "log", "pow", "sin"):
        print(f"{name}: {best[f'OfLibrary/{name}'] / best[f'Elementary/{name}']:.1f} times as fast as the C library's (at least 1)")


def test(name: str) -> None:
    subprocess.run([sys.executable, "-m", "pytest", "-s", "-q", "-p", "no:cacheprovider", ROOT / f"tests/large/test_large.py::{name}"], check=True)


def map_(_: argparse.Namespace) -> None:
    print("a map of 2e8 cells written to zarr, bytes of the process that asks and of its worker (below 2e9 in all):", flush=True)
    test("test_a_map_of_2e8_nodes_written_by_one_worker")


def realization(_: argparse.Namespace) -> None:
    print("a realization of 1e8 cells, bytes a cell beyond the result (at most 24), and what the run says beforehand over what it takes:", flush=True)
    test("test_a_realization_of_1e8_nodes[dtype='float32']")


FIGURES = {"graph": graph, "tiles": tiles, "realizations": realizations, "tasks": tasks, "functions": functions, "map": map_, "realization": realization}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("figures", nargs="*", metavar="figure")
    parser.add_argument("--cells", type=int, default=20_000_000)
    parser.add_argument("--repeat", type=int, default=5)
    options = parser.parse_args()
    for name in options.figures or FIGURES:
        FIGURES[name](options)
        sys.stdout.flush()


if __name__ == "__main__":
    main()
