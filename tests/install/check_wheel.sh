#!/bin/sh
# check_wheel.sh PYTHON BUILD WORK: makes a wheel of the build folder BUILD, with build isolation and without it, and
# installs it into a fresh virtual environment below WORK, which takes the dependencies from the system. There, away from
# the sources, a map is kriged.
set -eu
python=$1
build=$2
work=$3
source=$(cd "$(dirname "$0")/../.." && pwd)

rm -rf "$work"
mkdir -p "$work/empty"
"$python" -m venv --system-site-packages "$work/environment"
python=$work/environment/bin/python
cd "$work/empty"
export PIP_QUIET=1 PIP_DISABLE_PIP_VERSION_CHECK=1
for isolation in --use-pep517 --no-build-isolation; do
  "$python" -m pip wheel $isolation --no-deps --config-settings=build-dir="$build" --wheel-dir "$work" "$source"
done
"$python" -m pip install --no-index "$work"/kestrum-*.whl
"$work/environment/bin/kestrum" --version
env -u PYTHONPATH "$python" "$source/tests/install/use_wheel.py" "$work"/kestrum-*.whl "$source" "$build" "$work"
