"""Reshape: its checks in their order, foreign dimensions, and live exports."""

import ctypes
import os
import time

import numpy
import pytest
import vellum
from helpers import Foreign, nested, outcome

DIFFERING = "number of elements specified by arguments to reshape() ({}) does not match current"
DIFFERING += " number (6)."
NOT_FETCHED = "Item 0 could not be retrieved from the value passed to reshape()."
STRIDES = "strides of the requested dimensions cannot be represented."
KEYWORDS = "reshape() does not accept keyword arguments."


def counted(*shape):
    return vellum.int16(numpy.arange(numpy.prod(shape)).reshape(shape).tolist())


@pytest.mark.parametrize("arguments, error, text", [
    ((Foreign([], length=lambda: 2**31),), ValueError, "too many dimensions."),
    ((Foreign([], length=lambda: 2**31 - 1),), RuntimeError, NOT_FETCHED),
    ((2**62, 4), vellum.ShapeError, DIFFERING.format(2**64 - 1)),
    ((2**62, 2**62, 0), vellum.ShapeError, DIFFERING.format(0)),
    ((3, 2), ValueError, KEYWORDS),
])  # fmt: skip
def test_refused_dimensions_change_nothing(arguments, error, text):
    array = counted(2, 3)
    assert outcome(lambda: array.reshape(*arguments, order=1)) == (error, text)
    assert nested(array) == [[0, 1, 2], [3, 4, 5]]
    assert array.reshape(3, 2, **{}).size == (3, 2)


def test_strides_that_cannot_be_represented():
    array = vellum.double(size=(0, 3))
    assert outcome(lambda: array.reshape(2**62, 0, order=1)) == (ValueError, KEYWORDS)
    assert outcome(array.reshape, 2**62, 0) == (vellum.ShapeError, STRIDES)
    assert array.size == (0, 3)
    assert array.reshape(0, 2**62).size == (0, 2**62)


def test_exports_keep_their_shape_and_see_the_values():
    array = counted(2, 6)
    # Memoryviews copy the shape; this one reads the exporter's own.
    testbuffer = pytest.importorskip("_testbuffer")
    exports = []
    for shape in [(3, 4), (12, 1), (2, 6), (2, 2, 3), (4, 3)]:
        raw = testbuffer.ndarray(array, getbuf=testbuffer.PyBUF_FULL_RO)
        exports.append((raw, array.size, array.get_bytewise_strides()))
        array.reshape(1, 12).reshape(*shape)
    array[3][2] = -7
    for raw, shape, strides in exports:
        assert (raw.shape, raw.strides) == (shape, strides)
        assert raw.tobytes() == numpy.array(array).ravel("F").reshape(shape, order="F").tobytes()


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
    assert seconds() + seconds() < 10 * alone
    assert export.shape == (3, 2)


class Heap(ctypes.Structure):
    _fields_ = [("counts", ctypes.c_size_t * 10)]


def test_a_live_export_keeps_no_memory():
    mallinfo = getattr(ctypes.CDLL(None), "mallinfo2", None)
    if mallinfo is None or "san" in os.environ.get("LD_PRELOAD", ""):
        pytest.skip("this heap doesn't tell what is in use")
    mallinfo.restype = Heap
    array = counted(2, 3)
    export = memoryview(array)
    before = mallinfo().counts[7]  # the bytes that are given out
    for _ in range(10_000):
        array.reshape(3, 2)
    assert mallinfo().counts[7] < before + 10_000
    export.release()
