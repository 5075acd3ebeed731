"""Reshape: its rules, live exports, and what outlives it."""

import copy
import math
import pickle
import time

import numpy
import pytest
import vellum

NOT_DIMENSIONS = "reshape() must be passed a nonempty sequence of nonnegative integers."


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def counted(*shape):
    return vellum.int16(numpy.arange(math.prod(shape)).reshape(shape).tolist())


class Hostile:
    """Fails where it is asked for its length, or for an item if it has one."""

    def __init__(self, length=None, error=KeyError):
        self.length, self.error = length, error

    def __len__(self):
        if self.length is None:
            raise self.error
        return self.length

    def __getitem__(self, position):
        raise self.error


@pytest.mark.parametrize("arguments, error, text", [
    *[(arguments, ValueError, NOT_DIMENSIONS) for arguments in [
        (), (6,), ([6],), (None,), ("23",), (-1, 6), (2.0, 3), (2, 2**63), (Hostile(1),), (Hostile(),)]],
    ((Hostile(2**31),), ValueError, "too many dimensions."),
    ((Hostile(2**31 - 1),), RuntimeError,
     "Item 0 could not be retrieved from the value passed to reshape()."),
    *[(dims, vellum.ShapeError, "number of elements specified by arguments to reshape() "
       f"({product}) does not match current number (6).")
      for dims, product in (((2, 2), 4), ((2**62, 4), 2**64 - 1), ((2**62, 2**62, 0), 0))],
])
def test_refused_dimensions_change_nothing(arguments, error, text):
    array = counted(2, 3)
    for keywords in ({}, {"order": 1}):
        with pytest.raises(error) as caught:
            array.reshape(*arguments, **keywords)
        assert str(caught.value) == text
    with pytest.raises(ValueError, match=r"^reshape\(\) does not accept keyword arguments\.$"):
        array.reshape(3, 2, order=1)
    assert nested(array) == [[0, 1, 2], [3, 4, 5]]


def test_strides_that_cannot_be_represented():
    array = vellum.double(size=(0, 3))
    with pytest.raises(ValueError, match="keyword"):
        array.reshape(2**62, 0, order=1)
    with pytest.raises(vellum.ShapeError) as caught:
        array.reshape(2**62, 0)
    assert str(caught.value) == "strides of the requested dimensions cannot be represented."
    assert array.size == (0, 3) and array.reshape(0, 2**62).size == (0, 2**62)


@pytest.mark.parametrize("error", [KeyError, MemoryError, KeyboardInterrupt, SystemExit])
@pytest.mark.parametrize("length, replacement", [(None, ValueError), (2, RuntimeError)])
def test_what_foreign_dimensions_raise_is_the_cause_or_stands(length, replacement, error):
    with pytest.raises((replacement, error)) as caught:
        counted(2, 3).reshape(Hostile(length, error))
    found = type(caught.value), type(caught.value.__cause__)
    assert found == ((replacement, KeyError) if error is KeyError else (error, type(None)))
    with pytest.raises(ValueError) as caught:
        counted(2, 3).reshape(2, 2**63)
    assert caught.value.__cause__ is None


def test_accepted_forms_and_partial_arrays():
    array = counted(2, 3)
    assert array.reshape(True, 6) is array and memoryview(array).tolist() == [[0, 3, 1, 4, 2, 5]]
    assert array.reshape([6, 1, 1]).size == (6, 1) and array.reshape(1, 1, 6).size == (1, 1, 6)
    assert array.reshape(3, 2, **{}).size == (3, 2) and array.reshape(1, 1, 6).size == (1, 1, 6)
    assert array[0:1].reshape((3, 2)).size == (1, 2) and nested(array) == [[0, 4], [3, 2], [1, 5]]
    assert vellum.double(size=(0, 3)).reshape(2, 0, 5).size == (2, 0, 5)
    for part in (array[0], array[0][1:], array.noncomplex()):
        with pytest.raises(RuntimeError, match="^reshape.. not supported for a partial array.$"):
            part.reshape(1, 6)


def test_exports_keep_their_shape_and_see_the_values():
    array = counted(2, 6)
    # Memoryviews copy the shape; this one reads the exporter's own.
    _testbuffer = pytest.importorskip("_testbuffer")
    exports = []
    for shape in [(3, 4), (12, 1), (2, 6), (2, 2, 3), (4, 3)]:
        raw = _testbuffer.ndarray(array, getbuf=_testbuffer.PyBUF_FULL_RO)
        exports.append((memoryview(array), raw, array.size, numpy.asarray(array).strides))
        array.reshape(1, 12).reshape(*shape)
    array[3][2] = -7
    for view, raw, shape, strides in exports:
        assert view.shape == raw.shape == shape
        assert view.strides == raw.strides == strides
        assert view.tobytes("F") == array.tomemoryview().tobytes("F")
    assert exports[0][0][1, 5] == exports[0][1].tolist()[1][5] == -7


@pytest.mark.parametrize("between", [id, lambda array: memoryview(array).release()])
def test_a_live_export_makes_reshapes_no_slower(between):
    array = counted(2, 3)

    def seconds():
        start = time.process_time()
        for _ in range(10_000):
            between(array)
            array.reshape(3, 2)
        return time.process_time() - start

    alone = seconds()
    export = memoryview(array)
    assert seconds() + seconds() < 10 * alone and export.shape == (3, 2)


# Every operation on the selected part, and what reads it as a sequence.
OPERATIONS = [
    len, bool, str, repr, iter, lambda part: part.size, lambda part: part[0],
    lambda part: part[0:1], lambda part: part.__setitem__(0, 1),
    lambda part: part.__setitem__(slice(0, 1), 1), lambda part: part.__delitem__(0),
    lambda part: 1 in part, lambda part: part == counted(4, 3), lambda part: counted(4, 3) != part,
    vellum.int16.clone, vellum.int16.toarray, vellum.int16.__reduce__, copy.copy, copy.deepcopy,
    pickle.dumps, lambda part: vellum.int16([part]),
    lambda part: counted(4, 3).__setitem__(slice(0, 4), part),
]
STALE = [
    ((4, 3), lambda array: array[3], (2, 6), IndexError, "index has an invalid value: 3"),
    ((4, 3), lambda array: array[1:][2][1:], (2, 6), IndexError, "index has an invalid value: 3"),
    ((4, 3), lambda array: array[1:], (2, 6), IndexError, "index has an invalid value: 2"),
    ((4, 3), lambda array: array[::-2], (2, 6), IndexError, "index has an invalid value: 3"),
    ((3, 4), lambda array: array[2][1:], (6, 2), IndexError, "index has an invalid value: 2"),
    ((2, 2, 3), lambda array: array[1][1], (4, 3), RuntimeError, "too many indices."),
    ((2, 2, 3), lambda array: array[1][1][1:], (4, 3), RuntimeError, "too many indices."),
]


@pytest.mark.parametrize("shape, select, new, error, text", STALE)
def test_a_part_that_no_longer_fits_is_refused(shape, select, new, error, text):
    array = counted(*shape)
    part, clone = select(array), select(array).clone()
    array.reshape(*new)
    values = nested(array)
    for operation in OPERATIONS:
        with pytest.raises(error) as caught:
            operation(part)
        assert (type(caught.value), str(caught.value)) == (error, text)
    # What looks at the whole record, or past the slice, goes on.
    assert part.buffer_info() == array.buffer_info() and nested(array) == values
    assert nested(part.noncomplex()) == nested(array.noncomplex())
    array.reshape(*shape)
    assert part == clone and part.clone() == clone


@pytest.mark.parametrize("shape, select, new, text", [
    ((4, 3), lambda array: array, (2, 6), "index has an invalid value: 2"),
    ((4, 3), lambda array: array[::-1], (1, 12), "index has an invalid value: 1"),
    ((3, 4), lambda array: array[0], (6, 2), "index has an invalid value: 2"),
    ((4, 2, 3), lambda array: array[2][:], (2, 12), "too many indices."),
])
def test_an_iterator_meets_the_new_shape_at_its_next_step(shape, select, new, text):
    array = counted(*shape)
    iterator = iter(select(array))
    for _ in range(min(2, len(select(array)) - 1)):
        next(iterator)
    array.reshape(*new)
    with pytest.raises((IndexError, RuntimeError)) as caught:
        next(iterator)
    assert str(caught.value) == text
