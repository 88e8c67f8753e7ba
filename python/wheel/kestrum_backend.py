"""Builds the wheel: a PEP 517 backend that runs CMake with the compiler, SWIG and pybind11 of the system.

What the system lacks pip brings from its index, unless build isolation is off. The metadata are those of pyproject.toml,
the version is that of CMakeLists.txt. A folder of its own lets a build continue where an
earlier one ended; one that CMake has configured, such as the preset's, is taken as it is:
pip wheel --config-settings=build-dir=build/release .
"""

import base64
import hashlib
import importlib.util
import io
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import tomllib
import zipfile
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
PROJECT = tomllib.loads((SOURCE / "pyproject.toml").read_text())["project"]
VERSION = re.search(r"^project\(\w+ VERSION ([0-9.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
STEM = f"{PROJECT['name']}-{VERSION}"


def get_requires_for_build_wheel(config_settings=None):
    needed = [] if _pybind11() or Path("/usr/include/pybind11").exists() else ["pybind11>=2.10"]
    for programs, package in ((["cmake"], "cmake>=3.22"), (["swig4.0", "swig"], "swig==4.1.*"), (["ninja", "make"], "ninja")):
        if not any(map(shutil.which, programs)):
            needed.append(package)
    return needed


def get_requires_for_build_sdist(config_settings=None):
    return []


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    folder = Path(metadata_directory) / f"{STEM}.dist-info"
    folder.mkdir()
    for name, text in _metadata().items():
        (folder / name).write_text(text)
    return folder.name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    with tempfile.TemporaryDirectory() as work:
        files = _build((config_settings or {}).get("build-dir", f"{work}/build"), Path(work) / "prefix")
        files |= {f"{STEM}.dist-info/{name}": text.encode() for name, text in _metadata().items()}
        wheel = Path(wheel_directory) / f"{STEM}-{_tag()}.whl"
        _pack(wheel, files)
    return wheel.name


def build_sdist(sdist_directory, config_settings=None):
    listed = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    names = [name for name in listed.stdout.decode().split("\0") if name]
    if not names:  # no clone
        names = [str(path.relative_to(SOURCE)) for path in SOURCE.rglob("*")
                 if path.is_file() and path.relative_to(SOURCE).parts[0] not in ("build", ".git")]
    archive = Path(sdist_directory) / f"{STEM}.tar.gz"
    with tarfile.open(archive, "w:gz", format=tarfile.PAX_FORMAT) as tar:
        for name in sorted(names):
            tar.add(SOURCE / name, f"{STEM}/{name}", recursive=False)
        text = _metadata()["METADATA"].encode()
        entry = tarfile.TarInfo(f"{STEM}/PKG-INFO")
        entry.size = len(text)
        tar.addfile(entry, io.BytesIO(text))
    return archive.name


def _pybind11():
    """The include folder of the interpreter's own pybind11, if it has one."""
    if not importlib.util.find_spec("pybind11"):
        return None
    import pybind11

    return pybind11.get_include()


def _tag():
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    return f"{python}-{python}-{re.sub(r'[-.]', '_', sysconfig.get_platform())}"


def _build(build, prefix):
    """The files of the wheel, by name: the package and its extensions."""
    jobs = str(len(os.sched_getaffinity(0)) if hasattr(os, "sched_getaffinity") else os.cpu_count() or 1)
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DKESTRUM_BUILD_TESTS=OFF", f"-DKESTRUM_PYTHON={sys.executable}"]
    if _pybind11():
        options.append(f"-DPYBIND11_INCLUDE={_pybind11()}")
    if shutil.which("ninja"):
        options.append("-GNinja")
    if not (Path(build) / "CMakeCache.txt").exists():
        subprocess.run(["cmake", "-S", SOURCE, "-B", build, *options], check=True)
    for command in (["--build", build, "--parallel", jobs, "--target", "kestrum_python", "kestrum_core_python"],
                    ["--install", build, "--component", "module", "--strip", "--prefix", prefix]):
        subprocess.run(["cmake", *command], check=True)
    (root,) = (path.parent for path in prefix.rglob("_kestrum*.so"))
    return {path.relative_to(root).as_posix(): path.read_bytes() for path in root.rglob("*") if path.is_file()}


def _metadata():
    """The files of the dist-info folder but for RECORD."""
    lines = ["Metadata-Version: 2.1", f"Name: {PROJECT['name']}", f"Version: {VERSION}", f"Summary: {PROJECT['description']}",
             f"Requires-Python: {PROJECT['requires-python']}"]
    lines += [f"Requires-Dist: {requirement}" for requirement in PROJECT["dependencies"]]
    for extra, requirements in PROJECT["optional-dependencies"].items():
        lines.append(f"Provides-Extra: {extra}")
        lines += [f'Requires-Dist: {requirement}; extra == "{extra}"' for requirement in requirements]
    lines += ["Description-Content-Type: text/markdown", "", (SOURCE / PROJECT["readme"]).read_text()]
    scripts = [f"{name} = {target}" for name, target in PROJECT.get("scripts", {}).items()]
    wheel = ["Wheel-Version: 1.0", "Generator: kestrum", "Root-Is-Purelib: false", f"Tag: {_tag()}"]
    return {"METADATA": "\n".join(lines), "WHEEL": "\n".join(wheel) + "\n",
            "entry_points.txt": "\n".join(["[console_scripts]", *scripts]) + "\n"}


def _pack(wheel, files):
    record = f"{STEM}.dist-info/RECORD"
    rows = []
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for name in sorted(files):
            digest = base64.urlsafe_b64encode(hashlib.sha256(files[name]).digest()).rstrip(b"=").decode()
            rows.append(f"{name},sha256={digest},{len(files[name])}\n")
            _add(archive, name, files[name])
        _add(archive, record, "".join([*rows, f"{record},,\n"]).encode())


def _add(archive, name, content):
    entry = zipfile.ZipInfo(name)  # of one date, so that equal builds give equal wheels
    entry.compress_type = zipfile.ZIP_DEFLATED
    entry.external_attr = (0o755 if name.endswith(".so") else 0o644) << 16
    archive.writestr(entry, content)
