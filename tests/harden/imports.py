"""The import of the module, with each of its requests for memory refused, and with all
from that one on. Whatever comes of it, a second import succeeds.

    python tests/harden/imports.py [--quick]
"""

import importlib.machinery
import os
import sys

import _imp

try:
    import _testcapi
except ImportError:
    sys.exit("imports: not swept, this interpreter has no _testcapi")

SPEC = importlib.machinery.PathFinder.find_spec("vellummultidimarrayforpython")
importlib.import_module("array")  # the module asks for it
SUCCEEDS, FAILS = 0, 3
ENOUGH = 10  # successes in a row: the requests are at their end


def attempt(start, stop):
    """In a process of its own, which has to come to a regular end."""
    end, stderr = SUCCEEDS, os.dup(2)
    os.dup2(os.open(os.devnull, os.O_WRONLY), 2)  # the module says which class it lacks
    try:
        _testcapi.set_nomemory(start, stop)
        try:
            _imp.create_dynamic(SPEC)
        finally:
            _testcapi.remove_mem_hooks()
    except MemoryError:
        end = FAILS
    except SystemError as error:
        # What the interpreter says of a module that lacks a class.
        assert str(error).endswith(" raised unreported exception"), error
        end = FAILS
    os.dup2(stderr, 2)
    module = _imp.create_dynamic(SPEC)
    assert str(module.double([[1, 2]])) == "[[1.0,2.0]]"
    assert {"logical", "VellumPyIter", "ShapeError", "SizeError", "_capi"} <= set(dir(module))
    sys.exit(end)


def sweep(length):
    """Of `length` requests in a row that are refused, 0 for all."""
    start = failures = successes = 0
    while successes < ENOUGH:
        child = os.fork()
        if child == 0:
            attempt(start, start + length if length else 0)
        _, status = os.waitpid(child, 0)
        if status not in (SUCCEEDS, FAILS << 8):
            sys.exit(f"imports: request {start}, {length} refused: status {status}")
        failures += status != SUCCEEDS
        successes = 0 if status else successes + 1
        start += 7 if "--quick" in sys.argv else 1
    print(f"imports, {length or 'all'} refused from each of {start} on: {failures} failed cleanly",
          flush=True)


for length in (1, 0):
    sweep(length)
