"""Programs over the whole Python surface, decoded from a fuzzer's bytes.

Each byte is a choice. A step calls something with what the steps before have left:
arrays and parts of them, exports, iterators, lists, hostile objects. Every hook of a
hostile object makes a choice of its own when it is called: to be honest, to lie, to
raise, or to run another step in the midst of the call. Behind its last byte a program
chooses the first of everything, which leads nowhere.
"""

import array
import copy
import gc
import itertools
import math
import operator
import os
import pickle
import reprlib
import sys

import hillshade
import vellum
from exporter import Exporter

KINDS = [getattr(vellum, name) for name in vellum.__all__ if name.islower()]
FILLS = [(1, 2, 3), (0,), (True, False), (2.5, -0.0, math.nan), (1 + 2j, 3), (127, 128, -129),
         (255, 256), (300.5, -0.5), (2**31, 2**53 + 1, 2**63 - 1), (2**63, -(2**63) - 1), (2**70,),
         (1e39, -math.inf), (complex(math.nan, 1e300),)]  # fmt: skip
NUMBERS = [*itertools.chain(*FILLS)]
KEYS = [0, 1, -1, 2, -2, 3, -4, slice(None), slice(1, None), slice(None, None, -1), slice(0, 0),
        slice(None, -1), slice(None, None, 2), slice(-2, 9, 1), slice(3, 0, -2), 2**63]  # fmt: skip
STRANGE = [None, "ab", b"abcdefgh", {}, {"size": (2, 3)}, object, array.array("d", [1, 2]),
           memoryview(bytes(24)).cast("H", [2, 3, 2]), memoryview(bytes(8)).cast("q", []),
           memoryview(bytes(9)).cast("b", [3, 3])[::-1]]  # fmt: skip
ERRORS = [KeyError, IndexError, MemoryError, KeyboardInterrupt, TypeError, StopIteration]
EXPECTED = [*ERRORS, AttributeError, BufferError, NotImplementedError, OverflowError,
            RecursionError, RuntimeError, ValueError, vellum.ShapeError, vellum.SizeError,
            copy.Error, pickle.PicklingError]  # fmt: skip
# What an exporter says of its 48 bytes: what is false of it can be seen.
FIELDS = {"len": [48, 24, 0, -8, 2**23], "itemsize": [8, 1, 4, 16, 0, -8], "ndim": [1, 2, 0, 3, 65],
          "format": [b"d", b"Zd", b"f", b"", None, b"l"], "strides": [None, (24, 8), (8, 16)],
          "shape": [(6,), (2, 3), (3,), (2, 1, 3), None, (-2, -3), (2**62, 4)]}  # fmt: skip
TRACING = "VELLUM_FUZZ_TRACE" in os.environ


def method(name):
    return lambda target, *args: getattr(target, name)(*args)


def by_pickle(value):
    return pickle.loads(pickle.dumps(value))


COPIES = [method("clone"), copy.copy, copy.deepcopy, by_pickle]
FUNCTIONS = [operator.getitem, operator.delitem, operator.eq, operator.lt, operator.contains,
             list, repr, bool, hash, iter, next, next, bytes, reversed, memoryview, getattr,
             memoryview.release, list.clear, list.pop, list.append, hillshade.shade,
             hillshade.service_bytes, *COPIES, *map(method, vars(vellum.double))]  # fmt: skip


def hostile(base, *answers):
    def hook(answer):
        return lambda self, *args: self.program.intrude(answer, self.honest, *args)

    hooks = {f"__{answer.__name__}__": hook(answer) for answer in answers}
    no_copies = {"__reduce_ex__": None, "__reduce__": None}
    return type(f"hostile {base.__name__}", (base,), {**hooks, **no_copies, "__del__": hook(id)})


TO_NUMBERS = operator.index, int, float, bool, complex
SCALARS = [hostile(base, *TO_NUMBERS) for base in (object, int, float)]
SEQUENCES = [hostile(base, len, operator.getitem, iter) for base in (object, list)]


class Program:
    def __init__(self, data):
        self.choices = iter(data)
        self.depth = 0
        self.is_collecting = False
        self.findings = []
        self.forget()

    def forget(self):
        self.wholes = [kind(vector=range(6), size=(2, 3)) for kind in KINDS[:4]]
        self.arrays = [*self.wholes]
        self.others = [None]

    def run(self):
        for choice in self.choices:
            STEPS[choice % len(STEPS)](self)
        for whole in self.wholes:
            check(whole)
        for found in self.arrays:
            self.attempt(str, found)

    def choose(self, options):
        return options[next(self.choices, 0) % len(options)]

    def attempt(self, function, *args, **options):
        if TRACING:
            print("    " * self.depth, reprlib.repr([function, args, options]), flush=True)
        try:
            if self.is_collecting:
                self.ask_for_collection()
            result = function(*args, **options)
            gc.disable()
            self.remember(result, function in (*KINDS, *COPIES, hillshade.wrap))
            return result
        except BaseException as error:
            gc.disable()
            self.heed(error)

    def remember(self, result, is_whole):
        if type(result) not in KINDS:
            self.others = [*self.others[-7:], result]
        elif math.prod(max(length, 1) for length in memoryview(result).shape) > 200:
            self.forget()  # without elements an array can be too long to walk
        elif is_whole:
            self.wholes = [*self.wholes[-7:], result]

    def heed(self, error):
        if type(error) not in EXPECTED:
            self.findings.append(error)

    # --- Hostilities ---

    def hostile(self, classes, honest):
        base = self.choose(classes)
        made = base() if base.__base__ is object else base(honest)
        made.program, made.honest = self, honest
        return made

    def intrude(self, answer, *args):
        conduct = self.choose(["answer", "step", "answer", "lie", "answer", "raise"])
        if conduct == "raise":
            raise self.choose(ERRORS)
        if conduct == "step":
            self.step_inside()
        return self.value() if conduct == "lie" else answer(*args)

    def step_inside(self):
        if self.depth < 3:
            self.depth += 1
            self.choose(STEPS)(self)
            self.depth -= 1

    def ask_for_collection(self):
        """It runs in the midst of what is called next, and finds a hostile object."""
        gc.collect()  # leaves no freed tuples and lists, whose use would not count
        cycle = [self.hostile(SCALARS, 1)]
        cycle.append(cycle)
        gc.set_threshold(self.choose(range(2, 10)))
        gc.enable()

    def exporter(self):
        """For the constructors alone: Python itself believes what an exporter says."""
        fields = {name: self.choose(choices) for name, choices in FIELDS.items()}
        if fields["shape"] is None:
            fields["len"] = min(fields["len"], 48)  # nothing else says how much there is
        for name in ("shape", "strides"):
            fields[name] = fields[name] and fields[name] + (1,) * 64
        return Exporter(**fields)

    # --- Values ---

    def value(self):
        return self.choose(VALUES)(self)

    def key(self):
        members = [self.value() for _ in range(self.choose([0, 0, 0, 1, 3]))]
        return slice(*members) if len(members) == 3 else self.choose([*KEYS, *members])

    def part(self):
        part = self.choose(self.arrays)
        for _ in range(self.choose([0, 1, 0, 2, 1, 3])):
            found = self.attempt(operator.getitem, part, self.key())
            part = found if type(found) in KINDS else part
        return part

    def dims(self):
        return [self.choose([2, 1, 3, 0, 2]) for _ in range(self.choose([2, 1, 2, 3, 2, 4, 0]))]

    def nested(self, dims):
        return self.nest(dims, itertools.cycle(self.choose(FILLS)))

    def nest(self, dims, values):
        if not dims:
            return next(values)
        items = [self.nest(dims[1:], values) for _ in range(dims[0])]
        self.others = [*self.others[-7:], items]
        spoil = self.choose(range(16))
        if spoil >= 10 and items:
            items[spoil % len(items)] = self.value()
        if spoil >= 8:
            return self.hostile(SEQUENCES, items)
        return tuple(items) if spoil == 1 else items

    # --- Steps ---

    def put(self, result):
        if type(result) in KINDS:
            self.arrays[self.choose(range(4))] = result

    def construct(self):
        dims = self.dims()
        values = self.choose([lambda: self.nested(dims), lambda: self.nested([math.prod(dims)]),
                              self.value, self.exporter])()  # fmt: skip
        given = {self.choose(["initializer", "vector", "initializer", "order"]): values}
        for name, fitting in (("size", dims), ("is_complex", True), ("vector", [1, 2])):
            if self.choose([False, False, True]):
                given[name] = fitting if self.choose(range(6)) else self.value()
        if self.choose(range(6)) == 1:
            del given[self.choose(list(given))]
        forms = [((), given), (given.values(), {}), ((given,), {})]
        args, options = self.choose(forms)
        self.put(self.attempt(self.choose(KINDS), *args, **options))

    def wrap(self):
        dims, width = self.dims(), self.choose([8, 1, 2, 4, 16])
        content = bytes([7]) * (width * math.prod(dims))
        self.put(self.attempt(hillshade.wrap, self.choose(range(24)), dims, content))

    def assign(self):
        target, key = self.part(), self.key()
        dims = self.attempt(getattr, self.attempt(operator.getitem, target, key), "size") or ()
        values = self.choose([lambda: self.nested(dims), lambda: self.nested([math.prod(dims)]),
                              self.value])()  # fmt: skip
        self.attempt(operator.setitem, target, key, values)

    def reshape(self):
        target = self.choose(self.arrays)
        dims = list(self.attempt(getattr, target, "size") or ())
        count = math.prod(dims)
        dims = self.choose([dims[::-1], [count, 1], [1, count], [2, 1, count // 2], self.dims()])
        args = self.choose([dims, [dims], [self.hostile(SEQUENCES, dims)], [self.value()]])
        self.put(self.attempt(method("reshape"), target, *args))

    def call(self):
        first = self.choose([self.part, self.part, self.value])()
        others = self.choose([(), (self.key,), (self.part,), (self.value, self.value)])
        self.put(self.attempt(self.choose(FUNCTIONS), first, *[make() for make in others]))

    def collect(self):
        self.is_collecting = True
        self.step_inside()
        self.is_collecting = False


VALUES = [lambda program: program.choose(NUMBERS), lambda program: program.choose(STRANGE),
          lambda program: program.choose(program.others), Program.part,
          lambda program: program.nested(program.dims()),
          lambda program: program.hostile(SCALARS, program.choose([1, 0, 2, -1]))]  # fmt: skip
STEPS = [Program.call, Program.construct, Program.assign, Program.reshape, Program.assign,
         Program.call, Program.collect, Program.wrap, Program.call, Program.forget]  # fmt: skip


def check(whole):
    if not 0 < len(whole.size) <= 64:  # none without native code; more than an export has
        return
    view = memoryview(whole)
    assert whole.size == hillshade.service_dimensions(whole) == view.shape, view.shape
    assert whole.get_bytewise_strides() == view.strides, view.strides
    assert view.nbytes == math.prod(view.shape) * whole.itemsize, view.nbytes
    assert hillshade.service_bytes(whole) == view.tobytes("F"), whole
    assert whole._is_complex or str(whole) == str(view.tolist()).replace(" ", ""), whole
    if view.ndim > 1 and view.format != "?" and "nan" not in str(whole):
        assert type(whole)(view, is_complex=whole._is_complex) == whole, whole


def run(data):
    """Raises the first fault that the program finds."""
    program = Program(data)
    sys.excepthook = lambda kind, error, _: program.heed(error)
    sys.unraisablehook = lambda report: program.heed(report.exc_value)
    try:
        program.run()
        program.forget()
    finally:
        sys.excepthook = sys.__excepthook__
    if not next(RUNS) % 256:
        gc.collect()
    for error in program.findings:
        raise error


RUNS = itertools.count()
gc.disable()
gc.freeze()
