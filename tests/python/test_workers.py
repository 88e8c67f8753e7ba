"""The threads that work for one call after another."""

import subprocess
import sys

PROGRAM = """
import os, time, numpy as np, kestrum as ks
mask = np.random.default_rng(1).random((200, 300, 300)) < 0.3
def threads():
    return set(os.listdir("/proc/self/task"))
def label(n):
    return ks.label(mask, threads=n)[0].sum()
def cores(thread):
    return os.sched_getaffinity(int(thread))
before = threads()
expected = label(1)
"""
CASES = {
    "calls one after another keep their threads": """
label(2)
kept = threads()
assert len(kept - before) == 2
for _ in range(20):
    assert label(2) == expected
assert threads() == kept
""",
    "few threads stay of many callers": """
from concurrent.futures import ThreadPoolExecutor
with ThreadPoolExecutor(16) as pool:
    assert set(pool.map(label, [2] * 32)) == {expected}
deadline = time.time() + 20
while len(threads() - before) > 8:
    assert time.time() < deadline
    time.sleep(0.01)
""",
    "a process that is forked makes its own": """
image = np.random.default_rng(1).normal(size=(40, 100, 100))
def few():
    return [ks.otsu(image, threads=n)[0] for n in (1, 2)]  # on the calling thread
label(2)
cuts = few()
child = os.fork()
if child == 0:
    os._exit(0 if label(2) == expected == label(1) and few() == cuts and len(threads()) == 3 else 1)
assert os.waitpid(child, 0)[1] == 0
assert label(2) == expected
""",
    "threads use the cores that the caller may use": """
label(2)
own = min(os.sched_getaffinity(0))
os.sched_setaffinity(0, {own})
assert label(2) == expected
deadline = time.time() + 20
while any(cores(thread) != {own} for thread in threads() - before):  # those that leave take a moment
    assert time.time() < deadline
    time.sleep(0.01)
""",
}


def test_threads_stay_for_the_next_call():
    for case, program in CASES.items():
        run = subprocess.run([sys.executable, "-c", PROGRAM + program], capture_output=True, text=True, timeout=60)
        assert run.returncode == 0, (case, run.stderr)
