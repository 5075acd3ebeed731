"""Random programs run on the module and on the oracle, compared step by step.

VELLUM_PROGRAM_STEPS sets how many steps are run, VELLUM_PROGRAM_SEED the first
seed. A disagreement is reported as a program that can be pasted, cut down to
the steps that it needs.
"""

import array
import contextlib
import copy
import io
import math
import operator
import os
import pickle
import random

import hillshade
import oracle
import pytest
import vellummultidimarrayforpython as module

STEPS = int(os.environ.get("VELLUM_PROGRAM_STEPS", 30_000))
SEED = int(os.environ.get("VELLUM_PROGRAM_SEED", 1))
KINDS = list(oracle.FORMATS)
PROGRAM_LENGTH = 80
SLOTS = 6
NUMBERS = """True -1 2.5 -0.0 nan inf -inf 1+2j 3j 127 128 -129 255 256 300.5 65536 2**31 2**53+1
    2**63-1 2**63 -2**63 -2**63-1 2**64 1e39 -1e39 3.4028234663852886e38 16777217 1e300 -0.5
    complex(nan,1) complex(2,-inf)""".split()
REFUSED = ["None", "'ab'", "''", "{1}", "[1]", "b'ab'", "object()", "{}", "Index(1)", "[[1],2]"]
BUFFERS = """array.array('d',[1,2.5,nan]) array.array('f',[1.5,2]) array.array('l',[1,2])
    array.array('i',[3]) array.array('L',[4]) array.array('d') b'abcd' bytearray(b'ab') b''
    memoryview(bytes(range(24))).cast('d',[3]) memoryview(bytes(range(24))).cast('H',[2,3,2])
    memoryview(bytes(range(24))).cast('B',[4,6]) memoryview(bytes(range(8))).cast('q',[])
    memoryview(b'abcd')[::2] memoryview(b'ab').cast('?') released memoryview(bytes(6)).cast('b',[1,6,1])
    array.array('u','ab') memoryview(bytes(range(16))).cast('@Q')""".split()


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


class Index:
    def __init__(self, value, action=None):
        self.value, self.action = value, action

    def __index__(self):
        if self.action:
            self.action()
        return self.value


class World:
    """Where the lines of a program run: the names, and a pool of arrays, iterators and exports."""

    def __init__(self, source, service_bytes, view):
        released = memoryview(b"abc")
        released.release()
        self.array_types = tuple(getattr(source, kind) for kind in KINDS)
        self.pool = [source.double([[1, 2, 3], [4, 5, 6]]) for _ in range(SLOTS)]
        self.names = {kind: getattr(source, kind) for kind in KINDS}
        self.names.update(
            a=self.pool, i=[iter(())] * 2, m=[b""] * 2, put=self.put, keep=self.keep, nan=math.nan,
            inf=math.inf, Seq=Seq, Index=Index, array=array, copy=copy, pickle=pickle, Dict=dict,
            setitem=operator.setitem, delitem=operator.delitem, service_bytes=service_bytes,
            memoryview=view, released=released,
        )  # fmt: skip

    def put(self, slot, value):
        if type(value) in self.array_types:
            try:
                if math.prod(value.size) <= 64 and len(value.size) <= 4:
                    self.pool[slot] = value
            except (IndexError, RuntimeError):
                self.pool[slot] = value
        return value

    @staticmethod
    def keep(where, slot, value):
        where[slot] = value
        return value

    def outcome(self, line):
        try:
            with contextlib.redirect_stderr(io.StringIO()):
                return self.describe(eval(line, self.names))
        except Exception as error:
            return type(error).__name__, error.args[0] if error.args else ""

    def describe(self, value):
        if type(value) in self.array_types:
            return self.state(value)
        if isinstance(value, (list, tuple)):
            return type(value).__name__, [self.describe(item) for item in value]
        if isinstance(value, (memoryview, oracle.Export)):
            return (value.format, value.itemsize, value.shape, value.strides, value.readonly,
                    value.nbytes, value.tobytes(order="F"))  # fmt: skip
        if type(value).__name__ in ("VellumPyIter", "Iterator", "reversed"):
            return "iterator"
        return getattr(value, "__name__", type(value).__name__), repr(value) * (type(value) != type)

    def state(self, view):
        def shown(function):
            try:
                return function(view)
            except Exception as error:
                return type(error).__name__, error.args[0] if error.args else ""

        known = getattr(view, "_known", None)  # the oracle's own, and only until its next change
        if known and known[0] == view._record.version:
            return known[1]
        size, text = shown(lambda v: v.size), shown(str)
        export = self.names["memoryview"](view)
        elements = export.tobytes(order="F")
        state = (type(view).__name__.replace("vellum.", ""), view._is_complex, view.itemsize, size,
                 text, export.shape, export.strides, elements)  # fmt: skip
        if type(view).__module__ == "oracle":
            view._known = view._record.version, state
        return state


def worlds():
    def view(value):
        return oracle.Export(value._record) if isinstance(value, oracle.Array) else memoryview(value)

    return (
        World(module, hillshade.service_bytes, memoryview),
        World(oracle, oracle.service_bytes, view),
    )


def same(real, expected):
    if isinstance(expected, tuple) and isinstance(real, tuple) and len(real) == len(expected):
        return all(e is oracle.ANY or same(r, e) for r, e in zip(real, expected))
    if isinstance(expected, list) and isinstance(real, list) and len(real) == len(expected):
        return all(same(r, e) for r, e in zip(real, expected))
    return real == expected


def service_elements(view, expected):
    """The bytes of the service's array behind a view, in storage order."""
    if not expected._indices and expected._slice is None:
        return hillshade.service_bytes(view)
    rows = [view._real, view._imag] if view._is_complex else [view._data]
    rows = [memoryview(row).tobytes() for row in rows]
    width = view.itemsize // len(rows)
    parts = range(0, len(rows[0]), width)
    return b"".join(row[at : at + width] for at in parts for row in rows)


def disagreement(real, expected, line):
    """What the step does differently on both sides, or nothing."""
    got, wanted = real.outcome(line), expected.outcome(line)
    if not same(got, wanted):
        return f"{line}\n  module: {got}\n  oracle: {wanted}"
    for slot, (x, y) in enumerate(zip(real.pool, expected.pool)):
        got, wanted = (*real.state(x), service_elements(x, y)), (*expected.state(y), y._known[1][-1])
        if not same(got, wanted):
            return f"after {line}: a[{slot}]\n  module: {got}\n  oracle: {wanted}"
    for slot, (x, y) in enumerate(zip(real.names["m"], expected.names["m"])):
        got, wanted = real.describe(x), expected.describe(y)
        if not same(got, wanted):
            return f"after {line}: m[{slot}]\n  module: {got}\n  oracle: {wanted}"
    return None


def attempt(function, otherwise=None):
    try:
        return function()
    except Exception:
        return otherwise


class Generator:
    """Lines that mostly make sense for the arrays that there are, and often just don't."""

    def __init__(self, seed, pool):
        self.random, self.pool = random.Random(seed), pool
        self.chance = lambda p: self.random.random() < p
        self.pick = self.random.choice

    def number(self):
        if self.chance(0.02):
            return self.pick(REFUSED)
        return self.pick(NUMBERS) if self.chance(0.1) else str(self.random.randrange(10))

    def dims(self):
        lengths = [0, 1, 1, 2, 2, 2, 3, 3, 4]
        return [self.pick(lengths) for _ in range(self.pick([1, 2, 2, 2, 3, 3, 4]))]

    def action(self):
        slot = self.random.randrange(SLOTS)
        act = self.pick([f"a[{slot}].reshape({self.new_dims(slot)})", "x.clear()", "x.pop()", "1/0"])
        return f"{self.random.randrange(1, 9)},lambda x: {act}"

    def nested(self, dims):
        if self.chance(0.015):
            dims = self.dims()
        if not dims:
            return self.number()
        if len(dims) > 1 and self.chance(0.03):
            return self.pick([f"Seq({self.view()})", self.view(), f"m[{self.pick([0, 1])}]"])
        items = ",".join(self.nested(dims[1:]) for _ in range(dims[0]))
        if self.chance(0.04):
            return f"Seq([{items}],{self.pick([self.action, lambda: '0'])()})"
        if dims[0] and self.chance(0.1):
            return f"({items},)"
        return f"[{items}]"

    def new_dims(self, slot):
        """A shape for as many elements as the array in the slot has, mostly."""
        left = len(self.pool[slot]._record.values)
        if self.chance(0.1):
            return self.pick(["5", "()", "2,-3", "2.0,3", "True,6", "'ab',1", "2**70,2", "None",
                              "2**40,2**40", "2**32,2**32", "2,3,order=1", "Seq([2,3])"])  # fmt: skip
        dims = []
        while left > 1 and len(dims) < 3:
            dims.append(self.pick([d for d in range(1, left + 1) if left % d == 0]))
            left //= dims[-1]
        dims += [left] + [1] * (not dims or self.chance(0.2))
        self.random.shuffle(dims)
        return self.pick(["{}", "({})", "[{}]"]).format(",".join(map(str, dims)))

    def key(self, length):
        if self.chance(0.02):
            return self.pick(["2**70", "(0,1)", "None", "1.0", "...", "Index(0)", "True"])
        if self.chance(0.6):
            if length and not self.chance(0.1):
                return str(self.random.randrange(-length, length))
            return str(self.random.randrange(-5, 6))
        members = [self.pick(["None"] * 5 + list(range(-4, 6))), self.pick(["None"] * 5 + list(range(-4, 6))),
                   self.pick(["None"] * 4 + [1, -1, -1, 2, -2, 3])]  # fmt: skip
        if self.chance(0.1):
            slot = self.random.randrange(SLOTS)
            foreign = ["0", "'x'", "2**70", "-2**70", "Index(1)", "Index(-1,lambda: 1/0)", "1.5",
                       f"Index(1,lambda: a[{slot}].reshape({self.new_dims(slot)}))"]  # fmt: skip
            members[self.random.randrange(3)] = self.pick(foreign)
        return "slice({},{},{})".format(*members)

    def view(self):
        slot = self.random.randrange(SLOTS)
        line, node = f"a[{slot}]", self.pool[slot]
        for _ in range(self.pick([0, 0, 0, 1, 1, 2, 3])):
            key = self.key(attempt(lambda: min(len(node), 5), 3))
            node = attempt(lambda: node[eval(key, {"Index": lambda value, action=None: value})])
            line += f"[{key}]"
        return line

    def construct(self):
        kind, dims = self.pick(KINDS), self.dims()
        options = ["is_complex=True"] * self.chance(0.35 if kind != "logical" else 0.03)
        road = self.random.randrange(12)
        if self.chance(0.02):
            options.append(self.pick(["is_complex=1", "no_such_key=1", "size=5", "size=()", "size='ab'",
                                      "vector=5", "vector=[[1]]", "size=(2**70,1)", "size=(-1,2)",
                                      "size=(0,2**62)", "size=(2**33,2**33)", "size=(2.0,)"]))  # fmt: skip
        elif road < 2 or self.chance(0.2):
            given = self.pick([dims, dims + [1], self.dims(), [math.prod(dims)], [math.prod(dims), 1]])
            options.append(f"size={given}")
        if 2 <= road < 4:
            options.append(f"vector={self.nested([math.prod(dims)])}")
        elif road == 4:
            options.insert(0, self.pick(["a[0]", "m[0]", "m[1]", self.view(), "range(3)", self.number()]))
        elif road == 5:
            code = self.pick(["array.array('{1}',[1,2,3])", "memoryview({0}([[1,2],[3,4]]))"])
            alike = code.format(kind, oracle.FORMATS[kind].replace("?", "B"))
            options.insert(0, self.pick(BUFFERS + [alike] * 8))
        elif road >= 6 and not (road == 6 and self.chance(0.1)):
            options.insert(0, self.nested(dims))
        if self.chance(0.05) and all("=" in option for option in options[1:]):
            first = [o for o in options if "=" not in o or "lambda" in o]
            return f"{kind}({','.join(['Dict(' + ','.join(o for o in options if o not in first) + ')', *first])})"
        names = dict.fromkeys(option.split("=")[0] for option in options)
        return f"{kind}({','.join(options)})" if len(names) == len(options) else f"{kind}()"

    def assignment(self, evaluate):
        target = self.view()
        size = evaluate(f"{target}.size")
        size = [min(n, 5) for n in size or []]
        key = self.key(size[0] if size else 3)
        if self.chance(0.04):
            return f"delitem({target},{key})"
        dims = size[1:]
        if key.startswith("slice"):
            picked = evaluate(f"len(range({size[0] if size else 3})[{key}])") if "Index" not in key else ""
            dims = [picked or self.random.randrange(3), *dims]
            if len(size) > 1 and self.chance(0.5):
                dims = [math.prod(dims)]
            if self.chance(0.1):
                dims = [max(0, dims[0] + self.pick([-1, 1])), *dims[1:]]
        value = self.view() if self.chance(0.1) else self.nested(dims)
        return f"setitem({target},{key},{value})"

    def line(self, evaluate):
        slot, view = self.random.randrange(SLOTS), self.view()
        step = self.random.randrange(100)
        if step < 22:
            return f"put({slot},{self.construct()})"
        if step < 50:
            return self.assignment(evaluate)
        if step < 62:
            return f"put({slot},{view})"
        if step < 70:
            return f"{self.pick([f'a[{slot}]', view])}.reshape({self.new_dims(slot)})"
        other = self.pick([0, 1])
        return self.pick([
            f"keep(i,{other},iter({view}))", *[f"put({slot},next(i[{other}]))"] * 3, f"list({view})",
            f"list(reversed({view}))", f"{view} == {self.view()}", f"{view} != {self.view()}",
            f"{view} == {view}", f"{view} < 1", f"[1] == {view}", f"{self.number()} in {view}",
            f"repr({view})", f"put({slot},{view}.clone())", f"put({slot},{view}.real())",
            f"put({slot},{view}.imag())", f"put({slot},{view}.noncomplex())", f"{view}._data",
            f"put({slot},copy.copy({view}))", f"put({slot},copy.deepcopy({view}))",
            f"put({slot},pickle.loads(pickle.dumps({view},{slot})))", f"{view}.__reduce__()",
            f"{view}.toarray()", f"keep(m,{other},memoryview({view}))", f"{view}._size",
            f"keep(m,{other},{view}.tomemoryview())", f"service_bytes({view})", f"len({view})",
            f"{view}.get_bytewise_strides()", f"{view}.buffer_info()[1]", f"bool({view})",
            f"{view} == {view}.clone()", f"{view}._real", f"{view}._imag",
        ])  # fmt: skip


def generate(seed, length=PROGRAM_LENGTH):
    """Runs one new program; returns its lines and the first disagreement."""
    real, expected = worlds()
    generator = Generator(seed, expected.pool)
    quiet = dict(expected.names, Index=lambda value, action=None: value)
    lines = []

    def evaluate(expression):
        return attempt(lambda: eval(expression, quiet))

    for _ in range(length):
        lines.append(generator.line(evaluate))
        found = disagreement(real, expected, lines[-1])
        if found:
            return lines, found
    return lines, None


def replay(lines):
    real, expected = worlds()
    return next(filter(None, (disagreement(real, expected, line) for line in lines)), None)


def shrink(lines):
    for k in reversed(range(len(lines) - 1)):
        shorter = lines[:k] + lines[k + 1 :]
        if replay(shorter):
            lines = shorter
    return lines


def test_programs_agree_with_the_oracle():
    for seed in range(SEED, SEED + max(1, STEPS // PROGRAM_LENGTH)):
        lines, found = generate(seed)
        if found:
            lines = shrink(lines)
            program = "\n".join(lines)
            pytest.fail(f"seed {seed}\n{program}\n\n{replay(lines) or found}", pytrace=False)
