"""From the arguments of a class to shape, order and values of the array."""

import functools
import itertools
import sys

import numpy
import pytest
import vellum
from helpers import Foreign, nested, outcome
from vellum import double


class Entries(dict):
    """Its methods tell another story than its entries."""

    __iter__ = keys = lambda self: iter(["vector"])
    __getitem__ = lambda self, key: [5]


@pytest.mark.parametrize("statement, size, values", [
    ("double(None, None, None, False)", (0, 0), []), ("double(vector=[])", (1, 0), [[]]),
    ("double(size=(0, 2**62))", (0, 2**62), []), ("double(numpy.float64(1))", (1, 1), [[1]]),
    ("double({'is_complex': True}, [3, 4])", (1, 2), [[3, 4]]),
    ("double(*({'size': (2, 1)},), **{})", (2, 1), [[0], [0]]),
    ("double(Entries(size=range(2, 0, -1)))", (2, 1), [[0], [0]]),
    ("double(None, None, (97, 98))", (1, 2), [[97, 98]]),
    ("double(vector=b'ab', size=b'\\2\\1\\1')", (2, 1), [[97], [98]]),
])  # fmt: skip
def test_accepted(statement, size, values):
    a = eval(statement)
    assert (a.size, nested(a)) == (size, values)


def no_memory(count):
    return f"unable to allocate memory for array with number of elements = {count}; type = double"


RAGGED = "arrays must be rectangular."
UNLIKE = "elements of array are of different lengths or types."
NOT_NUMERIC = "value passed to initializer must be numeric."
NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."
THREE = "more than two positional arguments must not be specified. A third will be treated as"
THREE += " 'vector', which must not be specified when an initializer is specified."
deep = functools.reduce(lambda inner, _: [inner], range(10**5), 1)


def claims(items, *lengths):
    """Another length each time."""
    return Foreign(items, length=itertools.cycle(lengths).__next__)


def emptied():
    """A list that its own first item empties."""
    rows = [Foreign([1, 2], lambda: rows.clear()), [3, 4]]
    return rows


# In the order of the checks: each call has the faults of the calls below it, as far as it can.
@pytest.mark.parametrize("error, text, arguments", [
    (TypeError, None, "5, 5, 5, 5, 5"), (TypeError, None, "{'no_such_key': 1}"),
    (TypeError, "value passed to 'is_complex' must be a bool.", "'a', 5, 5, 1"),
    (TypeError, THREE, "'a', 5, 5"),
    (TypeError, "initializer and 'vector' must not both be specified.", "'a', 5, vector=5"),
    (TypeError, "value of 'size' must be a sequence.", "'a', 5"),
    (ValueError, "sequence passed to 'size' must not be empty.", "'a', ''"),
    (ValueError, "too many dimensions.", "'a', range(1, 2**40)"),
    (TypeError, "dimensions must be nonnegative integers.", "'a', (2.0, -1)"),
    (ValueError, NEGATIVE, "'a', (-1, 2.0)"), (ValueError, NEGATIVE, "'a', (2**70, 3)"),
    (MemoryError, no_memory(2**64 - 1), "size=(2**32, 2**32)"),
    (MemoryError, no_memory(0), "size=(2**40, 2**40, 0), is_complex=True"),
    (MemoryError, no_memory(2**60), "'a', (2**60,)"),
    (MemoryError, no_memory(2**62), "vector=claims([], 2**62)"),
    (ValueError, NOT_NUMERIC, "'a', (2, 2)"), (ValueError, NOT_NUMERIC, "['a', [1]]"),
    (ValueError, UNLIKE, "['ab', [1]]"),  # a text is a sequence of its length
    (ValueError, "value of 'vector' must be a sequence.", "vector=5"),
    (ValueError, "value passed to 'vector' must be numeric.", "vector='abc', size=(2, 2)"),
    (TypeError, "value of 'vector' must be an unnested sequence.", "vector=['a']"),
    (ValueError, UNLIKE, "[1.0, numpy.array(2.0)]"),
    (TypeError, "len() of unsized object", "[numpy.array(2.0), 1.0]"),
    (ValueError, RAGGED, "[claims([[1]], 1, 0), [[2]]]"),
    (ValueError, RAGGED, "[claims([1, 2], 2, 1), [3, 4]]"),
    (ValueError, None, "claims([], -1)"), (OverflowError, None, "claims([], 2**63)"),
    (RuntimeError, "null data pointer.", "emptied()"), (RecursionError, None, "deep"),
    (RuntimeError, "item 1 could not be retrieved.", "vector=claims([1], 2)"),
])  # fmt: skip
def test_refused(error, text, arguments):
    objects = [value for value in globals().values() if sys.getrefcount(value) < 2**30]
    references = [sys.getrefcount(value) for value in objects]
    for _ in range(20):
        found = outcome(eval, f"double({arguments})", globals())
        assert found[0] is error
        assert text in (None, found[1])
    assert all(sys.getrefcount(o) < before + 20 for o, before in zip(objects, references))


def test_dimensions_of_length_1_take_no_time():
    rows = numpy.arange(2.0**18).reshape(2**17, 2)
    a = double(rows).reshape((2**17,) + (1,) * 10**5 + (2,))
    assert a == a.clone()
    a.reshape((2**17,) + (1,) * 500 + (2,))
    a[:] = double(a)[::-1]
    assert numpy.array_equal(a.reshape(2**17, 2), rows[::-1])


def test_a_logical_array_is_never_complex():
    with pytest.raises(TypeError, match="^logical arrays must not be complex.$"):
        vellum.logical("a", "a", is_complex=True)
