"""Assignment by index: the four rules, what is stored when one is broken, and
code that runs between the key and the store."""

import array as arrays
import math

import pytest
import vellum

SHAPE = "unable to perform assignment because the left and right sides have a different shape."
COUNT = "length of slice does not match number of elements."
FULL = "slice is nonempty but values are empty."
EMPTY = "slice is empty, but number of elements assigned is greater than zero."
INDEX = "index has an invalid value: "
KEY = "index is not an integer or slice."
BEYOND = "unable to index into slice."
CANNOT = "unable to set value."
NULL = "null data pointer."
START = [[1, 2], [3, 4], [5, 6]]


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def flat(part):
    return sum(map(flat, part), []) if isinstance(part, list) else [part]


# On a 3-by-2 array of START: a statement, the rows afterwards, the failure.
@pytest.mark.parametrize("statement, rows, error, text", [
    ("a[1] = [7, 8]", [[1, 2], [7, 8], [5, 6]], None, ""),
    ("a[-1][-1] = 9", [[1, 2], [3, 4], [5, 9]], None, ""),
    ("a[True] = arrays.array('b', [7, 8])", [[1, 2], [7, 8], [5, 6]], None, ""),
    ("a[0] = a[2]", [[5, 6], [3, 4], [5, 6]], None, ""),
    ("a[::-1] = a", [[5, 6], [3, 4], [1, 2]], None, ""),
    ("a[1] = vellum.int8([7, 8])[0]", [[1, 2], [7, 8], [5, 6]], None, ""),
    ("a[1] = vellum.int8([7, 8])", START, ValueError, SHAPE),
    ("a[1] = []", START, ValueError, SHAPE),
    ("a[1] = 7", START, ValueError, SHAPE),
    ("a[1] = [7, [8]]", START, ValueError, "elements of array are of different lengths or types."),
    ("a[1] = 'ab'", START, ValueError, "value passed to initializer must be numeric."),
    ("a[1][0] = [7]", START, TypeError, "sequence passed when scalar was expected."),
    ("a[1][0:2] = (7, 8)", [[1, 2], [7, 8], [5, 6]], None, ""),
    ("a[1][::-1] = b'\\x07\\x08'", [[1, 2], [8, 7], [5, 6]], None, ""),
    ("a[1][1:1] = []", START, None, ""),
    ("a[1][1:1] = [7]", START, ValueError, SHAPE),
    ("a[1][0:1] = 7", START, ValueError, SHAPE),
    ("a[1][0:1] = [[7]]", START, ValueError, SHAPE),
    ("a[0:2] = [[6, 7], [8, 9]]", [[6, 7], [8, 9], [5, 6]], None, ""),
    ("a[0:2] = [6, 7, 8, 9]", [[6, 7], [8, 9], [5, 6]], None, ""),
    ("a[::-2] = [[[6], [7], [8], [9]]]", [[8, 9], [3, 4], [6, 7]], None, ""),
    ("a[0:2] = 7", [[7, 2], [3, 4], [5, 6]], ValueError, COUNT),
    ("a[0:2] = [6, 7, 8, 9, 10]", [[6, 7], [8, 9], [5, 6]], ValueError, COUNT),
    ("a[0:2] = []", START, ValueError, FULL),
    ("a[2:2] = []", START, None, ""),
    ("a[2:2] = [1]", START, ValueError, EMPTY),
    ("a[2:2][0:1] = [1]", START, ValueError, COUNT),
    ("a[1, 0] = 1", START, RuntimeError, KEY),
    ("a[0:2][0] = [8, 9]", [[8, 9], [3, 4], [5, 6]], None, ""),
    ("a[1:3][-1] = [8, 9]", START, RuntimeError, BEYOND),
    ("a[1:3][2] = [8, 9]", START, RuntimeError, BEYOND),
    ("a[1:3][3] = [8, 9]", START, IndexError, INDEX + "3"),
    ("a[1][1:2][0:1] = [9]", [[1, 2], [3, 9], [5, 6]], None, ""),
    ("a[2:][1:] = [8, 9]", [[1, 2], [3, 4], [8, 9]], None, ""),
    ("a[1:][1:] = [6, 7, 8, 9]", START, RuntimeError, CANNOT),
    ("a[1][::-1][1:] = [9]", [[1, 2], [9, 4], [5, 6]], None, ""),
    ("a[1][1::-1][1::-1] = [8, 9]", [[1, 2], [8, 9], [5, 6]], None, ""),
    ("del a[0]", START, RuntimeError, NULL),
    ("del a[0][0]", START, RuntimeError, NULL),
    ("del a[3]", START, IndexError, INDEX + "3"),
])
def test_the_four_rules(statement, rows, error, text):
    a = vellum.double(START)
    part, exported, scope = a[:], memoryview(a), {"a": a, "vellum": vellum, "arrays": arrays}
    if error is None:
        exec(statement, scope)
    else:
        with pytest.raises(error) as caught:
            exec(statement, scope)
        assert (type(caught.value), str(caught.value)) == (error, text)
    assert nested(a) == nested(part) == exported.tolist() == rows
    assert nested(a.noncomplex()) == [row[k] for k in (0, 1) for row in rows]


@pytest.mark.parametrize("size, statement, error, text", [
    ((1, 1), "a[0:1] = 7", None, ""), ((3, 0), "a[0] = []", None, ""),
    ((3, 0), "a[0:2] = []", ValueError, FULL), ((3, 0), "a[0:2] = [1]", ValueError, COUNT),
    ((2, 3, 0), "a[1] = [[], [], []]", None, ""), ((2, 3, 0), "a[1] = []", ValueError, SHAPE),
    ((0, 3), "a[5:] = []", None, ""), ((0, 3), "a[0:] = [1]", ValueError, EMPTY),
    ((2**40, 0), "a[::2**33][::2**33] = [1]", RuntimeError, CANNOT)])
def test_unusual_sizes(size, statement, error, text):
    a = vellum.int8(size=size)
    if error is None:
        return exec(statement, {"a": a})
    with pytest.raises(error) as caught:
        exec(statement, {"a": a})
    assert (type(caught.value), str(caught.value)) == (error, text)


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
@pytest.mark.parametrize("select, key, count, shape, stays", [
    (lambda a: a, slice(0, 4), 12, (2, 6), False), (lambda a: a, slice(0, 2), 6, (4, 3), True),
    (lambda a: a, slice(0, 2), 6, (3, 2, 2), None), (lambda a: a[3], slice(0, 3), 3, (2, 6), False),
    (lambda a: a[1], slice(0, 3), 3, (3, 4), True),
    (lambda a: a[2:], slice(0, 1), 3, (2, 6), False),
    (lambda a: a[1], slice(0, 3), 3, (2, 3, 2), False),
    (lambda a: a[1], slice(0, 3), 3, (6, 2), False),
])
def test_a_reshape_between_key_and_store(in_key, select, key, count, shape, stays):
    a = vellum.int32(vector=list(range(12)), size=(4, 3))
    target, values = select(a), list(range(-1, -count - 1, -1))
    hook = Hook(lambda: a.reshape(*shape), () if in_key else values)
    index, right = (slice(hook, key.stop), values) if in_key else (key, hook)
    text = None if stays else CANNOT if stays is False else COUNT
    if text is None:
        target[index] = right
        assert flat(nested(target))[: len(values)] == values
    else:
        with pytest.raises((ValueError, RuntimeError)) as caught:
            target[index] = right
        assert str(caught.value) == text
    stored = [value for value in nested(a.noncomplex()) if value < 0]
    assert len(stored) == (0 if text == CANNOT else count) and math.prod(a.size) == 12


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
