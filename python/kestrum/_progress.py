"""Showing how far a call is."""

from __future__ import annotations

import sys
import warnings
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any

from . import _door

Progress = bool | Callable[[float], object]
# What work calls with the fraction done.
Report = Callable[[float], object] | None


@contextmanager
def shown(progress: Progress, label: str) -> Iterator[Report]:
    """What the engine calls with the fraction done: None, the caller's own callable, or a bar.

    The callable gets 1.0 at the end of a call that ends well.
    """
    if callable(progress):
        yield progress
        progress(1.0)
        return
    if not isinstance(progress, bool):
        _door.wrong_type("progress", progress, "True, False, or a function of the fraction done")
    if not progress:
        yield None
        return
    bar = _bar(label)
    try:
        yield bar.show
        bar.show(1.0)
    finally:
        bar.close()


def part(report: Report, begin: float, end: float) -> Report:
    """What a step calls that takes the work from one fraction to another."""
    if report is None:
        return None
    whole = report
    return lambda fraction: whole(min(begin + fraction * (end - begin), end))


def steps(report: Report, count: int, ratio: float = 1.0) -> list[Report]:
    """What each of several steps calls, which take the work from 0 to 1. Each takes `ratio` as long as the one before."""
    if report is None:
        return [None] * count
    lengths = [ratio**k for k in range(count)]
    ends = [sum(lengths[:k]) / (sum(lengths) or 1.0) for k in range(count + 1)]
    return [part(report, begin, end) for begin, end in zip(ends, ends[1:])]


def _bar(label: str) -> Any:
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")  # a notebook without widgets gets a bar of text
            from tqdm.auto import tqdm
    except ImportError:
        return _Lines(label) if not sys.stderr.isatty() else _Line(label)
    return _Tqdm(tqdm, label) if sys.stderr.isatty() or "ipykernel" in sys.modules else _Lines(label)


class _Tqdm:
    def __init__(self, tqdm: Any, label: str) -> None:
        self.bar = tqdm(total=1.0, desc=label, bar_format="{desc}: {percentage:3.0f}% |{bar}| {elapsed} < {remaining}")

    def show(self, fraction: float) -> None:
        self.bar.update(fraction - self.bar.n)

    def close(self) -> None:
        self.bar.close()


class _Line:
    """One line of a terminal, written over and over."""

    def __init__(self, label: str) -> None:
        self.label, self.percent = label, -1

    def show(self, fraction: float) -> None:
        if (percent := int(100 * fraction)) > self.percent:
            self.percent = percent
            print(f"\r{self.label}: {percent:3d}%", end="", file=sys.stderr, flush=True)

    def close(self) -> None:
        print(file=sys.stderr)


class _Lines:
    """A line per tenth, where there is no terminal."""

    def __init__(self, label: str) -> None:
        self.label, self.tenths = label, 0

    def show(self, fraction: float) -> None:
        if (tenths := int(10 * fraction)) > self.tenths:
            self.tenths = tenths
            print(f"{self.label}: {10 * tenths}%", file=sys.stderr, flush=True)

    def close(self) -> None:
        pass
