"""Whether there is memory for a result, asked before the work begins."""

from __future__ import annotations

import os


def available() -> int | None:
    """Bytes that this process may still take, as far as the system says."""
    found = []
    try:
        with open("/proc/meminfo") as stream:
            found += [int(line.split()[1]) * 1024 for line in stream if line.startswith("MemAvailable:")]
    except OSError:
        pass
    try:
        with open("/sys/fs/cgroup/memory.max") as most, open("/sys/fs/cgroup/memory.current") as current:
            found.append(int(most.read()) - int(current.read()))
    except (OSError, ValueError):
        pass
    try:
        import resource

        limit = resource.getrlimit(resource.RLIMIT_AS)[0]
        if limit != resource.RLIM_INFINITY:
            with open("/proc/self/statm") as stream:
                found.append(limit - int(stream.read().split()[0]) * os.sysconf("SC_PAGE_SIZE"))
    except (ImportError, OSError):
        pass
    return min(found) if found else None


def require(size: int, what: str, remedy: str) -> None:
    """Raises MemoryError if `size` bytes cannot be had. A megabyte is not asked for."""
    if size > 2**20:
        require_of(available(), size, what, remedy)


def require_of(left: int | None, size: int, what: str, remedy: str) -> None:
    """Raises MemoryError if `size` bytes are more than what is left, which may be unknown."""
    if left is not None and size > left:
        raise MemoryError(f"{what} would take {size / 2**30:,.1f} GiB of memory, but {max(left, 0) / 2**30:,.1f} GiB are left. {remedy}")
