"""Every call of the service fails, in every kind of operation that makes one.

The tests run this file as a program, with a library (tests/native) preloaded that
stands between the module and the service. After each failure the error is the right
one, nothing has changed, nothing is lost or left over, and the operation works.
"""

import ctypes
import itertools
import os
import subprocess
import sys
from pathlib import Path
from typing import Callable, NamedTuple

import hillshade
import pytest
import vellum
import vellummultidimarrayforpython as module

UNSHARE, RELEASE = 55, 60
GIVES_AN_OBJECT = {49, 57, 58, 72, 114, 115, UNSHARE}  # and no code
CAN_BE_NULL = {11, 13, 110} | GIVES_AN_OBJECT
CANNOT_FAIL = {15, 23, 50, 51, 52, 64, 71, 113}
OPTIONAL = (110, 113, 114, 115)
NO_MEMORY, TOO_MANY, NULL_RESULT = 19, 26, -1000
TEXTS = {
    NO_MEMORY: "Not enough memory available to support the request.",
    20: "System Error.",
    TOO_MANY: "Number of elements exceeds max.",
}


class Operation(NamedTuple):
    prepare: Callable  # gives the arrays to watch; the first is acted on
    act: Callable
    request: str = ""  # constructions only: what a memory failure names
    client_calls: int = 0  # the first so many calls are the native client's

    def perform(self, arrays):
        try:
            return self.act(*arrays[:1])
        except (RuntimeError, MemoryError) as error:
            return error.with_traceback(None)


def grid():
    return [vellum.double([[1, 2, 3], [4, 5, 6]])]


def complex_grid():
    return [vellum.int16([[1j, 2], [3 + 4j, 5]], is_complex=True)]


def shared_grid():
    """A clone shares its storage with the copy that its source keeps."""
    source = grid()[0]
    return [source.clone(), source]


OPERATIONS = {
    "size": Operation(list, lambda: vellum.int8(size=(2, 3)), "6; type = int8"),
    "list": Operation(list, lambda: vellum.single([1j], is_complex=True), "1; type = single"),
    "vector": Operation(list, lambda: vellum.int16(vector=[1, 2], size=(2, 1)), "2; type = int16"),
    "buffer": Operation(list, lambda: vellum.uint8(b"123456"), "6; type = uint8"),
    "assign element": Operation(grid, lambda a: a[1].__setitem__(2, 9)),
    "assign complex": Operation(complex_grid, lambda a: a.__setitem__(1, [9j, 8])),
    "assign shared": Operation(shared_grid, lambda a: a.__setitem__(0, [7, 8, 9])),
    "clone": Operation(grid, lambda a: a[1][1:].clone()),
    "noncomplex": Operation(grid, lambda a: a.noncomplex()),
    "real": Operation(complex_grid, lambda a: a.real()),
    "reshape": Operation(complex_grid, lambda a: a.reshape(1, 4)),
    "reshape shared": Operation(shared_grid, lambda a: a.reshape(6, 1)),
    "in": Operation(list, lambda: hillshade.wrap(13, (1, 2), bytes(32)), client_calls=6),
    "in, refused": Operation(list, lambda: hillshade.wrap(1, (1, 2), b"abcd"), client_calls=6),
    "out, a part": Operation(grid, lambda a: bool(hillshade.service_address(a[0:1]))),
    "out and in": Operation(grid, lambda a: hillshade.shade(a), client_calls=12),
}

process = ctypes.CDLL(None)  # where the library is preloaded


def start(position=-1, times=0, code=0):
    process.shim_start(ctypes.c_long(position), ctypes.c_long(times), code)


def trace():
    count = ctypes.c_long()
    process.shim_trace.restype = ctypes.POINTER(ctypes.c_int)
    return process.shim_trace(ctypes.byref(count))[: count.value]


def live():
    process.shim_live.restype = ctypes.POINTER(ctypes.c_long)
    return process.shim_live()[:5]


def state_of(arrays):
    """What they show; the module's values and the service's are the same."""
    for array in arrays:
        assert hillshade.service_bytes(array) == memoryview(array).tobytes("F")
        assert hillshade.service_dimensions(array) == array.size
    return repr(arrays)


def check_error(error, operation, code, is_client):
    is_memory = code in (NO_MEMORY, NULL_RESULT) or (code == TOO_MANY and operation.request)
    assert type(error) is (MemoryError if is_memory else RuntimeError)
    if is_memory and operation.request:
        text = "unable to allocate memory for array with number of elements = "
        assert str(error) == text + operation.request
    elif is_client:
        assert str(error) in ("", f"the data-array service answered with code {code}.")
    elif code != NULL_RESULT:
        assert str(error) == TEXTS[code]


def check_fault(operation, position, calls, code, times):
    """`times` of the calls fail, from that at the position on."""
    arrays = operation.prepare()
    before = state_of(arrays)
    alive = live()
    if UNSHARE in calls[:position] and len(arrays) > 1:
        alive[0] += 1  # what was shared stays unshared
    for attempt in range(25 if times > 1 else 1):
        if attempt < 5:  # Python's own caches fill up first
            blocks = sys.getallocatedblocks()
        start(position, times, code)
        error = operation.perform(arrays)
        start()
        check_error(error, operation, code, position < operation.client_calls)
        del error
        # This asks for the service's array, which may have to be made again.
        assert state_of(arrays) == before
        assert live() == alive
    assert sys.getallocatedblocks() - blocks < 20
    return repr(operation.perform(arrays)), state_of(arrays)


def check_faults(name):
    operation = OPERATIONS[name]
    arrays = operation.prepare()
    start()
    result = repr(operation.perform(arrays))
    calls = trace()
    expected = result, state_of(arrays)
    del arrays
    nothing = live()
    for position, index in enumerate(calls):
        codes = set() if index in GIVES_AN_OBJECT | CANNOT_FAIL else set(TEXTS)
        if index in CAN_BE_NULL and position >= operation.client_calls:
            codes.add(NULL_RESULT)
        # A service that recovers, and one that doesn't before the call has ended.
        for code, times in itertools.product(codes, (1, 1000)):
            print(name, index, code, times, flush=True)
            assert check_fault(operation, position, calls, code, times) == expected
            assert live() == nothing


def check_lost_values(operation, text):
    """The service says that it has given the elements, and hasn't."""
    arrays, others = operation.prepare(), operation.prepare()
    before = state_of(arrays)
    start()
    operation.perform(others)
    start(trace().index(RELEASE), 1, NULL_RESULT)
    assert str(operation.perform(arrays)) == text
    assert state_of(arrays) == before


@pytest.mark.parametrize("hidden", [(), OPTIONAL])
def test_a_service_that_fails(hidden):
    shim = Path(module.__file__).parents[1] / "tests/native/vellum_service_shim.so"
    assert shim.exists(), f"{shim} is missing; build with BUILD_TESTING=ON"
    preload = ":".join(filter(None, [os.environ.get("LD_PRELOAD"), str(shim)]))
    environment = {**os.environ, "LD_PRELOAD": preload}
    command = [sys.executable, __file__, *map(str, hidden)]
    done = subprocess.run(command, capture_output=True, text=True, env=environment)
    assert done.returncode == 0, done.stdout[-200:] + done.stderr


if __name__ == "__main__":
    for index in map(int, sys.argv[1:]):
        process.shim_hide(index, 1)
    for name in OPERATIONS:
        check_faults(name)
    check_lost_values(OPERATIONS["size"], "null data pointer.")
    check_lost_values(OPERATIONS["clone"], "null data pointer.")
    check_lost_values(OPERATIONS["reshape"], TEXTS[20])
    process.shim_miscount(1)
    text = "array dimensions do not match its number of elements."
    assert str(OPERATIONS["vector"].perform([])) == text
