"""The tables by gstat that other tests compare with, made anew where R and gstat are."""

import shutil
import subprocess
from pathlib import Path

import numpy as np
import pytest

ROOT = Path(__file__).parents[2]
R = shutil.which("Rscript")
HAS_GSTAT = R is not None and subprocess.run([R, "-e", "library(sp); library(gstat)"], capture_output=True).returncode == 0


@pytest.mark.skipif(not HAS_GSTAT, reason="R has no gstat here")
@pytest.mark.parametrize("name", ["gstat", "gstat_cv"])
def test_tables_are_those_of_gstat(name, tmp_path):
    scripts = ROOT / "tests" / "engine" / "meuse"
    subprocess.run([R, scripts / f"{name}.R", ROOT / "examples" / "data" / "meuse", tmp_path / "made.csv"], check=True)
    made, kept = (np.loadtxt(path, delimiter=",") for path in (tmp_path / "made.csv", scripts / f"{name}.csv"))
    np.testing.assert_allclose(made, kept, rtol=1e-9)
