"""The page on conventions: each entry, put into the formula that the other program publishes, gives the model here."""

import re
from pathlib import Path

import numpy as np
import pytest
from scipy import special

import kestrum as ks

PAGE = (Path(__file__).parents[2] / "docs/conventions.md").read_text()
RANGE, DISTANCES = 730.0, np.array([1.0, 90.0, 300.0, 610.0, 729.0, 900.0])
SHAPES = {"Power": 1.3, "Stable": 1.3, "Gamma": 1.7, "Matern": 0.8}


def spherical(h):
    return np.where(h < 1, 1 - 1.5 * h + 0.5 * h**3, 0.0)


def bessel(scaled, nu):
    return 2 ** (1 - nu) / special.gamma(nu) * scaled**nu * special.kv(nu, scaled)


# The correlation at a distance d by the entry of the table, v, and the shape p. Of what has no sill, 1 less the variogram.
# C. V. Deutsch and A. G. Journel, GSLIB, 2nd ed., 1998, section II.3; E. J. Pebesma, gstat user's manual, 2001, table of models,
# and M. L. Stein's form of the Matern model; S. Müller et al., GSTools v1.3, Geosci. Model Dev. 15, 2022, where
# h = d rescale / len_scale; B. Murphy et al., PyKrige, the page "Variogram models" of its documentation.
PUBLISHED = {
    "GSLIB": {
        "it 1": lambda d, v, p: spherical(d / v),
        "it 2": lambda d, v, p: np.exp(-3 * d / v),
        "it 3": lambda d, v, p: np.exp(-3 * (d / v) ** 2),
        "it 4": lambda d, v, p: 1 - v * d**p,
    },
    "gstat": {
        "Sph": lambda d, v, p: spherical(d / v),
        "Exp": lambda d, v, p: np.exp(-d / v),
        "Gau": lambda d, v, p: np.exp(-((d / v) ** 2)),
        "Pow": lambda d, v, p: 1 - v * d**p,
        "Lin": lambda d, v, p: np.maximum(1 - d / v, 0.0),
        "Wav": lambda d, v, p: np.sin(np.pi * d / v) / (np.pi * d / v),
        "Exc": lambda d, v, p: np.exp(-((d / v) ** p)),
        "Ste": lambda d, v, p: bessel(2 * np.sqrt(p) * d / v, p),
    },
    "GSTools (`len_scale`)": {
        "Spherical": lambda d, v, p: spherical(d / v),
        "Exponential": lambda d, v, p: np.exp(-d / v),
        "Gaussian": lambda d, v, p: np.exp(-((d * np.sqrt(np.pi) / 2 / v) ** 2)),
        "Cubic": lambda d, v, p: np.polyval([0.75, 0, -3.5, 0, 8.75, -7, 0, 1], np.minimum(d / v, 1.0)),
        "Linear": lambda d, v, p: np.maximum(1 - d / v, 0.0),
        "JBessel": lambda d, v, p: special.gamma(1.5) * special.jv(0.5, d / v) / (d / v / 2) ** 0.5,
        "Stable": lambda d, v, p: np.exp(-((d / v) ** p)),
        "Matern": lambda d, v, p: bessel(np.sqrt(p) * d / v, p),
    },
    "PyKrige": {
        "spherical": lambda d, v, p: spherical(d / v),
        "exponential": lambda d, v, p: np.exp(-d / (v / 3)),
        "gaussian": lambda d, v, p: np.exp(-((d / (4 / 7 * v)) ** 2)),
        "power": lambda d, v, p: 1 - v * d**p,
    },
}


def table(after):
    """The rows of the first table behind a heading, by column."""
    lines = PAGE.split(after)[1].split("\n\n|")[1].split("\n\n")[0].splitlines()
    head, _, *rows = [[cell.strip() for cell in line.strip("| ").split(" | ")] for line in lines]
    return [dict(zip(head, row)) for row in rows]


def value(text, **names):
    """Of an expression as it is printed."""
    text = text.replace("π", " pi ").replace("^", "**")
    for power, digit in zip("²³⁵⁷", "2357"):
        text = text.replace(power, f"**{digit}")
    text = re.sub(r"√\s*([0-9a-z]+)", r" sqrt(\1)", text).replace("√", " sqrt")
    text = re.sub(r"(?<=[0-9a-z)])\s+(?=[a-z0-9(])", "*", " ".join(text.split()).replace("sqrt (", "sqrt("))
    return eval(text, {"sqrt": np.sqrt, "exp": np.exp, "sin": np.sin, "pi": np.pi, **names})


ROWS = table("## What other programs call the same model")


def model_of(row):
    name = row["here"].strip("`")
    keyword = {"Matern": "smoothness"}.get(name, "power")
    return getattr(ks, name)(1.0, RANGE, **({keyword: SHAPES[name]} if name in SHAPES else {})), SHAPES.get(name)


@pytest.mark.parametrize("row", ROWS, ids=lambda row: row["here"])
def test_entries_are_the_same_model(row):
    model, shape = model_of(row)
    own = 1.0 - model.variogram(DISTANCES)
    entries = {program: row[program] for program in PUBLISHED if not row[program].startswith("none")}
    for program, entry in entries.items():
        name, expression = entry.split(", ")
        formula = PUBLISHED[program][re.sub(r"`| \(.*", "", name)]
        parameter = value(expression.removeprefix("slope ").removeprefix("scale "), a=RANGE, p=shape)
        np.testing.assert_allclose(formula(DISTANCES, parameter, shape), own, rtol=0, atol=3e-13, err_msg=program)
    if "Γ" not in row["formula of the covariance, sill 1"]:
        inside = DISTANCES[DISTANCES < RANGE]
        formula = row["formula of the covariance, sill 1"].split(" (variogram")[0]
        np.testing.assert_allclose(value(formula, h=inside / RANGE, p=shape), own[: len(inside)], rtol=0, atol=3e-13)


def test_every_formula_is_an_entry():
    for program, formulas in PUBLISHED.items():
        named = {re.sub(r"`|,.*| \(.*", "", row[program]) for row in ROWS} - {"none"}
        assert named == set(formulas)
    kinds = {name for name in ks.__all__ if getattr(getattr(ks, name), "__annotations__", {}).get("return") == "CovModel"}
    assert {row["here"].strip("`") for row in ROWS} == kinds - {"Nugget"}


def turned(lags, angle):
    """Coordinates by axes that are turned counterclockwise."""
    return lags @ np.array([[np.cos(angle), -np.sin(angle)], [np.sin(angle), np.cos(angle)]])


def test_one_anisotropic_model_in_five_programs():
    texts = {row["program"]: row["text"] for row in table("## One model in five programs")}
    lags = np.random.default_rng(1).normal(0.0, 400.0, (50, 2))
    here = eval(texts["Kestrum"].strip("`"), vars(ks)).covariance(lags)

    def exponential(dim, var, len_scale, nugget, anis, angles):
        along, across = turned(lags, angles).T
        return var * np.exp(-np.hypot(along, across / anis) / len_scale)

    np.testing.assert_allclose(eval(texts["GSTools"].strip("`"), {"Exponential": exponential, "np": np}), here, rtol=0, atol=1e-12)
    kriging = eval("dict(" + texts["PyKrige"].strip("`") + ")")
    given = kriging["variogram_parameters"]
    x, y = turned(lags, np.deg2rad(kriging["anisotropy_angle"])).T
    distance = np.hypot(x, kriging["anisotropy_scaling"] * y)
    np.testing.assert_allclose(given["psill"] * np.exp(-distance / (given["range"] / 3)), here, rtol=0, atol=1e-12)
    (_, _), (kind, sill, azimuth, _, _), (major, minor, _) = [[float(number) for number in part.split()] for part in texts["GSLIB"].replace("`", "").split("/")]
    angle = np.deg2rad(azimuth)
    along, across = lags @ [np.sin(angle), np.cos(angle)], lags @ [np.cos(angle), -np.sin(angle)]
    assert kind == 2
    np.testing.assert_allclose(sill * np.exp(-3 * np.hypot(along / major, across / minor)), here, rtol=0, atol=1e-12)
    psill, kind, effective, nugget, azimuth, ratio = re.match(r"`vgm\((.*), \"(.*)\", (.*), nugget = (.*), anis = c\((.*), (.*)\)\)`", texts["gstat"]).groups()
    # gstat itself has computed this one: see the models' table.
    assert (kind, float(psill), float(effective), float(nugget), float(azimuth), eval(ratio)) == ("Exp", 0.59, 300, 0.05, 45, 500 / 900)
