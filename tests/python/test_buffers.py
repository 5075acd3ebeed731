"""Real producers and consumers of the buffer protocol, and some that lie."""

import array
import ctypes
import mmap
import struct
import sys

import numpy
import oracle
import pytest
import vellum
from exporter import Buffer, Exporter, set_buffer_slots
from helpers import outcome
from vellum import double

UNEVEN = "input does not fit evenly into output type."
REFUSED = "unable to retrieve buffer."


def mismatch(found, wanted):
    found = f"input buffer format ('{found}') is not compatible with output format ('{wanted}')"
    return f"{found}; use a different input or output type"


def refusal(exporter, kind="double"):
    error, text = outcome(getattr(vellum, kind), exporter)
    assert error is BufferError
    return text


@pytest.mark.parametrize("kind", oracle.FORMATS)
@pytest.mark.parametrize("is_complex", [False, True])
def test_every_request(kind, is_complex):
    is_complex = is_complex and kind != "logical"
    a = getattr(vellum, kind)(size=(2, 3, 4), is_complex=is_complex)
    code = "Z" * is_complex + oracle.FORMATS[kind]
    width = struct.calcsize(code[-1]) * (1 + is_complex)
    strides = (width, width * 2, width * 6)
    assert a.get_bytewise_strides() == strides
    for flags in {*range(512)} - {0x100}:  # that one alone is refused by some interpreters
        buffer = Buffer(obj=1)
        part = a[1][0:2] if flags % 2 == 0 else a
        references = sys.getrefcount(part)
        request = ctypes.py_object(part), ctypes.byref(buffer), flags
        result = outcome(ctypes.pythonapi.PyObject_GetBuffer, *request)
        if flags & 1 or flags & 0x38 == 0x38:
            text = "is not writable" if flags & 1 else "not C-contiguous"
            assert result == (ValueError, f"underlying buffer {text}.")
            assert buffer.obj is None
            continue
        assert (buffer.buf, 24, buffer.obj, result) == (*a.buffer_info(), id(part), 0)
        assert (buffer.len, buffer.itemsize, buffer.readonly) == (24 * width, width, 1)
        assert buffer.format == (code.encode() if flags & 4 else None)
        assert (*buffer.shape[: buffer.ndim], *buffer.strides[:3]) == (2, 3, 4, *strides)
        del request
        assert sys.getrefcount(part) == references + 1
        ctypes.pythonapi.PyBuffer_Release(ctypes.byref(buffer))
        assert sys.getrefcount(part) == references
    result = outcome(ctypes.pythonapi.PyObject_GetBuffer, ctypes.py_object(a), None, 0)
    assert result == (RuntimeError, "null pointer to view object null.")


SIX = [0, 1, 2, 3, 4, 5]
ROWS = [SIX[:3], SIX[3:]]


def frame(**fields):
    """Two rows of three doubles, as far as the fields don't say otherwise."""
    return Exporter(**{"ndim": 2, "shape": (2, 3), "strides": (24, 8), **fields})


@pytest.mark.parametrize("exporter, expected", [
    (mmap.mmap(-1, 32), vellum.uint8(size=(1, 32))), (array.array("d", SIX), double(SIX)),
    (numpy.array(2.5), double(2.5)), (Exporter(ndim=0, shape=None, len=8), double(0)),
    (Exporter(shape=None), double(SIX)), (Exporter(itemsize=1, shape=(48,)), double(SIX)),
    (Exporter(itemsize=16, shape=(3,), format=b"dd"), double(SIX)), (frame(), double(ROWS)),
    (frame(strides=(8, 16)), double([[0, 2, 4], [1, 3, 5]])),
    # The stride of a dimension of length 1 can be anything.
    (frame(ndim=3, shape=(1, 2, 3), strides=(8, 24, 8)), double([ROWS])),
    (frame(ndim=3, shape=(1, 2, 3), strides=(8, 8, 16)), double([[[0, 2, 4], [1, 3, 5]]])),
    (frame(len=0, buf=None, shape=(0, 3)), double(size=(0, 3))),
])  # fmt: skip
def test_exporters_that_keep_their_promise(exporter, expected):
    a = type(expected)(exporter)
    assert (a, a.size) == (expected, expected.size)
    assert getattr(exporter, "exports", 0) == 0


@pytest.mark.parametrize("text, exporters", [
    (REFUSED, [numpy.zeros((4, 4))[::2]]),
    (mismatch(">d", "d"), [numpy.zeros(2, ">d")]),
    (mismatch("\\xffd\\x80", "d"), [Exporter(format=b"\xffd\x80", len=44)]),
    ("input 'format' field is null.", [Exporter(format=None), Exporter(format=b"", len=44)]),
    ("shape is null.", [frame(itemsize=0, shape=None)]),
    ("strides or itemsize of input buffer are missing.", [frame(strides=None)]),
    # There is no memory of that size: nothing is reserved or read before the refusal.
    (UNEVEN, [Exporter(len=2**62), frame(len=2**62, strides=None), Exporter(ndim=0, len=2**62)]),
    (UNEVEN, [Exporter(len=-8), Exporter(len=44), frame(len=44, shape=None), Exporter(buf=None)]),
    (UNEVEN, [Exporter(ndim=-1), Exporter(ndim=65, shape=None), Exporter(ndim=0, itemsize=1)]),
    (UNEVEN, [Exporter(itemsize=0, shape=None), frame(itemsize=-8), frame(itemsize=0)]),
    (UNEVEN, [Exporter(shape=(-6,)), frame(shape=(-2, -3)), Exporter(shape=(5,))]),
    (UNEVEN, [Exporter(len=0, shape=(2**61,)), frame(itemsize=16, shape=(3, 1))]),
])  # fmt: skip
def test_exporters_that_are_refused(text, exporters):
    for exporter in exporters:
        assert refusal(exporter) == text
        assert getattr(exporter, "exports", 0) == 0


def test_a_release_that_fails(monkeypatch):
    class Failing(Exporter):
        pass

    left = []
    monkeypatch.setattr(sys, "unraisablehook", left.append)
    # It sets a `SystemError`: the exporter is no class of exceptions.
    set_buffer_slots(Failing, Exporter.get, ctypes.pythonapi.PyErr_SetNone)
    exporter = Failing()
    assert double(exporter).size == (1, 6)
    assert refusal(exporter, "single") == mismatch("d", "f")
    assert [(hook.exc_type, hook.object) for hook in left] == [(SystemError, exporter)] * 2


@pytest.mark.parametrize("error", [KeyboardInterrupt, MemoryError, ValueError, BufferError])
def test_a_request_that_fails(error):
    class Refusing:
        def __bool__(self):
            raise own

    own = error("no")
    set_buffer_slots(Refusing, ctypes.pythonapi.PyObject_IsTrue)
    with pytest.raises(BaseException) as caught:
        double(Refusing())
    if error in (ValueError, BufferError):
        assert repr(caught.value) == f"BufferError('{REFUSED}')"
        assert caught.value.__cause__ is own
    else:
        assert caught.value is own
