"""What leaves an array: comparison, copies, array.array."""

import array
import math

import numpy
import pytest
import vellum
from hypothesis import given, strategies as st

INTEGERS = [vellum.int8, vellum.uint8, vellum.int16, vellum.uint16, vellum.int32, vellum.uint32,
            vellum.int64, vellum.uint64]
SHAPES = [(0, 0), (0, 3), (3, 0), (2, 0, 4), (1, 1), (1, 4), (4, 1), (2, 2), (2, 3, 2)]
FLOATS = [0.0, -0.0, 1.0, 0.1, -2.5, 1e30, math.inf, math.nan, 5e-324]


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def edges(cls):
    """Values that the class can hold, near the limits of its range and of doubles."""
    if cls not in INTEGERS:
        return [False, True] if cls is vellum.logical else FLOATS
    info = numpy.iinfo(cls.__name__)
    near = [info.min, 0, 1, info.max, 2**53, 2**53 + 1, -(2**53) - 1, 2**63 - 1024, 2**63 - 1]
    return [value for value in near if info.min <= value <= min(info.max, 2**63 - 1)]


@st.composite
def parts(draw, cls, shapes, values):
    """A part of a new array, which is real or complex."""
    shape, elements = draw(shapes), st.sampled_from(values)
    is_complex = cls is not vellum.logical and draw(st.booleans())
    if is_complex and cls not in INTEGERS:
        elements = elements | st.builds(complex, elements, elements)
    count = math.prod(shape)
    vector = draw(st.lists(elements, min_size=count, max_size=count))
    part = cls(vector=vector, size=shape, is_complex=is_complex)
    for _ in range(draw(st.integers(0, 3))):
        if len(part) and len(part.size) > 1 and draw(st.booleans()):
            part = part[draw(st.integers(-len(part), len(part) - 1))]
        else:
            part = part[draw(st.slices(len(part)))]
    return part


@given(st.data(), st.sampled_from([vellum.double, vellum.single, vellum.logical, *INTEGERS]))
def test_equality_is_that_of_the_nested_lists(data, cls):
    values = data.draw(st.lists(st.sampled_from(edges(cls)), min_size=1, max_size=2))
    shapes = data.draw(st.sampled_from([st.sampled_from(SHAPES), st.just((1, 2))]))
    left, right = (data.draw(parts(cls, shapes, values)) for _ in range(2))
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
    assert list(big[0][1:].clone()) == [5] and big[0].toarray() == array.array("Q", [2**63, 5])
    low = vellum.single(numpy.array([[-math.inf]], dtype="float32"))
    assert nested(low.clone()) == [[math.inf]] and low[0][0] == -math.inf
    odd = vellum.int64([2**53 + 1], is_complex=True)
    assert odd.clone().real()[0] == 2**53 and odd.real()[0] == 2**53 + 1
    with pytest.raises(OverflowError, match="cannot be stored in a variable of type int64"):
        vellum.int64([2**63 - 1], is_complex=True).clone()


@pytest.mark.parametrize("part, message", [
    (vellum.int8([[1, 2]]), "toarray() can be called only on a one-dimensional sequence."),
    (vellum.double([[1j]], is_complex=True)[0], "toarray() failed."),
])
def test_the_first_error_of_toarray_is_printed(part, message, capsys):
    with pytest.raises(RuntimeError) as caught:
        part.toarray()
    assert str(caught.value) == message
    assert "TypeError: " in capsys.readouterr().err
