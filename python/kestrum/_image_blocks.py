"""Images that are Dask arrays, block by block: they may be larger than memory, and so may the results, which are lazy."""

from __future__ import annotations

import itertools
import math
from functools import partial
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _core, _door, _images, _lazy
from ._errors import DataError
from ._image_door import as_image, as_neighbors, as_truth, is_flipped, is_true, require_image

Integers = NDArray[np.int64]


def image(name: str, value: Any) -> Any:
    """The array of an image, in memory or of Dask."""
    return blocks(name, value) if _lazy.is_lazy(_door.held(name, value)) else as_image(name, value)


def blocks(name: str, image: Any) -> Any:
    """The Dask array of an image."""
    array = _door.held(name, image)
    require_image(name, array)
    _lazy.require_sizes(name, array)
    if any(0 in sizes for sizes in array.chunks) and array.size > 0:
        array = array.rechunk(tuple(tuple(n for n in sizes if n > 0) for sizes in array.chunks))
    if (largest := math.prod(map(max, array.chunks))) >= 2**31:
        raise DataError(f"{name} has blocks of {largest:,} nodes, but they may have at most {2**31 - 1:,}. Rechunk it.")
    return array


def around(name: str, image: Any, reach: list[int], function: Any, kind: Any, option: Any, threads: Any) -> Any:
    """function(block, option, threads=) of each block with the nodes around it, so far along each axis."""
    array = blocks(name, image)
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


def each(array: Any, function: Any, threads: Any = None) -> list[Any]:
    """What function(block, threads) gives of each block; of an array in memory, which is one."""
    if not _lazy.is_lazy(array):
        return [function(array, _door.threads(threads, array.size))]
    import dask

    read = dask.delayed(_of_plain, pure=True)
    return list(dask.compute(*(read(part, function, _threads(threads)) for part in array.to_delayed().ravel())))


def _of_plain(block: NDArray[Any], function: Any, threads: int) -> Any:
    return function(_door.array("image", block), threads)  # a block may be masked


def pair_tables(array: Any, lags: tuple[int, ...], function: Any, threads: Any, report: Any, by_transforms: bool = False) -> tuple[NDArray[Any], ...]:
    """The tables of function(array, lags, threads, report): sums over the pairs of each lag, their last axes; of a Dask array block by
    block, without reports.

    A pair belongs to the block with the first corner of the box that it spans. Blocks are given as many nodes of those after
    them as the lags are long. Pairs among these alone are taken away again.
    """
    if not _lazy.is_lazy(array):
        # Many pairs are counted or added at a time. Transforms of less than half a million nodes gain nothing by threads.
        steps = array.size / 4 if by_transforms else array.size * math.prod(lag + 1 for lag in lags) / 16
        flipped = is_flipped(array)
        tables: tuple[NDArray[Any], ...] = function(array.T if flipped else array, lags[::-1] if flipped else lags, _door.threads(threads, steps), report)
        last = tuple(range(-len(lags), 0))
        return tuple(np.moveaxis(table, last, last[::-1]) for table in tables) if flipped else tables
    import dask
    from dask.array.overlap import overlap

    threads = _threads(threads)
    wide = overlap(array, {axis: (0, lag) for axis, lag in enumerate(lags)}, "none")
    parts = wide.to_delayed()
    read, add = dask.delayed(_pair_sums, pure=True), dask.delayed(_added, pure=True)
    sums = []
    for at in np.ndindex(wide.numblocks):
        own = [sizes[i] - (lag if i + 1 < len(sizes) else 0) for sizes, i, lag in zip(wide.chunks, at, lags)]
        sums.append(read(parts[at], own, lags, function, threads))
    while len(sums) > 1:
        sums = [add(*sums[i:i + 16]) for i in range(0, len(sums), 16)]
    return tuple(sums[0].compute())


def _pair_sums(block: NDArray[Any], own: list[int], lags: tuple[int, ...], function: Any, threads: int) -> list[NDArray[Any]]:
    """The tables of a block of so many nodes of its own."""
    block = _door.array("image", block)
    sums: list[NDArray[Any]] = []
    for later in itertools.product((0, 1), repeat=block.ndim):
        box = block[tuple(slice(n if beyond else 0, None) for n, beyond in zip(own, later))]
        if box.size == 0:
            continue
        sign = -1 if sum(later) % 2 else 1
        reach = [min(lag, n - 1) for lag, n in zip(lags, box.shape)]
        at: Any = (..., *(slice(lag - most, lag + most + 1) for lag, most in zip(lags, reach)))
        tables: tuple[NDArray[Any], ...] = _lazy.cancellable(partial(function, box, tuple(reach), threads))
        sums = sums or [np.zeros((*table.shape[: table.ndim - len(lags)], *(2 * lag + 1 for lag in lags)), table.dtype) for table in tables]
        for total, table in zip(sums, tables):
            total[at] += sign * table
    return sums


def _added(*parts: list[NDArray[Any]]) -> list[NDArray[Any]]:
    return [np.sum(tables, axis=0) for tables in zip(*parts)]


# Slabs begin at multiples of this: the engine's distances are the same to the last bit there.
_SLAB = 64
_NONE = -1


def distance(name: str, array: Any, spacings: list[float], manhattan: bool, signed: bool, kind: Any, threads: Any) -> Any:
    """Lazy distances.

    Slabs go through the whole image, so that the engine needs to know of other slabs only where each row has its nearest
    true nodes before and after. That is found at first, and takes 8 bytes for each row of each slab.
    """
    import dask
    import dask.array as da

    threads = _threads(threads)
    if array.size == 0:
        return da.empty(array.shape, kind, chunks=array.chunks)
    may_miss = array.dtype.kind == "f" or isinstance(array._meta, np.ma.MaskedArray)
    true = array.map_blocks(_is_true, dtype=bool)
    sets = [true]
    if signed:
        kept = around(name, array, [1] * array.ndim, _images.erode, bool, _cross(array.ndim), threads)
        sets = [da.map_blocks(np.greater, true, kept, dtype=bool), true][: 1 + may_miss]
    slabs = [_slabs(name, some) for some in sets]
    ends = [some.map_blocks(_row_ends, dtype=np.int32, chunks=(*some.chunks[:-1], (2,) * some.numblocks[-1])) for some in slabs]
    missing = array.map_blocks(_misses, dtype=bool, chunks=tuple((1,) * n for n in array.numblocks)).any() if may_miss else False
    *found, misses = dask.compute(*ends, missing)
    # As in one piece: where nothing is missing, the distance to a set is that to its layer.
    if signed and not misses:
        slabs, found = slabs[:1], found[:1]
    called = partial(_images._distances, along=spacings[::-1], manhattan=manhattan, signed=False, kind=kind, threads=threads)
    maps = [_of_slabs(some, _beyond(places, some.chunks[-1]), called, kind).rechunk(array.chunks) for some, places in zip(slabs, found)]
    if not (signed or misses):
        return maps[0]
    return da.map_blocks(_signed if signed else _at_missing, array, *maps, dtype=kind)


def _cross(dimension: int) -> NDArray[np.bool_]:
    return np.asarray(sum(abs(place - 1) for place in np.indices((3,) * dimension)) < 2)


def _is_true(block: NDArray[Any]) -> NDArray[np.bool_]:
    return is_true(_door.array("mask", block))


def _misses(block: NDArray[Any]) -> NDArray[np.bool_]:
    return np.asarray(np.isnan(_door.array("mask", block)).any(keepdims=True))


def _at_missing(block: NDArray[Any], distances: NDArray[Any]) -> NDArray[Any]:
    return np.where(np.isnan(_door.array("mask", block)), distances.dtype.type(np.nan), distances)


def _signed(block: NDArray[Any], to_layer: NDArray[Any], to_set: NDArray[Any] | None = None) -> NDArray[Any]:
    """Both 0 and -0 become 0."""
    inside = 0 - to_layer
    if to_set is None:
        return np.where(_is_true(block), inside, to_layer)
    return np.where(_is_true(block), inside, _at_missing(block, to_set))


def _slabs(name: str, array: Any) -> Any:
    """Rechunked along the last axis, to cuts near the array's at which slabs may begin. The engine takes axes of one node last, so no slab is so thin."""
    n = array.shape[-1]
    cuts = {_SLAB * round(cut / _SLAB) for cut in np.cumsum(array.chunks[-1][:-1])}
    thick = np.diff([0, *sorted(cut for cut in cuts if 0 < cut < n - 1), n]).tolist()
    area = array.size // n
    if max(thick) * area >= 2**31:
        raise DataError(f"{name} has blocks of up to {max(array.chunks[-1]):,} nodes along its last axis, which make slabs of {max(thick) * area:,}, but "
                        f"these may have at most {2**31 - 1:,}. Rechunk it to thinner blocks, or transpose it.")
    return array.rechunk({array.ndim - 1: tuple(thick)})


def _row_ends(block: NDArray[np.bool_]) -> NDArray[np.int32]:
    """The first and the last true node of each row, or _NONE."""
    ends = np.stack([block.argmax(-1), block.shape[-1] - 1 - block[..., ::-1].argmax(-1)], -1)
    return np.where(block.any(-1, keepdims=True), ends, _NONE).astype(np.int32)


def _beyond(ends: NDArray[np.int32], slabs: tuple[int, ...]) -> NDArray[np.int32]:
    """For each slab and row the steps from the row's ends to the nearest true node of the slabs before and after; 0 if none."""
    starts = np.cumsum((0, *slabs))
    result = np.zeros((len(slabs), *ends.shape[:-1], 2), np.int32)
    for side, order in ((0, range(len(slabs))), (1, reversed(range(len(slabs))))):
        nearest = np.full(ends.shape[:-1], _NONE, np.int64)
        for slab in order:
            here = starts[slab] if side == 0 else starts[slab + 1] - 1
            result[slab, ..., side] = np.where(nearest == _NONE, 0, np.abs(here - nearest))
            own = ends[..., 2 * slab + 1 - side]
            nearest = np.where(own == _NONE, nearest, own + starts[slab])
    return result


def _of_slabs(slabs: Any, beyond: NDArray[np.int32], function: Any, kind: Any) -> Any:
    whole = slabs.rechunk(dict.fromkeys(range(slabs.ndim - 1), -1))
    called = f"distance-{_lazy.token(slabs.name, function, beyond)}"
    at = (0,) * (slabs.ndim - 1)
    tasks = {(called, *at, i): (_of_slab, (whole.name, *at, i), function, beyond[i], slabs.shape[-1]) for i in range(slabs.numblocks[-1])}
    return _lazy.array(called, tasks, whole.chunks, kind, [whole])


def _of_slab(slab: NDArray[np.bool_], function: Any, beyond: NDArray[np.int32], row: int) -> NDArray[Any]:
    result: NDArray[Any] = function(np.ascontiguousarray(slab).view(np.uint8), beyond=np.ascontiguousarray(beyond), row=row)
    return result


def label(name: str, image: Any, connectivity: Any, threads: Any) -> tuple[Any, int]:
    """Lazy labels, and the number of bodies.

    Blocks are labelled apart. Bodies are joined where they touch in the planes on both sides of a cut between blocks, which
    go through the whole image: so nodes meet across edges and corners of blocks, too. The image is read once for that,
    and once for the labels.
    """
    import dask

    array = blocks(name, image)
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
    return _core.label(as_truth(_door.array("mask", block)), neighbors, False, threads, None)


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
