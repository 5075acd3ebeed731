"""The capsule, through a native client (examples/hillshade) and its bare table."""

import ctypes
import pickle
import sys

import hillshade
import numpy
import pytest
import vellum
import vellummultidimarrayforpython as module

REAL_KINDS = "double single int8 uint8 int16 uint16 int32 uint32 int64 uint64".split()
REAL_CODES = "d f b B h H i I q Q".split()
TYPE_CODES = [(0, "logical", "?")] + [
    (3 + k, name, code) for k, (name, code) in enumerate(zip(REAL_KINDS, REAL_CODES))
]
GRID = numpy.arange(12, dtype="d").reshape(3, 4) ** 2

python = ctypes.pythonapi
python.PyCapsule_GetPointer.restype = ctypes.POINTER(ctypes.c_void_p)
python.PyCapsule_GetPointer.argtypes = [ctypes.py_object, ctypes.c_char_p]
python.PyCapsule_GetDestructor.restype = ctypes.c_void_p
python.PyCapsule_GetDestructor.argtypes = [ctypes.py_object]
python.PyType_GenericAlloc.restype = ctypes.py_object
python.PyType_GenericAlloc.argtypes = [ctypes.py_object, ctypes.c_ssize_t]


def wrap(values, type_code):
    """A service array of the elements of a numpy array."""
    return hillshade.wrap(type_code, values.shape, values.tobytes(order="F"))


@pytest.mark.parametrize("type_code, name, code", TYPE_CODES)
@pytest.mark.parametrize("is_complex", [False, True])
def test_every_type_comes_in_as_its_class_and_goes_out_as_it_came(
    type_code, name, code, is_complex
):
    if is_complex and name == "logical":
        pytest.skip("has no complex form")
    parts = numpy.array([[0, 1, 2], [3, 4, 5]]).astype(code)
    if is_complex:
        type_code += 10
        parts = numpy.stack([parts, parts[:, ::-1]], axis=-1).view(f"V{2 * parts.itemsize}")[..., 0]
    array = wrap(parts, type_code)
    assert type(array) is getattr(vellum, name)
    assert (array._is_complex, array.itemsize, array.size) == (is_complex, parts.itemsize, (2, 3))
    assert bytes(memoryview(array).tobytes(order="F")) == parts.tobytes(order="F")
    assert hillshade.service_type(array) == type_code
    assert hillshade.service_dimensions(array) == (2, 3)
    assert hillshade.service_bytes(array) == parts.tobytes(order="F")
    expected = 3 if name != "logical" else True
    assert array[1][0] == (complex(3, 5) if is_complex else expected)
    array[0][1] = array[1][0]
    assert hillshade.service_bytes(array) == memoryview(array).tobytes(order="F")
    assert pickle.loads(pickle.dumps(array)) == array


def test_types_without_a_class_and_null_pointers_are_refused():
    table = python.PyCapsule_GetPointer(module._capi, b"vellummultidimarrayforpython._capi")
    assert python.PyCapsule_GetDestructor(module._capi) is None
    wrap_array = ctypes.PYFUNCTYPE(ctypes.py_object, ctypes.c_void_p)(table[0])
    unwrap_array = ctypes.PYFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p)(table[1])
    blank = python.PyType_GenericAlloc(vellum.double, 0)
    for text, call in [
        ("invalid type.", lambda: hillshade.wrap(1, (1, 2), b"abcd")),
        ("invalid type.", lambda: hillshade.wrap(2, (), b"")),
        ("null data pointer.", lambda: wrap_array(None)),
        ("object not initialized.", lambda: unwrap_array(None)),
        ("object not initialized.", lambda: unwrap_array(id(blank))),
    ]:
        with pytest.raises(RuntimeError) as caught:
            call()
        assert (type(caught.value), str(caught.value)) == (RuntimeError, text)


@pytest.mark.parametrize("foreign", [None, 1.5, [[1.0]], vellum.double, numpy.ones((2, 2)),
                                     iter(vellum.double([[1, 2]]))])  # fmt: skip
def test_the_client_refuses_what_is_no_array(foreign):
    for function in (hillshade.shade, hillshade.service_bytes, hillshade.service_address):
        with pytest.raises(TypeError, match="expected a vellum array"):
            function(foreign)


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
    first_copy = hillshade.service_bytes(row)
    array[0][1] = -7
    assert hillshade.service_bytes(row) != first_copy
    assert hillshade.service_bytes(row) == array[0].toarray().tobytes()
    assert hillshade.service_bytes(array) == memoryview(array).tobytes(order="F")

    hillshade.set_element_bytes(array, 0, numpy.float64(99).tobytes())
    assert array[0][0] == 0 and row[0] == 0
    assert array.noncomplex()[0] == 99
    array.reshape(4, 3)
    assert hillshade.service_dimensions(array) == (4, 3)


def test_a_copy_that_clone_has_made_keeps_its_one_dimension():
    row = wrap(GRID, 3)[1]
    row.clone()
    assert hillshade.service_dimensions(row) == (4,)


def test_a_selection_that_cannot_be_copied_has_its_own_error():
    array = wrap(numpy.array([[2**64 - 1, 1]], dtype="Q"), 12)
    with pytest.raises(Exception) as cloned:
        array[0].clone()
    with pytest.raises(type(cloned.value)) as lent:
        hillshade.service_bytes(array[0])
    assert str(lent.value) == str(cloned.value) and "too large" in str(lent.value)
    assert hillshade.service_bytes(array) == array.noncomplex().toarray().tobytes()


def test_native_shapes_that_python_never_makes():
    vector = hillshade.wrap(3, (3,), numpy.arange(3.0).tobytes())
    assert (vector.size, vector[1], list(vector), str(vector)) == ((3,), 1, [0, 1, 2], "[0.0,1.0,2.0]")
    wide = hillshade.wrap(3, (2, 1, 1), numpy.arange(2.0).tobytes())
    assert (wide.size, wide[1][0][0]) == ((2, 1, 1), 1)
    empty = hillshade.wrap(6, (0, 3), b"")
    assert (empty.size, len(empty), hillshade.service_bytes(empty)) == ((0, 3), 0, b"")
    blank = hillshade.wrap(3, (), b"")
    assert memoryview(blank).tolist() == 0  # without dimensions it counts as one element
    for use in (len, str, list, pickle.dumps, lambda a: a.size, lambda a: a[0], lambda a: a[0:1],
                lambda a: a.clone(), lambda a: a.toarray(), lambda a: a.__setitem__(0, 1)):  # fmt: skip
        with pytest.raises(RuntimeError, match="^too many indices.$"):
            use(blank)


def shade_with_numpy(heights, azimuth, altitude, z_factor, cell_size):
    """Horn's method, by shifted grids."""
    padded = numpy.pad(heights.astype("d"), 1, mode="edge")
    rows, columns = heights.shape
    at = {(r, c): padded[1 + r :, 1 + c :][:rows, :columns] for r in (-1, 0, 1) for c in (-1, 0, 1)}
    weights = {-1: 1, 0: 2, 1: 1}
    scale = z_factor / (8 * cell_size)
    east = sum(w * (at[k, 1] - at[k, -1]) for k, w in weights.items()) * scale
    north = sum(w * (at[-1, k] - at[1, k]) for k, w in weights.items()) * scale
    light = numpy.radians(azimuth), numpy.radians(altitude)
    slope, aspect = numpy.arctan(numpy.hypot(east, north)), numpy.arctan2(-east, -north)
    cosine = numpy.sin(light[1]) * numpy.cos(slope)
    cosine += numpy.cos(light[1]) * numpy.sin(slope) * numpy.cos(light[0] - aspect)
    return 255 * numpy.maximum(cosine, 0)


@pytest.mark.parametrize("kind, code", zip(REAL_KINDS, REAL_CODES))
def test_the_shaded_relief_is_that_of_an_independent_computation(kind, code):
    heights = numpy.random.default_rng(5).integers(0, 100, (7, 9)).astype(code)
    light = dict(azimuth=300.0, altitude=35.0, z_factor=0.3, cell_size=2.5)
    grid = getattr(vellum, kind)(heights)
    references = sys.getrefcount(grid)
    for array, expected in [(grid, heights), (grid[2:6], heights[2:6]), (grid[3], heights[3:4])]:
        shades = hillshade.shade(array, **light)
        assert type(shades) is vellum.uint8
        exact = shade_with_numpy(expected, **light)
        assert numpy.abs(numpy.array(memoryview(shades)) - exact).max() <= 0.5 + 1e-9
    assert sys.getrefcount(grid) == references


@pytest.mark.parametrize("refused, arguments, exception", [
    (vellum.double([[1j]], is_complex=True), {}, TypeError),
    (vellum.logical([[True]]), {}, TypeError),
    (vellum.double(size=(2, 2, 2)), {}, ValueError),
    (vellum.double([[1]]), {"cell_size": 0}, ValueError),
    (vellum.double([[1]]), {"sun": 1}, TypeError),
])  # fmt: skip
def test_the_client_refuses_what_it_cannot_shade(refused, arguments, exception):
    with pytest.raises(exception):
        hillshade.shade(refused, **arguments)
