"""One Python value to one element, for all 21 combinations, up to each limit."""

import math
from decimal import Decimal
from fractions import Fraction

import numpy
import oracle
import pytest
import vellum
from hypothesis import example, given, strategies as st

COMBINATIONS = [(k, c) for k in oracle.FORMATS for c in (False, True)][:-1]  # logical is last
each_combination = pytest.mark.parametrize("kind, is_complex", COMBINATIONS)


def outcome(call):
    try:
        return call()
    except Exception as error:
        return type(error), str(error)


def roads(kind, is_complex, value):
    """What the nested list, the vector and an assignment make of the value."""
    cls = getattr(vellum, kind)

    def assign():
        a = cls(size=(1, 1), is_complex=is_complex)
        a[0][0] = value
        return a[0][0]

    return [outcome(lambda: cls([[value]], is_complex=is_complex)[0][0]),
            outcome(lambda: cls(vector=(value,), is_complex=is_complex)[0][0]),
            outcome(assign)]  # fmt: skip


def nearest_single(n):
    """By one rounding, to the even one of two that are as near."""
    step = 2 ** max(abs(n).bit_length() - 24, 0)
    return float(round(Fraction(n, step)) * step)


def expected(kind, is_complex, value):
    # The value of a subclass counts, whatever else it can do.
    value = next(t.__pos__(value) for t in (int, float, complex) if isinstance(value, t))
    if kind == "single" and isinstance(value, int) and -(2**63) <= value < 2**63:
        value = nearest_single(value)
    nested, assigned = (outcome(lambda: oracle.judge(value, kind, is_complex, constructing))
                        for constructing in (True, False))  # fmt: skip
    if is_complex and type(nested[0]) is not type:
        nested = assigned = complex(*nested)
    refused = isinstance(nested, tuple)
    return [nested, (ValueError, nested[1]) if refused else nested, assigned]


def exactly(value):
    """Tells 1 from True and -0.0 from 0.0, but no NaN from another."""
    if isinstance(value, tuple):
        return value
    return type(value), *((p != p or p, math.copysign(1, p)) for p in (value.real, value.imag))


class Whole(int):
    __index__ = __int__ = __float__ = None


near = st.sampled_from([sign * 2**b for b in (7, 8, 15, 16, 31, 32, 63, 64) for sign in (1, -1)])
integers = st.builds(int.__add__, near, st.integers(-2, 2)) | st.integers(-(2**66), 2**66)
one_off = st.sampled_from([-math.inf, math.inf])
limits = st.builds(lambda n, d, to: float(numpy.nextafter(float(n + d), to)), near,
                   st.integers(-1, 1), one_off)  # fmt: skip
singles = st.sampled_from([3.4028234663852886e38, 3.4028234663852888e38, 1e39, 1e-45, 7e-46])
floats = limits | st.floats() | st.floats(-300, 300) | singles | singles.map(float.__neg__)
values = integers | floats | st.builds(complex, floats, floats) | integers.map(Whole)


@each_combination
@given(value=values | st.booleans() | st.sampled_from([numpy.float64(1.9), numpy.complex128(2j)]))
@example(value=-(2.0**63))
@example(value=2**24 + 1)  # halfway between two singles
@example(value=2**60 + 2**36 + 1)  # no longer halfway, though its double is
@example(value=2.0**64 - 2048)
@example(value=math.nan)
@example(value=complex(1.9, -math.nan))
@example(value=complex(-0.0, -math.inf))
def test_numbers(kind, is_complex, value):
    got, wanted = roads(kind, is_complex, value), expected(kind, is_complex, value)
    # Some of numpy's numbers export buffers too.
    got.append(outcome(lambda: getattr(vellum, kind)(value, is_complex=is_complex)[0][0]))
    wanted.append(wanted[0])
    assert list(map(exactly, got)) == list(map(exactly, wanted))


@pytest.mark.parametrize("kind", oracle.INTEGERS)
def test_limits_of_integers(kind):
    cls, info = getattr(vellum, kind), numpy.iinfo(kind)
    least, most = int(info.min), min(int(info.max), 2**63 - 1)
    assert cls([least, most])[0].toarray().tolist() == [least, most]
    # Doubles next to -2**63 lie apart: the limit itself is the first refused.
    below, above = float(max(least - 1, -(2**63))), float(info.max + 1)
    inside = [float(numpy.nextafter(limit, 0)) for limit in (below, above)]
    assert cls(inside, is_complex=True).real().toarray().tolist() == list(map(int, inside))
    for value in (least - 1, most + 1, below, above, complex(0, below), complex(0, above)):
        with pytest.raises(OverflowError):
            cls([value], is_complex=not isinstance(value, int))


class Hooks:
    """Converts to everything when asked; nobody is to ask."""

    def __float__(self):
        raise AssertionError

    __index__ = __int__ = __complex__ = __bool__ = __float__


NO_NUMBERS = [None, {}, {1}, object(), Hooks(), Decimal(1), Fraction(1), (x for x in [1]),
              numpy.int64(1), numpy.float32(1), int, NotImplemented]  # fmt: skip


@each_combination
def test_no_numbers(kind, is_complex):
    for value in NO_NUMBERS:
        text = "value must not be 'None'." if value is None else "type does not match."
        wanted = [(TypeError, text), (ValueError, text), (TypeError, text)]
        assert roads(kind, is_complex, value) == wanted
    for value, text in (("1", "value is not numeric."),
                        ([1], "sequence passed when scalar was expected.")):  # fmt: skip
        assert roads(kind, is_complex, value)[2] == (TypeError, text)
