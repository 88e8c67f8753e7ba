"""Geobodies, Euler numbers, distances, dilation, erosion and moving means of images."""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence
from functools import partial
from typing import TYPE_CHECKING, Any, Literal

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _image_blocks, _lazy, _progress
from ._errors import ArgumentError, DataError
from ._image_door import Connectivity, as_image, as_neighbors, as_sides, as_truth, in_order, is_flipped, is_true, like, per_axis, require_numbers
from ._watch import in_c_order, watched

if TYPE_CHECKING:
    import pandas as pd


def label(mask: ArrayLike, connectivity: Connectivity | None = None, *,
          threads: int | None = None, progress: bool | Callable[[float], object] = False) -> tuple[NDArray[np.int32], int]:
    """Number the geobodies of a mask: its connected sets of nodes.

    Parameters
    ----------
    mask : array_like
        Two or three axes, of numbers: a node belongs to a body if it is true or not 0. NaN is not true. Arrays of bool,
        integers of 8 or 32 bits, float32 and float64 are read in place if they are contiguous in C or Fortran order,
        others are copied. A Dask array may be larger than memory: it is read once for the number of bodies, and lazily for the labels,
        which are the same for any blocks.
    connectivity : 4, 8, 6, 18 or 26, optional
        How many neighbours a node has: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array it
        shows nothing: Dask has bars of its own.

    Returns
    -------
    labels : ndarray of int32, or DataArray like the mask
        From 1, in the order of the bodies' first nodes (the last axis is the fastest); 0 elsewhere.
    count : int
        The number of bodies.

    Notes
    -----
    Runs of nodes are joined in a table of links by the algorithm of Rem (Patwary, Blair and Manne, Experiments on
    union-find algorithms for the disjoint-set data structure, 2010), which lies in the result meanwhile. Work memory is a
    quarter byte a node and 4 bytes a row, in which rows of 32 nodes and more (128 with 4 or 6 neighbours) count as the next multiple of
    64: up to half a byte in all. Threads do slabs, whose borders are joined afterwards.

    Examples
    --------
    >>> import kestrum as ks
    >>> labels, count = ks.label([[1, 0, 1], [0, 1, 1]])
    >>> labels
    array([[1, 0, 2],
           [0, 2, 2]], dtype=int32)
    >>> ks.label([[1, 0, 1], [0, 1, 1]], 8)[1]
    1
    """
    if _lazy.is_lazy(_door.held("mask", mask)):
        labels, count = _image_blocks.label("mask", mask, connectivity, threads)
        return like(mask, labels, "label"), count
    image = as_image("mask", mask)
    neighbors = as_neighbors(connectivity, image.ndim)
    nthreads = _door.threads(threads, image.size)
    flipped = is_flipped(image)
    with _progress.shown(progress, "labels") as report:
        if image.size:
            labels, count = _core.label(as_truth(image.T if flipped else image), neighbors, flipped, nthreads, report)
        else:
            labels, count = np.zeros(image.shape, np.int32), 0
    return like(mask, labels, "label"), count


def body_sizes(labels: ArrayLike, *, threads: int | None = None, progress: bool | Callable[[float], object] = False) -> pd.DataFrame:
    """Sizes and extents of labelled bodies.

    Parameters
    ----------
    labels : array_like
        Two or three axes, of whole numbers; 0 and NaN are outside the bodies. An array of int32 as `label` gives it is
        read in place.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    DataFrame
        Indexed by the labels that occur, in increasing order: `size` in nodes, and `extent_z`, `extent_y`, `extent_x`,
        the sides of the body's box in cells (`extent_z` is 1 in two dimensions).

    Notes
    -----
    Work memory is 44 bytes a body, up to the largest label, and at most a byte a node for threads; other types than int32 are
    copied.

    Examples
    --------
    >>> import kestrum as ks
    >>> print(ks.body_sizes([[1, 0, 2], [0, 2, 2]]).to_string(index_names=False))
       size  extent_z  extent_y  extent_x
    1     1         1         1         1
    2     3         1         2         2
    """
    image = as_image("labels", labels)
    with _progress.shown(progress, "sizes") as report:
        return _sizes(image, _door.threads(threads, image.size), report)


def _sizes(image: NDArray[Any], nthreads: int, report: _progress.Report) -> pd.DataFrame:
    import pandas as pd

    flipped = is_flipped(image)
    image = image.T if flipped else image
    if image.dtype.kind == "f":
        unfit = image[watched(image.size, _unfit, image)]
        if unfit.size:
            raise DataError(f"labels has the value {_door.show(unfit[0])}, but must be whole numbers. Give what label() returns.")
        image = watched(image.size, lambda: np.nan_to_num(image).astype(np.int64))
    # The engine's table has a row for each label to the largest. Labels that would make it long are renumbered, 0 with them.
    least, count = 0, 0
    if image.dtype == np.int32:
        image = in_c_order(image)
        least, count = map(int, _core.extremes(image, nthreads)) if image.size else (0, 0)
    elif image.size:
        least, count = watched(image.size, lambda: (int(image.min()), int(image.max())))
    if least < 0 or count > image.size:
        names, places = watched(image.size, lambda: np.unique(image, return_inverse=True))
        numbers = watched(image.size, lambda: np.ascontiguousarray(places.reshape(image.shape) + 1, np.int32))
        count = len(names)
    else:
        numbers = in_c_order(image, np.int32)
        names = np.arange(1, count + 1)
    table = _core.body_sizes(numbers, count, nthreads, report) if count else np.empty((4, 0), np.int32)
    there = (table[0] > 0) & (names != 0)
    index = pd.Index(names[there], name="label")
    columns = ("size", "extent_z", "extent_y", "extent_x")
    if flipped:
        table = table[[0, 3, 2, 1] if image.ndim == 3 else [0, 1, 3, 2]]
    return pd.DataFrame({name: row[there].astype(np.int64) for name, row in zip(columns, table)}, index)


def _unfit(values: NDArray[Any]) -> NDArray[np.bool_]:
    unfit: NDArray[np.bool_] = (np.trunc(values) != values) & ~np.isnan(values) | (np.abs(values) >= 2**53)
    return unfit


def euler_number(mask: ArrayLike, connectivity: Connectivity | None = None, *, threads: int | None = None) -> int:
    """The Euler number: bodies, less tunnels (holes in two dimensions), plus cavities.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well.
    connectivity : 4, 8, 6 or 26, optional
        8 and 26: of the union of the closed cells of all true nodes, which connects cells that share a corner. 4 (the
        default in two dimensions) and 6 (in three): of the true nodes with the lines, squares and cubes between
        neighbours that are all true.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.

    Notes
    -----
    Work memory is an eighth byte a node.

    Examples
    --------
    >>> import kestrum as ks
    >>> ring = [[1, 1, 1], [1, 0, 1], [1, 1, 1]]
    >>> ks.euler_number(ring)
    0
    """
    image = as_image("mask", mask)
    neighbors = as_neighbors(connectivity, image.ndim)
    if neighbors == 18 and connectivity == 18:
        raise ArgumentError("connectivity is 18, but Euler numbers are defined for 6 and 26.")
    nthreads = _door.threads(threads, image.size)
    if image.flags.f_contiguous:
        image = image.T
    return watched(image.size, _core.euler_number, as_truth(image), neighbors != 6, nthreads) if image.size else 0


def distance(mask: ArrayLike, spacing: float | Sequence[float] = 1.0, *, metric: Literal["euclidean", "manhattan"] = "euclidean",
             signed: bool = False, dtype: Literal["float64", "float32"] = "float64",
             threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[Any]:
    """The distance from each node to the nearest true node.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well. A Dask array may be larger than memory: it is read once
        or twice for where rows have true nodes, and lazily for the distances, which are the same for any blocks.
    spacing : float or sequence of float
        Between nodes, along all axes or along each, in the order of the axes: the largest is at most 1e100 times the
        smallest. The coordinates of a DataArray are not used.
    metric : "euclidean" or "manhattan"
        The length of a straight line, or the sum of the lengths along the axes.
    signed : bool
        Whether true nodes get less than 0: less the distance to the nearest one of those that an erosion by the faces
        leaves out, which have a neighbour across a face that is false. These get 0.
    dtype : "float64" or "float32"
        Of the result. The latter is twice as fast, and right to 2 units in its last place.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array it
        shows nothing: Dask has bars of its own.

    Returns
    -------
    ndarray, in the order of the mask, or DataArray like the mask
        In the unit of the spacing: 0 at true nodes (see `signed`), infinite if no node is true, NaN where the mask is. Less
        infinity at true nodes if the map is signed and no node has a false neighbour.

    Notes
    -----
    Axis by axis, in time linear in the nodes: by trying near nodes first where distances are short, and by the lower
    envelope of parabolas elsewhere (Meijster, Roerdink and Hesselink, A general algorithm for computing distance
    transforms in linear time, 2000). Work memory is an eighth byte a node, or a quarter if signed; a signed map of an
    image with NaN takes two transforms, three eighths and a second result. Of a Dask array, slabs go through the whole
    image but for the last axis, along which they are as thick as the blocks, but 64 nodes at least. Each is in memory as
    a whole, with 10 to 20 bytes a node: blocks that are thin along the last axis take the least.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.distance([[1, 0], [0, 0]], spacing=(4, 3))
    array([[0., 3.],
           [4., 5.]])
    """
    lazy = _lazy.is_lazy(_door.held("mask", mask))
    image: Any = _image_blocks.image("mask", mask)
    manhattan = _door.choice("metric", metric, ("euclidean", "manhattan")) == "manhattan"
    is_signed = _door.flag("signed", signed)
    kind = np.dtype(_door.choice("dtype", dtype, ("float64", "float32")))
    spacings = _spacings(spacing, image.shape, kind)
    if lazy:
        lazily: NDArray[Any] = like(mask, _image_blocks.distance("mask", image, spacings, manhattan, is_signed, kind, threads), "distance")
        return lazily
    nthreads = _door.threads(threads, image.size)
    flipped = is_flipped(image)
    with _progress.shown(progress, "distances") as report:
        result = _distances(as_truth(image.T if flipped else image), spacings if flipped else spacings[::-1], manhattan, is_signed, kind, nthreads, report)
    distances: NDArray[Any] = like(mask, result.T if flipped else result, "distance")
    return distances


def _distances(values: NDArray[Any], along: list[float], manhattan: bool, signed: bool, kind: Any, threads: int,
               report: _progress.Report = None, beyond: NDArray[np.int32] | None = None, row: int = 0) -> NDArray[Any]:
    """Of a mask that the engine reads. along: spacings, of the last axis first. The last two are _core.distance's."""
    # Beyond this ratio, squares leave the range of float32.
    wide = kind == np.float32 and max(along) > 1e25 * min(along)
    result = np.empty(values.shape, np.float64 if wide else kind)
    if values.size:
        _core.distance(values, [*along, 1.0][:3], manhattan, signed, result, threads, report, beyond, row)
    return result.astype(kind, copy=False)


def nearest_label(labels: ArrayLike, spacing: float | Sequence[float] = 1.0, *, metric: Literal["euclidean", "manhattan"] = "euclidean",
                  threads: int | None = None, progress: bool | Callable[[float], object] = False) -> tuple[NDArray[np.float64], NDArray[np.int32]]:
    """The label nearest to each node, and its distance: of all labels at once.

    Parameters
    ----------
    labels : array_like
        Two or three axes, of whole numbers of 32 bits; 0 and NaN are no labels. An array of int32 as `label` gives it is
        read in place, in Fortran order as well; others are copied.
    spacing : float or sequence of float
        Between nodes, as that of `distance`.
    metric : "euclidean" or "manhattan"
        The length of a straight line, or the sum of the lengths along the axes.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    distances : ndarray of float64, in the order of the labels, or DataArray like them
        In the unit of the spacing: 0 at labels, infinite if there are none.
    nearest : ndarray of int32, likewise
        The label at that distance, one of several (which one may depend on the order in memory); 0 if there are none. Nodes of one label are the part of the space nearer
        to it than to others, so that labels grow by ``np.where(distances <= reach, nearest, 0)``.

    Notes
    -----
    Felzenszwalb and Huttenlocher, Distance transforms of sampled functions, 2012, with the label of each site. One map,
    however many labels there are; work memory is 40 bytes for each node of 16 lines a thread.

    Examples
    --------
    >>> import kestrum as ks
    >>> distances, nearest = ks.nearest_label([[7, 0, 0, 0], [0, 0, 0, 3]])
    >>> nearest
    array([[7, 7, 3, 3],
           [7, 7, 3, 3]], dtype=int32)
    >>> distances.round(2)
    array([[0.  , 1.  , 1.41, 1.  ],
           [1.  , 1.41, 1.  , 0.  ]])
    """
    distances, nearest = _of_labels(labels, spacing, metric, threads, progress, _core.nearest_label, ("distance", "label"))
    return distances, nearest


def label_depth(labels: ArrayLike, spacing: float | Sequence[float] = 1.0, *, metric: Literal["euclidean", "manhattan"] = "euclidean",
                threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.float64]:
    """The distance from each labelled node to the nearest one that has another label or none: of all labels at once.

    Parameters
    ----------
    labels, spacing, metric, threads, progress
        As those of `nearest_label`.

    Returns
    -------
    ndarray of float64, in the order of the labels, or DataArray like them
        In the unit of the spacing: 0 at nodes without a label, infinite where all nodes have one label. What lies beyond
        the image does not count.

    Notes
    -----
    As `nearest_label`, by the runs of one label along each line, in the same work memory.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.label_depth([[1, 1, 1, 2, 2, 0, 3]])
    array([[3., 2., 1., 1., 1., 0., 1.]])
    """
    def work(*arguments: Any) -> tuple[NDArray[Any], ...]:
        return (_core.label_depth(*arguments),)

    depth: NDArray[np.float64] = _of_labels(labels, spacing, metric, threads, progress, work, ("depth",))[0]
    return depth


def _of_labels(labels: Any, spacing: Any, metric: Any, threads: Any, progress: _progress.Progress, work: Callable[..., tuple[NDArray[Any], ...]],
               names: tuple[str, ...]) -> list[Any]:
    """What work gives of labels in C order, spacings along x, y and z, whether distances are along the axes, threads, and a report: distances, and perhaps labels."""
    image = as_image("labels", labels)
    spacings = _spacings(spacing, image.shape, np.dtype(np.float64))
    manhattan = _door.choice("metric", metric, ("euclidean", "manhattan")) == "manhattan"
    nthreads = _door.threads(threads, image.size)
    flipped = is_flipped(image)
    values = watched(image.size, _labels, image.T if flipped else image)
    # In a unit in which squares neither overflow nor vanish.
    unit = 2.0 ** round(math.log2(max(spacings))) if not 1e-50 < max(spacings) < 1e100 else 1.0
    along = [side / unit for side in (spacings if flipped else spacings[::-1])]
    with _progress.shown(progress, f"{names[-1]}s") as report:
        results = list(work(values, [*along, 1.0][:3], manhattan, nthreads, report) if image.size else (np.empty(values.shape), values)[:len(names)])
    if unit != 1.0:
        results[0] *= unit
    return [like(labels, result.T if flipped else result, name) for result, name in zip(results, names)]


def _labels(image: NDArray[Any]) -> NDArray[np.int32]:
    """In C order; not copied if they are of 32 bits."""
    if image.dtype != np.int32:
        whole = np.nan_to_num(image, nan=0.0, posinf=0.5, neginf=0.5) if image.dtype.kind == "f" else image
        unfit = (whole >= 2**31) | (whole < -2**31) | (whole != np.trunc(whole))
        if unfit.any():
            raise DataError(f"labels has the value {_door.show(image[unfit][0])}, but must be whole numbers of 32 bits. Give what label() returns.")
        image = whole.astype(np.int32)
    return in_c_order(image)


def _spacings(spacing: Any, shape: tuple[int, ...], kind: np.dtype[Any]) -> list[float]:
    """Between nodes along each axis, such that distances are numbers of the type."""
    spacings = per_axis("spacing", spacing, len(shape), partial(_door.number, above=0.0))
    least, most = np.finfo(kind).tiny, np.finfo(kind).max
    if min(spacings) < least or not sum(side * n for side, n in zip(spacings, shape)) <= most or max(spacings) > 1e100 * min(spacings):
        raise ArgumentError(f"spacing is {_door.show(spacing)}, but distances must lie between {least:.1e} and {most:.1e} in {kind}, and the largest spacing "
                            "may be at most 1e100 times the smallest. Change the unit" + (", or ask for float64." if kind == np.float32 else "."))
    return spacings


def dilate(mask: ArrayLike, element: ArrayLike | int = 3, *,
           threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.bool_]:
    """Dilate a mask: a node becomes true where the element, moved to some true node, covers it.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well. NaN comes out false. A Dask array gives a lazy one.
    element : int or array_like
        The side of a square or cube, or an array of the mask's dimension, true at its nodes. Sides are odd, and the
        centre, about which the element lies, is true.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array it
        shows nothing: Dask has bars of its own.

    Returns
    -------
    ndarray of bool, in the order of the mask, or DataArray like the mask
        Nothing comes in from outside the mask.

    Notes
    -----
    Nodes are handled as bits, 64 at a time; work memory is three bits a node. A full box is applied axis by axis. Other
    elements are taken apart into runs along rows: for each length of these, rows grow along themselves once.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.dilate([[0, 0, 0, 1], [0, 0, 0, 0]]).astype(int)
    array([[0, 0, 1, 1],
           [0, 0, 1, 1]])
    """
    if _lazy.is_lazy(_door.held("mask", mask)):
        lazily: NDArray[np.bool_] = like(mask, _image_blocks.around("mask", mask, _reach(element, mask), dilate, np.bool_, element, threads), "dilate")
        return lazily
    result: NDArray[np.bool_] = like(mask, _changed(mask, element, True, threads, progress), "dilate")
    return result


def erode(mask: ArrayLike, element: ArrayLike | int = 3, *,
          threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.bool_]:
    """Erode a mask: a node stays true where the element, moved to it, covers no false node.

    Parameters
    ----------
    mask : array_like
        As that of `dilate`. NaN erodes nothing, and comes out false.
    element : int or array_like
        As that of `dilate`.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array it
        shows nothing: Dask has bars of its own.

    Returns
    -------
    ndarray of bool, in the order of the mask, or DataArray like the mask
        The outside erodes nothing.

    Notes
    -----
    Work memory is three bits a node.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.erode([[1, 1, 1, 0], [1, 1, 1, 1]]).astype(int)
    array([[1, 1, 0, 0],
           [1, 1, 0, 0]])
    """
    if _lazy.is_lazy(_door.held("mask", mask)):
        lazily: NDArray[np.bool_] = like(mask, _image_blocks.around("mask", mask, _reach(element, mask), erode, np.bool_, element, threads), "erode")
        return lazily
    result: NDArray[np.bool_] = like(mask, _changed(mask, element, False, threads, progress), "erode")
    return result


def box_mean(image: ArrayLike, size: int | Sequence[int], *,
             threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.float64]:
    """The mean of the box about each node.

    Parameters
    ----------
    image : array_like
        Two or three axes, of numbers; NaN is missing. Arrays of bool, uint8, int32, float32 and float64 are read in place
        if they are contiguous in C or Fortran order, others are copied. A Dask array gives a lazy one.
    size : int or sequence of int
        The sides of the box in nodes, for all axes or for each, in their order. They are odd.
    threads : int, optional
        By default all cores, one for small arrays. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call. Of a Dask array it
        shows nothing: Dask has bars of its own.

    Returns
    -------
    ndarray of float64, in the order of the image, or DataArray like the image
        NaN where the box leaves the image, or where less than 80 % of its values are known, or where infinite ones of both
        signs meet. Right to 1e-12 of the box's largest value, whatever lies elsewhere.

    Notes
    -----
    Along each axis in turn, values are added up in pairs, pairs in fours, and so on, so that time grows with the logarithm
    of the sides. Nothing is subtracted: running sums, which are, would carry the rounding of large values along. Work
    memory is 4 bytes a node if a value is missing.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.box_mean([[1, 2, 3, 4], [5, 6, 7, 8], [9, 0, 1, 2]], 3)
    array([[       nan,        nan,        nan,        nan],
           [       nan, 3.77777778, 3.66666667,        nan],
           [       nan,        nan,        nan,        nan]])
    """
    lazy = _lazy.is_lazy(_door.held("image", image))
    values: Any = image if lazy else as_image("image", image)
    sides = as_sides(size, values.shape)
    if lazy:
        lazily: NDArray[np.float64] = like(image, _image_blocks.around("image", image, [side // 2 for side in sides], _means, np.float64, sides, threads), "box_mean")
        return lazily
    result: NDArray[np.float64] = like(image, _means(values, size, threads=threads, progress=progress), "box_mean")
    return result


def _means(image: NDArray[Any], size: Any, *, threads: int | None, progress: _progress.Progress = False) -> NDArray[np.float64]:
    values = as_image("image", image)  # a block may be masked
    sides = as_sides(size, values.shape)
    nthreads = _door.threads(threads, values.size)
    typed, flipped = in_order("image", values)
    means = np.empty(typed.shape)
    with _progress.shown(progress, "means") as report:
        if values.size:
            _core.box_mean(typed, [*(sides if flipped else sides[::-1]), 1][:3], means, nthreads, report)
    return means.T if flipped else means


def _changed(mask: ArrayLike, element: Any, dilating: bool, threads: int | None, progress: _progress.Progress) -> NDArray[np.bool_]:
    image = as_image("mask", mask)
    offsets = _offsets(element, image.shape)
    nthreads = _door.threads(threads, image.size)
    if image.size == 0:
        return np.zeros(image.shape, np.bool_)
    flipped = is_flipped(image)
    # Along x, y and z, from a node to those that change it: SciPy's orientation.
    native = []
    for rows in offsets:
        along = np.zeros((3, rows.shape[1]), np.int32)
        along[: image.ndim] = rows if flipped else rows[::-1]
        native.append(-along if dilating else along)
    with _progress.shown(progress, "dilation" if dilating else "erosion") as report:
        result = _core.changed_mask(as_truth(image.T if flipped else image), dilating, native, nthreads, report).view(np.bool_)
    return result.T if flipped else result


def _reach(element: Any, mask: Any) -> list[int]:
    """How far an element goes along each axis."""
    offsets = _offsets(element, mask.shape)
    return [max((int(abs(rows[axis]).max(initial=0)) for rows in offsets), default=0) for axis in range(mask.ndim)]


def _offsets(element: Any, shape: tuple[int, ...]) -> list[NDArray[np.intp]]:
    """Offsets along the axes, without 0. A box is a list of lines."""
    if _door.array("element", element).ndim == 0:
        sides, box = (_door.whole("element", element, 1),) * len(shape), None
    else:
        given = _door.array("element", element)
        require_numbers("element", given)
        if given.ndim != len(shape):
            raise ArgumentError(f"element is of shape {given.shape}, but must have the {len(shape)} axes of the mask.")
        sides, box = given.shape, is_true(given)
    if any(side % 2 == 0 for side in sides):
        raise ArgumentError(f"element has sides of {' x '.join(f'{side:,}' for side in sides)}. They must be odd, so that it has a centre.")
    half = [side // 2 for side in sides]
    if box is not None and not box[tuple(half)]:
        raise ArgumentError("element is not true at its centre. Set it there.")
    if box is not None and not box.all():
        rows = np.argwhere(box).T - np.array(half)[:, None]
        return [rows[:, (rows != 0).any(0)]]
    lines = []
    for axis, (reach, n) in enumerate(zip(half, shape)):
        line = np.arange(-min(reach, n), min(reach, n) + 1)
        rows = np.zeros((len(shape), len(line)), np.intp)
        rows[axis] = line
        if reach > 0:
            lines.append(rows)
    return lines
