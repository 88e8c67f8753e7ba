"""Lazy results: Dask arrays of tasks. Dask is an extra of the package, imported here alone, when it is asked for."""

import hashlib
import pickle
from typing import Any

from ._errors import ArgumentError


def require() -> None:
    """Refuses chunks where there is no Dask."""
    try:
        import dask.array  # noqa: F401
    except ImportError:
        raise ArgumentError("chunks need Dask, which is not installed (python3-dask, or pip install dask). Or leave chunks out.") from None


def token(*parts: Any) -> str:
    """A name for what is computed: the same for the same parts."""
    return hashlib.sha256(pickle.dumps(parts, protocol=5)).hexdigest()[:32]


def array(name: str, tasks: dict[Any, Any], chunks: tuple[tuple[int, ...], ...], dtype: Any, dependencies: list[Any]) -> Any:
    """The Dask array whose block (i, j, ...) is what the task (name, i, j, ...) gives."""
    import dask.array as da
    from dask.highlevelgraph import HighLevelGraph

    graph = HighLevelGraph.from_collections(name, tasks, dependencies=dependencies)
    return da.Array(graph, name, chunks=chunks, dtype=dtype)
