"""Iteration: what an iterator holds, and arrays without elements."""

import ctypes
import os
import subprocess
import sys

import pytest
import vellum

ROWS = [[1, 2, 3, 4], [5, 6, 7, 8], [9, 10, 11, 12]]


@pytest.mark.parametrize("size, yields", [((0, 0), 0), ((0, 3), 0), ((3, 0), 3)])
def test_without_elements_the_first_dimension_counts(size, yields):
    assert [list(part) for part in vellum.int16(size=size)] == [[]] * yields


def test_an_iterator_sees_writes_and_keeps_the_record_but_not_the_array():
    array = vellum.int32(ROWS)
    iterator = iter(array)
    first = next(iterator)
    first[0], array[1][0] = -1, -5
    assert array[0][0] == -1
    del array
    assert list(next(iterator)) == [-5, 6, 7, 8] and [list(row) for row in iterator] == ROWS[2:]
    for _ in range(2):
        with pytest.raises(StopIteration):
            next(iterator)
    assert list(first) == [-1, 2, 3, 4]


def test_an_iterator_without_state():
    allocate = ctypes.pythonapi.PyType_GenericAlloc
    allocate.restype = ctypes.py_object
    blank = allocate(ctypes.py_object(type(iter(vellum.double()))), ctypes.c_ssize_t(0))
    for _ in range(2):
        with pytest.raises(RuntimeError, match="^object not initialized.$"):
            next(blank)
    assert iter(blank) is blank


# So many dimensions make a partial array too large for the room that is left.
SHORT_OF_MEMORY = """
import mmap, resource, vellum
part = vellum.int8(vector=[1, 2, 3, 4], size=(1,) * 20000 + (2, 2))
for _ in range(20000):
    part = part[0]
steps, blocks = iter(part), []
used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
resource.setrlimit(resource.RLIMIT_AS, (used, resource.RLIM_INFINITY))
for take in (lambda: mmap.mmap(-1, 2**16), lambda: next(iter(part))):
    try:
        while True:
            blocks.append(take())
    except (MemoryError, OSError):
        pass
try:
    next(steps)
except MemoryError:
    blocks.clear()
    resource.setrlimit(resource.RLIMIT_AS, (resource.RLIM_INFINITY,) * 2)
    print([str(part) for part in steps])
"""


@pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""), reason="needs its memory")
def test_a_step_without_memory_moves_on():
    command = [sys.executable, "-c", SHORT_OF_MEMORY]
    result = subprocess.run(command, stdout=subprocess.PIPE, check=True)
    assert result.stdout == b"['[2,4]']\n"
