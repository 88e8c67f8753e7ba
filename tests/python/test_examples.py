"""The examples for people, and the first page of the README, as a reader would run them."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
FIRST_PAGE = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)[1]
PROGRAMS = {path.name: path.read_text() for path in sorted((ROOT / "examples").glob("*.py"))}


@pytest.mark.parametrize("name", ["README.md", *PROGRAMS])
def test_runs_as_it_is(name, tmp_path):
    (tmp_path / "examples").mkdir()
    (tmp_path / "examples/data").symlink_to(ROOT / "examples/data")
    text = FIRST_PAGE if name == "README.md" else PROGRAMS[name]
    assert len([line for line in text.splitlines() if line]) <= (10 if name == "README.md" else 40)
    program = tmp_path / ("first_page.py" if name == "README.md" else f"examples/{name}")
    program.write_text(text)
    subprocess.run([sys.executable, "-W", "error::UserWarning", program], cwd=tmp_path, check=True, env={**os.environ, "MPLBACKEND": "agg"})
    pictures = list(tmp_path.glob("*.png")) + list(tmp_path.glob("examples/output/*.png"))
    assert pictures and all(picture.stat().st_size > 10_000 for picture in pictures)
