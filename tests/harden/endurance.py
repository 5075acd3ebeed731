"""Threads, processes, the interpreter's end, and ten thousand rounds.

python tests/harden/endurance.py [--quick]; each sweep is a process of its own, which
ends with code 0 and nothing on its standard error stream.
"""

import builtins
import contextvars
import copy
import gc
import importlib.util
import io
import os
import random
import re
import subprocess
import sys
import threading
import time
import warnings
from contextlib import redirect_stderr, suppress

import hillshade
import vellum
import vellummultidimarrayforpython as extension
from operations import (BUILD, MODULE, OPERATIONS, Inputs, expected, is_array, levels, outcome,
                        state_of)  # fmt: skip

QUICK = "--quick" in sys.argv
NAMES = list(OPERATIONS)


def run_normally(names=NAMES):
    for name in names:
        with redirect_stderr(io.StringIO()):
            arrays, (result, _, after) = OPERATIONS[name].prepare(MODULE), expected(name)
            assert outcome(OPERATIONS[name].act, arrays, Inputs()) == result, name
        assert state_of(arrays) == after, name


def everything():
    """The arrays of each operation; exports and iterators of all of them."""
    groups = [operation.prepare(MODULE) for operation in OPERATIONS.values()]
    arrays = [array for group in groups for array in group if is_array(array)]
    return groups, [memoryview(array) for array in arrays], [iter(array) for array in arrays]


class Slow(Inputs):
    """Sequences and indices that let other threads go first."""

    nap = 0

    class sequence(list):
        def __init__(self, items):
            self.get = items.__getitem__
            super().__init__(items)

        def __getitem__(self, position):
            time.sleep(Slow.nap)
            return self.get(position)

    class index(int):
        def __index__(self):
            time.sleep(Slow.nap)
            return int(self)


# Whoever reads an array that is written as a whole, with one digit, finds one digit.
READS = [
    bytes, hillshade.service_bytes, lambda a: bytes(a.clone()), lambda a: bytes(vellum.int8(a)),
    lambda a: bytes(copy.copy(a)), lambda a: bytes(a.noncomplex()),
    lambda a: re.sub("[^0-9]", "", str(a)),
]  # fmt: skip


def threads():
    """All operations on one set of arrays, and forks in between."""
    sys.setswitchinterval(1e-6)
    warnings.simplefilter("ignore", DeprecationWarning)  # a fork beside threads
    run_normally()
    sys.stderr = io.StringIO()
    groups, exports, iterators = everything()
    digits, steady = vellum.int8([[1] * 6] * 4), vellum.int8([[1] * 6] * 4)
    until, failures, counts = time.monotonic() + (2 if QUICK else 60), [], []

    def act(chosen):
        k = chosen.randrange(len(NAMES))
        OPERATIONS[NAMES[k]].act(groups[k], chosen.choice([Inputs, Slow])())
        next(chosen.choice(iterators))

    def write(chosen):
        steady[:] = Slow.sequence([chosen.randrange(1, 10)] * 24)
        digits[:] = [chosen.randrange(1, 10)] * 24
        digits.reshape(chosen.choice([(4, 6), (24, 1), (2, 3, 4), (2, 2, 2, 3)]))

    def read(chosen):
        found = chosen.choice(READS)(chosen.choice([digits, steady]))
        assert len(found) == 24 and len(set(found)) == 1, found

    def fork(chosen):
        time.sleep(0.1)
        child = os.fork()
        if child == 0:
            with suppress(BaseException):
                list(map(state_of, groups))
                run_normally(chosen.sample(NAMES, 5))
                os._exit(0)
            os._exit(1)
        assert os.waitpid(child, 0)[1] == 0, "the child fails"

    def work(step, seed):
        chosen, count = random.Random(seed), 0
        while time.monotonic() < until and not failures:
            count += 1
            try:
                step(chosen)
            except (ValueError, TypeError, IndexError, RuntimeError, BufferError, StopIteration,
                    vellum.ShapeError):  # fmt: skip
                """It is refused, or another thread has reshaped the array."""
            except BaseException as error:
                failures.append(f"{step.__name__}: {error!r}")
        counts.append(count)

    steps = [act, act, act, write, write, read, read, fork]
    workers = [threading.Thread(target=work, args=pair) for pair in zip(steps, range(8))]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    sys.stderr = sys.__stderr__
    assert not failures, failures
    list(map(state_of, [*groups, [digits, steady]]))
    return f"{sum(counts)} operations"


def forks():
    """Parent and child go on with what was alive, and end as usual."""
    groups, exports, iterators = everything()
    child = os.fork()
    list(map(state_of, groups))
    assert all(map(bytes, exports)) and all(map(list, iterators))
    run_normally()
    assert child == 0 or os.waitpid(child, 0)[1] == 0
    return "" if child == 0 else f"{len(exports)} arrays, exports and iterators"


def imports():
    name, cls = extension.__name__, vellum.double
    for k in range(100):
        assert importlib.reload(sys.modules[name]).double is cls
        del sys.modules[name]
        assert importlib.import_module(name).double is cls
        spec = importlib.util.spec_from_file_location(f"again{k}.{name}", extension.__file__)
        assert importlib.util.module_from_spec(spec).double is cls
    run_normally()
    return "100 by reload, 100 after removal, 100 under other names"


def subinterpreters():
    """The import works there or is refused, and all goes on here."""
    program = "try:\n import vellum; str(vellum.double([[1, 2]]))\nexcept ImportError: 0"
    ways = []
    with suppress(ImportError):
        ways.append(importlib.import_module("_testcapi").run_in_subinterp)
    for name in ("_interpreters", "_xxsubinterpreters"):
        with suppress(ImportError):
            module = importlib.import_module(name)
            ways.append(lambda text, module=module: module.run_string(module.create(), text))
    for way in ways * 10:
        assert not way(program)
        run_normally(NAMES[::20])
    return f"{len(ways)} ways, 10 of each"


def kept_to_the_end():
    groups, exports, iterators = everything()
    pairs = [(operation.act, group) for name, operation, group in
             zip(NAMES, OPERATIONS.values(), groups) if name != "toarray refused"]  # it prints

    class Late:
        kept = exports, iterators

        def __del__(self, pairs=pairs, inputs=Inputs(), Exception=Exception):
            for act, group in pairs:
                try:
                    act(group, inputs)
                except Exception:
                    """It is refused, or lacks what is gone already."""

    contextvars.ContextVar("late").set(Late())
    builtins.late, sys.late = Late(), Late()
    return f"{len(exports)} arrays, exports and iterators, in use until three places die"


def daemons(*names):
    """Threads that are inside the module when the interpreter ends."""
    Slow.nap = 0.01
    sys.stderr = io.StringIO()
    gc.freeze()  # soon after the end begins, the lock is free while Last sleeps

    class Last:
        def __del__(self, sleep=time.sleep):
            sleep(0.1)

    def forever(act, arrays, inputs=Slow()):
        while True:
            with suppress(BaseException):
                act(arrays, inputs)

    builtins._, builtins.last = Last(), Last()  # what the end takes first, and last
    for operation in [OPERATIONS[name] for name in names]:
        arguments = operation.act, operation.prepare(MODULE)
        threading.Thread(target=forever, args=arguments, daemon=True).start()
    time.sleep(0.05)


def leaks():
    """Nothing grows, whatever is done so many times."""
    rounds, pages = 300 if QUICK else 10_000, []
    gc.freeze()  # collections are quick

    def measure(operation, times):
        with open(os.devnull, "w") as nothing, redirect_stderr(nothing):
            for k in range(times):
                with suppress(Exception):
                    operation.act(operation.prepare(MODULE), Inputs())
                if k % 500 == 0:
                    levels()  # drops the trace of the service's calls
        with open("/proc/self/statm") as statm:
            pages.append(int(statm.read().split()[1]))
        return [*levels(), getattr(sys, "gettotalrefcount", int)()]

    for operation in OPERATIONS.values():
        measure(operation, 500)
    for name, operation in OPERATIONS.items():
        for _ in range(3):
            before = measure(operation, 10)
            grown = [new - old for new, old in zip(measure(operation, rounds), before)]
            blocks, heap, *objects, references = grown
            if max(blocks, heap / 32, references) < rounds / 10 and not any(objects):
                break
        else:
            raise AssertionError(f"{name}: blocks, bytes, live objects, references: {grown}")
    grown = pages[-1] - pages[len(NAMES)]
    assert grown < 500, f"{grown} more pages are resident"
    return f"{len(NAMES)} operations, {rounds} rounds of each, {grown} more pages"


def run(sweep, *arguments, **variables):
    arguments += ("--quick",) * QUICK
    command = [sys.executable, __file__, sweep.__name__, *arguments]
    ended = subprocess.run(command, env={**os.environ, **variables}, capture_output=True, text=True)
    if (ended.returncode, ended.stderr) != (0, ""):
        sys.exit(f"{sweep.__name__} {arguments} ends with {ended.returncode}\n{ended.stderr}")
    return ended.stdout.strip()


if __name__ == "__main__":
    words = [word for word in sys.argv[1:] if word != "--quick"]
    if words:
        print(globals()[words[0]](*words[1:]), flush=True)
        sys.exit()
    for sweep in (threads, forks, imports, subinterpreters, kept_to_the_end):
        print(f"{sweep.__name__}: {run(sweep)}", flush=True)
    for first in range(0, len(NAMES), 24 if QUICK else 2):
        run(daemons, *NAMES[first : first + 6])
    print(f"daemons: {len(NAMES)} operations", flush=True)
    shim = f"{BUILD}/tests/native/vellum_service_shim.so:{os.environ.get('LD_PRELOAD', '')}"
    print(f"leaks: {run(leaks, LD_PRELOAD=shim)}")
