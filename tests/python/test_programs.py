"""Random programs run on the module and on the oracle, compared step by step.

VELLUM_PROGRAM_STEPS sets how many steps are run, VELLUM_PROGRAM_SEED the first
seed. A disagreement is reported with the program that leads to it.
"""

import array
import copy
import math
import operator
import os
import pickle
import random

import hillshade
import numpy
import oracle
import pytest
import vellummultidimarrayforpython as module
from helpers import Index

STEPS = int(os.environ.get("VELLUM_PROGRAM_STEPS", 30_000))
SEED = int(os.environ.get("VELLUM_PROGRAM_SEED", 1))
KINDS = list(oracle.FORMATS)
PROGRAM_LENGTH = 80
SLOTS = 6
NUMBERS = """True -1 2.5 -0.0 nan inf -inf 1+2j 3j 127 128 -129 255 256 300.5 65536 2**31 2**53+1
    2**63-1 2**63 -2**63 -2**63-1 2**64 1e39 -1e39 3.4028234663852886e38 16777217 1e300 -0.5
    complex(nan,1) complex(2,-inf) numpy.float64(1.9) Whole(3)""".split()
POWERS = [f"{sign}2**{bits}" for bits in (7, 8, 15, 16, 31, 32, 53, 63, 64) for sign in ("", "-")]
EDGES = [f"{power}{step:+}" for power in POWERS for step in range(-2, 3)]
EDGES += [f"numpy.nextafter({power}{step:+},{to}).item()"
          for power in POWERS for step in (-1, 0, 1) for to in ("-inf", "inf")]  # fmt: skip
EDGES += [f"complex(0,{edge})" for edge in EDGES] + [f"float({edge})" for edge in EDGES]
# Singles: the largest and what lies next to it, the least; halfway between two, and just not.
EDGES += """3.4028234663852888e38 1e-45 7e-46 2**24+1 2**60+2**36+1 1234567.5""".split()
REFUSED = ["None", "'ab'", "''", "{1}", "[1]", "b'ab'", "object()", "{}", "Index(1)", "[[1],2]"]
BUFFERS = """array.array('d',[1,2.5,nan]) array.array('f',[1.5,2]) array.array('d') b'abcd' b''
    memoryview(bytes(range(24))).cast('H',[2,3,2]) memoryview(bytes(range(8))).cast('q',[])
    memoryview(bytes(6)).cast('b',[1,6,1])""".split()
SHAPES = """5 () 2,-3 2.0,3 True,6 'ab',1 2**70,2 None 2**40,2**40 2**32,2**32 2,3,order=1
    Seq([2,3])""".split()
CALLS = """list({v}) list(reversed({v})) {v}=={w} {v}!={w} {v}=={v} {v}=={v}.clone() {v}<1 [1]=={v}
    ({n})in({v}) repr({v}) len({v}) bool({v}) {v}.clone() {v}.real() {v}.imag() {v}.noncomplex()
    {v}._data {v}._real {v}._imag {v}._size {v}.toarray() {v}.__reduce__() copy.copy({v})
    copy.deepcopy({v}) pickle.loads(pickle.dumps({v},{s})) service_bytes({v}) next(i[{o}])
    setitem(m,{o},memoryview({v})) setitem(m,{o},{v}.tomemoryview()) setitem(i,{o},iter({v}))
    next(i[{o}]) next(i[{o}])""".split()


class Seq:
    """A sequence that does something when its item is fetched for the n-th time."""

    def __init__(self, items, n=-1, action=None):
        self.items, self.left, self.action = items, n, action

    def __len__(self):
        if self.left == 0 and self.action is None:
            raise KeyError("length")
        return len(self.items)

    def __getitem__(self, i):
        self.left -= 1
        if self.left == 0 and self.action:
            self.action(self.items)
        return self.items[i]


class Whole(int):
    __index__ = __int__ = __float__ = None


def outcome(function):
    try:
        return function()
    except Exception as error:
        return type(error).__name__, *error.args[:1]


class World:
    """Where the lines of a program run: the names, and a pool of arrays, iterators and exports."""

    def __init__(self, source, **names):
        self.pool = [source.double([[1, 2, 3], [4, 5, 6]]) for _ in range(SLOTS)]
        self.names = {kind: getattr(source, kind) for kind in KINDS}
        self.array_types = tuple(self.names.values())
        self.names.update(
            a=self.pool, i=[iter(())] * 2, m=[b""] * 2, put=self.put, nan=math.nan, inf=math.inf,
            Seq=Seq, Index=Index, Whole=Whole, array=array, copy=copy, pickle=pickle, numpy=numpy,
            setitem=operator.setitem, delitem=operator.delitem, **names)  # fmt: skip

    def put(self, slot, value):
        if type(value) in self.array_types:
            size = outcome(lambda: value.size)
            if isinstance(size[0], str) or math.prod(size) <= 64 and len(size) <= 4:
                self.pool[slot] = value
        return value

    def run(self, line):
        return outcome(lambda: self.describe(eval(line, self.names)))

    def describe(self, value):
        if type(value) in self.array_types:
            export = self.describe(self.names["memoryview"](value))
            size, text = outcome(lambda: value.size), outcome(lambda: str(value))
            return type(value).__name__, value._is_complex, value.itemsize, size, text, export
        if isinstance(value, (list, tuple)):
            return type(value), [self.describe(item) for item in value]
        if isinstance(value, (memoryview, oracle.Export)):
            return value.format, value.shape, value.strides, value.readonly, value.tobytes("F")
        if hasattr(type(value), "__next__"):
            return "iterator"
        return value.__name__ if isinstance(value, type) else repr(value)


def service_elements(view):
    """The bytes of the service's array behind a view, in storage order."""
    rows = [view._real, view._imag] if view._is_complex else [view._data]
    return numpy.stack(rows, -1).tobytes()


def disagreements(real, expected, line):
    """The pairs in which the two sides differ after the step."""
    worlds = real, expected
    got, wanted = ([w.run(line), *map(w.describe, w.pool + w.names["m"])] for w in worlds)
    got += map(service_elements, real.pool)
    wanted += [twin._record.tobytes() for twin in expected.pool]
    return [pair for pair in zip(got, wanted) if pair[0] != pair[1]]


class Generator:
    """Lines that mostly make sense for the arrays that there are, and often just don't."""

    def __init__(self, seed, world):
        self.random, self.pool, self.last = random.Random(seed), world.pool, 0
        self.names = {**world.names, "Index": lambda value, action=None: value}
        self.chance = lambda p: self.random.random() < p
        self.pick = self.random.choice

    def evaluate(self, expression, otherwise):
        try:
            return eval(expression, self.names)
        except Exception:
            return otherwise

    def slot(self):
        return self.random.randrange(SLOTS)

    def number(self):
        if self.chance(0.02):
            return self.pick(REFUSED)
        return self.pick(NUMBERS) if self.chance(0.1) else str(self.random.randrange(10))

    def dims(self):
        return self.random.choices([0, 1, 1, 2, 2, 2, 3, 3, 4], k=self.pick([1, 2, 2, 3, 3, 3, 4]))

    def nested(self, dims):
        if self.chance(0.015):
            dims = self.dims()
        if not dims:
            return self.number()
        if len(dims) > 1 and self.chance(0.03):
            return self.pick(["Seq({})", "{}"]).format(self.view())
        items = ",".join(self.nested(dims[1:]) for _ in range(dims[0]))
        if self.chance(0.04):
            act = self.pick([self.reshape(), self.reshape(), "x.clear()", "x.pop()", "1/0"])
            act = f"{self.random.randrange(1, 9)},lambda x: {act}"
            return f"Seq([{items}],{self.pick(['0', act])})"
        return f"({items},)" if dims[0] and self.chance(0.1) else f"[{items}]"

    def reshape(self, target=None):
        """A shape for as many elements as the array in the slot has, mostly."""
        slot = self.pick([self.slot(), self.last])
        left, dims = len(self.pool[slot]._record.values), []
        while left > 1 and len(dims) < 3:
            dims.append(self.pick([d for d in range(1, left + 1) if left % d == 0]))
            left //= dims[-1]
        dims += [left] + [1] * (not dims or self.chance(0.2))
        self.random.shuffle(dims)
        shape = self.pick(["{}", "({})", "[{}]"]).format(",".join(map(str, dims)))
        shape = self.pick(SHAPES) if self.chance(0.1) else shape
        return f"{target or f'a[{slot}]'}.reshape({shape})"

    def key(self, length):
        if self.chance(0.02):
            return self.pick(["2**70", "(0,1)", "None", "1.0", "...", "Index(0)", "True"])
        if self.chance(0.6):
            fits = length and not self.chance(0.1)
            return str(self.random.randrange(*((-length, length) if fits else (-5, 6))))
        bounds = ["None"] * 5 + [*range(-4, 6)]
        steps = ["None"] * 5 + [1, 1, -1, -1, -1, 2, -2, 3, 2**62, -(2**63)]
        members = [*map(self.pick, (bounds, bounds, steps))]
        if self.chance(0.1):
            foreign = ["0", "'x'", "2**70", "-2**70", "Index(1)", "Index(-1,lambda: 1/0)", "1.5",
                       f"Index(1,lambda: {self.reshape()})"]  # fmt: skip
            members[self.random.randrange(3)] = self.pick(foreign)
        return "slice({},{},{})".format(*members)

    def view(self):
        self.last = self.slot()
        line = f"a[{self.last}]"
        for _ in range(self.pick([0, 0, 0, 1, 1, 2, 3])):
            line += f"[{self.key(self.evaluate(f'min(len({line}),5)', 3))}]"
        return line

    def construct(self):
        kind, dims = self.pick(KINDS), self.dims()
        count, alike = math.prod(dims), [f"memoryview({kind}([[1,2],[3,4]]))"] * 6
        code = oracle.FORMATS[kind].replace("?", "B")
        code = self.pick([code, code.replace("q", "l").replace("Q", "L"), *"bBhHiIlLqQfd?"])
        rows = f"numpy.arange({count}).astype('{code}').reshape({dims},order='{self.pick('CF')}')"
        alike += [f"memoryview({rows})"] * 20
        given = [*BUFFERS, *alike, "m[0]", "m[1]", f"memoryview(a[{self.slot()}])", "range(3)"]
        flat = self.nested([count])
        values = [self.nested(dims)] * 6 + [flat, f"vector={flat}", f"vector={flat}", "", ""]
        values = self.pick([*values, self.pick([*given, self.number()]), self.view()])
        options = [values] * bool(values)
        if self.chance(0.3 if values else 0.9):
            size = self.pick([dims, dims, dims + [1], self.dims(), [count], [count, 1]])
            options.append(f"size={size}")
        if kind != "logical" and self.chance(0.35):
            options.append("is_complex=True")
        return f"{kind}({','.join(options)})"

    def assignment(self):
        target = self.view()
        size = [min(n, 5) for n in self.evaluate(f"{target}.size", [3])]
        key, dims = self.key(size[0]), size[1:]
        if self.chance(0.04):
            return f"delitem({target},{key})"
        if key.startswith("slice"):
            dims.insert(0, self.evaluate(f"len(range({size[0]})[{key}])", 2))
            if len(size) > 1 and self.chance(0.5):
                dims = [math.prod(dims)]
            dims[0] += self.pick([-(dims[0] > 0), 1]) if self.chance(0.1) else 0
        value = self.view() if self.chance(0.1) else self.nested(dims)
        return f"setitem({target},{key},{value})"

    def line(self):
        step = self.random.randrange(100)
        if 22 <= step < 50:
            return self.assignment()
        if 62 <= step < 70:
            return self.reshape(self.pick([None, None, self.view()]))
        call = "{v}" if step >= 50 and step < 62 else self.pick(CALLS)
        slot, other = self.slot(), self.pick([0, 1])
        call = call.format(v=self.view(), w=self.view(), n=self.number(), s=slot, o=other)
        return f"put({slot},{self.construct() if step < 22 else call})"


def worlds():
    real = World(module, service_bytes=hillshade.service_bytes, memoryview=memoryview)
    return real, World(oracle, service_bytes=oracle.service_bytes, memoryview=oracle.export)


def test_programs_agree_with_the_oracle():
    for seed in range(SEED, SEED + max(1, STEPS // PROGRAM_LENGTH)):
        real, expected = worlds()
        generator = Generator(seed, expected)
        lines = []
        for _ in range(PROGRAM_LENGTH):
            lines.append(generator.line())
            found = disagreements(real, expected, lines[-1])
            program = "\n".join(lines)
            assert not found, f"seed {seed}\n{program}\n\nmodule, oracle: {found}"


@pytest.mark.parametrize("option", ["", ",is_complex=True"])
@pytest.mark.parametrize("kind", KINDS)
def test_numbers_up_to_each_limit(kind, option):
    if kind == "logical" and option:
        return
    real, expected = worlds()
    for number in NUMBERS + EDGES:
        values = number, f"[[{number}]]", f"vector=[{number}]", "size=(1,1)"
        lines = [f"put(0,{kind}({value}{option}))" for value in values]
        lines += [f"setitem(a[0][0],0,{number})", "a[0]", "a[0]==a[1]", "a[1]!=a[0]", "a[0]==a[2]"]
        # What the next number, and its real or complex twin, are compared with.
        lines += ["put(2,a[0])", f"put(1,{kind}([[{number}]]))"]
        for line in lines:
            assert real.run(line) == expected.run(line), line
