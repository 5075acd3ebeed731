"""Reading by index: far slices, the refusals, and very many dimensions."""

import operator

import numpy
import pytest
import vellum
from hypothesis import given, strategies as st

bounds = st.none() | st.integers(-9, 9) | st.sampled_from([2**62, -(2**63), 2**80, -(2**80)])
slices = st.builds(slice, bounds, bounds, bounds.filter(lambda step: step != 0))


@given(st.lists(slices, max_size=5))
def test_chained_slices_select_what_they_select_of_a_list(keys):
    row, expected = vellum.int32([list(range(7))])[0], list(range(7))
    for key in keys:
        row, expected = row[key], expected[key]
        assert list(row) == [*reversed(row)][::-1] == list(row.clone()) == expected
        assert str(row) == str(expected).replace(" ", "") and len(row) == len(expected)


class Indexable:
    def __init__(self, error=None):
        self.error = error

    def __index__(self):
        if self.error:
            raise self.error
        return 1


@pytest.mark.parametrize("key, error, text", [
    *[(key, RuntimeError, "index is not an integer or slice.")
      for key in ((1, 2), (1,), None, ..., 1.0, "1", Indexable(), numpy.int64(1))],
    (2**70, OverflowError, "Python int too large to convert to C ssize_t"),
    *[(key, IndexError, f"index has an invalid value: {key}") for key in (-(2**63), 3, -4)],
    *[(slice(None, None, step), ValueError, "slice step cannot be zero.") for step in (0, "x")],
    (slice("x", None), TypeError,
     "slice indices must be integers or None or have an __index__ method"),
])
def test_refused_keys(key, error, text):
    zeros = vellum.int32(size=(5, 3))
    for array in (zeros[1:4], zeros[4], zeros.clone().reshape(3, 5)):
        with pytest.raises(error) as caught:
            array[key]
        assert str(caught.value) == text and type(caught.value) is error


@pytest.mark.parametrize("error", [KeyError, ValueError, MemoryError, KeyboardInterrupt])
@pytest.mark.parametrize("use", [operator.getitem, lambda *place: operator.setitem(*place, [1])])
def test_what_a_slice_member_raises_is_the_cause_or_stands(use, error):
    row = vellum.int32([1, 2, 3])[0]
    for key in (slice(Indexable(error), None), slice(None, None, Indexable(error))):
        with pytest.raises((error, ValueError)) as caught:
            use(row, key)
        stands = key.step is None or error in (MemoryError, KeyboardInterrupt)
        found = type(caught.value), type(caught.value.__cause__)
        assert found == ((error, type(None)) if stands else (ValueError, error))
    with pytest.raises(ValueError) as caught:
        use(row, slice(None, None, 0))
    assert caught.value.__cause__ is None


def test_a_part_shares_the_record_and_outlives_its_source():
    array = vellum.int32([[0, 1], [2, 3], [4, 5]])
    part = array[Indexable():][0]
    array[True][1] = 50
    part[0] = 40
    assert list(array[1]) == [40, 50] and part.buffer_info() == array.buffer_info()
    del array
    assert list(part) == [40, 50]


def test_thousands_of_dimensions():
    part = array = vellum.int8(vector=[1, 2], size=(1,) * 3000 + (2,))
    while len(part.size) > 1:
        part = part[0:1][-1]
    assert list(part) == [1, 2]
    assert array == array.clone() and len(array[0:].clone().size) == 3001
    for operation in (str, repr, vellum.int8.__reduce__):
        with pytest.raises(RecursionError):
            operation(vellum.int8(size=(1,) * 30_000 + (2,)))
