"""Iteration: what an iterator holds, and arrays without elements."""

import pytest
import vellum

ROWS = [[1, 2, 3, 4], [5, 6, 7, 8], [9, 10, 11, 12]]


@pytest.mark.parametrize("size, yields", [((0, 0), 0), ((0, 3), 0), ((3, 0), 3)])
def test_without_elements_the_first_dimension_counts(size, yields):
    assert [list(part) for part in vellum.int16(size=size)] == [[]] * yields


def test_an_iterator_sees_writes_and_keeps_the_record_but_not_the_array():
    array = vellum.int32(ROWS)
    iterator = iter(array)
    first = next(iterator)
    first[0], array[1][0] = -1, -5
    assert array[0][0] == -1
    del array
    assert list(next(iterator)) == [-5, 6, 7, 8] and [list(row) for row in iterator] == ROWS[2:]
    for _ in range(2):
        with pytest.raises(StopIteration):
            next(iterator)
    assert list(first) == [-1, 2, 3, 4]
