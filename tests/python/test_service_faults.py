"""Every call of the service fails, in every kind of operation that makes one.

The tests run this file as a program, with a library (tests/native) preloaded that
stands between the module and the service. After each failure the error is the right
one, nothing has changed, nothing is lost or left over, and the operation works.
"""

import ctypes
import itertools
import os
import pickle
import subprocess
import sys
from concurrent.futures import ProcessPoolExecutor
from multiprocessing import get_context
from pathlib import Path
from typing import Callable, NamedTuple

import hillshade
import pytest
import vellum
import vellummultidimarrayforpython as module

UNSHARE, RELEASE = 55, 60
CREATES_FROM_BUFFER = {11, 110}
GIVES_AN_OBJECT = {49, 57, 58, 72, 114, 115, UNSHARE}  # and no code
CAN_BE_NULL = {13} | CREATES_FROM_BUFFER | GIVES_AN_OBJECT
CANNOT_FAIL = {15, 23, 50, 51, 52, 64, 71, 113}
OPTIONAL = (110, 113, 114, 115)
NO_MEMORY, TOO_MANY, SYSTEM_ERROR, NULL_RESULT = 19, 26, 20, -1000
TEXTS = {NO_MEMORY: "Not enough memory available to support the request.",
         TOO_MANY: "Number of elements exceeds max.", SYSTEM_ERROR: "System Error."}  # fmt: skip


class Operation(NamedTuple):
    prepare: Callable  # gives the arrays to watch; the first is acted on
    act: Callable
    request: str = ""  # constructions only: what a memory failure names
    client_calls: int = 0  # the first so many calls are the native client's


def building(act, count, kind):
    return Operation(tuple, act, f"number of elements = {count}; type = {kind}")


def grid():
    return (vellum.double([[1, 2, 3], [4, 5, 6]]),)


def complex_grid():
    return (vellum.int16([[1j, 2], [3 + 4j, 5]], is_complex=True),)


def shared_grid():
    """A clone shares its storage with the copy that its source keeps."""
    (source,) = grid()
    return source.clone(), source


OPERATIONS = {
    "nothing": building(lambda: vellum.double(), 0, "double"),
    "size": building(lambda: vellum.int8(size=(2, 3)), 6, "int8"),
    "complex": building(lambda: vellum.single([[1j, 2]], is_complex=True), 2, "single"),
    "scalar": building(lambda: vellum.logical(1), 1, "logical"),
    "vector": building(lambda: vellum.int16(vector=[1, 2, 3], size=(3, 1)), 3, "int16"),
    "buffer": building(lambda: vellum.uint8(memoryview(b"123456").cast("B", (2, 3))), 6, "uint8"),
    "assign element": Operation(grid, lambda a: a[1].__setitem__(2, 9)),
    "assign rows": Operation(grid, lambda a: a.__setitem__(slice(0, 2), [[6, 5, 4], [3, 2, 1]])),
    "assign complex": Operation(complex_grid, lambda a: a.__setitem__(1, [9j, 8])),
    "assign shared": Operation(shared_grid, lambda a: a.__setitem__(0, [7, 8, 9])),
    "clone": Operation(grid, lambda a: a[:].clone()),
    "clone part": Operation(grid, lambda a: a[1][1:].clone()),
    "noncomplex": Operation(grid, lambda a: a.noncomplex()),
    "real": Operation(complex_grid, lambda a: a.real()),
    "reshape": Operation(grid, lambda a: a.reshape(3, 2)),
    "reshape shared": Operation(shared_grid, lambda a: a.reshape(6, 1)),
    "reshape complex": Operation(complex_grid, lambda a: a.reshape(1, 4)),
    "in": Operation(tuple, lambda: hillshade.wrap(13, (1, 2), bytes(32)), client_calls=6),
    "in, refused": Operation(tuple, lambda: hillshade.wrap(1, (1, 2), b"abcd"), client_calls=6),
    "out, a part": Operation(grid, lambda a: bool(hillshade.service_address(a[0:1]))),
    "out and in": Operation(grid, lambda a: hillshade.shade(a), client_calls=12),
}
#: What only reads, reads the module's own copy of the values.
READING = [
    lambda a: a[1][1], lambda a: list(a[::-1][0]), str, repr, lambda a: a == [[1, 2, 3]] * 2,
    pickle.dumps, lambda a: a[0].toarray(), bytes, lambda a: (len(a), a.size, a.itemsize),
]  # fmt: skip

process = ctypes.CDLL(None)  # where the library is preloaded


def start(position=-1, times=0, code=0):
    process.shim_start(ctypes.c_long(position), ctypes.c_long(times), code)


def hide(indices):
    """Whether one of them is known to the module already."""
    return any([process.shim_hide(index, 1) for index in indices])


def trace():
    count = ctypes.c_long()
    process.shim_trace.restype = ctypes.POINTER(ctypes.c_int)
    return process.shim_trace(ctypes.byref(count))[: count.value]


def live():
    process.shim_live.restype = ctypes.POINTER(ctypes.c_long)
    return process.shim_live()[:5]


def describe(result):
    if hasattr(result, "_is_complex"):
        return type(result), result._is_complex, result.size, memoryview(result).tobytes("F")
    return (type(result), str(result)) if isinstance(result, Exception) else result


def outcome(function, *arguments):
    try:
        return function(*arguments)
    except (RuntimeError, MemoryError) as error:
        return error.with_traceback(None)


def state_of(arrays):
    """All that can be seen of them; the module's values and the service's are the same."""
    for array in arrays:
        assert hillshade.service_bytes(array) == memoryview(array).tobytes("F")
        assert hillshade.service_dimensions(array) == array.size
    return [(describe(array), repr(array.__reduce__())) for array in arrays]


def perform(operation, arrays):
    return outcome(operation.act, *arrays[:1])


def succeed(operation):
    """What it gives, what it leaves, and the indices that it calls."""
    arrays = operation.prepare()
    start()
    result = describe(perform(operation, arrays))
    calls = trace()
    return result, state_of(arrays), calls


def check_error(error, operation, index, code, is_client):
    is_memory = code in (NO_MEMORY, NULL_RESULT) or (code == TOO_MANY and operation.request)
    assert type(error) is (MemoryError if is_memory else RuntimeError), (index, code, error)
    if is_memory and operation.request:
        assert str(error) == "unable to allocate memory for array with " + operation.request
    elif is_client:
        assert str(error) in ("", f"the data-array service answered with code {code}.")
    elif code != NULL_RESULT:
        assert str(error) == TEXTS[code]


def check_faults(operation):
    *expected, calls = succeed(operation)
    assert not CANNOT_FAIL.issuperset(calls)
    nothing = live()
    for k, index in enumerate(calls):
        if index in CANNOT_FAIL:
            continue
        is_client = k < operation.client_calls
        codes = [] if index in GIVES_AN_OBJECT else [NO_MEMORY, TOO_MANY, SYSTEM_ERROR]
        codes += [NULL_RESULT] if index in CAN_BE_NULL and not is_client else []
        # A service that recovers, and one that doesn't before the call has ended.
        for code, times in itertools.product(codes, (1, 1000)):
            where = index, code, times
            arrays = operation.prepare()
            before, alive = state_of(arrays), live()
            references = [sys.getrefcount(array) for array in arrays]
            if UNSHARE in calls[:k] and len(arrays) > 1:
                alive[0] += 1  # what was shared stays unshared
            for attempt in range(25 if times > 1 else 1):
                if attempt < 5:  # Python's own caches fill up first
                    blocks = sys.getallocatedblocks()
                start(k, times, code)
                error = perform(operation, arrays)
                start()
                check_error(error, operation, index, code, is_client)
                del error
                # This asks for the service's array, which may have to be made again.
                assert state_of(arrays) == before and live() == alive, where
            assert [sys.getrefcount(array) for array in arrays] == references, where
            assert sys.getallocatedblocks() - blocks < 20, where
            assert [describe(perform(operation, arrays)), state_of(arrays)] == expected, where
            del arrays
            assert live() == nothing, where


def check_all_faults(hidden):
    hide(hidden)
    for name, operation in OPERATIONS.items():
        print(name, flush=True)
        check_faults(operation)


def check_lost_array():
    """A reshape whose creation fails for good: reading goes on without the service."""
    uses = [hillshade.service_bytes, lambda a: a.noncomplex(), lambda a: a.reshape(6, 1),
            lambda a: a[1].__setitem__(0, 4)]  # fmt: skip
    for recover in uses:
        (array,), (other,) = grid(), grid()
        start()
        array.reshape(2, 3)
        creation = [index in CREATES_FROM_BUFFER for index in trace()].index(True)
        alive = live()[0]
        start(creation, 1000, TOO_MANY)
        assert str(outcome(array.reshape, 3, 2)) == TEXTS[TOO_MANY]
        assert live()[0] == alive - 1
        for use in uses[1:]:
            assert str(outcome(use, array)) == TEXTS[TOO_MANY]
        start()
        assert [read(array) for read in READING] == [read(other) for read in READING]
        assert trace() == []
        recover(array)
        assert live()[0] == alive
        assert hillshade.service_bytes(array) == memoryview(other).tobytes("F")


def check_lost_values():
    """The service says that it has given the elements, and hasn't."""
    for name, text in {"size": "null data pointer.", "clone": "null data pointer.",
                       "reshape": TEXTS[SYSTEM_ERROR]}.items():  # fmt: skip
        position = succeed(OPERATIONS[name])[-1].index(RELEASE)
        arrays = OPERATIONS[name].prepare()
        before, alive = state_of(arrays), live()
        start(position, 1, NULL_RESULT)
        assert str(perform(OPERATIONS[name], arrays)) == text
        assert state_of(arrays) == before and live() == alive


def check_wrong_count():
    nothing = live()
    process.shim_miscount(1)
    text = "array dimensions do not match its number of elements."
    assert str(outcome(vellum.double, [1, 2])) == text
    assert live() == nothing


def in_fork(function, *arguments):
    """The module resolves each operation once in a process: not yet in this one."""
    with ProcessPoolExecutor(1, get_context("fork")) as pool:
        return pool.submit(function, *arguments).result()


def run_all(hidden):
    hide(hidden)
    results = {name: succeed(operation) for name, operation in OPERATIONS.items()}
    assert not hide(hidden)
    return results


def check_hidden(name, index, hidden):
    """The gate speaks at each use, until the operation is there."""
    hide(hidden)
    operation = OPERATIONS[name]
    arrays = operation.prepare()
    if hide([index]):
        assert arrays, "known already, and not from making the arrays"
        return
    process.shim_hide(index, 0)
    before, alive = state_of(arrays), live()
    for _ in range(2):
        process.shim_hide(index, 1)
        error = perform(operation, arrays)
        process.shim_hide(index, 0)
        texts = f"This feature requires Tide1a|the data-array service has no operation {index}."
        assert type(error) is RuntimeError and str(error) in texts.split("|"), (index, error)
        assert state_of(arrays) == before, index
        assert live()[0] - alive[0] <= (len(arrays) > 1) and live()[1:] == alive[1:], index
    again = perform(operation, arrays)
    assert not isinstance(again, Exception) or str(again) == "invalid type.", again
    state_of(arrays)


def check_all_hidden():
    full = in_fork(run_all, ())
    for hidden in [(), *((index,) for index in OPTIONAL), OPTIONAL]:
        for name, (*result, calls) in in_fork(run_all, hidden).items():
            assert result == [*full[name][:2]], (name, hidden)
            for index in set(calls).difference(OPTIONAL) if len(hidden) != 1 else ():
                in_fork(check_hidden, name, index, hidden)


CHECKS = {
    "faults": lambda: check_all_faults(()),
    "faults, optional operations hidden": lambda: check_all_faults(OPTIONAL),
    "hidden": check_all_hidden,
    "lost array": check_lost_array,
    "lost values": check_lost_values,
    "wrong count": check_wrong_count,
}


@pytest.mark.parametrize("check", CHECKS)
def test_a_service_that_fails(check):
    shim = Path(module.__file__).parents[1] / "tests/native/vellum_service_shim.so"
    assert shim.exists(), f"{shim} is missing; build with BUILD_TESTING=ON"
    preload = ":".join(filter(None, [os.environ.get("LD_PRELOAD"), str(shim)]))
    done = subprocess.run([sys.executable, __file__, check], capture_output=True, text=True,
                          env={**os.environ, "LD_PRELOAD": preload})  # fmt: skip
    assert done.returncode == 0, done.stdout + done.stderr


if __name__ == "__main__":
    CHECKS[sys.argv[1]]()
