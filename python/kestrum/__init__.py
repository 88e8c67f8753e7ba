"""Geostatistics: maps and realizations from scattered data.

    >>> import kestrum as ks
    >>> points = ks.Points([[1.0, 1.0], [8.0, 3.0], [4.0, 7.0]], [2.0, 5.0, 3.0], "zinc")
    >>> model = ks.Nugget(0.1) + ks.Spherical(0.9, range=8)
    >>> result = ks.krige(points, model, ks.Grid(10, 10))
    >>> result.estimate.dims, result.estimate.shape
    (('y', 'x'), (10, 10))

Conventions: arrays on a grid are ordered (z, y, x), or (y, x) if the grid has one layer; coordinates are (x, y) or
(x, y, z). Ranges are distances in the coordinates' unit, angles are in degrees, and the azimuth turns clockwise from
north (y). A missing value is NaN. Rows in messages count from 0. Every bad argument raises a KestrumError. Results do
not depend on `threads`, to the last bit.

The names of the C interface are those of `kestrum.native`.
"""

from typing import TYPE_CHECKING, Any

from ._core import version as __version__
from ._errors import ArgumentError, ArgumentTypeError, DataError, GridError, KestrumError, KestrumWarning, ModelError
from ._files import read_gslib, read_gslib_points, read_vtk, write_gslib, write_vtk
from ._fit import FittedModel, fit_likelihood
from ._grid import Grid
from ._image_categories import categorize, category_order, category_proportions, proportion_cuts, proportion_map
from ._image_pairs import connectivity_function, covariance_map, indicator_variogram_map, transiogram
from ._image_paths import geodesic_steps, shortest_path
from ._image_resampling import resample
from ._image_statistics import body_curves, connectivity_curve, expand, kmeans, otsu, pyramid, variogram_map
from ._images import body_sizes, box_mean, dilate, distance, erode, euler_number, label, label_depth, nearest_label
from ._krige import krige
from ._models import (CardinalSine, CovModel, Cubic, Exponential, Gamma, Gaussian, Linear, Matern, Nugget, Power, Spherical,
                      Stable, Structure)
from ._points import Points
from ._simulate import krige_categories, simulate, simulate_categories
from ._transforms import NormalScore, declustering_weights
from ._validate import cross_validate
from ._variogram import Variogram, indicator_variograms, variogram, variogram_cloud

if TYPE_CHECKING:
    from . import ensemble as ensemble
    from . import native as native
    from . import plot as plot

__all__ = [
    "ArgumentError",
    "ArgumentTypeError",
    "CardinalSine",
    "CovModel",
    "Cubic",
    "DataError",
    "Exponential",
    "FittedModel",
    "Gamma",
    "Gaussian",
    "Grid",
    "GridError",
    "KestrumError",
    "KestrumWarning",
    "Linear",
    "Matern",
    "ModelError",
    "NormalScore",
    "Nugget",
    "Points",
    "Power",
    "Spherical",
    "Stable",
    "Structure",
    "Variogram",
    "body_curves",
    "body_sizes",
    "box_mean",
    "categorize",
    "category_order",
    "category_proportions",
    "connectivity_curve",
    "connectivity_function",
    "covariance_map",
    "cross_validate",
    "declustering_weights",
    "dilate",
    "distance",
    "erode",
    "euler_number",
    "expand",
    "fit_likelihood",
    "geodesic_steps",
    "indicator_variogram_map",
    "indicator_variograms",
    "kmeans",
    "krige",
    "krige_categories",
    "label",
    "label_depth",
    "nearest_label",
    "otsu",
    "proportion_cuts",
    "proportion_map",
    "pyramid",
    "read_gslib",
    "read_gslib_points",
    "read_vtk",
    "resample",
    "shortest_path",
    "simulate",
    "simulate_categories",
    "transiogram",
    "variogram",
    "variogram_cloud",
    "variogram_map",
    "write_gslib",
    "write_vtk",
]
# Imported where they are first used: they take long, or need what is not always there.
_LATE = ("ensemble", "native", "plot")


def __getattr__(name: str) -> Any:
    if name in _LATE:
        import importlib

        return importlib.import_module("." + name, __name__)
    from ._door import nearest

    remedy = "; the names of the C interface are in kestrum.native" if name.lower().startswith("vorl") else f".{nearest(name, __all__)}"
    raise AttributeError(f"module 'kestrum' has no attribute {name!r}{remedy}")


def __dir__() -> list[str]:
    return sorted([*__all__, *_LATE, "__version__"])
