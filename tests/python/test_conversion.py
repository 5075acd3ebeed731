"""One Python value to one element, for all 21 combinations, by exact arithmetic."""

import math
import struct
from decimal import Decimal
from fractions import Fraction

import numpy
import pytest
from hypothesis import example, given
from hypothesis import strategies as st

import vellum

INTEGERS = {s + f"int{b}": (s, b) for b in (8, 16, 32, 64) for s in ("", "u")}
RANGES = {
    k: (0, 2**b - 1) if s else (-(2 ** (b - 1)), 2 ** (b - 1) - 1) for k, (s, b) in INTEGERS.items()
}
COMBINATIONS = [(k, c) for k in ("double", "single", *INTEGERS) for c in (False, True)]
COMBINATIONS.append(("logical", False))
TOO_LARGE = OverflowError, "Python int too large to convert to C long long"
LARGEST_SINGLE = (2 - Fraction(1, 2**23)) * 2**127


class Refusal(Exception):
    pass


def float_to_single(x):
    if math.isinf(x) or not math.isnan(x) and abs(Fraction(x)) > LARGEST_SINGLE:
        return math.inf
    return struct.unpack("f", struct.pack("f", x))[0]


def int_to_single(n):
    """The nearest of the singles around n; the even one of two."""
    step = 2 ** max(abs(n).bit_length() - 24, 0)
    below = n // step * step
    candidates = sorted((abs(n - c), c // step % 2, c) for c in (below, below + step))
    return float(candidates[0][2])


def real_element(kind, value):
    """An `int` or a `float` as one real part; floats are cut toward zero for integers."""
    if kind in RANGES:
        least, most = RANGES[kind]
        if isinstance(value, int):
            fits = least <= value <= most
            if not -(2**63) <= value < 2**63:
                raise Refusal(*TOO_LARGE)
        else:
            # Doubles next to -2**63 lie apart: the limit itself is the first refused.
            below = least if kind == "int64" else least - 1
            fits = math.isfinite(value) and below < Fraction(value) < most + 1
        if not fits:
            shown = value if isinstance(value, int) else "nan" if value != value else f"{value:g}"
            text = f"value ({shown}) cannot be stored in a variable of type {kind}."
            raise Refusal(OverflowError, text)
        return int(value)
    if isinstance(value, int) and not -(2**63) <= value < 2**63:
        if kind == "single":
            return math.inf
        raise Refusal(*TOO_LARGE)
    if kind == "single":
        return int_to_single(value) if isinstance(value, int) else float_to_single(value)
    return float(value)


def element(kind, is_complex, value, constructing):
    value = int.__pos__(value) if isinstance(value, int) else value
    if is_complex:
        parts = (value.real, value.imag) if isinstance(value, complex) else (value, 0)
        return complex(*(float(real_element(kind, part)) for part in parts))
    if kind == "logical" and (isinstance(value, int) or constructing):
        return bool(value) if not isinstance(value, int) else real_element("int64", value) != 0
    if isinstance(value, complex):
        text = "complex values if 'is_complex' is not set to 'True'."
        raise Refusal(TypeError, f"vellum.{kind} does not accept {text}")
    if isinstance(value, float) and kind not in ("double", "single"):
        raise Refusal(TypeError, f"vellum.{kind} does not accept floating-point values.")
    return real_element(kind, value)


def same(left, right):
    def parts(z):
        return [(math.isnan(p) or p, math.copysign(1, p)) for p in (z.real, z.imag)]

    return type(left) is type(right) and parts(left) == parts(right)


def outcome(call):
    try:
        return call()
    except Exception as error:
        return type(error), str(error)


def assigned(cls, is_complex, value):
    a = cls(size=(1, 1), is_complex=is_complex)
    a[0][0] = value
    return a[0][0]


class Whole(int):
    __index__ = __int__ = __float__ = None  # a subclass counts by its value


near = st.sampled_from([sign * 2**b for b in (7, 8, 15, 16, 31, 32, 63, 64) for sign in (1, -1)])
integers = st.builds(int.__add__, near, st.integers(-2, 2)) | st.integers(-(2**66), 2**66)
one_off = st.sampled_from([-math.inf, math.inf])
limits = st.builds(lambda n, d, to: float(numpy.nextafter(float(n + d), to)), near,
                   st.integers(-1, 1), one_off)  # fmt: skip
singles = st.sampled_from([3.4028234663852886e38, 3.4028234663852888e38, 1e39, 1e-45, 7e-46])
floats = limits | st.floats() | st.floats(-300, 300) | singles | singles.map(float.__neg__)
values = integers | floats | st.builds(complex, floats, floats) | integers.map(Whole)


@pytest.mark.parametrize("kind, is_complex", COMBINATIONS)
@given(value=values | st.booleans() | st.sampled_from([numpy.float64(1.9), numpy.complex128(2j)]))
@example(value=-(2.0**63))
@example(value=2.0**64 - 2048)
@example(value=math.nan)
@example(value=complex(1.9, -math.nan))
@example(value=complex(-0.0, -math.inf))
def test_numbers(kind, is_complex, value):
    cls = getattr(vellum, kind)
    roads = {
        lambda: cls([[value]], is_complex=is_complex)[0][0]: True,
        lambda: cls(vector=(value,), is_complex=is_complex)[0][0]: True,
        lambda: assigned(cls, is_complex, value): False,
    }
    for position, (road, constructing) in enumerate(roads.items()):
        got = outcome(road)
        try:
            assert same(got, element(kind, is_complex, value, constructing))
        except Refusal as refusal:
            error, text = refusal.args
            assert got == (ValueError if position == 1 else error, text)


class Hooks:
    """Converts to everything when asked; nobody is to ask."""

    def __float__(self):
        raise AssertionError

    __index__ = __int__ = __complex__ = __bool__ = __float__


NO_NUMBERS = [None, {}, {1}, object(), Hooks(), Decimal(1), Fraction(1), (x for x in [1]),
              numpy.int64(1), numpy.float32(1), int, NotImplemented]  # fmt: skip


@pytest.mark.parametrize("kind, is_complex", COMBINATIONS)
@pytest.mark.parametrize("value", NO_NUMBERS, ids=repr)
def test_no_numbers(kind, is_complex, value):
    cls = getattr(vellum, kind)
    text = "value must not be 'None'." if value is None else "type does not match."
    assert outcome(lambda: cls([value], is_complex=is_complex)) == (TypeError, text)
    assert outcome(lambda: cls(vector=[value], is_complex=is_complex)) == (ValueError, text)
    assert outcome(lambda: assigned(cls, is_complex, value)) == (TypeError, text)
    for other, text in (("1", "value is not numeric."),
                        ([1], "sequence passed when scalar was expected.")):  # fmt: skip
        assert outcome(lambda: assigned(cls, is_complex, other)) == (TypeError, text)
