"""From the arguments of a class to shape, order and values of the array."""

import array
import contextlib
import copy
import functools
import gc
import itertools
import math
import pickle
import sys

import numpy
import pytest
from hypothesis import given
from hypothesis import strategies as st

import vellum
from vellum import ShapeError, SizeError, double, int8, logical

BOTH = "initializer and 'vector' must not both be specified."
THIRD = (
    "more than two positional arguments must not be specified. A third will be treated as"
    " 'vector', which must not be specified when an initializer is specified."
)
NOT_BOOL = "value passed to 'is_complex' must be a bool."
NOT_TEXT = "value passed to initializer must be numeric."
UNLIKE = "elements of array are of different lengths or types."
RAGGED = "arrays must be rectangular."
UNNESTED = "value of 'vector' must be an unnested sequence."
NO_VECTOR = "value of 'vector' must be a sequence."
NOT_INTEGERS = "dimensions must be nonnegative integers."
NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."
NO_NUMBER = "type does not match."


def storage(a):
    """The elements as they stand in memory: first dimension fastest."""
    code = a.tomemoryview().format
    values = array.array(code[-1].replace("?", "B"), a.tomemoryview().tobytes(order="A")).tolist()
    return [complex(*pair) for pair in zip(values[::2], values[1::2])] if "Z" in code else values


def mismatch(found, given):
    text = "dimensions of initializer ({}) do not match dimensions specified by 'size' ({})."
    return text.format(found, given)


def args(*args, **kwargs):
    return args, kwargs


def make(call):
    # Not `**{}`: keywords that are there and empty are keywords to some interpreters.
    return double(*call[0], **call[1]) if call[1] else double(*call[0])


ACCEPTED = [
    *[(args(*a), (0, 0), []) for a in [(), (None,), (None, None, None), ({},), ([],), ((), None)]],
    (args(size=None, vector=None, is_complex=False), (0, 0), []),
    (args({"is_complex": True}, [1.0, 2.0]), (1, 2), [1 + 0j, 2 + 0j]),
    (args(None, None, [3, 4]), (1, 2), [3.0, 4.0]),
    (args(None, None, None, True), (0, 0), []),
    (args(5), (1, 1), [5.0]),
    (args(True, (1, 1)), (1, 1), [1.0]),
    (args(numpy.float64(5.5)), (1, 1), [5.5]),
    (args(range(3)), (1, 3), [0.0, 1.0, 2.0]),
    (args([7], size=(1,)), (1, 1), [7.0]),
    (args([b"ab"]), (1, 2), [97.0, 98.0]),
    (args([1, 2, 3, 4], (2, 2)), (2, 2), [1.0, 2.0, 3.0, 4.0]),
    (args(vector=double([1, 2])[0]), (1, 2), [1.0, 2.0]),
    (args(vector=b"ab"), (1, 2), [97.0, 98.0]),
    (args(vector=[]), (1, 0), []),
    (args([int8([1, 2]), ((3, 4),)]), (2, 1, 2), [1.0, 3.0, 2.0, 4.0]),
    (args(size=(True, 3)), (1, 3), [0.0] * 3),
    (args(size=range(2, 4)), (2, 3), [0.0] * 6),
    (args(size=b"\2\1\1"), (2, 1), [0.0] * 2),
    (args(size=(0, 2**62)), (0, 2**62), []),
]


@pytest.mark.parametrize("call, size, elements", ACCEPTED)
def test_accepted(call, size, elements):
    a = make(call)
    assert (a.size, storage(a)) == (size, elements)


itself = []
itself.append(itself)
# In the order of the checks: each call has all the faults of the calls below it that it can have.
REFUSED = [
    (args(5, 5, 5, 5, 5), TypeError, None),
    (args([1], initializer=[1]), TypeError, None),
    (args({"no_such_key": 1}), TypeError, None),
    (args("a", 5, 5, 1), TypeError, NOT_BOOL),
    (args("a", 5, is_complex=None), TypeError, NOT_BOOL),
    (args("a", 5, 5), TypeError, THIRD),
    (args("a", 5, vector=5), TypeError, BOTH),
    (args({"vector": 5}, "a", 5), TypeError, BOTH),
    (args("a", 5), TypeError, "value of 'size' must be a sequence."),
    (args("a", {}), TypeError, "value of 'size' must be a sequence."),
    (args("a", ""), ValueError, "sequence passed to 'size' must not be empty."),
    (args("a", "ab"), TypeError, NOT_INTEGERS),
    (args("a", (2.0, -1)), TypeError, NOT_INTEGERS),
    (args("a", (-1, 2.0)), ValueError, NEGATIVE),
    (args("a", (2**70, 3)), ValueError, NEGATIVE),
    (args("a", (2, 2)), ValueError, NOT_TEXT),
    (args(["ab", [1]]), ValueError, UNLIKE),  # a text is a sequence of its length
    (args(["a", [1]]), ValueError, NOT_TEXT),
    (args(vector=5), ValueError, NO_VECTOR),
    (args(vector={1: 2}), ValueError, NO_VECTOR),
    (args(vector="abc", size=(2, 2)), ValueError, "value passed to 'vector' must be numeric."),
    (args(vector=["a"], size=(2, 2)), ShapeError, mismatch("1", "2, 2")),
    (args(vector=["a"]), TypeError, UNNESTED),
    (args(vector=[1, [2]]), TypeError, UNNESTED),
    (args(vector=double([1, 2])), TypeError, UNNESTED),
    (args(vector=[2**64]), ValueError, "Python int too large to convert to C long long"),
    (args({}, size=(1, 1)), TypeError, NO_NUMBER),
    (args(x for x in [1]), TypeError, NO_NUMBER),
    (args([None], (2, 2)), TypeError, "value must not be 'None'."),
    (args([1, [2]]), ValueError, UNLIKE),
    (args([[1], 2]), ValueError, UNLIKE),
    (args([[None], [1, 2]]), ValueError, UNLIKE),
    (args([[[1, 2]], [[3]]]), ValueError, RAGGED),
    (args([[[1]], [2]]), ValueError, RAGGED),
    (args([[[]], [[1]]]), ValueError, RAGGED),
    (args([[[1]], [[]]]), ValueError, RAGGED),
    (args(5, (2, 2)), ShapeError, mismatch("1, 1", "2, 2")),
    (args(functools.reduce(lambda inner, _: [inner], range(10**5), 1)), RecursionError, None),
    (args(itself), RecursionError, None),
    (args(double(size=(1,) * 10**5 + (2,))), RecursionError, None),
]


@pytest.mark.parametrize("size, count", [
    ((2**32, 2**32), 2**64 - 1), ((2**63 - 1, 2), 2**64 - 2), ((2**60,), 2**60), ((2**62, 0), 0),
    ((2**40, 2**40, 0), 0),
])  # fmt: skip
def test_no_memory(size, count):
    for is_complex in (False, True):
        with pytest.raises(MemoryError) as caught:
            double(size=size, is_complex=is_complex)
        text = "unable to allocate memory for array with number of elements = "
        assert str(caught.value) == f"{text}{count}; type = double"


def finished(dims):
    dims = {0: (1, 1), 1: (min(1, dims[0]), dims[0]) if dims else ()}.get(len(dims), tuple(dims))
    while len(dims) > 2 and dims[-1] == 1:
        dims = dims[:-1]
    return dims


def first_fastest(dims):
    return [i[::-1] for i in itertools.product(*map(range, dims[::-1]))]


def nest(dims, elements, make=list):
    """Nested sequences of shape dims around an iterator in reading order."""
    return make(nest(dims[1:], elements, make) for _ in range(dims[0])) if dims else next(elements)


class Foreign:
    """A sequence with neither buffer nor iterator of its own."""

    def __init__(self, items):
        self.items = list(items)

    def __len__(self):
        return len(self.items)

    def __getitem__(self, i):
        return self.items[i]


dims_lists = st.lists(st.integers(0, 4), min_size=1, max_size=5)


@given(dims_lists, st.sampled_from(["double", "int16", "logical"]), st.booleans())
def test_all_forms_of_the_same_data_agree(dims, kind, is_complex):
    cls, is_complex = getattr(vellum, kind), is_complex and kind != "logical"
    count = math.prod(dims)
    code = {"double": "d", "int16": "h", "logical": "B"}[kind]
    rows = (numpy.arange(count) % (2 if kind == "logical" else 999)).astype(code).reshape(dims)
    expected = [rows[i].item() for i in first_fastest(dims)]
    forms = [nest(dims, iter(rows.flat), make) for make in (list, tuple, Foreign)
             if rows.size] if code == "d" else []  # fmt: skip
    forms += [rows.tolist(), cls(rows.tolist())]
    # A shape that ends in a 0 leaves no trace of the dimensions behind its first 0 in a list.
    cut = dims if count else dims[: dims.index(0) + 1]
    for form in forms:
        a = cls(form, is_complex=is_complex)
        assert (a.size, storage(a)) == (finished(cut), expected) and a._is_complex is is_complex
    if not is_complex:
        for exporter in (rows, numpy.asfortranarray(rows)):
            a = cls(exporter)
            assert (a.size, storage(a)) == (finished(dims), expected)


@given(dims_lists, dims_lists, st.booleans(), st.sampled_from([list, Foreign, "d", None, "vector"]))
def test_size_against_data(size, dims, same, flat):
    dims = size if same else dims
    if flat is not None:
        dims = [math.prod(dims)]
    elif 0 in dims:
        dims = dims[: dims.index(0) + 1]
    values = [float(i) for i in range(math.prod(dims))]
    data = nest(dims, iter(values))
    given = (1, *size) if len(size) == 1 else finished(size)
    found = tuple(dims) if flat else finished(dims) if len(dims) > 1 else tuple(dims)
    fits_flat = len(found) == 1 and (found[0] != 1 or given == (1, 1))
    if math.prod(given) != len(values):
        expected = ShapeError
    elif found != given and not fits_flat and values:
        expected = SizeError
    else:
        expected = None
    data = Foreign(data) if flat is Foreign else array.array("d", data) if flat == "d" else data
    call = {"size": size, "vector" if flat == "vector" else "initializer": data}
    if expected is not None:
        with pytest.raises(expected) as caught:
            double(**call)
        texts = [", ".join(map(str, d)) for d in (found, given)]
        assert type(caught.value) is expected and str(caught.value) == mismatch(*texts)
        return
    a = double(**call)
    order = values if len(found) == 1 else [numpy.array(data)[i] for i in first_fastest(dims)]
    assert (a.size, storage(a)) == (given, order)
    zeros = double(size=size)
    assert (zeros.size, storage(zeros)) == (given, [0.0] * len(values))


class Hostile(Foreign):
    """Does something to somebody on each fetch, or claims a length."""

    def __init__(self, items, fetch=lambda self, i: None, length=None):
        super().__init__(items)
        self.fetch, self.length = fetch, length

    def __len__(self):
        return len(self.items) if self.length is None else self.length()

    def __getitem__(self, i):
        item = self.items[i]
        self.fetch(self, i)
        return item


def fail(*_):
    raise KeyError("own")


def claims(count):
    return Hostile([], length=lambda: count)


def cleared(self, _):
    self.items.clear()
    gc.collect()


def re_entered(self, i):
    self.fetch = lambda *_: None
    assert double(self).size == (1, 3)


NULL = "null data pointer."
HOSTILE = [
    (args(Hostile([1, 2], fail)), RuntimeError, NULL),
    (args(Hostile([1], fail)), RuntimeError, NULL),
    (args(vector=Hostile([1], fail)), RuntimeError, "item 0 could not be retrieved."),
    (args(size=Hostile([1], fail)), RuntimeError,
     "Item 0 could not be retrieved from the value associated with the 'size' keyword."),
    *[(args(**{key: Hostile([1], length=fail)}), KeyError, "'own'")
      for key in ("initializer", "vector", "size")],
    (args([Hostile([1], length=fail)]), KeyError, "'own'"),
    (args([[1], Hostile([1], length=fail)]), KeyError, "'own'"),
    (args(Hostile([1, 2, 3], cleared)), RuntimeError, NULL),
    (args(vector=Hostile([1, 2], cleared)), RuntimeError, "item 1 could not be retrieved."),
    (args([Hostile([1, 2], length=itertools.cycle([2, 1]).__next__), [3, 4]]), ValueError, RAGGED),
    (args([Hostile([[]], length=itertools.cycle([1, 0]).__next__), [[2]]]), ValueError, RAGGED),
    (args(vector=claims(2**62)), MemoryError, "unable to allocate memory for array with number"
     " of elements = 4611686018427387904; type = double"),
    (args(claims(-1)), ValueError, None),
    (args(claims(2**63)), OverflowError, None),
]  # fmt: skip


@pytest.mark.parametrize("call, error, text", REFUSED + HOSTILE)
def test_refused(call, error, text):
    with pytest.raises(error) as caught:
        make(call)
    assert type(caught.value) is error and text in (None, str(caught.value))
    objects = [*call[0], *call[1].values(), error]
    before = [sys.getrefcount(o) for o in objects]
    for _ in range(20 if text else 0):
        with contextlib.suppress(Exception):
            make(call)
    assert all(abs(sys.getrefcount(o) - n) < 20 for o, n in zip(objects, before))


def test_foreign_code_takes_nothing_away():
    assert double(Hostile([1, 2, 3], re_entered)).size == (1, 3)
    for key in ("initializer", "vector", "size"):
        options = {}
        options[key] = Hostile([1, 2, 3], lambda *_: (options.clear(), gc.collect()))
        a = double(options)
        assert a.size == ((1, 2, 3) if key == "size" else (1, 3)) and options == {}

    class Key(str):
        """Drops the value beside it while it is looked up."""

        def __hash__(self):
            return hash("size")

        def __eq__(self, other):
            options["initializer"] = None
            return True

    options = {"initializer": [[1.5] * 3 for _ in range(3)], Key("zz"): None}
    assert double(options).size == (3, 3) and options["initializer"] is None


def test_thousands_of_dimensions():
    a = double(size=(2,) + (1,) * 10**5 + (2,))
    assert len(a.size) == len(a.get_bytewise_strides()) == 10**5 + 2
    assert a == a.clone() and len(a) == 2 and len(a[1][0].size) == 10**5
    for operation in (str, repr, pickle.dumps, copy.copy, lambda a: a.__setitem__(0, a[1])):
        with pytest.raises(RecursionError):
            operation(a)
    for operation in (memoryview, bytes, bytearray):
        with pytest.raises(ValueError, match="number of dimensions must not exceed 64"):
            operation(a)
    assert str(a.reshape(2, 2)) == "[[0.0,0.0],[0.0,0.0]]"
    assert len(bytes(double(size=(2,) + (1,) * 62 + (2,)))) == 32


def test_a_logical_array_of_more_than_a_word():
    values = [i % 3 == 0 for i in range(33)]
    assert storage(logical(values)) == storage(logical(vector=values)) == list(map(int, values))
