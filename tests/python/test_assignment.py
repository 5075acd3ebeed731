"""Assignment by index: the four rules, what is stored when one is broken, and
code that runs between the key and the store."""

import array as arrays
import contextlib

import numpy
import pytest
import vellum

SHAPE = "unable to perform assignment because the left and right sides have a different shape."
COUNT = "length of slice does not match number of elements."
FULL = "slice is nonempty but values are empty."
EMPTY = "slice is empty, but number of elements assigned is greater than zero."
BEYOND = "unable to index into slice."
CANNOT = "unable to set value."
NULL = "null data pointer."
START = [[1, 2], [3, 4], [5, 6]]


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


# On a 3-by-2 array of START: the failure of a statement, what it leaves, the statement.
RULES = [
    (None, "", [[1, 2], [7, 8], [5, 6]], "a[True] = arrays.array('b', [7, 8])"),
    (None, "", [[5, 6], [3, 4], [5, 6]], "a[0] = a[2]"),
    (None, "", [[5, 6], [3, 4], [1, 2]], "a[::-1] = a"),
    (None, "", [[1, 2], [8, 7], [5, 6]], "a[1][::-1] = b'\\x07\\x08'"),
    (None, "", [[8, 9], [3, 4], [6, 7]], "a[::-2] = [[[6], [7], [8], [9]]]"),
    (None, "", START, "a[1][1:1] = []"),
    (None, "", START, "a[2:2] = []"),
    *[(ValueError, SHAPE, START, statement) for statement in (
        "a[1] = vellum.int8([7, 8])", "a[1] = []", "a[1] = 7", "a[1] = [[7, 8]]",
        "a[1][1:1] = [7]", "a[1][0:1] = 7", "a[1][0:1] = [[7]]")],
    (ValueError, "elements of array are of different lengths or types.", START, "a[1] = [7, [8]]"),
    (ValueError, "value passed to initializer must be numeric.", START, "a[1] = 'ab'"),
    (TypeError, "sequence passed when scalar was expected.", START, "a[1][0] = [7]"),
    (ValueError, COUNT, [[7, 2], [3, 4], [5, 6]], "a[0:2] = 7"),
    (ValueError, COUNT, [[6, 7], [8, 9], [5, 6]], "a[0:2] = [6, 7, 8, 9, 10]"),
    (ValueError, COUNT, START, "a[2:2][0:1] = [1]"),
    (ValueError, FULL, START, "a[0:2] = []"),
    (ValueError, EMPTY, START, "a[2:2] = [1]"),
    (RuntimeError, "index is not an integer or slice.", START, "a[1, 0] = 1"),
    (RuntimeError, BEYOND, START, "a[1:3][-1] = [8, 9]"),
    (RuntimeError, BEYOND, START, "a[1:3][2] = [8, 9]"),
    (IndexError, "index has an invalid value: 3", START, "a[1:3][3] = [8, 9]"),
    # A key is judged against the whole dimension, also behind a slice.
    (None, "", [[1, 2], [3, 9], [5, 6]], "a[1][1:2][0:1] = [9]"),
    (None, "", [[1, 2], [3, 4], [8, 9]], "a[2:][1:] = [8, 9]"),
    (None, "", [[1, 2], [9, 4], [5, 6]], "a[1][::-1][1:] = [9]"),
    (None, "", [[1, 2], [8, 7], [5, 6]], "a[1][1::-1][1::-1] = [8, 7]"),
    (RuntimeError, CANNOT, START, "a[1:][1:] = [6, 7, 8, 9]"),
    *[(RuntimeError, NULL, START, f"del a{key}") for key in ("[0]", "[0][0]", "[0:1]")],
    (IndexError, "index has an invalid value: 3", START, "del a[3]"),
]


@pytest.mark.parametrize("error, text, rows, statement", RULES)
def test_the_four_rules(error, text, rows, statement):
    a = vellum.double(START)
    part, exported, scope = a[:], memoryview(a), {"a": a, "vellum": vellum, "arrays": arrays}
    with pytest.raises(error) if error else contextlib.nullcontext() as caught:
        exec(statement, scope)
    assert error is None or (type(caught.value), str(caught.value)) == (error, text)
    assert nested(a) == nested(part) == exported.tolist() == rows
    assert list(a.noncomplex()) == [row[k] for k in (0, 1) for row in rows]


@pytest.mark.parametrize("size, statement, error, text", [
    ((1, 1), "a[0:1] = 7", None, ""), ((3, 0), "a[0] = []", None, ""),
    ((3, 0), "a[0:2] = []", ValueError, FULL), ((3, 0), "a[0:2] = [1]", ValueError, COUNT),
    ((2, 3, 0), "a[1] = [[], [], []]", None, ""), ((2, 3, 0), "a[1] = []", ValueError, SHAPE),
    ((0, 3), "a[5:] = []", None, ""), ((0, 3), "a[0:] = [1]", ValueError, EMPTY),
    ((2**40, 0), "a[::2**33][::2**33] = [1]", RuntimeError, CANNOT)])
def test_unusual_sizes(size, statement, error, text):
    with pytest.raises(error) if error else contextlib.nullcontext() as caught:
        exec(statement, {"a": vellum.int8(size=size)})
    assert error is None or (type(caught.value), str(caught.value)) == (error, text)


def test_a_refused_element_stores_nothing_at_any_depth():
    a = vellum.int8([[0, 1], [1, 0], [1, 1]])
    text = "value (300) cannot be stored in a variable of type int8."
    for target, key, right in [(a[2], 1, 300), (a[2], slice(0, 2), [0, 300]), (a, 2, [0, 300]),
                               (a, slice(0, 2), [[0, 0], [0, 300]])]:
        with pytest.raises(OverflowError) as caught:
            target[key] = right
        assert str(caught.value) == text and nested(a) == [[0, 1], [1, 0], [1, 1]]


class Hook:
    """Runs code wherever it is asked for an item or an index."""

    def __init__(self, code, values=()):
        self.code, self.values = code, values

    def __index__(self):
        self.code()
        return 0

    def __len__(self):
        return len(self.values)

    def __getitem__(self, position):
        self.code()
        return self.values[position]


@pytest.mark.parametrize("in_key", [True, False])
@pytest.mark.parametrize("view, stop, count, shape, text", [
    (slice(None), 4, 12, (2, 6), CANNOT), (slice(2, None), 1, 3, (2, 6), CANNOT),
    (3, 3, 3, (2, 6), CANNOT), (1, 3, 3, (2, 3, 2), CANNOT), (1, 3, 3, (6, 2), CANNOT),
    (None, 4, 12, (2, 6), CANNOT), (None, 2, 6, (3, 2, 2), COUNT), (None, 2, 6, (4, 3), None),
    (1, 3, 3, (3, 4), None),
])
def test_a_reshape_between_key_and_store(in_key, view, stop, count, shape, text):
    a = vellum.int32(vector=list(range(12)), size=(4, 3))
    target, values = a if view is None else a[view], list(range(-1, -count - 1, -1))
    hook = Hook(lambda: a.reshape(*shape), () if in_key else values)
    start, right = (hook, values) if in_key else (0, hook)
    expected = pytest.raises((ValueError, RuntimeError)) if text else contextlib.nullcontext()
    with expected as caught:
        target[start:stop] = right
    assert text is None or str(caught.value) == text
    stored = [value for value in numpy.ravel(nested(a)) if value < 0]
    assert stored == ([] if text == CANNOT else values)


def test_an_integer_key_whose_right_side_reshapes_assigns_and_deletes():
    a = vellum.int32(vector=list(range(12)), size=(4, 3))
    with pytest.raises(RuntimeError, match=f"^{CANNOT}$"):
        a[3] = Hook(lambda: a.reshape(2, 6), [1, 2, 3])
    with pytest.raises(ValueError, match=f"^{SHAPE}$"):
        a[1] = Hook(lambda: a.reshape(4, 3), [1, 2, 3, 4, 5, 6])
    assert nested(a.noncomplex()) == list(range(12))
    holder, part = [a[1:]], a[0]
    holder[0][0] = Hook(lambda: (holder.clear(), part.__setitem__(0, 70)), [1, 2, 3])
    assert list(part) == [70, 4, 8] and list(a[1]) == [1, 2, 3] and not holder
    with pytest.raises(RuntimeError, match=f"^{NULL}$"):
        part[:] = Hook(lambda: 1 / 0, [1, 2, 3])
    loop = [1]
    loop[0] = loop
    with pytest.raises(RecursionError):
        part[:] = loop
    assert list(part) == [70, 4, 8]
