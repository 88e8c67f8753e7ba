"""The command line: a thin layer over the package."""

from __future__ import annotations

import argparse
import importlib.util
import os
import re
import sys
import warnings
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import TYPE_CHECKING, Any, NoReturn

from . import _door, _models
from ._core import version
from ._errors import DataError, KestrumError, KestrumWarning, ModelError
from ._files import read_gslib, read_gslib_points, read_vtk, write_gslib, write_vtk
from ._grid import Grid
from ._krige import krige
from ._models import CovModel
from ._points import Points
from ._simulate import simulate
from ._transforms import NormalScore
from ._variogram import variogram

if TYPE_CHECKING:
    import pandas as pd
    import xarray as xr

TYPES = ("Nugget", "Spherical", "Exponential", "Gaussian", "Cubic", "Linear", "CardinalSine", "Gamma", "Power", "Stable", "Matern")
OPTIONS = {"az": "azimuth", "azimuth": "azimuth", "dip": "dip", "plunge": "plunge", "power": "power", "smoothness": "smoothness"}
NUMBER = r"[-+]?(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?"
TERM = re.compile(rf"\s*(?:({NUMBER})\s*\*?\s*)?([A-Za-z]+)\s*(?:\(([^()]*)\))?\s*(\+|$)")
MODEL_HELP = """\
a model is a sum of terms "sill Type(range)":
  "0.05 Nug + 0.59 Sph(897)"
  "Sph(900, 500)"                ranges along the azimuth and across it, then the vertical one
  "2 Exp(900, 500, az=45)"       azimuth in degrees clockwise from north; also dip= and plunge=
  "Mat(300, smoothness=1.5)"     also Gam, Pow and Sta, with power=
types, which may be shortened to three letters: """ + ", ".join(TYPES)


def parse_model(text: str) -> CovModel:
    """A model from its text, such as "0.05 Nug + 0.59 Sph(897)".

    A term is a sill (1 if left out), a type, and its arguments: ranges, then az=, dip=, plunge=, power=, smoothness=.

    Examples
    --------
    >>> from kestrum._command import parse_model
    >>> print(parse_model("0.05 Nug + 0.59 Sph(900, 500, az=45)"))
    Nugget(0.05) + Spherical(0.59, range=(900, 500), azimuth=45)
    """
    model, position = None, 0
    while model is None or position < len(text):
        match = TERM.match(text, position)
        if match is None or (match[4] == "+" and match.end() == len(text)):
            raise ModelError(f"the model {text!r} cannot be read from {text[position:].strip()!r} on. "
                             "Write it as \"0.05 Nug + 0.59 Sph(897)\".")
        term = _term(float(match[1] or 1.0), match[2], match[3])
        model = term if model is None else model + term
        position = match.end()
    return model


def model_text(model: CovModel) -> str:
    """The text of a model of numbers, rounded to six digits, as `parse_model` takes it.

    Examples
    --------
    >>> import kestrum as ks
    >>> from kestrum._command import model_text
    >>> model_text(ks.Nugget(0.05) + ks.Spherical(0.59, range=(900, 500), azimuth=45))
    '0.05 Nugget + 0.59 Spherical(900, 500, azimuth=45)'
    """
    angles = [f"{name}={value:.6g}" for name, value in (("azimuth", model.azimuth), ("dip", model.dip), ("plunge", model.plunge)) if value]
    terms = []
    for part in model.structures:
        ranges = part.range if len(set(part.range)) > 1 else part.range[:1]
        shape = [] if part.shape is None else [f"{'smoothness' if part.type == 'Matern' else 'power'}={part.shape:.6g}"]
        inside = [f"{value:.6g}" for value in ranges] + shape + (angles if len(ranges) > 1 else [])
        terms.append(f"{part.sill:.6g} {part.type}" + (f"({', '.join(inside)})" if inside else ""))
    return " + ".join(terms)


def _term(sill: float, name: str, arguments: str | None) -> CovModel:
    found = [kind for kind in TYPES if len(name) >= 3 and kind.lower().startswith(name.lower())]
    if not found:
        raise ModelError(f"{name!r} is no type of model.{_door.nearest(name, TYPES)} The types are {', '.join(TYPES)}.")
    ranges: list[float] = []
    options: dict[str, float] = {}
    for part in (arguments or "").split(",") if arguments and arguments.strip() else []:
        key, equals, value = part.rpartition("=")
        if equals and key.strip() not in OPTIONS:
            raise ModelError(f"{found[0]} has no {key.strip()!r}.{_door.nearest(key.strip(), OPTIONS)} There are {', '.join(OPTIONS)}.")
        try:
            number = float(value)
        except ValueError:
            raise ModelError(f"{value.strip()!r} in {name}({arguments}) is no number.") from None
        if equals:
            options[OPTIONS[key.strip()]] = number
        else:
            ranges.append(number)
    make: Callable[..., CovModel] = getattr(_models, found[0])
    if found[0] == "Nugget":
        if ranges or options:
            raise ModelError("Nugget has no arguments in brackets.")
        return make(sill)
    if not ranges:
        raise ModelError(f"{found[0]} has no range. Write {name}(500), with the range in the coordinates' unit.")
    try:
        return make(sill, ranges[0] if len(ranges) == 1 else tuple(ranges), **options)
    except TypeError as error:
        detail = re.sub(r".*?\(\) ", "", str(error))
        if missing := re.search(r"missing .*: '(\w+)'", detail):
            raise ModelError(f"{found[0]} needs {missing[1]}=. Write {name}({arguments}, {missing[1]}=1.5).") from None
        raise ModelError(f"{found[0]} {detail}.") from None


class _Parser(argparse.ArgumentParser):
    """One whose errors are one line."""

    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{self.prog}: {message} (try {self.prog} --help)\n")


def _read_table(path: str) -> pd.DataFrame:
    import pandas as pd

    ending = Path(path).suffix.lower()
    if ending in (".vtk", ".png"):
        raise DataError(f"{path} is no table, but a{' grid' if ending == '.vtk' else ' picture'}.")
    if ending in (".gslib", ".dat", ".out", ".eas"):
        return read_gslib_points(path)
    try:
        return pd.read_csv(path, sep=None if ending == ".txt" else ",", engine="python" if ending == ".txt" else None)
    except (UnicodeDecodeError, pd.errors.ParserError, pd.errors.EmptyDataError) as error:
        raise DataError(f"{path} is no table: {' '.join(str(error).split())}.") from None


def _points(options: argparse.Namespace) -> Points:
    frame = _read_table(options.samples)
    return Points.from_dataframe(frame, options.value, options.x, options.y, options.z)


def _on_grid(path: str) -> xr.Dataset:
    """Values on a grid, from a file of any ending that is for these."""
    import xarray as xr

    ending = Path(path).suffix.lower()
    return read_gslib(path) if ending == ".gslib" else read_vtk(path) if ending == ".vtk" else xr.open_dataset(path)


def _grid(options: argparse.Namespace, points: Points) -> Grid | xr.Dataset:
    if options.like is not None:
        return _on_grid(options.like)
    cell = options.cell[0] if len(options.cell) == 1 else options.cell
    return Grid.covering(points, cell, options.margin)


def _write(result: xr.Dataset, path: str, picture: Callable[[], Any]) -> None:
    ending = Path(path).suffix.lower()
    if ending == ".nc":
        result.to_netcdf(path)
    elif ending == ".gslib":
        write_gslib(result, path)
    elif ending == ".vtk":
        write_vtk(result, path)
    elif ending == ".tif":
        import rioxarray  # noqa: F401

        stack = result.to_array("band") if len(result.data_vars) > 1 else next(iter(result.data_vars.values()))
        stack.sortby("y", ascending=False).rio.to_raster(path)
    else:
        drawn = picture()
        getattr(drawn, "figure", drawn).savefig(path, dpi=120)


ENDINGS = (".nc", ".gslib", ".vtk", ".tif", ".png")


def _run_krige(options: argparse.Namespace) -> None:
    points = _points(options)
    result = krige(points, options.model, _grid(options, points), neighbors=options.neighbors, radius=_radius(options.radius),
                   mean=options.mean, drift=options.drift, block=options.block, threads=options.threads, progress=options.progress)

    def picture() -> Any:
        from . import plot

        return plot.map(result.estimate, points, label=points.name)

    _write(result, options.output, picture)


def _run_simulate(options: argparse.Namespace) -> None:
    points = _points(options)
    fields = simulate(points, options.model, _grid(options, points), n=options.n, first=options.first, seed=options.seed,  # type: ignore[arg-type]
                      neighbors=options.neighbors, radius=_radius(options.radius), mean=options.mean, ordinary=options.ordinary,
                      transform="normal-score" if options.normal_score else None, threads=options.threads,
                      progress=options.progress)

    def picture() -> Any:
        from . import plot

        return plot.realizations(fields, min(4, options.n))

    _write(fields.to_dataset(name=fields.name or points.name), options.output, picture)


def _run_variogram(options: argparse.Namespace) -> None:
    points = _points(options)
    if options.normal_score:
        points = points.with_values(NormalScore(points.values).forward(points.values))
    experimental = variogram(points, lag=options.lag, n_lags=options.n_lags, azimuth=options.azimuth,
                             tolerance=options.tolerance, bandwidth=options.bandwidth, estimator=options.estimator,
                             threads=options.threads, progress=options.progress)
    model = experimental.fit(options.fit, progress=options.progress) if options.fit else None
    table = experimental.to_dataframe()
    if options.output is None:
        print(table.to_string(index=False))
    elif options.output.endswith(".csv"):
        table.to_csv(options.output, index=False)
    else:
        experimental.plot(model).figure.savefig(options.output, dpi=120)
    if model is not None:
        print(model_text(model))


def _run_info(options: argparse.Namespace) -> None:
    if Path(options.file).suffix.lower() not in (".gslib", ".vtk", ".nc", ".tif"):
        _describe(_read_table(options.file))
        return
    try:
        data = _on_grid(options.file)
    except KestrumError:
        if not options.file.lower().endswith(".gslib"):
            raise
        _describe(read_gslib_points(options.file))
        return
    with data:
        print(Grid.from_xarray(data))
        for name, variable in data.data_vars.items():
            if variable.ndim > 0 and variable.dtype.kind in "iuf":
                known = int(variable.notnull().sum())
                print(f"{name} ({', '.join(map(str, variable.dims))}): {known:,} values, {variable.size - known:,} missing"
                      + (f", {float(variable.min()):.6g} to {float(variable.max()):.6g}, mean {float(variable.mean()):.6g}" if known else ""))


def _describe(frame: pd.DataFrame) -> None:
    print(f"{len(frame):,} rows")
    for name, column in frame.items():
        known = column.dropna()
        text = f"{name}: {len(known):,} values, {len(frame) - len(known):,} missing"
        if column.dtype.kind in "iuf" and len(known):
            text += f", {known.min():.6g} to {known.max():.6g}, mean {known.mean():.6g}"
        elif column.dtype.kind not in "iuf":
            labels = sorted(map(str, known.unique()))
            text += f", {len(labels):,} different: {', '.join(labels[:6])}{', ...' * (len(labels) > 6)}"
        print(text)


def _radius(parts: list[float] | None) -> Any:
    return None if parts is None else parts[0] if len(parts) == 1 else parts


def _checked(make: Callable[[str], Any]) -> Callable[[str], Any]:
    """A conversion whose errors are those of the option."""
    def convert(text: str) -> Any:
        try:
            return make(text)
        except KestrumError as error:
            raise argparse.ArgumentTypeError(str(error)) from None
    convert.__name__ = "value"
    return convert


def _ending(*endings: str) -> Callable[[str], str]:
    """The name of a file for the result. All that can be known is asked before the work."""
    def check(text: str) -> str:
        given = Path(text).suffix.lower()
        if given not in endings:
            raise argparse.ArgumentTypeError(f"{text!r} must end in one of {', '.join(endings)}")
        if not Path(text).parent.is_dir():
            raise argparse.ArgumentTypeError(f"there is no folder {str(Path(text).parent)!r}")
        package = {".tif": "rioxarray", ".png": "matplotlib"}.get(given)
        if package and not importlib.util.find_spec(package):
            raise argparse.ArgumentTypeError(f"a {given} file needs the package {package}: install it, or take another ending")
        return text
    return check


def _numbers(text: str) -> list[float]:
    try:
        return [float(part) for part in text.split(",")]
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} must be a number, or some with commas between them") from None


def _samples(parser: argparse.ArgumentParser) -> None:
    group = parser.add_argument_group("samples")
    group.add_argument("samples", help="table of the data: .csv, .txt, or GSLIB (.gslib, .dat, .out, .eas)")
    group.add_argument("--value", required=True, metavar="COLUMN", help="column of the values")
    for axis, default in (("x", "x"), ("y", "y"), ("z", None)):
        group.add_argument(f"--{axis}", default=default, metavar="COLUMN",
                           help=f"column of {axis} (default: {default})" if default else "column of z, for three dimensions")


def _running(parser: argparse._ActionsContainer) -> None:
    parser.add_argument("--threads", type=int, metavar="N", help="number of threads (default: all cores)")
    parser.add_argument("--progress", action="store_true", help="show a bar")


def _common(parser: argparse.ArgumentParser) -> None:
    _samples(parser)
    group = parser.add_argument_group("model and grid")
    group.add_argument("--model", required=True, type=_checked(parse_model), help='covariance model, such as "0.05 Nug + 0.59 Sph(897)"; see below')
    where = group.add_mutually_exclusive_group(required=True)
    where.add_argument("--cell", type=_numbers, metavar="SIZE", help="size of the cells of a grid that covers the data: 40, or 40,40,1")
    where.add_argument("--like", metavar="FILE", help="file whose grid is taken: .nc, .gslib, .vtk or .tif")
    group.add_argument("--margin", type=float, default=0.0, metavar="DISTANCE", help="what the grid has around the data (default: 0)")
    group = parser.add_argument_group("search and run")
    group.add_argument("--radius", type=_numbers, metavar="DISTANCE", help="how far data serve: one number, or along,across[,vertical]")
    group.add_argument("--mean", type=float, help="the known mean, for simple kriging")
    _running(group)
    parser.add_argument("-o", "--output", required=True, type=_ending(*ENDINGS), metavar="FILE",
                        help=f"the result, by ending: {', '.join(ENDINGS)}")


def _parser() -> argparse.ArgumentParser:
    parser = _Parser("kestrum", description="Geostatistics: maps and realizations from scattered data.",
                     epilog='kestrum COMMAND --help explains a command. For example: kestrum krige samples.csv --value zinc '
                            '--model "0.05 Nug + 0.59 Sph(897)" --cell 40 --neighbors 20 -o zinc.nc')
    parser.add_argument("--version", action="version", version=f"kestrum {version}")
    commands = parser.add_subparsers(title="commands", metavar="COMMAND", required=True, dest="command")

    def command(name: str, text: str, run: Callable[[argparse.Namespace], None], epilog: str | None = None) -> argparse.ArgumentParser:
        sub = commands.add_parser(name, help=text, description=text[0].upper() + text[1:] + ".", epilog=epilog,
                                  formatter_class=argparse.RawDescriptionHelpFormatter)
        sub.set_defaults(run=run)
        return sub

    sub = command("krige", "a map by kriging, with the variance of its error", _run_krige, MODEL_HELP)
    _common(sub)
    sub.add_argument("--neighbors", type=int, metavar="N", help="how many data serve a cell, the nearest (default: all)")
    sub.add_argument("--drift", choices=("linear", "quadratic"), help="universal kriging with a drift in the coordinates")
    sub.add_argument("--block", type=int, metavar="N", help="means over cells, by N points along each axis")
    sub = command("simulate", "realizations by sequential Gaussian simulation", _run_simulate, MODEL_HELP)
    _common(sub)
    sub.add_argument("-n", type=int, default=1, metavar="N", help="how many realizations (default: 1)")
    sub.add_argument("--first", type=int, default=0, metavar="N", help="number of the first one (default: 0)")
    sub.add_argument("--seed", type=int, default=1, metavar="N", help="from 0 to 2^64 - 1 (default: 1)")
    sub.add_argument("--neighbors", type=int, default=20, metavar="N", help="how many data and simulated cells condition a cell (default: 20)")
    sub.add_argument("--ordinary", action="store_true", help="with an unknown mean around each cell")
    sub.add_argument("--normal-score", action="store_true", help="simulate normal scores, which the model is of, and transform them back")
    sub = command("variogram", "an experimental variogram, and a model that fits it", _run_variogram, MODEL_HELP)
    _samples(sub)
    sub.add_argument("--lag", type=float, metavar="DISTANCE", help="width of a lag (default: a third of the data's diagonal over --n-lags)")
    sub.add_argument("--n-lags", type=int, default=15, metavar="N", help="number of lags (default: 15)")
    sub.add_argument("--azimuth", type=_numbers, metavar="DEGREES", help="directions, clockwise from north: 0,45,90,135 (default: all in one)")
    sub.add_argument("--tolerance", type=float, default=22.5, metavar="DEGREES", help="half-angle of a direction (default: 22.5)")
    sub.add_argument("--bandwidth", type=float, metavar="DISTANCE", help="how far pairs may be from the axis of a direction")
    sub.add_argument("--estimator", choices=("matheron", "cressie", "madogram"), default="matheron")
    sub.add_argument("--normal-score", action="store_true", help="of the normal scores")
    sub.add_argument("--fit", action="append", type=_checked(parse_model), metavar="MODEL",
                     help="fit this model, a first guess; of several such options the best. Prints the model as --model takes it")
    _running(sub)
    sub.add_argument("-o", "--output", type=_ending(".csv", ".png"), metavar="FILE",
                     help="the variogram, .csv or .png (default: a table on the terminal)")
    sub = command("info", "what is in a file: .csv, .txt, .gslib, .dat, .vtk, .nc or .tif", _run_info)
    sub.add_argument("file")
    return parser


def main(arguments: Sequence[str] | None = None) -> int:
    """Runs a command. Errors are one line on stderr, and status 2."""
    options = _parser().parse_args(arguments)
    if "MPLBACKEND" not in os.environ:
        os.environ["MPLBACKEND"] = "agg"
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            warnings.simplefilter("always", KestrumWarning)
            warnings.showwarning = lambda message, *_: print(f"kestrum {options.command}: warning: {message}", file=sys.stderr)
            options.run(options)
            sys.stdout.flush()
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 1
    except KeyboardInterrupt:
        return 130
    except Exception as error:  # a person at a terminal has no use for a traceback
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) and error.filename else str(error)
        print(f"kestrum {options.command}: {' '.join(text.split()) or type(error).__name__}", file=sys.stderr)
        return 2
    return 0
