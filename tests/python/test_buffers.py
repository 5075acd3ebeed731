"""Real producers and consumers of the buffer protocol."""

import array
import ctypes
import math
import mmap
import struct
import sys

import numpy
import oracle
import pytest
import vellum
from exporter import Buffer, Exporter, set_buffer_slots
from hypothesis import given, strategies as st
from vellum import double

KINDS = [(k, c) for k in oracle.FORMATS for c in (False, True)][:-1]  # logical is last
each_kind = pytest.mark.parametrize("kind, is_complex", KINDS)
REFUSED = "unable to retrieve buffer."
UNEVEN = "input does not fit evenly into output type."
NO_STRIDES = "strides or itemsize of input buffer are missing."


def mismatch(found, wanted):
    return (f"input buffer format ('{found}') is not compatible with output format ('{wanted}');"
            " use a different input or output type")  # fmt: skip


def filled(kind, is_complex, shape):
    values = [i % 2 if kind == "logical" else i % 100 for i in range(math.prod(shape))]
    if is_complex:
        values = [complex(x, 100 - x) for x in values]
    return getattr(vellum, kind)(vector=values, size=shape, is_complex=is_complex), values


def refusal(exporter, kind="double", is_complex=False):
    with pytest.raises(BufferError) as caught:
        getattr(vellum, kind)(exporter, is_complex=is_complex)
    return str(caught.value)


@each_kind
def test_every_request(kind, is_complex):
    a, values = filled(kind, is_complex, (2, 3, 4))
    code = "Z" * is_complex + oracle.FORMATS[kind]
    width = struct.calcsize(code[-1]) * (1 + is_complex)
    assert (a.itemsize, a.get_bytewise_strides()) == (width, (width, width * 2, width * 6))
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
            continue
        assert get(*request) == 0
        assert (buffer.buf, len(values)) == a.buffer_info() and buffer.obj == id(part)
        assert (buffer.len, buffer.itemsize, buffer.ndim) == (24 * width, width, 3)
        assert buffer.format == (code.encode() if flags & 4 else None)
        assert buffer.shape[:3] == [2, 3, 4] and not buffer.suboffsets and buffer.readonly == 1
        assert tuple(buffer.strides[:3]) == a.get_bytewise_strides()
        del request
        assert sys.getrefcount(part) == references + 1
        ctypes.pythonapi.PyBuffer_Release(ctypes.byref(buffer))
        assert sys.getrefcount(part) == references
    with pytest.raises(RuntimeError, match="^null pointer to view object null.$"):
        get(ctypes.py_object(a), None, 0)


@each_kind
def test_numpy_reads_and_gives_back(kind, is_complex):
    a, values = filled(kind, is_complex, (2, 3, 4))
    view = a.tomemoryview()
    assert view.f_contiguous and not view.c_contiguous and view.readonly
    if is_complex and kind not in oracle.FLOATS:  # numpy has no such elements
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


@each_kind
def test_every_format_into_every_class(kind, is_complex):
    wanted = oracle.FORMATS[kind].replace("?", "B")
    long = dict(zip("lL", "iI" if struct.calcsize("l") == 4 else "qQ"))
    for code in "bBhHiIlLqQfdnNPc?":
        exporter = memoryview(bytes(range(1, 33))).cast(code)
        if is_complex:
            text = f"input buffer format ('{code}') does not begin with 'Z', but output type is"
            assert refusal(exporter, kind, True) == text + " complex"
        elif long.get(code, code) != wanted:
            assert refusal(exporter, kind) == mismatch(code, wanted)
        else:
            values = [1] * 32 if kind == "logical" else list(exporter)
            a = getattr(vellum, kind)(exporter)
            assert a.size == (1, len(exporter)) and a[0].toarray().tolist() == values


@pytest.mark.parametrize("kind, producer, size, elements", [
    ("uint8", b"abc", (1, 3), [97, 98, 99]), ("uint8", bytearray(b"ab"), (1, 2), [97, 98]),
    ("uint8", mmap.mmap(-1, 4), (1, 4), [0] * 4), ("uint8", b"", (0, 0), []),
    ("logical", b"\0\2", (1, 2), [0, 1]), ("double", numpy.array(2.5), (1, 1), [2.5]),
    ("single", array.array("f", [1, 2, 3]), (1, 3), [1, 2, 3]),
    ("double", double([[1, 2], [3, 4]]).tomemoryview(), (2, 2), [1, 3, 2, 4]),
])  # fmt: skip
def test_producers(kind, producer, size, elements):
    a = getattr(vellum, kind)(producer)
    assert a.size == size and numpy.asarray(a).ravel("F").tolist() == elements


pairs = {k: filled(k, True, (1, 2))[0].tomemoryview() for k in ("double", "single")}


@pytest.mark.parametrize("text, producer, arguments", [
    (mismatch("Zd", "d"), pairs["double"], ()),
    (mismatch("Zf", "Zd"), pairs["single"], ("double", True)),
    (mismatch("Zd", "Zf"), pairs["double"], ("single", True)),
    (mismatch("B", "d"), b"", ()), (mismatch("B", "b"), b"abc", ("int8",)),
    (REFUSED, memoryview(b"abcd")[::2], ("uint8",)), (REFUSED, numpy.zeros((4, 4))[::2], ()),
    (mismatch(">d", "d"), numpy.zeros(2, ">d"), ()),
    (mismatch("<d", "d"), (ctypes.c_double * 2)(), ()),
    (mismatch("T{d:f0:d:f1:}", "d"), numpy.zeros(2, "d,d"), ()),
    (mismatch("?", "B"), numpy.zeros(2, "?"), ("logical",)),
])  # fmt: skip
def test_refused_producers(text, producer, arguments):
    assert refusal(producer, *arguments) == text


def test_exotic_exporters():
    testbuffer = pytest.importorskip("_testbuffer")  # not every distribution brings it
    nd = testbuffer.ndarray
    assert double(nd(2.5, shape=[], format="d")).size == (1, 1)
    six = [0, 1, 2, 3, 4, 5]
    for strides, rows in ([8, 16], [[0, 2, 4], [1, 3, 5]]), ([24, 8], [six[:3], six[3:]]):
        assert double(nd(six, shape=[2, 3], strides=strides, format="d")) == double(rows)
        # The stride of a dimension of length 1 can be anything.
        strides = [8, *strides]
        assert double(nd(six, shape=[1, 2, 3], strides=strides, format="d")) == double([rows])
    assert str(double(nd([(1, 2), (3, 4)], shape=[2], format="dd"))) == "[[1.0,2.0,3.0,4.0]]"
    refused = {
        UNEVEN: [
            nd([(1, 2)] * 4, shape=[2, 2], format="dd"), nd((1, 2), shape=[], format="dd"),
            nd([(1, 2)] * 3, shape=[3], format="db")],
        REFUSED: [nd(six, shape=[2, 3], format="d", flags=testbuffer.ND_PIL),
                  nd(list(range(9)), shape=[3], strides=[-8], offset=16, format="d")],
        mismatch("@d", "d"): [nd([1, 2], shape=[2], format="@d")],
    }  # fmt: skip
    for text, exporters in refused.items():
        assert [refusal(exporter) for exporter in exporters] == [text] * len(exporters)
    full = testbuffer.PyBUF_FULL_RO
    assert testbuffer.ndarray(double(rows), getbuf=full).tolist() == [six[:3], six[3:]]


rows = {"ndim": 2, "shape": (2, 3), "strides": (24, 8)}


@pytest.mark.parametrize("fields, size, elements", [
    ({}, (1, 6), "[[0.0,1.0,2.0,3.0,4.0,5.0]]"), ({"shape": None}, (1, 6), ...),
    ({"itemsize": 1, "shape": (48,)}, (1, 6), ...),
    ({"itemsize": 16, "shape": (3,), "format": b"dd"}, (1, 6), ...),
    ({"ndim": 0, "shape": None, "len": 8}, (1, 1), "[[0.0]]"),
    (rows, (2, 3), "[[0.0,1.0,2.0],[3.0,4.0,5.0]]"),
    ({**rows, "strides": (8, 16)}, (2, 3), "[[0.0,2.0,4.0],[1.0,3.0,5.0]]"),
    ({**rows, "len": 0, "buf": None, "shape": (0, 3)}, (0, 3), "[]"),
])  # fmt: skip
def test_exporters_that_keep_their_promise(fields, size, elements):
    exporter = Exporter(**fields)
    a = double(exporter)
    assert a.size == size and elements in (..., str(a)) and exporter.exports == 0


@pytest.mark.parametrize("text, fields", [
    # There is no memory of that size: nothing is reserved or read before the refusal.
    (UNEVEN, {"len": 2**62}), (UNEVEN, {**rows, "len": 2**62}),
    (UNEVEN, {"ndim": 0, "len": 2**62}), (UNEVEN, {"ndim": 0, "itemsize": 1}),
    (UNEVEN, {"len": -8}), (UNEVEN, {"len": 44}), (UNEVEN, {"buf": None}),
    (UNEVEN, {"ndim": -1}), (UNEVEN, {"ndim": 65, "shape": None}),
    (UNEVEN, {"shape": (-6,)}), (UNEVEN, {**rows, "shape": (-2, -3)}),
    (UNEVEN, {"itemsize": 0}), (UNEVEN, {"itemsize": 0, "shape": None}),
    (UNEVEN, {**rows, "itemsize": -8}), (UNEVEN, {"shape": (5,)}), (UNEVEN, {"shape": (0,)}),
    (UNEVEN, {"len": 0, "shape": (2**61,)}), (UNEVEN, {**rows, "len": 0, "shape": (2**61, 1)}),
    (UNEVEN, {**rows, "len": 2**62, "strides": None}), (NO_STRIDES, {**rows, "strides": None}),
    (UNEVEN, {**rows, "len": 47, "shape": None}),
    ("shape is null.", {**rows, "itemsize": 0, "shape": None}),
    ("input 'format' field is null.", {"format": None}),
    ("input 'format' field is null.", {"format": b"", "len": 44}),
    (mismatch("\\xffd\\x80", "d"), {"format": b"\xffd\x80", "len": 44}),
])  # fmt: skip
def test_exporters_that_lie(text, fields):
    exporter = Exporter(**fields)
    assert refusal(exporter) == text and exporter.exports == 0


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


@pytest.mark.parametrize("error", [KeyboardInterrupt, SystemExit, GeneratorExit, MemoryError,
                                   ValueError, BufferError])  # fmt: skip
def test_a_request_that_fails(error):
    class Refusing:
        def __bool__(self):
            raise raised

    raised = error("no")
    set_buffer_slots(Refusing, ctypes.pythonapi.PyObject_IsTrue)
    with pytest.raises(BaseException) as caught:
        double(Refusing())
    if error in (ValueError, BufferError):
        assert str(caught.value) == REFUSED and type(caught.value) is BufferError
        assert caught.value.__cause__ is raised
    else:
        assert caught.value is raised


@given(st.lists(st.integers(0, 4), min_size=1, max_size=5))
def test_consumers_see_the_indexed_elements(dims):
    a = double(vector=range(math.prod(dims)), size=dims)
    view, rows = memoryview(a), numpy.asarray(a)
    assert view.shape == a.size and (view.tolist() == eval(str(a)) or not view.nbytes)
    assert bytes(a) == bytearray(a) == rows.tobytes("C") and view.tobytes("A") == rows.tobytes("F")
    assert array.array("d", view.tobytes("A")).tolist() == list(range(view.nbytes // 8))
    assert double(view).size == a.size and double(view) == a
