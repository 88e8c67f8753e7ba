"""Lazy results: Dask arrays of tasks. Dask is an extra of the package, imported here alone, when it is asked for."""

from __future__ import annotations

import hashlib
import pickle
import sys
import threading
from collections.abc import Callable
from concurrent.futures import CancelledError
from typing import Any, Generic, TypeVar

from . import _memory
from ._errors import ArgumentError, DataError, warn


def require() -> None:
    """Refuses chunks where there is no Dask."""
    try:
        import dask.array  # noqa: F401
    except ImportError:
        raise ArgumentError("chunks need Dask, which is not installed (python3-dask, or pip install dask). Or leave chunks out.") from None


def is_lazy(value: Any) -> bool:
    return hasattr(value, "__dask_graph__") and not hasattr(value, "coords")


def sizes(n: int, size: int) -> tuple[int, ...]:
    """The sizes of chunks along one dimension."""
    return (size,) * (n // size) + ((n % size,) if n % size else ())


def require_sizes(name: str, array: Any) -> None:
    if any(n != n for n in array.shape):
        raise DataError(f"{name} has blocks of unknown sizes. Call compute_chunk_sizes().")


def at_a_time() -> int:
    """How many chunks are computed at a time on this machine, as Dask is set up now. Of a cluster it is 1: workers may be elsewhere."""
    import dask
    from dask.base import get_scheduler
    from dask.system import CPU_COUNT

    get = get_scheduler()
    if get is not None and get.__module__ not in ("dask.threaded", "dask.multiprocessing"):
        return 1
    pool = dask.config.get("pool", None)
    return int(dask.config.get("num_workers", None) or getattr(pool, "_max_workers", None) or getattr(pool, "_processes", None) or CPU_COUNT)


def require_memory(size: int, what: str, remedy: str) -> None:
    """Raises MemoryError if a chunk cannot be had: where there is a cluster, by any of its workers."""
    from dask.base import get_scheduler

    client: Any = getattr(get_scheduler(), "__self__", None)
    workers = client.scheduler_info()["workers"].values() if hasattr(client, "scheduler_info") else ()
    limits = [worker["memory_limit"] for worker in workers]
    if limits:
        _memory.require_of(max(limits) if all(limits) else None, size, what, remedy)
    else:
        _memory.require(size, what, remedy)


def warn_of_memory(chunk: int, shared: int, count: int) -> None:
    """Warns if so many chunks, each of which fits into memory beside what they share, do not fit together."""
    left, together = _memory.available(), min(count, at_a_time())
    if left is not None and shared + together * chunk > left:
        warn(f"{together} chunks at a time would take {(shared + together * chunk) / 2**30:,.1f} GiB of memory, but {left / 2**30:,.1f} GiB are left. "
             f"Give smaller chunks, or compute fewer at a time: dask.config.set(num_workers={max(1, (left - shared) // chunk)}).")


def blocks(values: Any, chunks: tuple[tuple[int, ...], ...]) -> Any:
    """An array, lazy or not, as a Dask array of some chunks."""
    import dask.array as da

    return values.rechunk(chunks) if is_lazy(values) else da.from_array(values, chunks)


_Made = TypeVar("_Made")


class Once(Generic[_Made]):
    """What is made in each process where it is first needed, and lives as long as the task that it belongs to."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._made: _Made | None = None

    def get(self, make: Callable[[], _Made]) -> _Made:
        with self._lock:
            if self._made is None:
                self._made = make()
            return self._made

    def __reduce__(self) -> tuple[Any, ...]:
        return Once, ()


def cancellable(call: Callable[[Callable[[float], object] | None], _Made]) -> _Made:
    """What call(progress) gives. In a worker of a cluster progress ends it as soon as its task is cancelled."""
    if (asked := _cancelled_task()) is None:
        return call(None)
    cancelled: Callable[[], bool] = asked

    def stop(_: float) -> None:
        if cancelled():
            raise CancelledError("the task is cancelled")

    while True:
        try:
            return call(stop)
        except CancelledError:
            # Unless it has been asked for again.
            if cancelled():
                raise


def _cancelled_task() -> Callable[[], bool] | None:
    """Whether the task at hand is cancelled; None where there is no worker of a cluster."""
    if "distributed" not in sys.modules:
        return None
    from distributed import get_worker

    try:
        worker = get_worker()
        key = worker.get_current_task()
    except (KeyError, ValueError):
        return None

    def cancelled() -> bool:
        task = worker.state.tasks.get(key)
        return task is None or task.state == "cancelled"

    return cancelled


def token(*parts: Any) -> str:
    """A name for what is computed: the same for the same parts."""
    try:
        return hashlib.sha256(pickle.dumps(parts, protocol=5)).hexdigest()[:32]
    except (AttributeError, TypeError, pickle.PicklingError) as error:
        raise ArgumentError(f"chunks need arguments that can go to another process, but one cannot be pickled: {error}. Define "
                            "functions and classes at the top of a module, or leave chunks out.") from None


def array(name: str, tasks: dict[Any, Any], chunks: tuple[tuple[int, ...], ...], dtype: Any, dependencies: list[Any]) -> Any:
    """The Dask array whose block (i, j, ...) is what the task (name, i, j, ...) gives."""
    import dask.array as da
    from dask.highlevelgraph import HighLevelGraph

    graph = HighLevelGraph.from_collections(name, tasks, dependencies=dependencies)
    return da.Array(graph, name, chunks=chunks, dtype=dtype)
