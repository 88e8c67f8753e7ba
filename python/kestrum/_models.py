"""Covariance models."""

from __future__ import annotations

import math
from collections.abc import Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door
from ._errors import ModelError
from ._watch import watched

if TYPE_CHECKING:
    from matplotlib.axes import Axes

    from ._targets import Target

Range = float | Sequence[float] | ArrayLike
# What a parameter is kept as: a number, or an array of the grid's shape (a DataArray with its coordinates).
Parameter = Any

# The types, as the engine counts them, and what their extra parameter is called and must be below or at most.
TYPES = ("Nugget", "Spherical", "Exponential", "Gaussian", "Linear", "Cubic", "CardinalSine", "Gamma", "Power", "Stable",
         "Matern")
SHAPES: dict[str, tuple[str, dict[str, float]]] = {
    "Gamma": ("power", {}), "Power": ("power", {"below": 2.0}), "Stable": ("power", {"at_most": 2.0}),
    "Matern": ("smoothness", {})}
# What kriging takes of them.
SHAPE_BOUNDS = 1e-6, 100.0
ANGLES = ("azimuth", "dip", "plunge")


@dataclass(frozen=True, eq=False)
class Structure:
    """One term of a covariance model, read-only.

    Attributes
    ----------
    type : str
        "Nugget", "Spherical", ...
    sill : float
        Its share in the sill of the model.
    range : tuple of float
        (along the azimuth, across[, vertical]) in the coordinates' unit; empty for a nugget. One range for all axes is
        given three times.
    shape : float or None
        The power or the smoothness of the types that have one.

    Any of these numbers is an array if it varies over the grid.

    Examples
    --------
    >>> import kestrum as ks
    >>> model = ks.Nugget(0.1) + ks.Matern(0.9, range=(50, 20), smoothness=1.5)
    >>> [(s.type, s.sill, s.range, s.shape) for s in model.structures]
    [('Nugget', 0.1, (), None), ('Matern', 0.9, (50.0, 20.0), 1.5)]
    """

    type: str
    sill: float
    range: tuple[float, ...]
    shape: float | None

    @property
    def isotropic(self) -> bool:
        """Whether all its ranges are the same.

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Spherical(range=(5, 3)).structures[0].isotropic
        False
        """
        return all(_same(self.range[0], r) for r in self.range[1:])

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Structure) and self._key() == other._key()

    def __hash__(self) -> int:
        return hash(self._key())

    def _key(self) -> tuple[Any, ...]:
        return (self.type, _key(self.sill), tuple(map(_key, self.range)), _key(self.shape))

    def _show(self, angles: str) -> str:
        """The call that makes it."""
        parts = [_text(self.sill)]
        if self.range:
            ranges = ", ".join(map(_text, self.range))
            parts.append(f"range={_text(self.range[0])}" if len(self.range) == 3 and self.isotropic else f"range=({ranges})")
        if self.shape is not None:
            parts.append(f"{SHAPES[self.type][0]}={_text(self.shape)}")
        return f"{self.type}({', '.join(parts)}{angles * (not self.isotropic)})"


class CovModel:
    """A covariance model: a sum of structures with one orientation.

    Models come from ``Nugget``, ``Spherical``, ``Exponential``, ``Gaussian``, ``Cubic``, ``Linear``, ``CardinalSine``,
    ``Gamma``, ``Power``, ``Stable`` and ``Matern``. ``+`` adds structures, ``*`` scales the sills. They are immutable, and
    can be compared, hashed and pickled.

    Attributes
    ----------
    structures : tuple of Structure
        The terms.
    azimuth, dip, plunge : float
        The orientation in degrees. The azimuth turns the first range clockwise from north (y), a positive dip turns it
        below the horizontal, the plunge turns the other two about it.

    Notes
    -----
    Ranges are distances in the coordinates' unit: one number for all axes, or a sequence (along the azimuth, across,
    vertical), whose third is required in three dimensions. Each model's docstring gives its formula, where h is the
    distance in units of the ranges: what a range means differs from type to type.

    Sills, ranges, shapes and angles can vary over a grid: give an array of the grid's shape. A DataArray is matched by
    its coordinates. The covariance at distance 0 is the sill for every type. Adding anisotropic structures of different
    orientation is an error.

    Examples
    --------
    >>> import kestrum as ks
    >>> model = ks.Nugget(0.05) + ks.Spherical(0.59, range=(900, 500), azimuth=45)
    >>> model
    Nugget(0.05) + Spherical(0.59, range=(900, 500), azimuth=45)
      sill 0.64 in the variable's unit squared; ranges (along the azimuth, across) in the coordinates' unit
      azimuth in degrees clockwise from north (y)
    >>> model.covariance([[0.0, 0.0], [300.0, 300.0]]).round(4)
    array([0.64  , 0.2037])
    """

    __slots__ = ("structures", *ANGLES)
    structures: tuple[Structure, ...]
    azimuth: float
    dip: float
    plunge: float

    def __init__(self, *_: object, **__: object) -> None:
        raise TypeError("A CovModel is made by Nugget, Spherical, Exponential, ... and by adding such models.")

    @classmethod
    def _of(cls, structures: tuple[Structure, ...], angles: Sequence[Parameter]) -> CovModel:
        model = cls.__new__(cls)
        for slot, value in zip(CovModel.__slots__, (structures, *angles)):
            object.__setattr__(model, slot, value)
        return model

    @property
    def _angles(self) -> tuple[Parameter, ...]:
        return self.azimuth, self.dip, self.plunge

    @property
    def isotropic(self) -> bool:
        """Whether direction plays no part.

        Examples
        --------
        >>> import kestrum as ks
        >>> (ks.Nugget(0.1) + ks.Spherical(range=5)).isotropic
        True
        """
        return all(structure.isotropic for structure in self.structures)

    @property
    def sill(self) -> float:
        """The sum of the sills: the covariance at distance 0.

        Examples
        --------
        >>> import kestrum as ks
        >>> (ks.Nugget(0.5) + ks.Spherical(2.0, range=5)).sill
        2.5
        """
        if any(_door.is_local(structure.sill) for structure in self.structures):
            raise ModelError("the sills of the model vary over the grid: there is no one sill.")
        try:
            return math.fsum(structure.sill for structure in self.structures)
        except OverflowError:
            return math.inf

    def __add__(self, other: CovModel) -> CovModel:
        if not isinstance(other, CovModel):
            return NotImplemented
        if not self.isotropic and not other.isotropic and _key(self._angles) != _key(other._angles):
            raise ModelError(f"azimuth, dip and plunge are ({', '.join(map(_text, self._angles))}) in one anisotropic model and "
                             f"({', '.join(map(_text, other._angles))}) in the other, but the structures of a model share one "
                             "orientation. Give all of them the same.")
        leads = not self.isotropic or (other.isotropic and any(s.range for s in self.structures))
        return CovModel._of(self.structures + other.structures, (self if leads else other)._angles)

    def __radd__(self, other: object) -> CovModel:
        # sum() begins with 0.
        if isinstance(other, int) and other == 0:
            return self
        return NotImplemented

    def __mul__(self, factor: float) -> CovModel:
        if isinstance(factor, CovModel):
            raise ModelError("models can be added, but not multiplied by one another.")
        value = _door.number("factor", factor, at_least=0.0, error=ModelError)
        scaled = tuple(Structure(s.type, _hold(s.sill * value), s.range, s.shape) for s in self.structures)
        return CovModel._of(scaled, self._angles)

    __rmul__ = __mul__

    def covariance(self, lag: ArrayLike) -> NDArray[np.float64]:
        """The covariance between places a lag apart.

        Parameters
        ----------
        lag : array_like
            A number or a one-dimensional array is distances, which an anisotropic model does not take. An array (n, 2)
            or (n, 3) is vectors.

        Returns
        -------
        numpy.ndarray
            Of the shape of the distances, or (n,). Right to 1e-13 of the sill.

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Spherical(2.0, range=10).covariance([0, 5, 10])
        array([2.   , 0.625, 0.   ])
        """
        given = _door.reals("lag", lag, ModelError)
        if given.ndim < 2:
            if not self.isotropic:
                raise ModelError("lag is distances, but the model is anisotropic. Give vectors of shape (n, 2) or (n, 3).")
            lags = watched(given.size, lambda: np.column_stack((np.zeros(given.size), given.reshape(-1))))
            shape: tuple[int, ...] = given.shape
        elif given.ndim == 2 and given.shape[1] in (2, 3):
            lags, shape = given, given.shape[:1]
        else:
            raise ModelError(f"lag is of shape {given.shape}, but must be distances of shape (n,) or vectors of shape (n, 2) or (n, 3).")
        _door.finite("lag", lags, ModelError)
        if self._local():
            raise ModelError("the model varies over the grid, so that a lag alone has no covariance.")
        return watched(lags.size, self._native(lags.shape[1]).covariance, lags).reshape(shape)

    def variogram(self, lag: ArrayLike) -> NDArray[np.float64]:
        """The semivariance of places a lag apart: the sill less the covariance.

        Parameters
        ----------
        lag : array_like
            As for `covariance`.

        Returns
        -------
        numpy.ndarray

        Examples
        --------
        >>> import kestrum as ks
        >>> ks.Spherical(2.0, range=10).variogram([0, 5, 10])
        array([0.   , 1.375, 2.   ])
        """
        covariance = self.covariance(lag)
        return watched(covariance.size, covariance.__rsub__, self.sill)

    def plot(self, ax: Axes | None = None, max_distance: float | None = None) -> Axes:
        """Draws the variogram, along the azimuth and across it if they differ.

        Parameters
        ----------
        ax : matplotlib.axes.Axes, optional
            Where to draw; new axes by default.
        max_distance : float, optional
            How far; by default 1.3 times the longest range.

        Returns
        -------
        matplotlib.axes.Axes

        Examples
        --------
        >>> import kestrum as ks
        >>> axes = ks.Spherical(2.0, range=10).plot()
        """
        from . import plot

        return plot.model(self, ax, max_distance)

    def _lifted(self, places: NDArray[np.float64]) -> CovModel:
        """For kriging with an unknown mean from data at some places: a model of the same variogram and the same search, with power
        structures of longer ranges and larger sills, so that their covariances are positive definite."""
        if self._local() or all(s.type != "Power" or s.sill == 0.0 for s in self.structures):
            return self
        dimension = places.shape[1]
        extent = 8.0 * max(math.sqrt(math.fsum(np.ptp(places, axis=0) ** 2)), 1e-300)

        def lifted(s: Structure) -> Structure:
            # A power of two, so that the ratios stay to the last bit.
            factor = math.ldexp(1.0, min(max(math.frexp(extent / min(s.range[:dimension]))[1], 0), 500))
            return Structure(s.type, float(s.sill * _core.power(factor, s.shape)), tuple(float(r * factor) for r in s.range), s.shape)

        structures = tuple(lifted(s) if s.type == "Power" else s for s in self.structures)
        before, after = (np.max([s.range[:dimension] for s in of if s.range and s.sill > 0.0], axis=0) for of in (self.structures, structures))
        if len(set(after / before)) > 1:
            # Neighbours are searched for by the longest range along each axis: a structure that adds nothing else keeps the ratios.
            factor = math.ldexp(1.0, math.frexp(float(np.max(after / before)))[1])
            structures += (Structure("Spherical", 2.0**-100 * self.sill, tuple(map(float, before * factor)), None),)
        return CovModel._of(structures, self._angles)

    def _local(self) -> bool:
        """Whether some parameter varies over a grid."""
        parameters = [p for s in self.structures for p in (s.sill, *s.range, s.shape)] + list(self._angles)
        return any(_door.is_local(p) for p in parameters)

    def _native(self, dimension: int, target: Target | None = None) -> _core.Model:
        """The engine's form; parameters that vary do so on the grid of the target."""
        if dimension == 2 and any(_door.is_local(a) or a != 0.0 for a in (self.dip, self.plunge)):
            raise ModelError("dip and plunge turn a model out of the plane: leave them out in two dimensions.")

        def at(name: str, value: Parameter) -> Any:
            if not _door.is_local(value):
                return value
            if target is None or target.grid is None:
                raise ModelError(f"{name} of the model varies over a grid, but the places to compute are no grid. "
                                 "Give a Grid, or a model of constants.")
            return target.values(f"{name} of the model", value, ModelError)

        rows = []
        for s in self.structures:
            if dimension == 3 and len(s.range) == 2:
                raise ModelError(f"{s.type} has the ranges ({', '.join(map(_text, s.range))}), but the vertical one is missing, "
                                 "which three dimensions need. Give range=(along, across, vertical).")
            along, across, vertical = (*(at("range", r) for r in s.range), 0.0)[:3] if s.range else (0.0, 0.0, 0.0)
            rows.append((TYPES.index(s.type), at("sill", s.sill), across, along, 0.0 if dimension == 2 else vertical,
                         0.0 if s.shape is None else at(SHAPES[s.type][0], s.shape)))
        if not any(_door.is_local(s.sill) for s in self.structures):
            if not self.sill > 0.0:
                raise ModelError("the sill of the model is 0: there is nothing to work with. Give a sill above 0.")
            if math.isinf(self.sill):
                raise self._refused("sill", -1, -1, None)
        return _core.Model(rows, at("azimuth", self.azimuth), at("dip", self.dip), at("plunge", self.plunge),
                           target.numbers if target is not None and self._local() else None)

    def _require_informed(self, target: Target, mask: NDArray[np.uint8] | None) -> None:
        """Refuses parameters that vary and are missing in a cell to compute, for engines that take them as they are."""
        structures = [(what, i, p) for i, s in enumerate(self.structures) for what, ps in (("sill", [s.sill]), ("range", s.range), ("shape", [s.shape])) for p in ps]
        for what, element, parameter in structures + [("angle", -1, angle) for angle in self._angles]:
            if _door.is_local(parameter):
                bad = np.isnan(target.values(f"{what} of the model", parameter, ModelError).reshape(-1))
                if mask is not None:
                    bad &= mask.reshape(-1) != 0
                if bad.any():
                    raise self._refused(what, element, int(bad.argmax()), target)

    def _refused(self, what: str, element: int, node: int, target: Target | None) -> ModelError:
        """The error for a parameter that the engine refuses: of a structure, or of the model if it is -1; at a node, or a constant."""
        def at(name: str, parameter: Parameter) -> float:
            return float(target.values(name, parameter).flat[node] if target is not None and _door.is_local(parameter) else parameter)

        structure = self.structures[element]
        named: dict[str, list[tuple[str, Parameter]]] = {
            "sill": [("sill", structure.sill)] if element >= 0 else [("sum of the sills", sum(at("sill", s.sill) for s in self.structures))],
            "range": [("range", part) for part in structure.range], "shape": [(SHAPES.get(structure.type, ("", {}))[0], structure.shape)],
            "angle": list(zip(ANGLES, self._angles))}
        numbers = [(name, at(name, parameter)) for name, parameter in named[what]]
        name, value = next((pair for pair in numbers if not math.isfinite(pair[1])), numbers[0])
        owner = "the model" if element < 0 else f"structures[{element}] of the model, {structure.type},"
        there = "" if node < 0 or target is None else f" in cell {target.cell(node)}"
        told = f"{name} of {owner} is {value:g}{there}"
        if math.isnan(value):
            return ModelError(f"{told}. Fill it in, or leave the cell out by a mask.")
        if math.isinf(value):
            return ModelError(f"{told}, beyond the range of float64, which ends at 1.8e308. Take another unit.")
        least, most = SHAPE_BOUNDS
        needed = "kriging needs a sum above 0" if what == "sill" else f"kriging takes {f'at least {least:g}' if value < least else f'at most {most:g}'}"
        return ModelError(f"{told}, but {needed}. Give such a number{' there, or leave the cell out by a mask' if there else ''}.")

    def __eq__(self, other: object) -> bool:
        return isinstance(other, CovModel) and self._key() == other._key()

    def __hash__(self) -> int:
        return hash(self._key())

    def _key(self) -> tuple[Any, ...]:
        return self.structures, None if self.isotropic else tuple(map(_key, self._angles))

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError(f"Models are immutable: make a new one instead of setting {name}.")

    def __delattr__(self, name: str) -> None:
        raise AttributeError("Models are immutable.")

    def __reduce__(self) -> tuple[Any, ...]:
        return CovModel._of, (self.structures, self._angles)

    def __str__(self) -> str:
        angles = "".join(f", {name}={_text(angle)}" for name, angle in zip(ANGLES, self._angles)
                         if _door.is_local(angle) or angle != 0.0)
        return " + ".join(structure._show(angles) for structure in self.structures)

    def __repr__(self) -> str:
        varies = any(_door.is_local(s.sill) for s in self.structures)
        lines = [str(self), f"  sill {'varies' if varies else f'{self.sill:g}'} in the variable's unit squared"]
        if any(s.range for s in self.structures):
            flat = all(len(s.range) != 3 for s in self.structures)
            axes = "" if self.isotropic else " (along the azimuth, across)" if flat else " (along the azimuth, across, vertical)"
            lines[1] += f"; ranges{axes} in the coordinates' unit"
        if not self.isotropic:
            lines.append("  azimuth in degrees clockwise from north (y)")
        return "\n".join(lines)


def _text(value: Parameter) -> str:
    if _door.is_local(value):
        return f"<array {np.shape(value)}>"
    short = f"{value:g}"
    return short if float(short) == value else repr(value)


def _key(value: Any) -> Any:
    """What two equal parameters have in common, for comparing and hashing."""
    if isinstance(value, tuple):
        return tuple(map(_key, value))
    if not _door.is_local(value):
        return value
    places = tuple((axis, value.coords[axis].values.tobytes()) for axis in value.coords) if _door.is_xarray(value) else ()
    return np.shape(value), np.asarray(value).tobytes(), places


def _same(a: Parameter, b: Parameter) -> bool:
    return a is b or _key(a) == _key(b)


def _hold(value: Parameter) -> Parameter:
    """A parameter that nobody can change."""
    if not _door.is_local(value):
        return value
    return value.copy(data=_door.frozen(value.values)) if _door.is_xarray(value) else _door.frozen(value)


def _parameter(name: str, value: Any, **bounds: Any) -> Parameter:
    """A number, or an array of the grid's shape, within bounds. NaN in an array is for cells that take no part."""
    if not _door.is_local(value):
        return _door.number(name, value, error=ModelError, **bounds)
    values = _door.reals(name, value, ModelError)
    if values.ndim > 3:
        raise ModelError(f"{name} is of shape {values.shape}, but must be a number or an array of the grid's shape.")
    informed = values[~np.isnan(values)]
    if informed.size == 0:
        raise ModelError(f"{name} is NaN in every cell.")
    for extreme in (informed.min(), informed.max()):
        _door.number(f"{name} of some cell", extreme, error=ModelError, **bounds)
    if _door.is_xarray(value):
        return value.copy(data=_door.frozen(values))
    return _door.frozen(values)


def _ranges(value: Any) -> tuple[Parameter, ...]:
    if not isinstance(value, (tuple, list)) and _door.naxes("range", value) != 1:
        return (_parameter("range", value, above=0.0),) * 3
    parts = list(value)
    if len(parts) not in (2, 3):
        raise ModelError(f"range has {len(parts)} numbers, but must be one number, (along, across) or (along, across, vertical).")
    return tuple(_parameter("range", part, above=0.0) for part in parts)


def _model(kind: str, sill: Any, range: Any, shape: Any, *angles: Any) -> CovModel:
    if kind in SHAPES:
        name, bounds = SHAPES[kind]
        shape = _parameter(name, shape, above=0.0, **bounds)
    structure = Structure(kind, _parameter("sill", sill, at_least=0.0), _ranges(range), shape)
    return CovModel._of((structure,), [_parameter(name, angle) for name, angle in zip(ANGLES, angles)])


def require_model(model: Any, constant: str = "") -> None:
    """Refuses what is no model; and one that varies, where `constant` says who cannot take it: "Cross-validation needs"."""
    if not isinstance(model, CovModel):
        _door.wrong_type("model", model, "a CovModel, say Nugget(0.1) + Spherical(0.9, range=500)")
    if constant and model._local():
        raise ModelError(f"model varies from cell to cell. {constant} one of constants.")


def Nugget(sill: float | ArrayLike = 1.0) -> CovModel:
    """Nugget effect: ``sill`` at distance 0 and nothing beyond.

    GSLIB: the nugget constant; gstat ``Nug``; in GSTools and PyKrige the parameter nugget.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Nugget(0.3).covariance([0, 1])
    array([0.3, 0. ])
    """
    return CovModel._of((Structure("Nugget", _parameter("sill", sill, at_least=0.0), (), None),), (0.0, 0.0, 0.0))


def Spherical(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
              dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Spherical model: sill * (1 - 1.5 h + 0.5 h^3) for h < 1, else 0.

    The range is where the covariance reaches 0.

    GSLIB type 1, gstat ``Sph``, GSTools ``Spherical`` (len_scale) and PyKrige ``spherical`` have the same range.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Spherical(2.0, range=10).covariance([0, 5, 10])
    array([2.   , 0.625, 0.   ])
    """
    return _model("Spherical", sill, range, None, azimuth, dip, plunge)


def Exponential(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
                dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Exponential model: sill * exp(-3 h).

    At the range 5 % of the sill are left (exactly exp(-3)).

    GSLIB type 2 and PyKrige ``exponential`` have the same range; gstat ``Exp`` and the len_scale of GSTools
    ``Exponential`` are a third of it.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Exponential(2.0, range=10).covariance([0, 10]).round(4)
    array([2.    , 0.0996])
    """
    return _model("Exponential", sill, range, None, azimuth, dip, plunge)


def Gaussian(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
             dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Gaussian model: sill * exp(-3 h^2).

    At the range 5 % of the sill are left. It is very smooth: add a nugget, or systems are hard to solve.

    GSLIB type 3 has the same range; gstat ``Gau`` is the range over sqrt(3), the len_scale of GSTools ``Gaussian``
    sqrt(pi / 12) times the range, PyKrige ``gaussian`` 7 / (4 sqrt(3)) times it.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Gaussian(2.0, range=10).covariance([0, 10]).round(4)
    array([2.    , 0.0996])
    """
    return _model("Gaussian", sill, range, None, azimuth, dip, plunge)


def Cubic(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
          dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Cubic model: sill * (1 - 7 h^2 + 8.75 h^3 - 3.5 h^5 + 0.75 h^7) for h < 1, else 0.

    The range is where the covariance reaches 0.

    GSTools ``Cubic`` (len_scale) has the same range; GSLIB, gstat and PyKrige do not have this model.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Cubic(2.0, range=10).covariance([0, 5, 10]).round(4)
    array([2.    , 0.4805, 0.    ])
    """
    return _model("Cubic", sill, range, None, azimuth, dip, plunge)


def Linear(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
           dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Linear model with a sill: sill * (1 - h) for h < 1, else 0.

    The range is where the covariance reaches 0. It is a covariance in one dimension only: in the plane and in space
    systems may be refused.

    gstat ``Lin`` and GSTools ``Linear`` (len_scale) have the same range; the linear model of PyKrige has no sill.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Linear(2.0, range=10).covariance([0, 5, 10])
    array([2., 1., 0.])
    """
    return _model("Linear", sill, range, None, azimuth, dip, plunge)


def CardinalSine(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, azimuth: float | ArrayLike = 0.0,
                 dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Cardinal sine: sill * sin(pi h) / (pi h), a hole effect.

    The range is where the covariance is first 0.

    gstat ``Wav`` has the same range. GSLIB's and PyKrige's hole effects are other models.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.CardinalSine(2.0, range=10).covariance([0, 5, 10]).round(4)
    array([2.    , 1.2732, 0.    ])
    """
    return _model("CardinalSine", sill, range, None, azimuth, dip, plunge)


def Gamma(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, power: float | ArrayLike, azimuth: float | ArrayLike = 0.0,
          dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Gamma model: sill / (1 + (20^(1 / power) - 1) h)^power, with a long tail.

    At the range 5 % of the sill are left. power is above 0; kriging takes 1e-6 to 100.

    GSLIB, gstat, GSTools and PyKrige do not have this model.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Gamma(2.0, range=10, power=1.0).covariance([0, 10])
    array([2. , 0.1])
    """
    return _model("Gamma", sill, range, power, azimuth, dip, plunge)


def Power(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, power: float | ArrayLike, azimuth: float | ArrayLike = 0.0,
          dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Power model: sill * (1 - h^power), whose variogram sill * h^power has no sill.

    The covariance is 0 at the range and negative beyond: the model suits ordinary and universal kriging alone, which take
    its variogram, whatever the range. 0 < power < 2; kriging takes 1e-6 and more.

    GSLIB type 4, gstat ``Pow`` and PyKrige ``power`` are given the slope sill / range^power.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Power(2.0, range=10, power=1.0).variogram([0, 5, 20])
    array([0., 1., 4.])
    """
    return _model("Power", sill, range, power, azimuth, dip, plunge)


def Stable(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, power: float | ArrayLike, azimuth: float | ArrayLike = 0.0,
           dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Stable (powered exponential) model: sill * exp(-3 h^power).

    At the range 5 % of the sill are left. 0 < power <= 2; 1 is the exponential, 2 the Gaussian model. Kriging takes 1e-6 and
    more.

    gstat ``Exc`` and the len_scale of GSTools ``Stable`` are the range over 3^(1 / power).

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Stable(2.0, range=10, power=1.5).covariance([0, 10]).round(4)
    array([2.    , 0.0996])
    """
    return _model("Stable", sill, range, power, azimuth, dip, plunge)


def Matern(sill: float | ArrayLike = 1.0, range: Range = 1.0, *, smoothness: float | ArrayLike, azimuth: float | ArrayLike = 0.0,
           dip: float | ArrayLike = 0.0, plunge: float | ArrayLike = 0.0) -> CovModel:
    """Matern model: sill * 2^(1-s) / Gamma(s) * u^s * K_s(u) with u = h sqrt(2 s), s the smoothness.

    The range is a scale: with s = 0.5 the covariance is sill * exp(-h), and 37 % are left at the range. The smoothness
    is above 0; kriging takes 1e-6 to 100.

    gstat ``Ste`` is sqrt(2) times the range, gstat ``Mat`` the range over sqrt(2 s), the len_scale of GSTools ``Matern``
    the range over sqrt(2).

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.Matern(2.0, range=10, smoothness=0.5).covariance([0, 10]).round(4)
    array([2.    , 0.7358])
    """
    return _model("Matern", sill, range, smoothness, azimuth, dip, plunge)
