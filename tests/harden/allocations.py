"""Every request for memory fails once, and from each on all fail, in every operation.

The interpreter's own requests by its test hook, those of the C++ heap by a library
(tests/native) that is preloaded.
"""

import functools

from operations import Attempt, main, process, require_level

try:
    import _testcapi
except ImportError:
    _testcapi = None

ENOUGH = 6  # successes in a row end a sweep: what fails can be a request that nobody needs
TEXTS = {"unable to initialize C object.", "unable to set arg tuple.", "toarray() failed.",
         "toarray() can be called only on a one-dimensional sequence."}  # fmt: skip


def is_want_of_memory(cls, outcome):
    return cls is MemoryError or cls is RuntimeError and outcome[1] in TEXTS


def attempts(name, start, stop):
    """Gives their number. `start` takes the position of the first request to fail."""
    successes = position = 0
    while successes < ENOUGH:
        attempt = Attempt(name)
        attempt.run(functools.partial(start, position), stop)
        try:
            attempt.check(is_want_of_memory)
        except AssertionError as error:
            raise AssertionError(f"request {position}: {error}") from None
        successes = successes + 1 if attempt.outcome == attempt.expected[0] else 0
        position += 1
    return position


def sweep(starts, stop, name, _):
    counts = []

    def run_all():
        counts.append(sum(attempts(name, start, stop) for start in starts))

    require_level(run_all)
    return sum(counts)


def python_once(position):
    _testcapi.set_nomemory(position, position + 1)


def python_from(position):
    _testcapi.set_nomemory(position, 0)


def heap_once(position):
    process.heap_start(position + 1, 1)


def heap_from(position):
    process.heap_start(position + 1, 1 << 30)


SWEEPS = {"C++ heap": functools.partial(sweep, [heap_once, heap_from], getattr(process, "heap_stop", None))}
if _testcapi:
    stop = _testcapi.remove_mem_hooks
    SWEEPS["Python's memory"] = functools.partial(sweep, [python_once, python_from], stop)

if __name__ == "__main__":
    main(SWEEPS, preload=("vellum_service_shim.so", "vellum_heap_shim.so"))
