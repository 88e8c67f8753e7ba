"""Ctrl-C during work that does not hear it: NumPy and SciPy look for signals only between two calls."""

from __future__ import annotations

import threading
from collections.abc import Callable
from queue import SimpleQueue
from typing import Any, ParamSpec, TypeVar

import numpy as np
from numpy.typing import NDArray

Arguments = ParamSpec("Arguments")
Result = TypeVar("Result")
# Below so many numbers work ends before anybody notices, and a thread would cost more than it.
MANY = 100_000


def watched(size: int, work: Callable[Arguments, Result], *arguments: Arguments.args, **options: Arguments.kwargs) -> Result:
    """work(...), on a thread of its own while this one waits, if it is the main thread, which gets signals, and there is much to do.

    After a signal that raises, the call in hand goes on to its end on that thread; then the work ends, and lets go its memory.
    """
    if size < MANY or threading.current_thread() is not threading.main_thread():
        return work(*arguments, **options)
    answer: SimpleQueue[tuple[Any, BaseException | None]] = SimpleQueue()

    def run() -> None:
        try:
            answer.put((work(*arguments, **options), None))
        except BaseException as error:
            answer.put((None, error))

    worker = threading.Thread(target=run, daemon=True)
    worker.start()
    try:
        result, error = answer.get()
    except BaseException:
        import ctypes

        ctypes.pythonapi.PyThreadState_SetAsyncExc(ctypes.c_ulong(worker.ident or 0), ctypes.py_object(SystemExit))
        raise
    if error is not None:
        raise error
    return result  # type: ignore[no-any-return]


def in_c_order(values: NDArray[Any], kind: Any = None) -> NDArray[Any]:
    """An array in C order, of a type: the same array if it is one."""
    return watched(values.size, lambda: np.ascontiguousarray(values, kind))
