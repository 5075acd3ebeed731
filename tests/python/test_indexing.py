"""Indexing and iteration: extremes, and lack of memory."""

import copy
import os
import pickle
import subprocess
import sys

import pytest
import vellum
from helpers import nested, outcome

def test_a_far_slice_of_a_slice_is_no_place_to_store():
    part = vellum.int8(size=(2**40, 0))[:: 2**33]
    refused = (RuntimeError, "unable to set value.")
    assert outcome(part.__setitem__, slice(None, None, 2**33), [1]) == refused


def test_thousands_of_dimensions():
    a = vellum.double(size=(2,) + (1,) * 10**5 + (2,))
    assert len(a.size) == len(a.get_bytewise_strides()) == 10**5 + 2
    assert len(a[1][0].size) == 10**5
    assert a == a.clone()
    for operation in (str, pickle.dumps, copy.copy, lambda a: a.__setitem__(0, a[1])):
        with pytest.raises(RecursionError):
            operation(a)
    text = "number of dimensions must not exceed 64."
    assert outcome(memoryview, a) == outcome(bytes, a) == (ValueError, text)
    assert nested(a.reshape(2, 2)) == [[0, 0], [0, 0]]
    assert len(bytes(vellum.double(size=(2,) + (1,) * 62 + (2,)))) == 32


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
