"""Iteration: what each step yields, by the view that is walked."""

import pytest
import vellum

ROWS = [[1, 2, 3, 4], [5, 6, 7, 8], [9, 10, 11, 12]]


@pytest.mark.parametrize("key", [
    slice(None), slice(1, None), slice(None, None, -1), slice(2, 0, -2), slice(1, 1),
    slice(None, None, 2**80)])
@pytest.mark.parametrize("source, items", [(vellum.double(ROWS), ROWS),
                                           (vellum.double(ROWS)[1], ROWS[1])])
def test_a_slice_is_walked_in_its_order(source, items, key):
    walked = [list(item) if isinstance(item, vellum.double) else item for item in source[key]]
    assert walked == items[key]


@pytest.mark.parametrize("size, yields", [((0, 0), 0), ((0, 3), 0), ((3, 0), 3)])
def test_without_elements_the_first_dimension_counts(size, yields):
    parts = list(vellum.int16(size=size))
    assert [list(part) for part in parts] == [[]] * yields


def test_an_iterator_sees_writes_and_keeps_the_record_but_not_the_array():
    array = vellum.int32(ROWS)
    iterator = iter(array)
    first = next(iterator)
    first[0], array[1][0] = -1, -5
    assert array[0][0] == -1 and iter(iterator) is iterator
    second = array[1]
    del array
    assert list(next(iterator)) == list(second) == [-5, 6, 7, 8]
    assert [list(row) for row in iterator] == ROWS[2:]
    for _ in range(2):
        with pytest.raises(StopIteration):
            next(iterator)


def test_scalars_by_kind_membership_and_unpacking():
    assert list(vellum.logical([[1, 0]])[0]) == [True, False]
    assert list(vellum.int8([[1, 2j]], is_complex=True)[0]) == [1 + 0j, 2j]
    assert 5.0 in vellum.double(ROWS)[1] and 5.0 not in vellum.double(ROWS)
    (one, *others), *rows = vellum.double(ROWS)
    assert (one, others, len(rows)) == (1.0, [2.0, 3.0, 4.0], 2)


def test_only_iteration_makes_iterators():
    kind = type(iter(vellum.double()))
    assert (kind.__name__, kind.__doc__) == ("VellumPyIter", "Internal iterator object")
    for make in (kind, lambda: object.__new__(kind), lambda: iter(vellum.double()).__reduce__()):
        with pytest.raises(TypeError):
            make()
