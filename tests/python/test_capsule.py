"""The capsule, through a native client (examples/hillshade) and its bare table."""

import ctypes
import pickle

import hillshade
import numpy
import oracle
import pytest
import vellum
import vellummultidimarrayforpython as module
from helpers import outcome

CAPSULE_NAME = b"vellummultidimarrayforpython._capi"
GRID = numpy.arange(12, dtype="d").reshape(3, 4) ** 2


def wrap(values, type_code=3):
    return hillshade.wrap(type_code, values.shape, values.tobytes(order="F"))


NUMERIC = [*oracle.FLOATS, *oracle.INTEGERS]
TYPES = [(0, "logical"), *enumerate(NUMERIC, 3), *enumerate(NUMERIC, 13)]


@pytest.mark.parametrize("type_code, kind", TYPES)
def test_every_type_comes_in_as_its_class_and_goes_out(type_code, kind):
    is_complex = type_code >= 13
    elements = numpy.array([[1, 0, 1, 1], [0, 1, 0, 0]]).astype(oracle.FORMATS[kind])
    if is_complex:
        elements = elements.reshape(2, 2, 2).view(f"V{2 * elements.itemsize}")[..., 0]
    array = wrap(elements, type_code)
    assert type(array) is getattr(vellum, kind)
    assert (array._is_complex, array.size) == (is_complex, elements.shape)
    assert hillshade.service_type(array) == type_code
    array[0][1] = array[1][0]
    elements[0, 1] = elements[1, 0]
    assert hillshade.service_bytes(array) == elements.tobytes(order="F")
    assert memoryview(array).tobytes(order="F") == elements.tobytes(order="F")


def test_types_without_a_class_and_null_pointers_are_refused():
    python = ctypes.pythonapi
    python.PyCapsule_GetPointer.restype = ctypes.POINTER(ctypes.c_void_p)
    allocate = python.PyType_GenericAlloc
    allocate.restype = ctypes.py_object
    table = python.PyCapsule_GetPointer(ctypes.py_object(module._capi), CAPSULE_NAME)
    blank = allocate(ctypes.py_object(vellum.double), ctypes.c_ssize_t(0))
    blank_iterator = allocate(ctypes.py_object(module.VellumPyIter), ctypes.c_ssize_t(0))
    wrap_array = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.c_void_p)(table[0])
    unwrap_array = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p)(table[1])
    assert outcome(hillshade.wrap, 1, (1, 2), b"abcd") == (RuntimeError, "invalid type.")
    assert outcome(wrap_array, None) == (RuntimeError, "null data pointer.")
    not_initialized = (RuntimeError, "object not initialized.")
    assert outcome(unwrap_array, None) == not_initialized
    assert outcome(unwrap_array, id(blank)) == not_initialized
    assert outcome(vellum.double, [blank]) == not_initialized
    assert outcome(next, blank_iterator) == not_initialized


def test_a_partial_array_lends_a_copy_that_follows_the_writes_of_python():
    array = wrap(GRID)
    row = array[0]
    assert hillshade.service_bytes(row) == GRID[0].tobytes()
    assert hillshade.service_dimensions(row) == (1, 4)
    assert hillshade.service_dimensions(array[::-2]) == (2, 4)
    assert hillshade.service_address(row) == hillshade.service_address(row)
    assert hillshade.service_address(row) != hillshade.service_address(array)
    array[0][1] = -7
    assert hillshade.service_bytes(row) == array[0].toarray().tobytes()
    # But not the reverse.
    hillshade.set_element_bytes(array, 0, numpy.float64(99).tobytes())
    assert (array[0][0], row[0], array.noncomplex()[0]) == (0, 0, 99)
    other = array[1]
    other.clone()  # fills the cache with one dimension
    assert hillshade.service_dimensions(other) == (4,)


def test_a_selection_that_cannot_be_copied_has_its_own_error():
    array = wrap(numpy.array([[2**64 - 1, 1]], dtype="Q"), 12)
    expected = (OverflowError, "Python int too large to convert to C long long")
    assert outcome(vellum.uint64.clone, array[0]) == expected
    assert outcome(hillshade.service_bytes, array[0]) == expected
    assert hillshade.service_bytes(array) == array[0].toarray().tobytes()


def test_native_shapes_that_python_never_makes():
    vector = wrap(numpy.arange(3.0))
    assert (vector.size, vector[1], str(vector)) == ((3,), 1, "[0.0,1.0,2.0]")
    blank = hillshade.wrap(3, (), b"")
    assert memoryview(blank).tolist() == 0  # without dimensions it counts as one element
    assert (blank.size, repr(blank)) == ((), "vellum.double([])")
    assert blank == vellum.double()
    assert blank != vellum.double([1])
    assert pickle.loads(pickle.dumps(blank)).size == (0, 0)
    uses = [len, iter, vellum.single, vellum.double.toarray, lambda a: a[0], lambda a: a[:]]
    for use in [*uses, lambda a: 1 in a, lambda a: a.__setitem__(0, 1)]:
        assert outcome(use, blank) == (RuntimeError, "too many indices.")
    expected = (RuntimeError, "dimensions are unexpectedly empty.")
    assert outcome(blank.clone) == expected


def test_a_plane_is_shaded_by_its_angle_to_the_light():
    rows, columns = numpy.indices((7, 9))
    grid = wrap(40.0 + 3 * columns - 2 * rows)
    shades = hillshade.shade(grid[1:], 300, 35, z_factor=0.5, cell_size=2.5)
    upright = numpy.array([-3, -2, 2.5 / 0.5])  # westward and southward of 2.5 / z_factor
    a, h = numpy.radians([300, 35])
    light = [numpy.sin(a) * numpy.cos(h), numpy.cos(a) * numpy.cos(h), numpy.sin(h)]
    exact = 255 * numpy.dot(light, upright) / numpy.linalg.norm(upright)
    inner = numpy.array(memoryview(shades))[1:-1, 1:-1]  # edges repeat themselves outwards
    assert numpy.abs(inner - exact).max() <= 0.5
    with pytest.raises(TypeError):
        hillshade.shade(vellum.logical([[True]]))
