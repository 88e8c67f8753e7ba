"""The engine, for the package alone: arguments have been checked, arrays are contiguous and of the type named."""

from collections.abc import Callable, Sequence
from typing import Any

import numpy as np
from numpy.typing import NDArray

version: str

def power(x: float, y: Any) -> float: ...
def normal_quantile(p: _Floats) -> _Floats: ...
def normal_probability(t: _Floats) -> _Floats: ...
def limit_instructions(level: int) -> bool:
    """For tests: 0 takes the least set of instructions, 1 AVX2 at most, 2 what there is. Whether the machine has that one."""

_Grid = tuple[float, ...]  # nx, ny, nz, dx, dy, dz, x0, y0, z0
_Three = tuple[float, float, float]
_VtkHeader = tuple[tuple[int, int, int], _Three, _Three, bool, bool, list[tuple[bytes, int]]]
_Floats = NDArray[np.float64]
_Mask = NDArray[np.uint8]
_Progress = Callable[[float], object] | None
_Weights = tuple[NDArray[np.int32], _Floats, NDArray[np.int32]]  # by target: number of data, their weights, which they are

class Model:
    """rows: (type, sill, across, along, vertical, shape) for each structure; numbers, or arrays in node order."""
    def __init__(self, rows: Sequence[tuple[object, ...]], azimuth: object, dip: object, plunge: object,
                 grid: _Grid | None = None) -> None: ...
    def covariance(self, lags: _Floats) -> _Floats: ...

class PlaceKriging:
    """Data and a model. Methods give counts: places without data, undetermined, indefinite, with redundant data."""
    def __init__(self, model: Model, coordinates: _Floats, values: _Floats, error_variance: _Floats | None,
                 means: _Floats | None, covariates: _Floats | None, neighbors: int, radius: tuple[float, float, float],
                 euclidean: bool, degree: int, mean: float, block: tuple[int, int, int], threads: int,
                 progress: _Progress = ...) -> None: ...
    def on_grid(self, grid: _Grid, first: tuple[int, int, int], extent: tuple[int, int, int], mask: _Mask | None,
                means: _Floats | None, covariates: _Floats | None, estimate: _Floats, variance: _Floats, threads: int,
                progress: _Progress, weights: _Weights | None = None) -> tuple[int, int, int, int]: ...
    def at_places(self, places: _Floats, means: _Floats | None, covariates: _Floats | None, estimate: _Floats,
                  variance: _Floats, threads: int, progress: _Progress, weights: _Weights | None = None) -> tuple[int, int, int, int]: ...
    def leave_out(self, start: NDArray[np.int32] | None, member: NDArray[np.int32] | None, estimate: _Floats,
                  variance: _Floats, threads: int, progress: _Progress) -> tuple[int, int, int, int]:
        """Each datum from those of other folds, or from all others: the data member[start[f]:start[f + 1]] are a fold."""

def nodes_of(grid: _Grid, places: _Floats) -> NDArray[np.int32]:
    """The node whose cell holds each place; -1 outside."""

class GridRun:
    """Data on nodes, in increasing order. neighbors 0 is all data; radius None the model's ranges.

    Methods give counts: systems that lost a neighbour, that could not be solved, passes in which bounds gave way.
    """
    def __init__(self, grid: _Grid, models: Sequence[Model], ordinary: bool, neighbors: int,
                 radius: tuple[float, float, float] | None, data_nodes: NDArray[np.int32], data_values: _Floats,
                 mask: _Mask | None, means: _Floats | None, mean: float, factorising: bool, threads: int) -> None: ...
    def set_bounds(self, nodes: NDArray[np.int32], lower: _Floats, upper: _Floats) -> None: ...
    def krige(self, estimate: _Floats, variance: _Floats, progress: _Progress) -> tuple[int, int, int]: ...
    def simulate(self, seed: int, first: int, passes: int, rows: NDArray[np.float64] | NDArray[np.float32], progress: _Progress) -> tuple[int, int, int]: ...
    def krige_categories(self, proportions: _Floats, probabilities: _Floats, progress: _Progress) -> tuple[int, int, int]: ...
    def simulate_categories(self, proportions: _Floats, seed: int, first: int, rows: NDArray[np.int16],
                            progress: _Progress) -> tuple[int, int, int]: ...

def read_gslib_grid(descriptor: int, progress: _Progress) -> tuple[int, int, tuple[_Grid, list[bytes], _Floats] | None]:
    """(status, position in the file, (grid, names, values of shape (variables, nz, ny, nx)) or None after a failure)."""
def read_gslib_table(descriptor: int, progress: _Progress) -> tuple[int, int, tuple[list[bytes], _Floats] | None]:
    """(fault, position in the file, (names, values of shape (rows, columns)) or None after a failure)."""
def read_vtk(descriptor: int, progress: _Progress) -> tuple[int, int, tuple[_VtkHeader, _Floats] | None]:
    """(fault, position in the file, (header, values of array by array) or None after a failure).

    header: points along x, y and z, origin, spacing, whether the arrays are in cells, whether VORLWriteImage wrote the file,
    name and number of components of each array. Components lie side by side.
    """
def write_gslib_grid(descriptor: int, grid: _Grid, names: Sequence[str], values: Sequence[_Floats], progress: _Progress) -> None: ...
def write_vtk_grid(descriptor: int, grid: _Grid, names: Sequence[str], values: Sequence[_Floats], progress: _Progress) -> None: ...
def write_gslib_table(descriptor: int, names: Sequence[str], values: Sequence[_Floats], progress: _Progress) -> None: ...
def point_variogram(coordinates: _Floats, values: _Floats, other: _Floats | None, lag: float, n_lags: int, estimator: int,
                    cones: _Floats, threads: int, progress: _Progress) -> tuple[_Floats, _Floats, NDArray[np.int64], int]:
    """Mean distance, semivariance and number of the pairs by direction and lag, and the number of pairs at distance 0.

    cones: rows of an axis of length 1, the cosine of the half-angle and the bandwidth; none for all directions.
    """

def project_out_drift(matrix: _Floats, drift: _Floats, projection: _Floats, threads: int) -> float:
    """Writes A^-1 - A^-1 F (F^T A^-1 F)^-1 F^T A^-1; gives log|A| + log|F^T A^-1 F|, infinite without an inverse.

    matrix: A; drift: the columns of F as rows.
    """
def label(values: NDArray[Any], neighbors: int, transposed: bool, threads: int, progress: _Progress) -> tuple[NDArray[np.int32], int]:
    """values: uint8, int32, float32 or float64. neighbors: 6, 18 or 26, also of one layer."""
def steps_in_mask(mask: NDArray[Any], neighbors: int, start: NDArray[np.int32], threads: int, progress: _Progress) -> NDArray[np.int32]:
    """mask: as the values of label. start: nodes by number."""
def path_by_steps(steps: NDArray[np.int32], neighbors: int, starts: NDArray[np.int32], ends: NDArray[np.int32], seed: int) -> NDArray[np.int64]:
    """A row of places for each node, from a start to the nearest of the ends, given by number."""
def euler_number(values: NDArray[Any], closed_cells: bool, threads: int) -> int: ...
def distance(mask: NDArray[Any], spacing: Sequence[float], manhattan: bool, is_signed: bool, distance: NDArray[Any], threads: int,
             progress: _Progress, beyond: NDArray[np.int32] | None = None, row_length: int = 0) -> None:
    """mask: as the values of label. spacing: along x, y and z. distance: out; float32 or float64, of the mask's shape. beyond: where the mask is a part
    of rows of row_length nodes, the steps from each row's first node back to the nearest true one before it, and from its last node on; 0 without one."""
def label_depth(labels: NDArray[np.int32], spacing: Sequence[float], manhattan: bool, threads: int, progress: _Progress) -> NDArray[np.float64]:
    """The distance from each label other than 0 to the nearest node of another or none. spacing: along x, y and z."""
def nearest_label(labels: NDArray[np.int32], spacing: Sequence[float], manhattan: bool, threads: int, progress: _Progress) -> tuple[NDArray[np.float64], NDArray[np.int32]]:
    """The distance to the nearest label other than 0, and that label. spacing: along x, y and z."""
def area_means(image: NDArray[Any], shape: Sequence[int], threads: int, progress: _Progress) -> NDArray[np.float64]:
    """Means over the cells of another grid of the same box. image: as that of box_mean."""
def box_mean(image: NDArray[Any], sides: Sequence[int], means: NDArray[np.float64], threads: int, progress: _Progress) -> None:
    """image: uint8, int32, float32 or float64. sides: along x, y and z. means: out."""
def body_sizes(labels: NDArray[np.int32], n: int, threads: int, progress: _Progress) -> NDArray[np.int32]:
    """Rows of size and of extents along z, y and x, of the labels 1 to n. None is larger than n."""
def otsu(values: NDArray[Any], classes: int, threads: int, progress: _Progress) -> tuple[NDArray[np.float64], int, bool]:
    """The cuts, how many values are distinct (or at least `classes`), and whether one is infinite. values: as label."""
def extremes(values: NDArray[Any], threads: int) -> tuple[float, float]:
    """The least and the greatest but for NaN; of none inf and -inf. values: as label."""
def connectivity_curves(images: NDArray[Any], thresholds: NDArray[np.float64], neighbors: int, above: bool, threads: int, progress: _Progress) -> NDArray[np.float64]:
    """A row for each image, of values as those of label, along the first axis. thresholds: not decreasing."""
def measure_bodies(codes: NDArray[np.int16], n: int, neighbors: int, above: bool, threads: int, progress: _Progress) -> NDArray[np.int64]:
    """By image, along the first axis, and code from 0 to n - 1: the number of the bodies of the nodes above it or not, the largest size, the largest
    extents along the last three axes, and the Euler number."""
def two_point_sums(image: NDArray[np.float64], statistic: str, max_lag: Sequence[int], threads: int, progress: _Progress) -> tuple[NDArray[np.float64], NDArray[np.int64]]:
    """The sums over the pairs of each lag, of four axes, and the numbers of pairs: of squared differences for a variogram; else of products, then of tails, heads
    and their squares. statistic: variogram, covariance, noncentered or correlogram. max_lag: along z, y and x."""
def find_categories(values: NDArray[Any], threads: int, progress: _Progress) -> NDArray[np.float64] | None:
    """The distinct values of those of label, increasing; None if there are more than 255."""
def code_categories(values: NDArray[Any], categories: NDArray[np.float64], threads: int, progress: _Progress) -> NDArray[np.int16]:
    """The number of each value among the categories, or -1."""
def code_by_cuts(values: NDArray[Any], cuts: NDArray[np.float64], threads: int, progress: _Progress) -> NDArray[np.int16]:
    """How many of the cuts, which increase, are at or below each value; -1 at NaN."""
def category_pairs(codes: NDArray[np.int16], n: int, max_lag: Sequence[int], threads: int, progress: _Progress) -> NDArray[np.int64]:
    """Pairs by the categories of tail and head, 0 to n - 1, and by lag: five axes. max_lag: along z, y and x."""
def category_changes(codes: NDArray[np.int16], n: int, nested: bool, max_lag: Sequence[int], threads: int, progress: _Progress) -> tuple[NDArray[np.int64], NDArray[np.int64]]:
    """Pairs of which one end is in a set, by set and lag, and all pairs by lag. The sets are the categories or, nested, the codes above each but the last."""
def chain_categories(transitions: NDArray[np.int64]) -> NDArray[np.int32]:
    """The categories in an order in which those with many transitions between them are near."""
def alike_pairs(labels: NDArray[np.int32], max_lag: Sequence[int], threads: int, progress: _Progress) -> NDArray[np.int64]:
    """Pairs of one label other than 0, by lag."""
def reduce(image: NDArray[Any], threads: int, progress: _Progress) -> NDArray[np.float64]: ...
def expand(image: NDArray[Any], finer: list[bool], threads: int, progress: _Progress) -> NDArray[np.float64]: ...
def kmeans(features: NDArray[np.float64], centers: NDArray[np.float64], max_iterations: int, tolerance: float, restarts: int, seed: int,
           threads: int, progress: _Progress) -> tuple[NDArray[np.int32], float]:
    """Labels and inertia; centers is in and out. restarts: 0 begins with the centres that are there."""
def changed_mask(mask: NDArray[Any], dilating: bool, elements: Sequence[NDArray[np.int32]], threads: int, progress: _Progress) -> NDArray[np.uint8]:
    """mask: as the values of label. elements: rows of offsets along x, y and z, one element after the other."""
