"""The operations that every sweep runs, and what must hold after each attempt at one.

An operation gets every foreign object that it hands to the module from a factory
(Inputs), so that a sweep can give it hostile ones. It runs on the oracle as well.
"""

import ctypes
import faulthandler
import functools
import gc
import os
import pickle
import re
import subprocess
import sys
import time
from operator import attrgetter, setitem
from pathlib import Path
from types import SimpleNamespace
from typing import Callable, NamedTuple

import hillshade
import numpy
import vellum
import vellummultidimarrayforpython as extension

sys.path.insert(0, str(Path(__file__).parents[1] / "python"))
import oracle  # noqa: E402

BUILD = Path(extension.__file__).parents[1]
ORACLE = SimpleNamespace(**{kind: getattr(oracle, kind) for kind in oracle.FORMATS},
                         memoryview=oracle.export, service_bytes=oracle.service_bytes)  # fmt: skip
MODULE = SimpleNamespace(**{kind: getattr(vellum, kind) for kind in oracle.FORMATS},
                         memoryview=memoryview, service_bytes=hillshade.service_bytes)  # fmt: skip


class Inputs:
    """Plain ones."""

    def __init__(self, library=MODULE):
        self.vellum = library

    sequence = staticmethod(list)
    index = staticmethod(int)
    exporter = staticmethod(memoryview)

    @staticmethod
    def number(value):
        return value

    def numbers(self, values):
        return self.sequence([self.number(value) for value in values])

    def rows(self, values):
        return self.sequence([self.numbers(row) for row in values])


class Operation(NamedTuple):
    prepare: Callable  # of a library: the arrays, and exports of them, that it works on
    act: Callable  # on these, with Inputs
    changes: bool = False  # the arrays
    is_modelled: bool = True  # by the oracle


def nothing(v):
    return []


def grid(v):
    return [v.double([[1, 2, 3], [4, 5, 6]])]


def grids(v):
    return grid(v) + grid(v)


def cube(v):
    return [v.int8([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])]


def complex_grid(v):
    return [v.int16([[1j, 2], [3 + 4j, 5]], is_complex=True)]


def logical_grid(v):
    return [v.logical([[True, False], [False, True]])]


def exported(v):
    (a,) = grid(v)
    return [a, v.memoryview(a)]


def shared(v):
    """A clone shares its storage with the copy that its source keeps."""
    (a,) = grid(v)
    return [a.clone(), a]


def constructions(name, kind, options, values, code):
    flat, make = sum(values, []), attrgetter(kind)
    rows = numpy.array(values, code)
    columns, vector = numpy.asfortranarray(rows), rows.ravel()
    forms = {
        "empty": lambda a, i: make(i.vellum)(**options),
        "size": lambda a, i: make(i.vellum)(size=i.numbers([2, 3]), **options),
        "scalar": lambda a, i: make(i.vellum)(i.number(flat[0]), **options),
        "list": lambda a, i: make(i.vellum)(i.numbers(flat), **options),
        "nested": lambda a, i: make(i.vellum)(i.rows(values), **options),
        "tuple": lambda a, i: make(i.vellum)((i.numbers(flat), (*flat,)), **options),
        "vector": lambda a, i: make(i.vellum)(vector=i.numbers(flat), size=(2, 2), **options),
        "rows of a buffer": lambda a, i: make(i.vellum)(i.exporter(rows), **options),
        "columns of a buffer": lambda a, i: make(i.vellum)(i.exporter(columns), **options),
        "flat buffer": lambda a, i: make(i.vellum)(i.exporter(vector), size=(2, 2), **options),
        "leading dict": lambda a, i: make(i.vellum)({"size": i.numbers([2, 2]), **options},
                                                    i.numbers(flat)),
    }  # fmt: skip
    for form, act in forms.items():
        yield f"{name}: {form}", Operation(nothing, act)
    yield f"{name}: array", Operation(lambda v: [make(v)(values, **options)],
                                      lambda a, i: make(i.vellum)(a[0], **options))  # fmt: skip


OPERATIONS = {
    **dict(constructions("double", "double", {}, [[1.5, 2.0], [3.0, -4.0]], "d")),
    **dict(constructions("complex", "single", {"is_complex": True}, [[1j, 2j], [3 + 4j, 5j]], "F")),
    **dict(constructions("logical", "logical", {}, [[True, False], [False, True]], "B")),
    "many elements": Operation(nothing, lambda a, i: i.vellum.double([[*range(9)]] * 4)),
    "read row": Operation(grid, lambda a, i: a[0][-1]),
    "read element": Operation(grid, lambda a, i: a[0][1][i.number(2)]),
    "read outside": Operation(grid, lambda a, i: a[0][7]),
    "read slice": Operation(cube, lambda a, i: a[0][slice(i.index(0), i.index(9), i.index(1))]),
    "read slice of slice": Operation(grid, lambda a, i: a[0][::-1][i.index(0) : i.index(1)]),
    "attributes": Operation(cube, lambda a, i: (a[0].size, len(a[0]), a[0].itemsize, bool(a[0]))),
    "iterate": Operation(cube, lambda a, i: [list(row) for rows in a[0] for row in rows]),
    "contains": Operation(grid, lambda a, i: i.number(7) in a[0][1]),
    "text": Operation(cube, lambda a, i: str(a[0])),
    "text of all": Operation(complex_grid, lambda a, i: repr(a[0])),
    "equal": Operation(grids, lambda a, i: a[0] == a[1]),
    "unequal": Operation(grids, lambda a, i: a[0][0] != a[1][1]),
    "clone": Operation(grid, lambda a, i: a[0].clone()),
    "clone part": Operation(cube, lambda a, i: a[0][1][::-1].clone()),
    "real": Operation(complex_grid, lambda a, i: a[0].real()),
    "imag": Operation(complex_grid, lambda a, i: a[0].imag()),
    "noncomplex": Operation(logical_grid, lambda a, i: a[0].noncomplex()),
    "pickle": Operation(complex_grid, lambda a, i: pickle.loads(pickle.dumps(a[0], 4))),
    "rebuild": Operation(cube, lambda a, i: (made := a[0].__reduce__())[0](*made[1])),
    "toarray": Operation(grid, lambda a, i: a[0][1].toarray()),
    "toarray refused": Operation(grid, lambda a, i: a[0].toarray()),
    "export": Operation(grid, lambda a, i: i.vellum.memoryview(a[0])),
    "tomemoryview": Operation(complex_grid, lambda a, i: a[0].tomemoryview()),
    "strides": Operation(cube, lambda a, i: a[0].get_bytewise_strides(), is_modelled=False),
    "buffer info": Operation(grid, lambda a, i: a[0].buffer_info()[1], is_modelled=False),
    "export to bytes": Operation(grid, lambda a, i: bytes(a[0]), is_modelled=False),
    "capsule out": Operation(grid, lambda a, i: i.vellum.service_bytes(a[0])),
    "capsule out, part": Operation(cube, lambda a, i: i.vellum.service_bytes(a[0][1])),
    "capsule in": Operation(nothing, lambda a, i: hillshade.wrap(3, (1, 2), bytes(16)),
                            is_modelled=False),
    "capsule in, refused": Operation(nothing, lambda a, i: hillshade.wrap(1, (1, 2), b"abcd"),
                                     is_modelled=False),
    "capsule both ways": Operation(grid, lambda a, i: hillshade.shade(a[0]), is_modelled=False),
    **{name: Operation(*rest, changes=True) for name, *rest in [
        ("assign element", grid, lambda a, i: setitem(a[0][1], i.number(2), i.number(9.5))),
        ("assign logical", logical_grid, lambda a, i: setitem(a[0][1], 0, i.number(1))),
        ("assign row", grid, lambda a, i: setitem(a[0], 1, i.numbers([7, 8, 9]))),
        ("assign flat slice", grid, lambda a, i: setitem(
            a[0][0], slice(i.index(0), i.index(2)), i.numbers([8, 9]))),
        ("assign region", cube, lambda a, i: setitem(a[0], slice(None), i.rows([[9, 8]] * 4))),
        ("assign wrong count", cube, lambda a, i: setitem(a[0], slice(None), i.numbers([9, 8]))),
        ("assign array", grids, lambda a, i: setitem(a[0], 0, a[1][1])),
        ("assign itself", grid, lambda a, i: setitem(a[0], slice(None), a[0][::-1])),
        ("assign by slice", cube, lambda a, i: setitem(a[0][::-1], 1, i.rows([[9, 8], [7, 6]]))),
        ("assign shared", shared, lambda a, i: setitem(a[0], 0, i.numbers([7, 8, 9]))),
        ("assign under export", exported, lambda a, i: setitem(a[0][1], 1, i.number(9))),
        ("reshape", grid, lambda a, i: a[0].reshape(i.number(3), 2)),
        ("reshape by sequence", cube, lambda a, i: a[0].reshape(i.numbers([1, 2, 4]))),
        ("reshape refused", grid, lambda a, i: a[0].reshape(i.numbers([4, 2]))),
        ("reshape under export", exported, lambda a, i: a[0].reshape(i.numbers([1, 1, 6]))),
    ]},
}  # fmt: skip


def is_array(value):
    return hasattr(type(value), "_is_complex")


def outcome(function, *arguments):
    """What it gives, or the class and the text of what it raises."""
    try:
        return describe(function(*arguments))
    except BaseException as error:
        return type(error).__name__, *error.args[:1]


def describe(value):
    if is_array(value):
        export = value.tomemoryview()
        size, text = outcome(lambda: value.size), outcome(str, value)
        return type(value).__name__, value._is_complex, value.itemsize, size, text, describe(export)
    if isinstance(value, (list, tuple)):
        return type(value).__name__, [describe(item) for item in value]
    if isinstance(value, (memoryview, oracle.Export)):
        return value.format, value.shape, value.strides, value.tobytes("F")
    return value.__name__ if isinstance(value, type) else repr(value)


def state_of(arrays):
    """All that can be seen of them; the module's values and the service's are the same."""
    for value in filter(is_array, arrays):
        assert hillshade.service_bytes(value) == memoryview(value).tobytes("F"), "two values"
        assert hillshade.service_dimensions(value) == value.size, "two shapes"
    return describe(arrays)


@functools.lru_cache(None)
def expected(name):
    """The result, and the state of the arrays before and after: the oracle's."""
    operation, runs = OPERATIONS[name], []
    for library, state in [(MODULE, state_of), (ORACLE, describe)][: 1 + operation.is_modelled]:
        arrays = operation.prepare(library)
        before = state(arrays)
        result = outcome(operation.act, arrays, Inputs(library))
        runs.append((result, before, state(arrays)))
    assert runs[0] == runs[-1], f"module, oracle: {runs}"
    assert operation.changes or before == runs[0][2]
    return runs[0]


class Attempt:
    """At an operation, with `inputs`, and with whatever `start` and `stop` switch on and off."""

    def __init__(self, name, inputs=None):
        self.name, self.operation, self.inputs = name, OPERATIONS[name], inputs or Inputs()
        self.expected = expected(name)
        self.arrays = self.operation.prepare(MODULE)
        self.kept = list(self.arrays)  # where foreign code drops them
        self.references = self.count_references()

    def count_references(self):
        return [*map(sys.getrefcount, self.kept)]

    def run(self, start=int, stop=int):
        act, arrays, inputs = self.operation.act, self.arrays, self.inputs
        try:
            try:
                start()
                result = act(arrays, inputs)
            finally:
                stop()
        except BaseException as error:
            self.error, self.outcome = error.__class__, (type(error).__name__, *error.args[:1])
        else:
            self.error, self.outcome = None, describe(result)

    def check(self, allows, is_disturbed=False, is_late=False):
        """`allows` an error, by its class and its description. `is_disturbed` where
        something else has acted on the arrays or on what the operation was given;
        `is_late` where the error can come from behind the operation."""
        result, before, after = self.expected
        is_done, is_usable = self.outcome == result, False
        if not is_done and not (allows(self.error, self.outcome) if self.error else is_disturbed):
            raise AssertionError(f"gives {self.outcome}, not {result}")
        if self.kept:
            self.arrays[:] = self.kept
            state = state_of(self.arrays)
            is_late |= "wrong count" in self.name  # the one that is half done
            allowed = [after] if is_done else [before, after][: 1 + is_late]
            assert is_disturbed or state in allowed, f"leaves {state} after {self.outcome}"
            assert self.count_references() == self.references, "reference counts"
            is_usable = state == before and not is_disturbed
        arrays = self.arrays if is_usable else self.operation.prepare(MODULE)
        again = outcome(self.operation.act, arrays, Inputs()), state_of(arrays)
        assert again == (result, after), f"gives {again} afterwards"


class Heap(ctypes.Structure):
    _fields_ = [(f"field{k}", ctypes.c_size_t) for k in range(10)]


process = ctypes.CDLL(None)
process.mallinfo2.restype = Heap


def levels():
    """Blocks of the interpreter, bytes of the heap, and live objects of the service."""
    gc.collect()
    live = ()
    if hasattr(process, "shim_live"):
        process.shim_start(ctypes.c_long(-1), ctypes.c_long(0), 0)  # it drops its trace
        process.shim_live.restype = ctypes.POINTER(ctypes.c_long)
        live = process.shim_live()[:5]
    return [sys.getallocatedblocks(), process.mallinfo2().field7, *live]


def require_level(sweep, what, rounds=30):
    """Runs it until nothing grows any more. What grows every time is lost."""
    least, before = [1], levels()
    for _ in range(rounds):
        sweep()
        now = levels()
        grown = [new - old for old, new in zip(before, now)]
        least = [*map(min, grown, least if len(least) > 1 else grown)]
        if max(least) <= 0:
            return
        before = now
    raise AssertionError(f"{what}: blocks, bytes, objects of the service grow by {least}")


def work_off(sweep, names):
    """Says where it is, for the case that the process ends there."""
    gc.freeze()
    for name in names:
        faulthandler.dump_traceback_later(600, exit=True)
        print("#at", name, flush=True)
        try:
            print("#did", sweep(name), flush=True)
        except AssertionError as finding:
            print(f"#found {name}: {finding}", flush=True)


def main(sweeps, preload):
    """Runs each over all operations, or those of the command line, in processes of
    their own. One that ends early is a finding; after any, exits with 1."""
    flags = [argument for argument in sys.argv[1:] if argument == "--quick"]
    given = [argument for argument in sys.argv[1:] if argument != "--quick"]
    if given[:1] == ["--sweep"]:
        return work_off(sweeps[given[1]], given[2:])
    libraries = [str(BUILD / "tests/native" / library) for library in preload]
    environment = {"PYTHONMALLOC": "debug", **os.environ}
    environment["LD_PRELOAD"] = ":".join([*libraries, os.environ.get("LD_PRELOAD", "")])
    has_failed = False
    for title in sweeps:
        left = names = given or list(OPERATIONS)[:: 4 if flags else 1]
        began, attempts, findings = time.monotonic(), 0, []
        while left:
            command = [sys.executable, sys.argv[0], *flags, "--sweep", title, *left]
            done = subprocess.run(command, env=environment, capture_output=True, text=True)
            told = re.findall("^#(at|did|found) (.*)", done.stdout, re.MULTILINE)
            reached = [text for kind, text in told if kind == "at"]
            attempts += sum(int(text) for kind, text in told if kind == "did")
            findings += [text for kind, text in told if kind == "found"]
            if done.returncode:
                end = done.stderr[-2000:]
                findings.append(f"{reached[-1:]} ends with {done.returncode}: {end}")
            left = left[max(1, len(reached)) :]
        print(f"{title}: {attempts} attempts at {len(names)} operations, {len(findings)} findings, "
              f"{time.monotonic() - began:.0f} s", *findings, sep="\n  ", flush=True)  # fmt: skip
        has_failed |= bool(findings)
    sys.exit(has_failed)
