"""use_wheel.py WHEEL PATH...: checks an installed wheel; no file of it may have one of the paths in it."""

import importlib.metadata
import os
import re
import sys
import zipfile

import numpy as np

import kestrum as ks
from kestrum import native

wheel, *paths = sys.argv[1:]
assert ks.__file__.startswith(sys.prefix) and native.__file__.startswith(sys.prefix)
assert importlib.metadata.version("kestrum") == ks.__version__ == os.path.basename(wheel).split("-")[1]

points = ks.Points([[1.0, 1.0], [8.0, 3.0], [4.0, 7.0]], [2.0, 5.0, 3.0])
result = ks.krige(points, ks.Spherical(1.0, range=8), ks.Grid(10, 10))
assert result.estimate.shape == (10, 10) and np.isfinite(result.estimate).all()
assert native.vorl_get_error_message(1)

with zipfile.ZipFile(wheel) as archive:
    names = archive.namelist()
    for name in names:
        content = archive.read(name)
        found = [path for path in (*paths, "/tmp/") if path.encode() in content]
        assert not found or name.endswith(".py"), (name, found)
tops = {name.split("/")[0] for name in names}
assert {re.sub(r"[-.].*", "", top) for top in tops} == {"kestrum", "_kestrum"}, tops
endings = {os.path.splitext(name)[1] for name in names if name.startswith("kestrum/")}
assert endings == {".py", ".pyi", ".so", ".typed"}, endings
assert {"kestrum/py.typed", "kestrum/native.pyi", "kestrum/_core.pyi"} <= set(names)
