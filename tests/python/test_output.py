"""What leaves an array: text, comparison, copies, parts, array.array."""

import array
import math

import numpy
import pytest
import vellum
from hypothesis import given, strategies as st

INTEGERS = [vellum.int8, vellum.uint8, vellum.int16, vellum.uint16, vellum.int32, vellum.uint32,
            vellum.int64, vellum.uint64]
KINDS = [vellum.double, vellum.single, *INTEGERS, vellum.logical]
SHAPES = [(0, 0), (0, 3), (3, 0), (2, 0, 4), (1, 1), (1, 4), (4, 1), (2, 2), (2, 3, 2)]
FLOATS = [0.0, -0.0, 1.0, 0.1, -2.5, 1e30, math.inf, math.nan, 5e-324]


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def text(part):
    return str(nested(part)).replace(" ", "")


def edges(cls):
    """Values that the class can hold, near the limits of its range and of doubles."""
    if cls in INTEGERS:
        info = numpy.iinfo(cls.__name__)
        near = [info.min, 0, 1, info.max, 2**53, 2**53 + 1, -(2**53) - 1, 2**63 - 1024, 2**63 - 1]
        return [value for value in near if info.min <= value <= min(info.max, 2**63 - 1)]
    return [False, True] if cls is vellum.logical else FLOATS


@st.composite
def arrays(draw, cls=None, shape=None, values=None):
    cls = cls or draw(st.sampled_from(KINDS))
    shape = shape or draw(st.sampled_from(SHAPES))
    elements = st.sampled_from(values or edges(cls))
    is_complex = cls is not vellum.logical and draw(st.booleans())
    if is_complex and cls not in INTEGERS:
        elements = elements | st.builds(complex, elements, elements)
    count = math.prod(shape)
    vector = draw(st.lists(elements, min_size=count, max_size=count))
    return cls(vector=vector, size=shape, is_complex=is_complex)


@st.composite
def parts(draw, source=arrays()):
    part = draw(source)
    for _ in range(draw(st.integers(0, 3))):
        if len(part) and len(part.size) > 1 and draw(st.booleans()):
            part = part[draw(st.integers(-len(part), len(part) - 1))]
        else:
            part = part[draw(st.slices(len(part)))]
    return part


@given(parts())
def test_text_is_that_of_the_nested_list_without_blanks(part):
    suffix = ", is_complex=True" if part._is_complex else ""
    assert str(part) == text(part)
    assert repr(part) == f"vellum.{type(part).__name__}({text(part)}{suffix})"


@given(st.data(), st.sampled_from(KINDS))
def test_equality_is_that_of_the_nested_lists(data, cls):
    values = data.draw(st.lists(st.sampled_from(edges(cls)), min_size=1, max_size=2))
    shape = data.draw(st.none() | st.just((1, 2)))
    left, right = (data.draw(parts(arrays(cls, shape, values))) for _ in range(2))
    # Items are made anew for each list, so that identity can't stand for equality.
    equal = nested(left) == nested(right)
    assert (left == right) is (right == left) is equal
    assert (left != right) is (right != left) is (not equal)
    assert (left == left) is (nested(left) == nested(left))


@pytest.mark.parametrize("left, right, equal", [
    (vellum.int64([2**53 + 1]), vellum.int64([2**53 + 1], is_complex=True), False),
    (vellum.int64([2**63 - 1]), vellum.int64([2**63 - 1], is_complex=True), False),
    (vellum.int64([2**53], is_complex=True), vellum.int64([2**53 + 1], is_complex=True), True),
    (vellum.double([[1.0]]), vellum.single([[1.0]]), False),
    (vellum.double(size=(0, 3)), vellum.double(), True),
    (vellum.double(size=(2, 0)), vellum.double(size=(2, 0, 5)), True),
    (vellum.double([1, 2, 3])[0], vellum.double([1, 2, 3]), False),
    *[(vellum.double([[1.0]]), other, False) for other in
      ([[1.0]], 1.0, None, array.array("d", [1.0]), iter(vellum.double()))],
])
def test_equality_across_kinds_and_shapes(left, right, equal):
    assert (left == right) is (right == left) is equal and (left != right) is (not equal)


@pytest.mark.parametrize("operation", ["__lt__", "__le__", "__gt__", "__ge__"])
def test_order_is_refused_whatever_the_other_side(operation):
    for other in (vellum.int8(), [1], 5):
        with pytest.raises(NotImplementedError, match="^inequality operators not supported.$"):
            getattr(vellum.int8([1]), operation)(other)
    with pytest.raises(TypeError):
        hash(vellum.int8())


@given(parts(arrays(values=[0, 1])))
def test_a_clone_is_equal_and_independent(part):
    clone = part.clone()
    source_has_elements = math.prod(memoryview(part).shape) > 0
    assert clone.size == (part.size if source_has_elements else memoryview(part).shape)
    assert clone._is_complex is part._is_complex and type(clone) is type(part)
    if source_has_elements:
        assert clone == part and str(clone) == str(part)
    if not len(flat := clone.noncomplex() if not clone._is_complex else clone.real()):
        return
    before, element = text(part), clone
    while len(element.size) > 1:
        element = element[0]
    element[0] = 1 - int(flat[0])
    assert text(part) == text(part.clone()) == before != text(clone)


def test_a_cached_copy_is_never_older_than_the_record():
    source = vellum.int16([[1, 2, 3], [4, 5, 6]])
    part = source[0:]
    assert part.clone() == source
    source[1][2] = 7
    assert nested(part.clone()) == [[1, 2, 3], [4, 5, 7]]
    source.reshape(3, 2)
    assert nested(part.clone()) == [[1, 5], [4, 3]] and nested(source.clone()) == nested(source)


def test_what_a_clone_refuses_and_rounds():
    big = vellum.uint64(numpy.array([[2**63, 5]], dtype="uint64"))
    with pytest.raises(OverflowError, match="^Python int too large to convert to C long long$"):
        big.clone()
    assert nested(big[0][1:].clone()) == [5]
    low = vellum.single(numpy.array([[-math.inf]], dtype="float32"))
    assert nested(low.clone()) == [[math.inf]] and low[0][0] == -math.inf
    odd = vellum.int64([2**53 + 1], is_complex=True)
    assert odd.clone().real()[0] == 2**53 and odd.real()[0] == 2**53 + 1
    with pytest.raises(OverflowError, match="cannot be stored in a variable of type int64"):
        vellum.int64([2**63 - 1], is_complex=True).clone()


def test_parts_are_those_of_the_whole_record_in_storage_order():
    values = numpy.arange(6).reshape(2, 3) * (1 + 2j) + 1
    array = vellum.int16(values.tolist(), is_complex=True)
    for part in (array, array[1], array[1][::-1]):
        for row, expected in [(part.real(), values.real), (part._real, values.real),
                              (part.imag(), values.imag), (part._imag, values.imag),
                              (part.real().noncomplex(), values.real)]:
            assert nested(row) == expected.flatten("F").tolist() and not row._is_complex
            assert (row.size, memoryview(row).shape) == ((6,), (1, 6))
            row[0] = -1
    assert nested(array) == values.tolist()
    for refused in (array.noncomplex, array.real().real, array.real().imag):
        with pytest.raises(ValueError, match="complex array.$"):
            refused()


@pytest.mark.parametrize("cls, code", zip(KINDS, "dfbBhHiIqQB"))
def test_rows_become_arrays_of_the_type_code(cls, code):
    source = cls([[0, 1, 1], [1, 0, 1]])
    for part in (source[1], source[1][::-1], source[0][3:], source.noncomplex()):
        assert part.toarray() == array.array(code, nested(part))
        assert part.toarray().typecode == code
    assert cls().toarray() == array.array(code) == cls(size=(0, 3)).toarray()


@pytest.mark.parametrize("part, message, first", [
    (vellum.int8([[1, 2]]), "toarray() can be called only on a one-dimensional sequence.",
     "TypeError: 'vellum.int8' object cannot be interpreted as an integer"),
    (vellum.double([[1j]], is_complex=True)[0], "toarray() failed.",
     "TypeError: must be real number, not complex"),
])
def test_the_first_error_of_toarray_is_printed(part, message, first, capsys):
    with pytest.raises(RuntimeError) as caught:
        part.toarray()
    assert str(caught.value) == message
    assert first in capsys.readouterr().err
