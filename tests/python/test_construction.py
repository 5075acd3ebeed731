"""From the arguments of a class to shape, order and values of the array."""

import array
import contextlib
import copy
import ctypes
import functools
import gc
import itertools
import math
import pickle
import signal
import sys
import time
from operator import setitem

import numpy
import oracle
import pytest
import vellum
from hypothesis import given, strategies as st
from vellum import ShapeError, double, int8, logical


class Foreign:
    """A sequence that does something on each fetch, or lies about its length."""

    def __init__(self, items, fetch=lambda *_: None, length=None):
        self.items, self.fetch, self.length = list(items), fetch, length

    def __len__(self):
        return self.length() if self.length else len(self.items)

    def __getitem__(self, i):
        item = self.items[i]
        self.fetch(self, i)
        return item


def args(*args, **kwargs):
    return args, kwargs


def make(call):
    return double(*call[0], **call[1])


class Entries(dict):
    """Its methods tell another story than its entries."""

    __iter__ = keys = lambda self: iter(["vector"])
    __getitem__ = lambda self, key: [5]


# Dimensions, what is stored (the first dimension fastest), and the calls that come to it.
ACCEPTED = [
    ((0, 0), [], args(), args(None), args(None, None, None), args({}), args([]), args((), None),
     args(size=None, vector=None, is_complex=False), args(None, None, None, True)),
    ((1, 0), [], args(vector=[]), args([[]]), args(size=(0,))),
    ((0, 2**62), [], args(size=(0, 2**62))),
    ((1, 1), [1], args(True, (1, 1)), args([1], size=(1,)), args(numpy.float64(1)), args([[1]])),
    ((1, 2), [3, 0, 4, 0], args({"is_complex": True}, [3.0, 4]),
     args([3 + 0j, 4], None, None, True)),
    ((1, 2), [97, 98], args([b"ab"]), args(vector=b"ab"), args(vector=double([97, 98])[0]),
     args(None, None, [97, 98]), args(range(97, 99))),
    ((2, 2), [1, 2, 3, 4], args([1, 2, 3, 4], (2, 2)), args([[1, 3], [2, 4]])),
    ((2, 1, 2), [1, 3, 2, 4], args([int8([1, 2]), ((3, 4),)])),
    ((2, 1), [0, 0], args(Entries(size=(2, 1))), args(size=(2, True)), args(size=range(2, 0, -1)), args(size=b"\2\1\1")),
]  # fmt: skip


def calls(table):
    return [(*row[:2], call) for row in table for call in row[2:]]


@pytest.mark.parametrize("size, stored, call", calls(ACCEPTED))
def test_accepted(size, stored, call):
    a = make(call)
    assert a.size == size and array.array("d", memoryview(a).tobytes("F")).tolist() == stored


def mismatch(found, given):
    text = "dimensions of initializer ({}) do not match dimensions specified by 'size' ({})."
    return text.format(found, given)


def no_memory(count):
    return f"unable to allocate memory for array with number of elements = {count}; type = double"


NOT_NUMERIC = "value passed to initializer must be numeric."
UNLIKE = "elements of array are of different lengths or types."
RAGGED = "arrays must be rectangular."
NULL = "null data pointer."
itself = []
itself.append(itself)
# In the order of the checks: each call has all the faults of the calls below it that it can have.
REFUSED = [
    (TypeError, None, args(5, 5, 5, 5, 5), args([1], initializer=[1]), args({"no_such_key": 1})),
    (TypeError, "value passed to 'is_complex' must be a bool.", args("a", 5, 5, 1),
     args("a", 5, is_complex=None)),
    (TypeError, "more than two positional arguments must not be specified. A third will be treated"
     " as 'vector', which must not be specified when an initializer is specified.",
     args("a", 5, 5)),
    (TypeError, "initializer and 'vector' must not both be specified.",
     args("a", 5, vector=5), args({"vector": 5}, "a", 5)),
    (TypeError, "value of 'size' must be a sequence.", args("a", 5), args("a", {})),
    (ValueError, "sequence passed to 'size' must not be empty.", args("a", "")),
    (ValueError, "too many dimensions.", args("a", range(1, 2**40))),
    (TypeError, "dimensions must be nonnegative integers.", args("a", "ab"), args("a", (2.0, -1))),
    (ValueError, "size cannot contain negative dimensions."
     " Use nonnegative integers for dimensions.", args("a", (-1, 2.0)), args("a", (2**70, 3))),
    *[(MemoryError, no_memory(count), args(size=size), args(size=size, is_complex=True))
      for size, count in [((2**32, 2**32), 2**64 - 1), ((2**63 - 1, 2), 2**64 - 2),
                          ((2**62, 0), 0), ((2**40, 2**40, 0), 0)]],
    (MemoryError, no_memory(2**60), args("a", (2**60,)), args("a", (2**60,), is_complex=True)),
    (ValueError, UNLIKE, args(["ab", [1]])),  # a text is a sequence of its length
    (ValueError, NOT_NUMERIC, args("a", (2, 2)), args(["a", [1]])),
    (ValueError, "value of 'vector' must be a sequence.", args(vector=5), args(vector={1: 2})),
    (ValueError, "value passed to 'vector' must be numeric.", args(vector="abc", size=(2, 2))),
    (ShapeError, mismatch("1", "2, 2"), args(vector=["a"], size=(2, 2))),
    (TypeError, "value of 'vector' must be an unnested sequence.",
     args(vector=["a"]), args(vector=[1, [2]]), args(vector=double([1, 2]))),
    (TypeError, "type does not match.", args({}, size=(1, 1)), args(x for x in [1])),
    (TypeError, "value must not be 'None'.", args([None], (2, 2))),
    (ValueError, UNLIKE, args([1, [2]]), args([[1], 2]), args([[None], [1, 2]]),
     args([1.0, numpy.array(2.0)])),
    (TypeError, "len() of unsized object", args([numpy.array(2.0), 1.0])),
    (ValueError, RAGGED, args([[[1, 2]], [[3]]]), args([[[1]], [2]]), args([[[]], [[1]]]),
     args([[[1]], [[]]])),
    (ShapeError, mismatch("1, 1", "2, 2"), args(5, (2, 2))),
    (RecursionError, None, args(functools.reduce(lambda inner, _: [inner], range(10**5), 1)),
     args(itself), args(double(size=(1,) * 10**5 + (2,)))),
]  # fmt: skip


def fail(*_):
    raise KeyError("own")


def cleared(self, _):
    self.items.clear()


def claims(items, *lengths):
    return Foreign(items, length=itertools.cycle(lengths).__next__)


def emptied(hook):
    """A list that its own first item empties."""
    items = [Foreign([1, 2], **{hook: lambda *_: items.clear() or 2}), [3, 4]]
    return items


HOSTILE = [
    (RuntimeError, NULL, args(Foreign([1], fail)), args(Foreign([1, 2], fail)),
     args(Foreign([1, 2, 3], cleared)), args(emptied("fetch")), args(emptied("length"))),
    (RuntimeError, "item 0 could not be retrieved.", args(vector=Foreign([1], fail))),
    (RuntimeError, "item 1 could not be retrieved.", args(vector=Foreign([1, 2], cleared))),
    (RuntimeError, "Item 0 could not be retrieved from the value associated with"
     " the 'size' keyword.", args(size=Foreign([1], fail))),
    (KeyError, "'own'", *[args(**{key: Foreign([1], length=fail)})
                          for key in ("initializer", "vector", "size")],
     args([Foreign([1], length=fail)]), args([[1], Foreign([1], length=fail)])),
    (ValueError, RAGGED, args([claims([[1]], 1, 0), [[2]]]), args([claims([1, 2], 2, 1), [3, 4]])),
    (MemoryError, no_memory(2**62), args(vector=claims([], 2**62))),
    (ValueError, None, args(claims([], -1))), (OverflowError, None, args(claims([], 2**63))),
]  # fmt: skip


@pytest.mark.parametrize("error, text, call", calls(REFUSED + HOSTILE))
def test_refused(error, text, call):
    with pytest.raises(error) as caught:
        make(call)
    assert type(caught.value) is error and text in (None, str(caught.value))
    objects = [*call[0], *call[1].values(), error]
    gc.disable()  # what the tests before have left in cycles must not count
    before = [sys.getrefcount(o) for o in objects]
    for _ in range(20 if text else 0):
        with contextlib.suppress(Exception):
            make(call)
    moved = [abs(sys.getrefcount(o) - n) for o, n in zip(objects, before)]
    gc.enable()
    assert max(moved) < 20


def nest(dims, elements):
    return Foreign(nest(dims[1:], elements) for _ in range(dims[0])) if dims else next(elements)


FORMS = [
    numpy.ndarray.tolist, lambda rows: rows.ravel().tolist(), memoryview,
    lambda rows: nest(rows.shape, iter(rows.ravel().tolist())),
    lambda rows: memoryview(rows.ravel()), lambda rows: memoryview(numpy.asfortranarray(rows)),
    lambda rows: double(rows.tolist(), is_complex=numpy.iscomplexobj(rows)),
]  # fmt: skip
dims_lists = st.lists(st.integers(0, 4), min_size=1, max_size=5)


def outcome(call):
    try:
        return call()
    except Exception as error:
        return type(error).__name__, str(error)


@given(st.data(), dims_lists, st.sampled_from(["double", "int16", "logical"]), st.booleans())
def test_every_form_of_the_same_data(data, dims, kind, is_complex):
    is_complex, count = is_complex and kind != "logical", math.prod(dims)
    sizes = [None, dims, [*dims, 1], [count], [count, 1], dims[::-1]]
    size = data.draw(st.sampled_from(sizes) | dims_lists)
    code = "D" if is_complex else oracle.FORMATS[kind].replace("?", "B")
    rows = (numpy.arange(count) % 7).astype(code).reshape(dims)
    for form, road in itertools.product(FORMS, ("initializer", "vector")):
        call = {road: form(rows), "size": size, "is_complex": is_complex}
        got = outcome(lambda: getattr(vellum, kind)(**call))
        record = outcome(lambda: oracle.construct(kind, (), call))
        if isinstance(record, oracle.Record):
            got = got.size, got._is_complex, memoryview(got).tobytes("F")
            record = tuple(record.dims), is_complex, record.tobytes()
        assert got == record


ROADS = [
    double, lambda items: double([items, items]), lambda items: double(vector=items),
    lambda items: double(size=items), lambda items: setitem(double(size=(2, 2)), 0, items),
    lambda items: setitem(double(size=(2, 2)), slice(1), items),
]  # fmt: skip
ERRORS = [KeyboardInterrupt, SystemExit, GeneratorExit, MemoryError, KeyError]


@pytest.mark.parametrize("error", ERRORS)
@pytest.mark.parametrize("road", ROADS)
def test_what_foreign_code_raises_is_kept(road, error):
    own = error("own")

    def refuse(*_):
        raise own

    with pytest.raises(error) as caught:
        road(Foreign([1, 2], length=refuse))
    assert caught.value is own
    with pytest.raises(RuntimeError if error is KeyError else error) as caught:
        road(Foreign([1, 2], refuse))
    assert own is (caught.value.__cause__ if error is KeyError else caught.value)


def test_an_own_refusal_has_no_cause():
    for size in ((2**70,), [-1]):
        with pytest.raises(ValueError) as caught:
            double(size=size)
        assert caught.value.__cause__ is caught.value.__context__ is None


LONG = [
    lambda: double(range(2**40)), lambda: double([[[]] * 60000] * 60000),
    lambda: logical(vector=range(2**28)), lambda: double(size=range(1, 2**31)),
    lambda: setitem(double(size=(2, 2)), 0, range(2**40)),
]  # fmt: skip


@pytest.fixture
def on_alarm():
    before = signal.getsignal(signal.SIGALRM)
    yield functools.partial(signal.signal, signal.SIGALRM)
    signal.setitimer(signal.ITIMER_REAL, 0)
    signal.signal(signal.SIGALRM, before)


@pytest.mark.parametrize("operation", LONG)
def test_a_signal_handler_ends_a_long_loop(on_alarm, operation):
    on_alarm(fail)
    started = time.monotonic()
    with pytest.raises(KeyError, match="own"):
        signal.setitimer(signal.ITIMER_REAL, 0.05)
        operation()
    assert time.monotonic() - started < 1


def test_a_signal_handler_changes_what_is_read(on_alarm):
    class Alarm(Foreign):
        # No Python code runs in it, so that the signal waits for the loop over the rows.
        __len__ = staticmethod(functools.partial(ctypes.CDLL(None)["raise"], signal.SIGALRM))

    rows = [Alarm([])] + [[] for _ in range(70000)]
    on_alarm(lambda *_: rows.clear())
    with pytest.raises(RuntimeError, match=NULL):
        double(rows)


def test_rows_without_elements_take_no_time():
    assert double(double(size=(2**28, 0))).size == (2**28, 0)


def test_foreign_code_takes_nothing_away():
    for key in ("initializer", "vector", "size"):
        options = {}
        options[key] = Foreign([1, 2, 3], lambda *_: options.clear())
        assert double(options).size == ((1, 2, 3) if key == "size" else (1, 3)) and options == {}

    class Key(str):
        """Drops the value beside it while it is looked up."""

        def __hash__(self):
            return hash("size")

        def __eq__(self, other):
            options["initializer"] = None
            return True

    options = {"initializer": [[1.5] * 3 for _ in range(3)], Key("zz"): None}
    assert double(options).size == (3, 3) and options["initializer"] is None


@pytest.mark.parametrize("n", range(4))
def test_a_key_that_raises_is_heard(n):
    class Key(str):
        compared = 0
        __hash__ = str.__hash__

        def __eq__(self, other):
            self.compared += 1
            if self.compared > n:
                raise KeyboardInterrupt
            return True

    key = Key("vector")
    try:
        double(**{key: [2]})
    except KeyboardInterrupt:
        assert key.compared == n + 1
    else:
        assert key.compared <= n


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


def test_an_error_of_a_key_of_a_leading_dict():
    class Key:
        hashes = [1]  # for the dict alone

        def __hash__(self):
            return self.hashes.pop()

    with pytest.raises(IndexError, match="pop from empty list"):
        double({Key(): 5})


def test_a_logical_array_is_never_complex():
    with pytest.raises(TypeError, match="^logical arrays must not be complex.$"):
        logical("a", "a", is_complex=True)


def test_a_logical_array_of_more_than_a_word():
    values = [i % 3 == 0 for i in range(33)]
    assert bytes(logical(values)) == bytes(logical(vector=values)) == bytes(values)
