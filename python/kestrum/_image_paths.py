"""Ways inside the bodies of images."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _core, _door, _progress
from ._errors import ArgumentError, DataError
from ._image_door import Connectivity, as_image, as_neighbors, as_truth, is_flipped, is_true, like
from ._watch import in_c_order


def geodesic_steps(mask: ArrayLike, start: ArrayLike, connectivity: Connectivity | None = None, *,
                   threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.int32]:
    """The least number of steps to each node from some nodes, by true nodes alone.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well.
    start : array_like of int
        The place of a node on each axis, or a row for each of several nodes. They are true.
    connectivity : 4, 8, 6, 18 or 26, optional
        To how many neighbours a step may lead: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    threads : int, optional
        By default all cores, one for small images. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of int32, in the order of the mask, or DataArray like the mask
        From the nearest start: 0 there, -1 at false nodes and where no way leads.

    Notes
    -----
    Moore, The shortest path through a maze, 1959: all nodes of a number of steps, then those of the next, here 64 at a time.
    Work memory is 0.27 byte a node, up to 4 in images a few nodes thick, and what the nodes of one number of steps take.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.geodesic_steps([[1, 1, 1], [1, 0, 1], [1, 0, 1]], start=(2, 0))
    array([[ 2,  3,  4],
           [ 1, -1,  5],
           [ 0, -1,  6]], dtype=int32)
    """
    steps: NDArray[np.int32] = like(mask, _steps(mask, start, connectivity, threads, progress)[0], "steps")
    return steps


def shortest_path(mask: ArrayLike, start: ArrayLike, end: ArrayLike, connectivity: Connectivity | None = None, *, seed: int = 1,
                  threads: int | None = None, progress: bool | Callable[[float], object] = False) -> NDArray[np.int64]:
    """A path of the fewest steps between nodes, by true nodes alone.

    Parameters
    ----------
    mask : array_like
        As that of `label`; Fortran order is read in place as well.
    start, end : array_like of int
        The place of a node on each axis, or a row for each of several nodes, of which the nearest count. Starts are true. A
        path as start gives the branch that joins it.
    connectivity : 4, 8, 6, 18 or 26, optional
        To how many neighbours a step may lead: 4 (by default) or 8 in two dimensions, 6 (by default), 18 or 26 in three.
    seed : int
        Of the draws, from 0 to 2^64 - 1: from the end on, of the neighbours a step nearer to a start one is drawn, each as
        likely as the others.
    threads : int, optional
        By default all cores, one for small images. The result does not depend on it.
    progress : bool or callable
        True shows a bar; a callable gets the fraction done, and what it raises ends the call.

    Returns
    -------
    ndarray of int64
        A row of places on the axes for each node, from a start to an end. No rows if no way leads there.

    Notes
    -----
    By `geodesic_steps`; 4 bytes a node for their numbers, 8 in Fortran order.

    Examples
    --------
    >>> import kestrum as ks
    >>> ks.shortest_path([[1, 1, 1], [1, 0, 1]], start=(1, 0), end=(1, 2), connectivity=8)
    array([[1, 0],
           [0, 1],
           [1, 2]])
    """
    number = _door.whole("seed", seed, 0, 2**64 - 1)
    found, neighbors = _steps(mask, start, connectivity, threads, progress)
    steps = in_c_order(found)  # in which neighbours are drawn
    return _core.path_by_steps(steps, neighbors, _nodes("start", start, steps), _nodes("end", end, steps), number)


def _steps(mask: ArrayLike, start: Any, connectivity: Any, threads: Any, progress: _progress.Progress) -> tuple[NDArray[np.int32], int]:
    """The numbers of steps, in the order of the mask, and that of neighbours."""
    image = as_image("mask", mask)
    neighbors = as_neighbors(connectivity, image.ndim)
    nthreads = _door.threads(threads, 4 * image.size)
    starts = _nodes("start", start, image)
    flipped = is_flipped(image)
    values = as_truth(image.T if flipped else image)
    false = ~is_true(values.reshape(-1)[starts])
    if false.any():
        place = np.argwhere(false)[0, 0]
        raise DataError(f"start has {_door.show(np.atleast_2d(start)[place].tolist())}, where the mask is not true. Give a node of a body.")
    with _progress.shown(progress, "steps") as report:
        steps = _core.steps_in_mask(values, neighbors, starts, nthreads, report)
    return steps.T if flipped else steps, neighbors


def _nodes(name: str, value: Any, image: NDArray[Any]) -> NDArray[np.int32]:
    """The numbers, in the order of the image, of places."""
    given = _door.array(name, value)
    if given.dtype.kind not in "iu":
        _door.wrong_type(name, value, "whole numbers: the place of a node on each axis")
    rows = given[None] if given.ndim == 1 else given
    if rows.ndim != 2 or rows.shape[1] != image.ndim or len(rows) == 0:
        raise ArgumentError(f"{name} has the shape {given.shape}, but must be ({image.ndim},), or (n, {image.ndim}): the place of a node on each axis.")
    try:
        nodes: NDArray[np.int32] = np.ravel_multi_index(tuple(rows.T), image.shape, order="F" if is_flipped(image) else "C").astype(np.int32)
        return nodes
    except ValueError:
        outside = rows[((rows < 0) | (rows >= image.shape)).any(1)][0]
        raise ArgumentError(f"{name} has {_door.show(outside.tolist())}, but the mask has {' x '.join(f'{n:,}' for n in image.shape)} nodes.") from None
