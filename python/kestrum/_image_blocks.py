"""Images that are Dask arrays, block by block: they may be larger than memory, and so may the results, which are lazy."""

import itertools
from functools import partial
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _core, _door, _lazy
from ._errors import DataError
from ._image_door import as_neighbors, as_truth, require_image

Integers = NDArray[np.int64]


def _blocks(name: str, image: Any) -> Any:
    array = _door.held(name, image)
    require_image(name, array)
    require_sizes(name, array)
    return array


def require_sizes(name: str, array: Any) -> None:
    if np.isnan(array.shape).any():
        raise DataError(f"{name} has blocks of unknown sizes. Call compute_chunk_sizes().")


def around(name: str, image: Any, reach: list[int], function: Any, kind: Any, option: Any, threads: Any) -> Any:
    """function(block, option, threads=) of each block with the nodes around it, so far along each axis."""
    array = _blocks(name, image)
    called = partial(_of_block, function=function, option=option, threads=_threads(threads))
    if array.size == 0:
        return array.map_blocks(called, dtype=kind)
    depth = {axis: min(length, n - 1) for axis, (length, n) in enumerate(zip(reach, array.shape))}
    return array.map_overlap(called, depth=depth, boundary="none", dtype=kind, meta=np.empty((0,) * array.ndim, kind))


def _of_block(block: NDArray[Any], function: Any, option: Any, threads: int) -> Any:
    return function(block, option, threads=threads)


def _threads(threads: Any) -> int:
    """One unless others are asked for: Dask deals out the blocks."""
    return 1 if threads is None else _door.threads(threads)


def label(name: str, image: Any, connectivity: Any, threads: Any) -> tuple[Any, int]:
    """Lazy labels, and the number of bodies.

    Blocks are labelled apart. Bodies are joined where they touch in the planes on both sides of a cut between blocks, which
    go through the whole image: so nodes meet across edges and corners of blocks, too. The image is read once for that,
    and once for the labels.
    """
    import dask

    array = _blocks(name, image)
    neighbors, threads = as_neighbors(connectivity, array.ndim), _threads(threads)
    if array.size == 0:
        return array.astype(np.int32), 0
    starts = [np.cumsum((0, *sizes)) for sizes in array.chunks]
    places = list(np.ndindex(array.numblocks))
    parts, read = array.to_delayed(), dask.delayed(_outline, pure=True)
    first = [[int(start[i]) for start, i in zip(starts, at)] for at in places]
    outlines = dict(zip(places, dask.compute(*(read(parts[at], neighbors, threads, begin, array.shape) for at, begin in zip(places, first)))))
    # Numbers of all blocks one after the other, from 1.
    counts = [len(outlines[at][0]) for at in places]
    before = dict(zip(places, np.cumsum((0, *counts)).tolist()))
    total = sum(counts)
    pairs = [_touching(axis, cut, array, starts, outlines, before, neighbors) for axis in range(array.ndim) for cut in range(1, array.numblocks[axis])]
    numbers, count = _joined(total, np.concatenate([np.zeros((2, 0), np.int64), *pairs], axis=1), np.concatenate([outlines[at][0] for at in places]))
    if count >= 2**31:
        raise DataError(f"{name} has {count:,} bodies, but labels end at 2,147,483,647. Take a part of it.")
    called = f"label-{_lazy.token(array.name, neighbors)}"
    tasks = {(called, *at): (_renumbered, (array.name, *at), neighbors, threads, numbers[before[at] : before[at] + n]) for at, n in zip(places, counts)}
    return _lazy.array(called, tasks, array.chunks, np.int32, [array]), count


def _labelled(block: NDArray[Any], neighbors: int, threads: int) -> tuple[NDArray[np.int32], int]:
    return _core.label(as_truth(_door.array("mask", block)), neighbors, threads)


def _renumbered(block: NDArray[Any], neighbors: int, threads: int, numbers: NDArray[np.int32]) -> NDArray[np.int32]:
    table: NDArray[np.int32] = np.concatenate([np.zeros(1, np.int32), numbers])
    return table[_labelled(block, neighbors, threads)[0]]


def _outline(block: NDArray[Any], neighbors: int, threads: int, start: list[int], shape: tuple[int, ...]) -> tuple[Integers, list[Any]]:
    """The first node of each body of a block, in the whole image, and the labels of its first and last planes along each axis."""
    labels, _ = _labelled(block, neighbors, threads)
    # Labels are in the order of first nodes, so each of these is larger than all before it.
    highest = np.maximum.accumulate(labels.ravel())
    first = np.flatnonzero(np.diff(highest, prepend=0))
    at = [index + begin for index, begin in zip(np.unravel_index(first, labels.shape), start)]
    faces = [(labels.take(0, axis), labels.take(-1, axis)) for axis in range(labels.ndim)]
    return np.ravel_multi_index(at, shape).astype(np.int64), faces


def _touching(axis: int, cut: int, array: Any, starts: list[Any], outlines: dict[Any, Any], before: dict[Any, int], neighbors: int) -> Integers:
    """Pairs of bodies, of different blocks, with neighbours in the planes before and after a cut."""
    others = [a for a in range(array.ndim) if a != axis]
    planes = [np.zeros([array.shape[a] for a in others], np.int64) for _ in range(2)]
    for at in np.ndindex(*(array.numblocks[a] for a in others)):
        window = tuple(slice(starts[a][i], starts[a][i + 1]) for a, i in zip(others, at))
        for side, plane in enumerate(planes):
            block = (*at[:axis], cut - 1 + side, *at[axis:])
            face = outlines[block][1][axis][1 - side]
            plane[window] = np.where(face > 0, face + before[block], 0)
    steps = {6: 0, 18: 1, 26: 2}[neighbors]
    found = []
    for shift in itertools.product((-1, 0, 1), repeat=len(others)):
        if sum(abs(step) for step in shift) > steps:
            continue
        here = planes[0][tuple(slice(max(-s, 0), n - max(s, 0)) for s, n in zip(shift, planes[0].shape))]
        there = planes[1][tuple(slice(max(s, 0), n - max(-s, 0)) for s, n in zip(shift, planes[1].shape))]
        both = (here > 0) & (there > 0)
        found.append(np.unique(np.stack([here[both], there[both]]), axis=1))
    return np.concatenate(found, axis=1)


def _joined(total: int, pairs: Integers, first: Integers) -> tuple[NDArray[np.int32], int]:
    """For bodies from 1 to total, of which some are one, the numbers in the order of their first nodes."""
    from scipy.sparse import coo_matrix
    from scipy.sparse.csgraph import connected_components

    count, body = connected_components(coo_matrix((np.ones(pairs.shape[1], np.int8), tuple(pairs - 1)), (total, total)), directed=False) if total else (0, first)
    least = np.full(count, np.iinfo(np.int64).max)
    np.minimum.at(least, body, first)
    number = np.empty(count, np.int32 if count < 2**31 else np.int64)
    number[np.argsort(least)] = np.arange(1, count + 1)
    return number[body], int(count)
