"""The capsule, through a native client (examples/hillshade) and its bare table."""

import ctypes
import pickle
import sys

import hillshade
import numpy
import pytest
import vellum
import vellummultidimarrayforpython as module

KINDS = "double single int8 uint8 int16 uint16 int32 uint32 int64 uint64".split()
REAL_TYPES = list(zip(range(3, 13), KINDS, "dfbBhHiIqQ"))  # type code, class, numpy's type
GRID = numpy.arange(12, dtype="d").reshape(3, 4) ** 2


def wrap(values, type_code):
    return hillshade.wrap(type_code, values.shape, values.tobytes(order="F"))


@pytest.mark.parametrize("type_code, name, code, is_complex", [
    (0, "logical", "?", False), *[(*row, flag) for row in REAL_TYPES for flag in (False, True)]
])  # fmt: skip
def test_every_type_comes_in_as_its_class_and_goes_out(type_code, name, code, is_complex):
    parts = numpy.array([[0, 1, 2], [3, 4, 5]]).astype(code)
    if is_complex:
        type_code += 10
        pairs = numpy.stack([parts, parts[:, ::-1]], axis=-1)
        parts = pairs.view(f"V{2 * parts.itemsize}")[..., 0]
    array = wrap(parts, type_code)
    assert type(array) is getattr(vellum, name)
    assert (array._is_complex, array.itemsize, array.size) == (is_complex, parts.itemsize, (2, 3))
    assert array[1][0] == (3 + 5j if is_complex else name == "logical" or 3)
    assert hillshade.service_type(array) == type_code
    assert hillshade.service_dimensions(array) == (2, 3)
    for _ in range(2):
        assert hillshade.service_bytes(array) == parts.tobytes(order="F")
        assert memoryview(array).tobytes(order="F") == parts.tobytes(order="F")
        array[0][1] = array[1][0]
        parts[0, 1] = parts[1, 0]


def test_types_without_a_class_and_null_pointers_are_refused():
    python = ctypes.pythonapi
    python.PyCapsule_GetPointer.restype = ctypes.POINTER(ctypes.c_void_p)
    python.PyType_GenericAlloc.restype = ctypes.py_object
    capsule = ctypes.py_object(module._capi), b"vellummultidimarrayforpython._capi"
    table = python.PyCapsule_GetPointer(*capsule)
    blank = python.PyType_GenericAlloc(ctypes.py_object(vellum.double), ctypes.c_ssize_t(0))
    wrap_array = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.c_void_p)(table[0])
    unwrap_array = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p)(table[1])
    for text, call in [
        ("invalid type.", lambda: hillshade.wrap(1, (1, 2), b"abcd")),
        ("invalid type.", lambda: hillshade.wrap(2, (), b"")),
        ("null data pointer.", lambda: wrap_array(None)),
        ("object not initialized.", lambda: unwrap_array(None)),
        ("object not initialized.", lambda: unwrap_array(id(blank))),
        ("object not initialized.", lambda: vellum.double([blank])),
    ]:
        with pytest.raises(RuntimeError) as caught:
            call()
        assert (type(caught.value), str(caught.value)) == (RuntimeError, text)


@pytest.mark.parametrize("refused, arguments, exception", [
    *[(array, {}, TypeError) for array in (
        1.5, vellum.double, GRID, iter(vellum.double()), vellum.logical([[True]]),
        vellum.double([[1j]], is_complex=True))],
    (vellum.double(size=(2, 2, 2)), {}, ValueError), (vellum.int8(), {"cell_size": 0}, ValueError),
])  # fmt: skip
def test_the_client_refuses_what_it_cannot_shade(refused, arguments, exception):
    with pytest.raises(exception):
        hillshade.shade(refused, **arguments)


@pytest.mark.parametrize("select", [
    lambda a: a[1], lambda a: a[-1], lambda a: a[0:2], lambda a: a[::-2], lambda a: a[1][1:3],
    lambda a: a[2][::-1], lambda a: a[1:3][0], lambda a: a[0:3][1:][::-1], lambda a: a[1:1],
    lambda a: a[0][2:2],
])  # fmt: skip
def test_a_partial_array_lends_a_copy_of_what_it_selects(select):
    array = wrap(GRID, 3)
    part, expected = select(array), select(GRID)
    assert hillshade.service_bytes(part) == expected.tobytes(order="F")
    shape = expected.shape if expected.ndim > 1 else (1, *expected.shape)
    assert hillshade.service_dimensions(part) == shape
    assert hillshade.service_address(part) == hillshade.service_address(part)
    assert hillshade.service_address(part) != hillshade.service_address(array)


def test_what_is_lent_follows_the_writes_of_python_but_not_the_reverse():
    array = wrap(GRID, 3)
    row = array[0]
    assert hillshade.service_bytes(row) == GRID[0].tobytes()
    array[0][1] = -7
    assert hillshade.service_bytes(row) == array[0].toarray().tobytes()
    hillshade.set_element_bytes(array, 0, numpy.float64(99).tobytes())
    assert (array[0][0], row[0], array.noncomplex()[0]) == (0, 0, 99)
    other = array[1]
    other.clone()  # fills the cache with one dimension
    assert hillshade.service_dimensions(other) == (4,)
    array.reshape(4, 3)
    assert hillshade.service_dimensions(array) == (4, 3)


def test_a_selection_that_cannot_be_copied_has_its_own_error():
    array = wrap(numpy.array([[2**64 - 1, 1]], dtype="Q"), 12)
    for copy in (lambda part: part.clone(), hillshade.service_bytes):
        with pytest.raises(OverflowError, match="too large"):
            copy(array[0])
    assert hillshade.service_bytes(array) == array.noncomplex().toarray().tobytes()


def test_native_shapes_that_python_never_makes():
    vector = hillshade.wrap(3, (3,), numpy.arange(3.0).tobytes())
    assert (vector.size, vector[1], str(vector)) == ((3,), 1, "[0.0,1.0,2.0]")
    empty = hillshade.wrap(6, (0, 3), b"")
    assert (empty.size, len(empty), hillshade.service_bytes(empty)) == ((0, 3), 0, b"")
    blank = hillshade.wrap(3, (), b"")
    assert memoryview(blank).tolist() == 0  # without dimensions it counts as one element
    assert (blank.size, repr(blank)) == ((), "vellum.double([])")
    assert blank == blank and blank == vellum.double() and blank != vellum.double([1])
    assert pickle.loads(pickle.dumps(blank)).size == (0, 0)
    for use in (len, iter, vellum.single, vellum.double.toarray, lambda a: 1 in a, lambda a: a[0],
                lambda a: a[:], lambda a: a.__setitem__(0, 1)):  # fmt: skip
        with pytest.raises(RuntimeError, match="^too many indices.$"):
            use(blank)
    with pytest.raises(RuntimeError, match="^dimensions are unexpectedly empty.$"):
        blank.clone()


@pytest.mark.parametrize("type_code, _, code", REAL_TYPES)
def test_a_plane_is_shaded_by_its_angle_to_the_light(type_code, _, code):
    rows, columns = numpy.indices((7, 9))
    grid = wrap((40 + 3 * columns - 2 * rows).astype(code), type_code)
    references = sys.getrefcount(grid)
    slope = numpy.array([-3, -2, 2.5 / 0.5])  # upright: westward and southward of 2.5 / z_factor
    for azimuth, altitude in [(300, 35), (90, 10), (180, 90)]:
        shades = hillshade.shade(grid[1:], azimuth, altitude, z_factor=0.5, cell_size=2.5)
        a, h = numpy.radians([azimuth, altitude])
        light = numpy.array([numpy.sin(a) * numpy.cos(h), numpy.cos(a) * numpy.cos(h), numpy.sin(h)])
        exact = 255 * max(light @ slope / numpy.linalg.norm(slope), 0)
        inner = numpy.array(memoryview(shades))[1:-1, 1:-1]  # edges repeat themselves outwards
        assert type(shades) is vellum.uint8 and numpy.abs(inner - exact).max() <= 0.5 + 1e-9
    assert sys.getrefcount(grid) == references
