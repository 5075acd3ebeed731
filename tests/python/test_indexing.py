"""Reading by index: integers, slices, slices of slices, and the refusals."""

import math

import numpy
import pytest
import vellum
from hypothesis import given, strategies as st

# The last dimension is never 1, which a constructor would drop.
shapes = st.tuples(st.integers(1, 4), st.integers(2, 6)) | st.tuples(
    st.integers(1, 4), st.integers(1, 4), st.integers(2, 4))
bounds = st.none() | st.integers(-9, 9) | st.sampled_from([2**62, -(2**63), 2**80, -(2**80)])
slices = st.builds(slice, bounds, bounds, bounds.filter(lambda step: step != 0))


def nested(part):
    return [nested(item) for item in part] if hasattr(part, "__len__") else part


def size_of(part):
    return (len(part), *size_of(part[0])) if isinstance(part, list) and part else ()


def counted(*shape, kind=vellum.int32):
    return kind(numpy.arange(math.prod(shape)).reshape(shape).tolist())


@given(shapes, st.lists(slices | st.integers(-7, 6), max_size=7))
def test_chains_of_keys_select_what_nested_lists_select(shape, keys):
    part = counted(*shape)
    expected = nested(part)
    for key in keys:
        if not isinstance(expected, list):
            break
        if isinstance(key, int) and not -len(expected) <= key < len(expected):
            with pytest.raises(IndexError, match=f"^index has an invalid value: {key}$"):
                part[key]
            break
        part, expected = part[key], expected[key]
        assert nested(part) == expected
        if isinstance(expected, list):
            assert len(part) == len(expected) and bool(part) == bool(expected)
            assert expected == [] or part.size == size_of(expected)
            assert [nested(item) for item in reversed(part)] == expected[::-1]


@pytest.mark.parametrize(
    "cls, value, is_complex, element",
    [
        (vellum.single, 0.1, False, 0.10000000149011612),
        (vellum.uint32, 4000000000, False, 4000000000),
        (vellum.int64, -(2**63), False, -(2**63)),
        (vellum.logical, 7, False, True),
        (vellum.int8, -128 + 127j, True, complex(-128, 127)),
        (vellum.uint64, 2**53 + 1, True, complex(2.0**53)),
    ],
)
def test_elements_leave_as_the_exact_python_object(cls, value, is_complex, element):
    read = cls([value], is_complex=is_complex)[0][0]
    assert read == element and type(read) is type(element)


class Indexable:
    def __index__(self):
        return 1


@pytest.mark.parametrize(
    "key, error, text",
    [
        *[(key, RuntimeError, "index is not an integer or slice.")
          for key in ((1, 2), (1,), None, ..., 1.0, "1", Indexable(), numpy.int64(1))],
        (2**70, OverflowError, "Python int too large to convert to C ssize_t"),
        (-(2**63), IndexError, f"index has an invalid value: {-(2**63)}"),
        (3, IndexError, "index has an invalid value: 3"),
        (-4, IndexError, "index has an invalid value: -4"),
        (slice(None, None, 0), ValueError, "slice step cannot be zero."),
        (slice(None, None, "x"), ValueError, "slice step cannot be zero."),
        (slice("x", None), TypeError,
         "slice indices must be integers or None or have an __index__ method"),
    ],
)
def test_refused_keys(key, error, text):
    for array in (counted(3, 2), counted(5, 2)[1:4], counted(2, 3)[0]):
        with pytest.raises(error) as caught:
            array[key]
        assert str(caught.value) == text and type(caught.value) is error


def test_integers_of_any_sort_index_and_members_of_a_slice_are_asked_for_their_index():
    array = counted(3, 4)
    assert nested(array[True]) == nested(array[1])
    assert nested(array[Indexable():2]) == [[4, 5, 6, 7]]


def test_a_part_shares_the_record_and_outlives_its_source():
    array = counted(3, 4)
    part = array[1:][0]
    array[1][3] = 50
    part[0] = 40
    assert nested(array[1]) == nested(part) == [40, 5, 6, 50]
    assert array[1].buffer_info() == array.buffer_info()
    del array
    assert nested(part) == [40, 5, 6, 50]


def test_thousands_of_dimensions():
    part = array = vellum.int8(vector=[1, 2], size=(1,) * 3000 + (2,))
    while len(part.size) > 1:
        part = part[0:1][-1]
    assert nested(part) == [1, 2]
    assert array == array.clone() and len(array[0:].clone().size) == 3001
    for operation in (str, repr, vellum.int8.__reduce__):
        with pytest.raises(RecursionError):
            operation(array)
