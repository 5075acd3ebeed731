"""Real producers and consumers of the buffer protocol."""

import array
import ctypes
import math
import mmap
import struct
import sys

import numpy
import pytest
from hypothesis import given
from hypothesis import strategies as st

import vellum
from vellum import double

try:
    import _testbuffer as testbuffer
except ImportError:  # not every distribution brings it
    testbuffer = None

CODES = dict(double="d", single="f", int8="b", uint8="B", int16="h", uint16="H",
             int32="i", uint32="I", int64="q", uint64="Q", logical="B")  # fmt: skip
KINDS = [(k, c) for k in CODES for c in (False, True) if (k, c) != ("logical", True)]
each_kind = pytest.mark.parametrize("kind, is_complex", KINDS)
REFUSED = "unable to retrieve buffer."
UNEVEN = "input does not fit evenly into output type."


def mismatch(found, wanted):
    return (
        f"input buffer format ('{found}') is not compatible with output format ('{wanted}');"
        " use a different input or output type"
    )


def filled(kind, is_complex, shape):
    count = math.prod(shape)
    values = [i % 2 if kind == "logical" else i % 100 for i in range(count)]
    if is_complex:
        values = [complex(x, 100 - x) for x in values]
    return getattr(vellum, kind)(vector=values, size=shape, is_complex=is_complex), values


class Buffer(ctypes.Structure):
    _fields_ = [("buf", ctypes.c_void_p), ("obj", ctypes.c_void_p)]
    _fields_ += [(name, ctypes.c_ssize_t) for name in ("len", "itemsize")]
    _fields_ += [("readonly", ctypes.c_int), ("ndim", ctypes.c_int), ("format", ctypes.c_char_p)]
    _fields_ += [(name, ctypes.POINTER(ctypes.c_ssize_t)) for name in ("shape", "strides", "subs")]
    _fields_ += [("internal", ctypes.c_void_p)]


@each_kind
def test_every_request(kind, is_complex):
    a, values = filled(kind, is_complex, (2, 3, 4))
    code = CODES[kind] if kind != "logical" else "?"
    form, width = "Z" * is_complex + code, struct.calcsize(code) * (1 + is_complex)
    assert (a.itemsize, a._is_complex) == (width, is_complex)
    assert a.get_bytewise_strides() == (width, width * 2, width * 6)
    for flags in {*range(512)} - {0x100}:  # that one alone is refused by some interpreters
        buffer = Buffer(obj=1)
        get = ctypes.pythonapi.PyObject_GetBuffer
        part = a[1][0:2] if flags % 2 == 0 else a
        references = sys.getrefcount(part)
        request = ctypes.py_object(part), ctypes.byref(buffer), flags
        if flags & 1 or flags & 0x38 == 0x38:
            text = f"underlying buffer {'is not writable' if flags & 1 else 'not C-contiguous'}."
            with pytest.raises(ValueError) as caught:
                get(*request)
            assert (str(caught.value), buffer.obj) == (text, None)
            del caught
            continue
        assert get(*request) == 0
        assert (buffer.buf, len(values)) == a.buffer_info() and buffer.obj == id(part)
        assert (buffer.len, buffer.itemsize, buffer.ndim) == (24 * width, width, 3)
        assert buffer.format == (form.encode() if flags & 4 else None)
        assert buffer.shape[:3] == [2, 3, 4] and not buffer.subs and buffer.readonly == 1
        assert tuple(buffer.strides[:3]) == a.get_bytewise_strides()
        del request
        assert sys.getrefcount(part) == references + 1
        ctypes.pythonapi.PyBuffer_Release(ctypes.byref(buffer))
        assert sys.getrefcount(part) == references


@each_kind
def test_numpy_reads_and_gives_back(kind, is_complex):
    a, values = filled(kind, is_complex, (2, 3, 4))
    view = a.tomemoryview()
    assert view.f_contiguous and not view.c_contiguous and view.readonly
    if is_complex and kind not in ("double", "single"):
        flat = struct.unpack(f"48{CODES[kind]}", view.tobytes(order="A"))
        assert list(map(complex, flat[::2], flat[1::2])) == values
        assert type(a)(view, is_complex=True) == a
        return
    seen = numpy.asarray(a)
    assert seen.flags.f_contiguous and not seen.flags.writeable and seen.shape == a.size
    assert seen.ravel("F").tolist() == values and not seen.flags.owndata
    assert seen[1, 2, 3] == a[1][2][3] and (numpy.asarray(a[1]) == seen).all()
    back = seen.astype("B") if kind == "logical" else seen
    for order in "CF":
        again = type(a)(numpy.array(back, order=order), is_complex=is_complex)
        assert again == a and bytes(again) == bytes(a)
    a[1][2][3] = 0
    assert seen[1, 2, 3] == 0 and again != a
    del a
    assert seen.ravel("F").tolist() == values[:-1] + [0]


# Codes that the formats of a memoryview can have, and the kinds that take them.
TAKEN = {code: kind for kind, code in CODES.items() if kind != "logical"}
TAKEN.update(l=f"int{8 * struct.calcsize('l')}", L=f"uint{8 * struct.calcsize('l')}")


@pytest.mark.parametrize("code", "bBhHiIlLqQfdnNPc?")
@each_kind
def test_every_format_into_every_class(kind, is_complex, code):
    cls = getattr(vellum, kind)
    exporter = memoryview(bytes(range(1, 33))).cast(code)
    if is_complex:
        text = f"input buffer format ('{code}') does not begin with 'Z', but output type is complex"
    elif kind == TAKEN.get(code) or (kind, code) == ("logical", "B"):
        a = cls(exporter)
        assert a.size == (1, len(exporter))
        assert a[0].toarray().tolist() == [bool(x) if kind == "logical" else x for x in exporter]
        return
    else:
        text = mismatch(code, CODES[kind])
    with pytest.raises(BufferError) as caught:
        cls(exporter, is_complex=is_complex)
    assert str(caught.value) == text


anonymous = mmap.mmap(-1, 4)
anonymous[:] = b"abcd"
pairs = {k: filled(k, True, (1, 2))[0].tomemoryview() for k in ("double", "single")}
PRODUCERS = [
    ("double", pairs["double"], mismatch("Zd", "d"), None),
    ("complex double", pairs["single"], mismatch("Zf", "Zd"), None),
    ("complex single", pairs["double"], mismatch("Zd", "Zf"), None),
    ("uint8", b"abc", (1, 3), [97, 98, 99]),
    ("uint8", bytearray(b"ab"), (1, 2), [97, 98]),
    ("uint8", anonymous, (1, 4), [97, 98, 99, 100]),
    ("uint8", b"", (0, 0), []),
    ("logical", b"\0\2", (1, 2), [False, True]),
    ("double", array.array("d", [1, 2, 3]), (1, 3), [1, 2, 3]),
    ("double", array.array("d"), (0, 0), []),
    ("double", numpy.array(2.5), (1, 1), [2.5]),
    ("double", numpy.zeros((2, 3, 1)), (2, 3), [0] * 6),
    ("double", numpy.zeros((2, 0, 3)), (2, 0, 3), []),
    ("double", double([[1, 2], [3, 4]]).tomemoryview(), (2, 2), [1, 3, 2, 4]),
    ("double", b"", mismatch("B", "d"), None),
    ("int8", b"abc", mismatch("B", "b"), None),
    ("uint8", memoryview(b"abcd")[::2], REFUSED, None),
    ("double", numpy.zeros((4, 4))[::2], REFUSED, None),
    ("double", numpy.zeros(2, ">d"), mismatch(">d", "d"), None),
    ("double", (ctypes.c_double * 2)(), mismatch("<d", "d"), None),
    ("double", numpy.zeros(2, "d,d"), mismatch("T{d:f0:d:f1:}", "d"), None),
    ("logical", numpy.zeros(2, "?"), mismatch("?", "B"), None),
]


@pytest.mark.parametrize("kind, producer, size, elements", PRODUCERS)
def test_producers(kind, producer, size, elements):
    if elements is not None:
        a = getattr(vellum, kind)(producer)
        assert a.size == size and numpy.asarray(a).ravel("F").tolist() == elements
        return
    with pytest.raises(BufferError) as caught:
        getattr(vellum, kind.split()[-1])(producer, is_complex="complex" in kind)
    assert str(caught.value) == size


@pytest.mark.skipif(testbuffer is None, reason="no _testbuffer")
def test_exotic_exporters():
    nd = testbuffer.ndarray
    assert double(nd(2.5, shape=[], format="d")).size == (1, 1)
    order = nd(list(range(6)), shape=[2, 3], strides=[8, 16], format="d")
    assert str(double(order)) == "[[0.0,2.0,4.0],[1.0,3.0,5.0]]"
    order = nd(list(range(6)), shape=[2, 3], format="d")
    assert str(double(order)) == "[[0.0,1.0,2.0],[3.0,4.0,5.0]]"
    pairs = nd([(1, 2), (3, 4)], shape=[2], format="dd")
    assert str(double(pairs)) == "[[1.0,2.0,3.0,4.0]]"
    refused = {
        UNEVEN: [nd([(1, 2)] * 4, shape=[2, 2], format="dd"), nd((1, 2), shape=[], format="dd"),
                 nd([(1, 2)] * 3, shape=[3], format="db")],
        REFUSED: [nd(list(range(6)), shape=[2, 3], format="d", flags=testbuffer.ND_PIL),
                  nd(list(range(9)), shape=[3], strides=[-8], offset=16, format="d")],
        mismatch("@d", "d"): [nd([1, 2], shape=[2], format="@d")],
    }  # fmt: skip
    for text, exporters in refused.items():
        for exporter in exporters:
            with pytest.raises(BufferError) as caught:
                double(exporter)
            assert str(caught.value) == text


@given(st.lists(st.integers(0, 4), min_size=1, max_size=5), st.data())
def test_consumers_see_the_indexed_elements(dims, data):
    a = double(vector=range(math.prod(dims)), size=dims)
    view = memoryview(a)
    assert view.shape == a.size and view.nbytes == 8 * math.prod(dims)
    assert view.tolist() == eval(str(a)) if view.nbytes else True
    rows = numpy.asarray(a)
    assert bytes(a) == bytearray(a) == rows.tobytes("C") and view.tobytes("A") == rows.tobytes("F")
    assert array.array("d", view.tobytes("A")).tolist() == list(range(view.nbytes // 8))
    assert double(view).size == a.size and double(view) == a
    if testbuffer is not None:
        assert testbuffer.ndarray(a, getbuf=testbuffer.PyBUF_FULL_RO).tolist() == rows.tolist()
