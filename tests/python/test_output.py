"""What leaves an array: comparison, copies, array.array; and that nothing of it stays."""

import math
import sys

import numpy
import pytest
import vellum
from helpers import nested, outcome


def test_a_clone_is_independent_and_never_older_than_the_record():
    source = vellum.int16([[1, 2, 3], [4, 5, 6]])
    part = source[0:]
    part.clone()[0][0] = 7  # shares its elements with the copy that the part keeps, until now
    assert part.clone() == source
    source.reshape(3, 2)
    assert nested(part.clone()) == [[1, 5], [4, 3]]


def test_a_clone_is_a_conversion():
    low = vellum.single(numpy.array([[-math.inf]], dtype="float32"))
    assert nested(low.clone()) == [[math.inf]]
    odd = vellum.int64([2**53 + 1], is_complex=True)
    assert odd.clone().real()[0] == 2**53
    assert odd.real()[0] == 2**53 + 1


def test_the_first_error_of_toarray_is_printed(capsys):
    part = vellum.double([[1j]], is_complex=True)[0]
    assert outcome(part.toarray) == (RuntimeError, "toarray() failed.")
    assert "TypeError: " in capsys.readouterr().err


@pytest.mark.parametrize("operation", [
    "a[0].toarray()", "a.clone()", "a.__reduce__()", "str(a)", "a.size", "list(a)", "a[0:1][0]",
    "a.noncomplex()", "deep.__reduce__()", "cls(memoryview(a))", "cls(vector=range(1000, 1009))",
])  # fmt: skip
def test_nothing_stays_where_memory_ends(operation):
    testcapi = pytest.importorskip("_testcapi")  # not every distribution brings it
    scope = {"cls": vellum.int64, "a": vellum.int64(vector=range(1000, 1020), size=(4, 5))}
    scope["deep"] = vellum.int8(size=(1,) * 10**4 + (2,))
    program = compile(operation, "", "eval")
    counts = []
    for _ in range(3):
        for start in (*range(60), 2**30):
            try:
                testcapi.set_nomemory(start, start + 1)
                eval(program, scope)
            except (MemoryError, RecursionError, RuntimeError):
                pass
            finally:
                testcapi.remove_mem_hooks()
        counts.append(sys.getallocatedblocks())
    assert counts[2] - counts[1] < 10
