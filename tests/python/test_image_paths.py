"""Ways inside bodies, against SciPy's graphs."""

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from scipy import ndimage
from scipy.sparse import coo_array, csgraph

import kestrum as ks
from test_images import RANKS, masks


def steps_of_graph(true, rank, starts):
    """Between true nodes that share a face, edge or corner."""
    number = np.arange(true.size).reshape(true.shape)
    edges = []
    for offset in np.argwhere(ndimage.generate_binary_structure(true.ndim, rank)) - 1:
        here = tuple(slice(max(0, -k), n - max(0, k)) for k, n in zip(offset, true.shape))
        there = tuple(slice(max(0, k), n - max(0, -k)) for k, n in zip(offset, true.shape))
        both = true[here] & true[there]
        edges.append([number[here][both], number[there][both]])
    tails, heads = np.concatenate(edges, 1)
    graph = coo_array((np.ones(tails.size), (tails, heads)), (true.size,) * 2).tocsr()
    return csgraph.dijkstra(graph, indices=number[tuple(starts.T)], unweighted=True, min_only=True).reshape(true.shape)


@given(masks(), st.integers(0, 2**32))
@settings(max_examples=100, deadline=None)
def test_steps_and_paths(mask, seed):
    values, true = mask
    nodes = np.argwhere(true)
    if not len(nodes):
        return
    random = np.random.default_rng(seed)
    starts, ends = (nodes[random.integers(0, len(nodes), random.integers(1, 4))] for _ in range(2))
    for connectivity, rank in RANKS[values.ndim].items():
        expected = steps_of_graph(true, rank, starts)
        steps = ks.geodesic_steps(values, starts, connectivity)
        np.testing.assert_array_equal(steps, np.where(np.isinf(expected), -1, expected))
        assert steps.dtype == np.int32 and steps.flags.f_contiguous >= values.flags.f_contiguous
        path = ks.shortest_path(values, starts, ends, connectivity, seed=seed)
        fewest = expected[tuple(ends.T)].min()
        assert len(path) == (0 if np.isinf(fewest) else fewest + 1)
        other = np.ascontiguousarray(values) if values.flags.f_contiguous else np.asfortranarray(values)
        assert np.array_equal(path, ks.shortest_path(other, starts, ends, connectivity, seed=seed))
        if len(path):
            assert path[0].tolist() in starts.tolist() and path[-1].tolist() in ends.tolist() and true[tuple(path.T)].all()
            moves = np.abs(np.diff(path, axis=0))
            assert (moves.sum(1) <= rank).all() and (moves.max(1, initial=1) == 1).all()


def test_draws():
    """Every shortest path from corner to corner may come, and one seed gives one of them, in either order of memory."""
    square = np.ones((3, 3))
    paths = [tuple(map(tuple, ks.shortest_path(square, (0, 0), (2, 2), seed=seed).tolist())) for seed in range(200)]
    # Of two neighbours each is as likely: at the sides there is one.
    counts = np.unique([str(path) for path in paths], return_counts=True)[1]
    assert len(counts) == 6 and counts.min() > 8
    assert ks.shortest_path(square, [0, 0], [[2, 2]], seed=7).tolist() == np.array(paths[7]).tolist()
    assert ks.shortest_path(square, (1, 1), (1, 1)).tolist() == [[1, 1]]
    trunk = ks.shortest_path(square, (0, 0), (0, 2))
    assert ks.shortest_path(square, trunk, (2, 1)).tolist() == [[0, 1], [1, 1], [2, 1]]


@pytest.mark.parametrize("start, options, error, text", [
    ((0, 3), {}, ks.ArgumentError, "2 x 3"), ((-1, 0), {}, ks.ArgumentError, "2 x 3"), ((0, 0, 0), {}, ks.ArgumentError, "shape"), ([], {}, ks.ArgumentTypeError, "whole"),
    (np.zeros((0, 2), int), {}, ks.ArgumentError, "shape"), ((0.0, 0.0), {}, ks.ArgumentTypeError, "whole"), ((1, 1), {}, ks.DataError, r"start has \[1, 1\]"),
    ((1, 2), {}, ks.DataError, "not true"), ((0, 0), {"connectivity": 6}, ks.ArgumentError, "4 or 8"), ((0, 0), {"threads": 0}, ks.ArgumentError, "threads")])
def test_refusals(start, options, error, text):
    mask = [[1, 1, 1], [1, 0, np.nan]]
    for call in (lambda: ks.geodesic_steps(mask, start, **options), lambda: ks.shortest_path(mask, start, (0, 0), **options)):
        with pytest.raises(error, match=text):
            call()
    for end, error, text in (((5, 5), ks.ArgumentError, "end has"), (None, ks.ArgumentTypeError, "end")):
        with pytest.raises(error, match=text):
            ks.shortest_path(mask, (0, 0), end)
    with pytest.raises(ks.ArgumentError, match="seed"):
        ks.shortest_path(mask, (0, 0), (0, 1), seed=-1)
    with pytest.raises(ks.ArgumentTypeError, match="object"):
        ks.geodesic_steps([[None]], (0, 0))
