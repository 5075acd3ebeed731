"""Every call of the service fails, in every kind of operation that makes one.

The tests run this file as a program, with a library (tests/native) preloaded that
stands between the module and the service: it lets single calls fail, hides
operations, and counts the objects of the service that live. After each failure
the error is the right one, nothing has changed, nothing is lost or left over, and
the operation works. The module resolves each operation once in a process, so what
hides one runs in a fork of a process that hasn't used the service yet.
"""

import ast
import ctypes
import os
import pickle
import subprocess
import sys
import traceback
from pathlib import Path
from typing import Callable, NamedTuple

import hillshade
import pytest
import vellum
import vellummultidimarrayforpython as module

FACTORY_NEW, CREATE_BUFFER, RELEASE, UNSHARE = 14, 13, 60, 55
CREATES_FROM_BUFFER = {11, 110}
GIVES_AN_OBJECT = {49, 57, 58, 114, 115, UNSHARE}  # and no code
CAN_FAIL = {FACTORY_NEW, CREATE_BUFFER, 53, 59, RELEASE, 94} | CREATES_FROM_BUFFER | GIVES_AN_OBJECT
OPTIONAL = (110, 113, 114, 115)
NO_MEMORY, TOO_MANY, SYSTEM_ERROR, NULL_RESULT = 19, 26, 20, -1000
TEXTS = {
    NO_MEMORY: "Not enough memory available to support the request.",
    TOO_MANY: "Number of elements exceeds max.",
    SYSTEM_ERROR: "System Error.",
}


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


def setting(key, value, prepare=grid):
    return Operation(prepare, lambda a: a.__setitem__(key, value))


GROUPS = {
    "construction": {
        "nothing": building(lambda: vellum.double(), 0, "double"),
        "size": building(lambda: vellum.int8(size=(2, 3)), 6, "int8"),
        "list": building(lambda: vellum.double([[1, 2], [3, 4]]), 4, "double"),
        "complex": building(lambda: vellum.single([[1j, 2]], is_complex=True), 2, "single"),
        "scalar": building(lambda: vellum.logical(1), 1, "logical"),
        "vector": building(lambda: vellum.int16(vector=[1, 2, 3], size=(3, 1)), 3, "int16"),
        "buffer": building(lambda: vellum.uint8(memoryview(bytes(6)).cast("B", (2, 3))), 6, "uint8"),
        "as pickled": building(lambda: vellum.uint32({}, [[7]]), 1, "uint32"),
    },
    "assignment": {
        "element": Operation(grid, lambda a: a[1].__setitem__(2, 9)),
        "row": setting(0, [7, 8, 9]),
        "rows": setting(slice(None), [[6, 5, 4], [3, 2, 1]]),
        "part of a row": Operation(grid, lambda a: a[1].__setitem__(slice(0, 2), [8, 8])),
        "complex row": setting(1, [9j, 8], complex_grid),
        "shared row": setting(0, [7, 8, 9], shared_grid),
        "shared complex element": Operation(
            lambda: (complex_grid()[0].clone(),), lambda a: a[0].__setitem__(0, 9j)
        ),
    },
    "copies": {
        "clone": Operation(grid, lambda a: a[:].clone()),
        "clone of a part": Operation(grid, lambda a: a[1][1:].clone()),
        "noncomplex": Operation(grid, lambda a: a.noncomplex()),
        "real": Operation(complex_grid, lambda a: a.real()),
        "imag": Operation(complex_grid, lambda a: a.imag()),
    },
    "reshape": {
        "sole": Operation(grid, lambda a: a.reshape(3, 2)),
        "shared": Operation(shared_grid, lambda a: a.reshape(6, 1)),
        "complex": Operation(complex_grid, lambda a: a.reshape(1, 4)),
    },
    "capsule": {
        "in": Operation(tuple, lambda: hillshade.wrap(13, (1, 2), bytes(32)), client_calls=6),
        "in, refused": Operation(
            tuple, lambda: hillshade.wrap(1, (1, 2), b"abcd"), client_calls=6
        ),
        "out, a part": Operation(grid, lambda a: bool(hillshade.service_address(a[0:1]))),
        "both": Operation(grid, lambda a: hillshade.shade(a), client_calls=12),
    },
}
#: What only reads, reads the module's own copy of the values.
READING = [
    lambda a: a[1][1], lambda a: a[0:1][0], lambda a: a[::-1], len, str, repr,
    lambda a: [list(row) for row in a], lambda a: a == [[1, 2, 3], [4, 5, 6]], lambda a: a != a,
    pickle.dumps, lambda a: a[0].toarray(), memoryview, bytes, lambda a: (a.size, a.itemsize),
    lambda a: a.buffer_info(), hillshade.service_address,
]  # fmt: skip


# --- In the process that has the library preloaded ----------------------------


class Shim:
    def __init__(self):
        process = ctypes.CDLL(None)
        self.hide, self.is_resolved = process.shim_hide, process.shim_is_resolved
        self._start, self._trace, self._live = (
            process.shim_start, process.shim_trace, process.shim_live)  # fmt: skip
        self._start.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_int]
        self._indices, self._counts = (ctypes.c_int * 1000)(), (ctypes.c_long * 5)()

    def start(self, position=-1, times=0, code=0):
        self._start(position, times, code)

    def trace(self):
        return self._indices[: self._trace(self._indices, 1000)]

    def live(self):
        self._live(self._counts)
        return self._counts[:]


def outcome(function, *arguments):
    """What it returns or raises."""
    try:
        return function(*arguments)
    except (RuntimeError, MemoryError) as error:
        return error.with_traceback(None)


def describe(result):
    if hasattr(result, "_is_complex"):
        return type(result), result._is_complex, result.size, memoryview(result).tobytes("F")
    return (type(result), str(result)) if isinstance(result, Exception) else result


def state_of(arrays):
    """All that can be seen of them; the module's values and the service's are the same."""
    for array in arrays:
        assert hillshade.service_bytes(array) == memoryview(array).tobytes("F")
        assert hillshade.service_dimensions(array) == array.size
    return [(describe(array), repr(array.__reduce__())) for array in arrays]


def check_error(error, operation, index, code, is_client):
    is_memory = code in (NO_MEMORY, NULL_RESULT) or (code == TOO_MANY and operation.request)
    assert type(error) is (MemoryError if is_memory else RuntimeError), (index, code, error)
    if is_memory and operation.request:
        assert str(error) == "unable to allocate memory for array with " + operation.request
    elif is_client:
        assert str(error) in ("", f"the data-array service answered with code {code}.")
    elif code != NULL_RESULT:
        assert str(error) == TEXTS[code]


def check_faults(shim, operation):
    arrays = operation.prepare()
    shim.start()
    expected = describe(outcome(operation.act, *arrays[:1]))
    calls = shim.trace()
    changed = state_of(arrays)
    del arrays
    positions = [k for k, index in enumerate(calls) if index in CAN_FAIL]
    assert positions, "this operation makes no call that can fail"
    nothing = shim.live()
    for k in positions:
        index, is_client = calls[k], k < operation.client_calls
        codes = [] if index in GIVES_AN_OBJECT else [NO_MEMORY, TOO_MANY, SYSTEM_ERROR]
        if index in GIVES_AN_OBJECT | CREATES_FROM_BUFFER | {CREATE_BUFFER} and not is_client:
            codes.append(NULL_RESULT)
        # A service that recovers, and one that doesn't before the call has ended.
        for code, times in [(code, times) for code in codes for times in (1, 1000)]:
            where = index, code, times
            arrays = operation.prepare()
            before, live = state_of(arrays), shim.live()
            references = [sys.getrefcount(array) for array in arrays]
            if UNSHARE in calls[:k] and len(arrays) > 1:
                live[0] += 1  # what was shared stays unshared
            for attempt in range(25 if times > 1 and code != SYSTEM_ERROR else 1):
                if attempt < 5:  # Python's own caches fill up first
                    blocks = sys.getallocatedblocks()
                shim.start(k, times, code)
                error = outcome(operation.act, *arrays[:1])
                shim.start()
                check_error(error, operation, index, code, is_client)
                del error
                # This asks for the service's array, which may have to be made again.
                assert state_of(arrays) == before, where
                assert shim.live() == live, where
            assert [sys.getrefcount(array) for array in arrays] == references, where
            assert sys.getallocatedblocks() - blocks < 20, where
            assert describe(outcome(operation.act, *arrays[:1])) == expected
            assert state_of(arrays) == changed
            del arrays
            assert shim.live() == nothing, where


def check_reading(shim):
    for read in READING:
        (array,) = grid()
        shim.start()
        result = read(array)
        assert shim.trace() == []
        del result


def check_lost_array(shim):
    """A reshape whose creation fails for good: reading goes on without the service."""
    uses = [hillshade.service_bytes, lambda a: a.noncomplex(), lambda a: a.reshape(6, 1),
            lambda a: a[1].__setitem__(0, 4)]  # fmt: skip
    for recover in uses:
        (array,) = grid()
        row, other, values = array[1], array.clone(), memoryview(array).tobytes("F")
        shim.start()
        array.reshape(2, 3)
        creation = [index in CREATES_FROM_BUFFER for index in shim.trace()].index(True)
        alive = shim.live()[0]
        shim.start(creation, 1000, TOO_MANY)
        assert str(outcome(array.reshape, 3, 2)) == TEXTS[TOO_MANY]
        assert shim.live()[0] == alive - 1
        assert array.size == (2, 3) and list(row) == [4, 5, 6] and str(array[0]) == "[1.0,2.0,3.0]"
        assert array == other and memoryview(array).tobytes("F") == values
        for use in uses[1:]:
            assert str(outcome(use, array)) == TEXTS[TOO_MANY]
        shim.start()
        recover(array)
        assert shim.live()[0] == alive
        assert hillshade.service_bytes(array) == values
        state_of([array])


def in_fork(function, *arguments):
    """Runs it in a fork; its result as text."""
    reading, writing = os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.write(writing, repr(function(*arguments)).encode())
            status = 0
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(status)
    os.close(writing)
    with os.fdopen(reading) as result:
        text = result.read()
    assert os.waitpid(child, 0)[1] == 0, arguments[1:]
    return text


def run_all(shim, hidden):
    for index in hidden:
        shim.hide(index, 1)
    results = []
    for name, operation in all_operations():
        arrays = operation.prepare()
        result = describe(outcome(operation.act, *arrays[:1]))
        results.append((name, result, state_of(arrays)))
    assert not any(shim.is_resolved(index) for index in hidden)
    return results


def check_hidden(shim, operation, index):
    """The gate speaks at each use, until the operation is there."""
    arrays = operation.prepare()
    is_known = shim.is_resolved(index)
    before, live = state_of(arrays), shim.live()
    for _ in range(0 if is_known else 2):
        shim.hide(index, 1)
        result = outcome(operation.act, *arrays[:1])
        shim.hide(index, 0)
        texts = ["This feature requires Tide1a"]
        if operation.client_calls:
            texts.append(f"the data-array service has no operation {index}.")
        assert type(result) is RuntimeError and str(result) in texts, (index, result)
        assert state_of(arrays) == before, index
        unshared = shim.live()[0] - live[0]
        assert unshared <= (len(arrays) > 1) and shim.live()[1:] == live[1:], index
    again = outcome(operation.act, *arrays[:1])
    assert not isinstance(again, Exception) or str(again) == "invalid type.", again
    state_of(arrays)
    return is_known


def calls_of(shim, operation):
    arrays = operation.prepare()
    shim.start()
    outcome(operation.act, *arrays[:1])
    return sorted(set(shim.trace()))


def all_operations():
    return [
        (f"{group}, {name}", operation)
        for group, operations in GROUPS.items()
        for name, operation in operations.items()
    ]


def main(what, group="", hidden=""):
    shim = Shim()
    if what == "optional":
        results = [
            in_fork(run_all, shim, each) for each in [(), *((k,) for k in OPTIONAL), OPTIONAL]
        ]
        assert all(result == results[0] for result in results)
        return
    for index in OPTIONAL if hidden else ():
        shim.hide(index, 1)
    for name, operation in GROUPS[group].items() if group else ():
        print(group, name, flush=True)
        if what == "faults":
            check_faults(shim, operation)
        elif what == "required":
            indices = ast.literal_eval(in_fork(calls_of, shim, operation))
            known = [
                in_fork(check_hidden, shim, operation, k) for k in indices if k not in OPTIONAL
            ]
            assert group != "construction" or set(known) == {"0"}
    if what == "other":
        check_reading(shim)
        check_lost_array(shim)


# --- In the tests -------------------------------------------------------------


def run_with_shim(*arguments):
    build = Path(module.__file__).parent.parent
    shim = os.environ.get("VELLUM_SERVICE_SHIM", build / "tests/native/vellum_service_shim.so")
    if not os.path.exists(shim):
        pytest.fail(f"{shim} is missing; build with BUILD_TESTING=ON")
    preload = ":".join(filter(None, [os.environ.get("LD_PRELOAD"), str(shim)]))
    done = subprocess.run(
        [sys.executable, __file__, *arguments],
        env={**os.environ, "LD_PRELOAD": preload},
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    assert done.returncode == 0, done.stdout


@pytest.mark.parametrize("hidden", ["", "optional ones hidden"])
@pytest.mark.parametrize("group", GROUPS)
@pytest.mark.parametrize("what", ["faults", "required"])
def test_a_service_that_fails(what, group, hidden):
    run_with_shim(what, group, hidden)


@pytest.mark.parametrize("what", ["optional", "other"])
def test_a_service_that_has_less(what):
    run_with_shim(what)


if __name__ == "__main__":
    main(*sys.argv[1:])
