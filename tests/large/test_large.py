"""The slow group, `make test-large`: memory that large runs take, each in a process of its own."""

import os
import subprocess
import sys
import textwrap

import pytest

HEAD = """
import sys
import numpy as np
import kestrum as ks
from kestrum import _krige, _simulate
from kestrum._targets import Target

def status(name):
    with open("/proc/self/status") as stream:
        return next(int(line.split()[1]) * 1024 for line in stream if line.startswith(name))

def peak_of(call):
    with open("/proc/self/clear_refs", "w") as stream:
        stream.write("5")
    before = status("VmRSS")
    result = call()
    return result, status("VmHWM") - before

MODEL = ks.Exponential(1.0, range=20.0)
ks.simulate(None, MODEL, ks.Grid(50, 50))
"""


def child(program):
    """The numbers that a program prints."""
    done = subprocess.run([sys.executable, "-c", HEAD + textwrap.dedent(program)], check=True, capture_output=True, text=True,
                          env={**os.environ, "OMP_WAIT_POLICY": "passive"})
    print(done.stdout)
    return [float(number) for number in done.stdout.split()]


@pytest.mark.parametrize("options", ["dtype='float32'", "dtype='float64'", "dtype='float32', transform=ks.NormalScore([1.0, 2.0, 3.0])"])
def test_a_realization_of_1e8_nodes(options):
    beyond, estimated = child(f"""
        grid, options = ks.Grid(10_000, 10_000), dict({options})
        result, peak = peak_of(lambda: ks.simulate(None, MODEL, grid, neighbors=4, **options))
        said = _simulate.simulation_bytes(Target(grid, places_too=False, name="grid"), [MODEL], None, 1, result.dtype, "transform" in options)
        print((peak - result.nbytes) / result.size, said / peak)
    """)
    assert beyond <= 24.0
    assert 0.95 <= estimated <= 1.1


@pytest.mark.parametrize("options", ["dtype='float32'", "mask=np.ones((10_000, 10_000), bool)",
                                     "dtype='float32', drift={'height': (points.values, np.arange(1e8).reshape(10_000, 10_000) % 97.0)}"])
def test_a_map_of_1e8_nodes(options):
    (estimated,) = child(f"""
        random = np.random.default_rng(1)
        grid, points = ks.Grid(10_000, 10_000), ks.Points(random.uniform(0, 10_000, (5000, 2)), random.normal(size=5000))
        options = dict({options})
        result, peak = peak_of(lambda: ks.krige(points, MODEL, grid, neighbors=4, **options))
        print(_krige.kriging_bytes(Target(grid), result.estimate.dtype, "mask" in options, None, options.get("drift"), "cholesky") / peak)
    """)
    assert 0.95 <= estimated <= 1.1


@pytest.mark.parametrize("model", ["ks.Spherical(1.0, range=(500.0, 300.0), azimuth=30.0)", "ks.Spherical(1.0, range=3000.0)", "MODEL"])
def test_what_a_run_says_it_takes(model):
    (estimated,) = child(f"""
        grid, model = ks.Grid(2500, 2500), {model}
        result, peak = peak_of(lambda: ks.simulate(None, model, grid, n=3, neighbors=4))
        print(_simulate.simulation_bytes(Target(grid, places_too=False, name="grid"), [model], None, 3, result.dtype) / peak)
    """)
    assert 0.95 <= estimated <= 1.15


def test_distances_of_1e9_nodes(tmp_path):
    pytest.importorskip("zarr")
    (peak,) = child(f"""
        import dask
        import dask.array as da

        def block(block_info=None):
            (first, last), (begin, end) = block_info[None]["array-location"]
            return (np.arange(first, last)[:, None] * 7919 + np.arange(begin, end) * 104729) % 100_003 == 0

        mask = da.map_blocks(block, chunks=((1000,) * 40, (1000,) * 25), dtype=bool, meta=np.empty((0, 0), bool))
        with dask.config.set(scheduler="synchronous"):
            _, peak = peak_of(lambda: ks.distance(mask, dtype="float32").to_zarr({str(tmp_path / "map.zarr")!r}, compressor=None))
        print(peak)
    """)
    # A slab of 1024 columns: the mask, the distances, and the blocks that are written.
    assert peak < 1e9


def test_a_map_of_2e8_nodes_written_by_one_worker(tmp_path):
    pytest.importorskip("zarr")
    (program := tmp_path / "program.py").write_text(HEAD + textwrap.dedent(f"""
        import distributed

        if __name__ == "__main__":
            random = np.random.default_rng(1)
            points = ks.Points(random.uniform(0, 10_000, (5000, 2)), random.normal(size=5000))
            with distributed.LocalCluster(n_workers=1, threads_per_worker=1, host="127.0.0.1", dashboard_address=None) as cluster:
                with distributed.Client(cluster) as client:
                    ks.krige(points, MODEL, ks.Grid(20_000, 10_000, dx=0.5), neighbors=8, chunks={{"y": 1000, "x": 1000}}).to_zarr({str(tmp_path / "map.zarr")!r})
                    print(status("VmHWM"), *client.run(status, "VmHWM").values())
    """))
    done = subprocess.run([sys.executable, program], check=True, capture_output=True, text=True)
    print(done.stdout)
    assert sum(map(int, done.stdout.split())) < 2e9
