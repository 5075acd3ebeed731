"""Every request for memory fails once, and from each on all fail, in every operation.

The interpreter's own requests by its test hook, those of the C++ heap by a library
(tests/native) that is preloaded.
"""

import functools

from operations import (MODULE, OPERATIONS, Attempt, Inputs, main, outcome, process,
                        require_level)  # fmt: skip

try:
    import _testcapi
except ImportError:
    _testcapi = None

ENOUGH = 6  # successes in a row end a sweep: what fails can be a request that nobody needs
TEXTS = {"unable to initialize C object.", "unable to set arg tuple.", "toarray() failed.",
         "toarray() can be called only on a one-dimensional sequence."}  # fmt: skip
# What CPython 3.11 does of its own, to `list` and `array.array` alike: an error whose
# traceback can't be had is lost, frames of functions in Python are, array.array() loses
# its iterator, and pickle a block.
LOST = "SystemError", "error return without exception set"
LOSING = {"toarray", "toarray refused", "pickle"}


class Prepared:
    """What plain inputs gave in a first run, without a function in Python in the way."""

    def __init__(self, name):
        self.vellum = MODULE
        operation, recorder, plain = OPERATIONS[name], Inputs(), Inputs()
        for method in "sequence index exporter number numbers rows".split():
            given = []

            def record(value, make=getattr(plain, method), given=given):
                given.append(make(value))
                return given[-1]

            setattr(recorder, method, record)
            setattr(self, method, functools.partial(next, iter(given)))
        outcome(operation.act, operation.prepare(MODULE), recorder)


def is_want_of_memory(cls, result):
    return cls is MemoryError or cls is RuntimeError and result[1] in TEXTS


def attempts(name, start, stop, lost):
    """Gives their number. `start` takes the position of the first request to fail."""
    successes = position = 0
    while successes < ENOUGH:
        if (start, position) not in lost:
            attempt = Attempt(name, Prepared(name))
            attempt.run(functools.partial(start, position), stop)
            if attempt.outcome == LOST and attempt.expected[0][0].endswith("Error"):
                lost.append((start, position))
                attempt.outcome = attempt.expected[0]
            try:
                attempt.check(is_want_of_memory)
            except AssertionError as error:
                raise AssertionError(f"{start.__name__} {position}: {error}") from None
            successes = successes + 1 if attempt.outcome == attempt.expected[0] else 0
        position += 1
    return position


def sweep(starts, stop, name):
    total, lost = 0, []

    def run_all():
        nonlocal total
        for start in starts:
            total += attempts(name, start, stop, lost)

    if name in LOSING and python_once in starts:
        run_all()
    else:
        require_level(run_all, "all")
    assert len(lost) < 2, lost
    return total


def python_once(position):
    _testcapi.set_nomemory(position, position + 1)


def python_from(position):
    _testcapi.set_nomemory(position, 0)


def heap_once(position):
    process.heap_start(position + 1, 1)


def heap_from(position):
    process.heap_start(position + 1, 1 << 30)


SWEEPS = {"C++ heap": functools.partial(
    sweep, [heap_once, heap_from], lambda: process.heap_stop())}  # fmt: skip
if _testcapi:
    SWEEPS["Python's memory"] = functools.partial(
        sweep, [python_once, python_from], _testcapi.remove_mem_hooks)  # fmt: skip

if __name__ == "__main__":
    main(SWEEPS, ("vellum_service_shim.so", "vellum_heap_shim.so"))
