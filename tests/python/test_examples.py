"""The examples, the first page of the README, the guides and the command lines, as a reader would run them."""

import inspect
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

import pytest

import kestrum as ks

ROOT = Path(__file__).resolve().parents[2]
FIRST_PAGE = re.search(r"```python\n(.*?)```", (ROOT / "README.md").read_text(), re.DOTALL)[1]
PROGRAMS = {path.name: path.read_text() for path in sorted((ROOT / "examples").glob("*.py"))}


@pytest.mark.parametrize("name", ["README.md", *PROGRAMS])
def test_runs_as_it_is(name, tmp_path):
    (tmp_path / "examples").mkdir()
    (tmp_path / "examples/data").symlink_to(ROOT / "examples/data")
    text = FIRST_PAGE if name == "README.md" else PROGRAMS[name]
    assert len([line for line in text.splitlines() if line]) <= 10 if name == "README.md" else len(text.splitlines()) < 40
    program = tmp_path / ("first_page.py" if name == "README.md" else f"examples/{name}")
    program.write_text(text)
    subprocess.run([sys.executable, "-W", "error::UserWarning", program], cwd=tmp_path, check=True, env={**os.environ, "MPLBACKEND": "agg"})
    pictures = list(tmp_path.glob("*.png")) + list(tmp_path.glob("examples/output/*.png"))
    assert pictures and all(picture.stat().st_size > 10_000 for picture in pictures)


GUIDES = sorted([ROOT / "docs/ten_minutes.md", *(ROOT / "docs/guide").glob("*.md")])


@pytest.mark.parametrize("page", GUIDES, ids=lambda page: page.stem)
def test_a_guide_runs_from_top_to_bottom(page, tmp_path):
    (tmp_path / "examples").mkdir()
    (tmp_path / "examples/data").symlink_to(ROOT / "examples/data")
    text = page.read_text()
    program = "\n".join(re.findall(r"```python\n(.*?)```", text, re.DOTALL))
    commands = re.findall(r"^    kestrum (.*samples.csv.*)$", text, re.MULTILINE)
    assert program or commands
    environment = {**os.environ, "MPLBACKEND": "agg"}
    subprocess.run([sys.executable, "-c", program], cwd=tmp_path, check=True, env=environment)
    (tmp_path / "samples.csv").symlink_to(ROOT / "examples/data/meuse/meuse.csv")
    for command in commands:
        subprocess.run([sys.executable, "-m", "kestrum", *shlex.split(command)], cwd=tmp_path, check=True, env=environment)


def test_every_public_docstring_has_an_example():
    public = [getattr(ks, name) for name in ks.__all__]
    for module in (ks.plot, ks.ensemble):
        public += [value for name, value in vars(module).items()
                   if not name.startswith("_") and inspect.isfunction(value) and value.__module__ == module.__name__]
    methods = [getattr(value, name) for value in public if inspect.isclass(value) for name in vars(value) if not name.startswith("_")]
    silent = [value for value in [*public, *(m for m in methods if inspect.isroutine(m) or isinstance(m, property))] if ">>> " not in (value.__doc__ or "")]
    assert not silent


def test_the_reference_lists_every_public_name():
    listed = set(re.findall(r"^\.\. auto\w+:: (\w+)$", (ROOT / "docs/api.rst").read_text(), re.MULTILINE))
    assert listed - {"kestrum"} == set(ks.__all__)
