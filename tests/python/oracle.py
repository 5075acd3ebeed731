"""What the arrays should do, said a second time in plain Python.

The classes here answer to the same calls as those of the module, so that one
line of a program runs on either. An array is a list of exact Python values in
storage order, a view is a list of integers and at most one range. Where a text
is Python's own and not the module's, an exception carries ANY in its place.
"""

import array
import copy
import itertools
import math
import operator
import struct
from fractions import Fraction
from unittest.mock import ANY

NULL = object()  # the right side of a deletion
FLOATS = {"double": "d", "single": "f"}
INTEGERS = dict(zip("int8 uint8 int16 uint16 int32 uint32 int64 uint64".split(), "bBhHiIqQ"))
FORMATS = {**FLOATS, **INTEGERS, "logical": "?"}
SSIZE_MAX = 2**63 - 1
INT_MAX = 2**31 - 1
DIMENSIONS = "reshape() must be passed a nonempty sequence of nonnegative integers."
SHAPES_DIFFER = "left and right sides have a different shape."
RAGGED = "arrays must be rectangular."
CANNOT_SET = "unable to set value."
ShapeError = type("ShapeError", (Exception,), {})
SizeError = type("SizeError", (Exception,), {})


def is_sequence(value):
    return not isinstance(value, (dict, float)) and hasattr(type(value), "__getitem__")


def fetch(value, i, message="null data pointer."):
    try:
        return value[i]
    except MemoryError:
        raise
    except Exception as error:
        raise RuntimeError(message) from error


def trim(dims):
    while len(dims) > 2 and dims[-1] == 1:
        dims = dims[:-1]
    return dims


def judge(value, kind, is_complex, constructing=False):
    """One Python value to an element: a number, or a pair of them."""
    if value is NULL:
        raise RuntimeError("null data pointer.")
    if isinstance(value, complex) and is_complex:
        return judge_part(value.real, kind), judge_part(value.imag, kind)
    if isinstance(value, int) or isinstance(value, float) and (is_complex or kind in FLOATS):
        part = judge_part(value, kind)
        return (part, type(part)(0)) if is_complex else part
    if isinstance(value, (float, complex)) and kind == "logical" and constructing:
        return bool(value)
    if isinstance(value, float):
        raise TypeError(f"vellum.{kind} does not accept floating-point values.")
    if isinstance(value, complex):
        refused = "complex values if 'is_complex' is not set to 'True'."
        raise TypeError(f"vellum.{kind} does not accept {refused}")
    if isinstance(value, str):
        raise TypeError("value is not numeric.")
    if is_sequence(value):
        raise TypeError("sequence passed when scalar was expected.")
    raise TypeError("value must not be 'None'." if value is None else "type does not match.")


def judge_part(value, kind):
    number = int if isinstance(value, int) else float
    value = number.__pos__(value)  # of a subclass too
    if number is int and not -(2**63) <= value < 2**63:
        if kind == "single":
            return math.inf
        raise OverflowError("Python int too large to convert to C long long")
    if kind == "logical":
        return value != 0
    if kind == "single" and number is int:
        step = 2 ** max(abs(value).bit_length() - 24, 0)
        return float(round(Fraction(value, step)) * step)  # rounded once
    if kind == "single":
        too_large = abs(value) > 3.4028234663852886e38
        return math.inf if too_large else struct.unpack("f", struct.pack("f", value))[0]
    if kind == "double":
        return float(value)
    bits = 8 * struct.calcsize("=" + INTEGERS[kind])
    low = 0 if kind[0] == "u" else -(2 ** (bits - 1))
    if number(low - 1) < value < number(low + 2**bits):
        return int(value)
    shown = int(value) if number is int else "nan" if value != value else f"{value:g}"
    raise OverflowError(f"value ({shown}) cannot be stored in a variable of type {kind}.")


class Walk:
    """The shape and the elements of a nested sequence, in the order of reading."""

    def __init__(self, value, *how):
        self.how, self.dims, self.values, self.depth, self.scalar_depth = how, [], [], 0, 0
        self.enter(value)
        if len(self.values) != math.prod(self.dims):
            raise ValueError(RAGGED)

    def enter(self, value):
        if not is_sequence(value):
            element = judge(value, *self.how)
            self.scalar_depth = self.scalar_depth or self.depth
            if self.depth != self.scalar_depth:
                raise ValueError(RAGGED)
            self.values.append(element)
            self.dims = self.dims or [1, 1]
            return
        if isinstance(value, str):
            raise ValueError("value passed to initializer must be numeric.")
        length, counts, nested = len(value), [], []
        for i in range(length if length > 1 else 0):
            child = fetch(value, i)
            nested.append(is_sequence(child))
            counts.append(len(child) if nested[0] and nested[i] else None)
            if (nested[i], counts[i]) != (nested[0], counts[0]):
                raise ValueError("elements of array are of different lengths or types.")
        self.depth += 1
        if len(self.dims) < self.depth:
            self.dims.append(0)
        for i in range(length):
            self.enter(fetch(value, i))
        if self.dims[self.depth - 1] not in (0, length):
            raise ValueError(RAGGED)
        self.dims[self.depth - 1] = length
        self.depth -= 1


class Record:
    def __init__(self, kind, is_complex, dims, values):
        self.kind, self.is_complex, self.dims, self.values = kind, is_complex, list(dims), values
        self.version = self.reshapes = 0  # changes of any kind, and those of the shape
        self.width = struct.calcsize("=" + FORMATS[kind]) * (1 + is_complex)
        self.format = "Z" * is_complex + FORMATS[kind]

    def strides(self):
        return tuple(self.width * math.prod(self.dims[:k]) for k in range(len(self.dims)))

    def position(self, indices):
        return sum(i * math.prod(self.dims[:k]) for k, i in enumerate(indices))

    def element(self, indices):
        value = self.values[self.position(indices)]
        return complex(*value) if self.is_complex else value

    def below(self, indices):
        left = map(range, self.dims[len(indices) :])
        return [(*indices, *rest) for rest in itertools.product(*left)]

    def store(self, targets, elements):
        for indices, element in zip(targets, elements):
            self.values[self.position(indices)] = element
            self.version += 1

    def tobytes(self):
        parts = [*itertools.chain(*self.values)] if self.is_complex else self.values
        return struct.pack(f"={len(parts)}{FORMATS[self.kind]}", *parts)


def from_rows(kind, is_complex, dims, values):
    """A record of elements that were read with the last index fastest."""
    record = Record(kind, is_complex, dims, list(values))
    record.store(record.below(()), values)
    return record


def read_buffer(exporter, kind, is_complex):
    """Dimensions, elements in their order, and whether that is the storage order."""
    exporter = exporter if isinstance(exporter, Export) else memoryview(exporter)
    code, found = FORMATS[kind].replace("?", "B"), f"input buffer format ('{exporter.format}')"
    same_as_long = dict(zip("lL", "iI" if struct.calcsize("l") == 4 else "qQ"))
    if is_complex and exporter.format[0] != "Z":
        raise BufferError(f"{found} does not begin with 'Z', but output type is complex")
    if same_as_long.get(exporter.format, exporter.format) != "Z" * is_complex + code:
        wanted = f"output format ('{'Z' * is_complex}{code}')"
        advice = "use a different input or output type"
        raise BufferError(f"{found} is not compatible with {wanted}; {advice}")
    values = [part for (part,) in struct.iter_unpack("=" + FORMATS[kind], exporter.tobytes())]
    values = [*zip(values[::2], values[1::2])] if is_complex else values
    dims = list(exporter.shape) if exporter.ndim > 1 else [len(values)] if exporter.ndim else [1]
    return dims, values, isinstance(exporter, Export)


def hold_against(size, dims):
    """True if flat data is to be read column by column."""
    if not size or size == dims:
        return False
    found, wanted = (", ".join(map(str, lengths)) for lengths in (dims, size))
    found = f"dimensions of initializer ({found}) do not match dimensions"
    text = f"{found} specified by 'size' ({wanted})."
    if math.prod(dims) != math.prod(size):
        raise ShapeError(text)
    if len(dims) != 1 and math.prod(dims) != 0:
        raise SizeError(text)
    return len(dims) == 1


def construct(kind, args, options):
    """Takes only keywords that fit together."""
    if not options and args and isinstance(args[0], dict):
        options, args = args[0], args[1:]
    given = {**dict(zip(["initializer"], args)), **options}
    is_complex, size = given.get("is_complex", False), given.get("size")
    if size is not None:
        size = read_size(size)
        if math.prod(size) > INT_MAX:
            raise MemoryError(ANY)
    if "vector" in given:
        return from_vector(kind, is_complex, given["vector"], size)
    if given.get("initializer") is not None:
        return from_initializer(kind, is_complex, given["initializer"], size)
    size = size or [0, 0]
    return Record(kind, is_complex, size, [judge(0, kind, is_complex)] * math.prod(size))


def read_size(size):
    length, dims = len(size), []
    if not 0 < length <= INT_MAX:
        empty = "sequence passed to 'size' must not be empty."
        raise ValueError("too many dimensions." if length else empty)
    for i in range(length):
        where = "could not be retrieved from the value associated with the 'size' keyword."
        item = fetch(size, i, f"Item {i} {where}")
        if not isinstance(item, int):
            raise TypeError("dimensions must be nonnegative integers.")
        if not 0 <= item <= SSIZE_MAX:
            advice = "Use nonnegative integers for dimensions."
            raise ValueError(f"size cannot contain negative dimensions. {advice}")
        dims.append(int(item))
    return trim(dims) if length > 1 else [1, *dims]


def from_vector(kind, is_complex, vector, size):
    if not is_sequence(vector):
        raise ValueError("value of 'vector' must be a sequence.")
    dims, values = [len(vector)] if size else [1, len(vector)], []
    hold_against(size, dims)
    for i in range(dims[-1]):
        item = fetch(vector, i, f"item {i} could not be retrieved.")
        if is_sequence(item):
            raise TypeError("value of 'vector' must be an unnested sequence.")
        try:
            values.append(judge(item, kind, is_complex, True))
        except (TypeError, OverflowError) as refusal:
            raise ValueError(str(refusal)) from None
    return Record(kind, is_complex, size or dims, values)


def from_initializer(kind, is_complex, value, size):
    if isinstance(value, (bytes, bytearray, memoryview, array.array, Export)):
        dims, values, in_storage_order = read_buffer(value, kind, is_complex)
    else:
        walk = Walk(value, kind, is_complex, True)
        dims, values, in_storage_order = walk.dims, walk.values, False
    if len(dims) == 1 and not size:
        dims = [1, dims[0]] if dims[0] else [0, 0]
    dims = trim(dims)
    if hold_against(size, dims) or in_storage_order:
        return Record(kind, is_complex, size or dims, values)
    return from_rows(kind, is_complex, size or dims, values)


class Export:
    """A buffer export: its shape is that of its first day, its bytes are live."""

    def __init__(self, record):
        self.record, self.format, self.readonly = record, record.format, True
        self.shape, self.strides, self.ndim = (*record.dims,), record.strides(), len(record.dims)

    def tobytes(self, order="F"):
        return self.record.tobytes()


def read_slice(key, length):
    """Foreign members are asked in Python's order: step, start, stop."""
    try:
        step = 1 if key.step is None else operator.index(key.step)
    except MemoryError:
        raise
    except Exception:
        step = 0
    if step == 0:
        raise ValueError("slice step cannot be zero.")
    bounds = []
    for bound in (key.start, key.stop):
        if bound is not None and not hasattr(type(bound), "__index__"):
            raise TypeError(ANY)
        bounds.append(bound if bound is None else operator.index(bound))
    return range(*slice(*bounds, step).indices(length))


def compose(outer, key):
    """The key was judged against a length that may be larger than the view's."""
    if not outer:
        return outer
    start = outer[min(key.start, len(outer) - 1)] if key else outer[0]
    step = outer.step * key.step
    return range(start, start + min(len(key), len(outer)) * step, step)


def ssize(key):
    if not -(2**63) <= key <= SSIZE_MAX:
        raise OverflowError("Python int too large to convert to C ssize_t")
    return int(key)


def wrap(index, length):
    if not -length <= index < length:
        raise IndexError(f"index has an invalid value: {index}")
    return index % length


def locate(indices, dims):
    for index, length in zip(indices, dims):
        if not 0 <= index < length:
            raise IndexError(f"index has an invalid value: {index}")


class Array:
    __hash__ = None

    def __new__(cls, *args, **options):
        return make(construct(cls.kind, args, options))

    _is_complex = property(lambda self: self._record.is_complex)
    itemsize = property(lambda self: self._record.width)

    def check(self):  # a view may be older than the dimensions of its record
        dims, depth = self._record.dims, len(self._indices)
        if depth >= len(dims):
            raise RuntimeError("too many indices.")
        locate(self._indices, dims)
        locate(self._slice or (), itertools.repeat(dims[depth]))
        return dims, depth

    @property
    def size(self):
        dims, depth = self.check()
        return (len(self.selected()), *dims[depth + 1 :])

    _size = size

    def __len__(self):
        return self.size[0]

    def selected(self):
        dims, depth = self.check()
        return range(dims[depth]) if self._slice is None else self._slice

    def __getitem__(self, key):
        if isinstance(key, int):
            index, selected = ssize(key), self.selected()
            return self.at(selected[wrap(index, len(selected))])
        if type(key) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        key = read_slice(key, len(self))
        return make(self._record, self._indices, self.composed(key))

    def composed(self, key):
        return key if self._slice is None else compose(self._slice, key)

    def at(self, position):
        indices = [*self._indices, position]
        if len(indices) == len(self._record.dims):
            return self._record.element(indices)
        return make(self._record, indices)

    def __setitem__(self, key, value):
        (dims, depth), since = self.check(), self._record.reshapes
        last = depth == len(dims) - 1
        if isinstance(key, int):
            return self.assign(wrap(ssize(key), dims[depth]), value, last)
        if type(key) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        key = read_slice(key, dims[depth])
        self.settle(key, last, since)
        whole = self.composed(key)
        walk = Walk(value, self.kind, self._is_complex)
        self.settle(whole if last else key, last, since)
        if last:
            if walk.dims != [len(whole)]:
                raise ValueError(f"unable to perform assignment because the {SHAPES_DIFFER}")
        elif not walk.values and key:
            raise ValueError("slice is nonempty but values are empty.")
        elif not key and walk.values:
            text = "slice is empty, but number of elements assigned is greater than zero."
            raise ValueError(text)
        if any(not 0 <= at < self._record.dims[depth] for at in whole):
            raise RuntimeError(CANNOT_SET)
        targets = [i for at in whole for i in self._record.below([*self._indices, at])]
        self._record.store(targets, walk.values)
        if len(targets) != len(walk.values):
            raise ValueError("length of slice does not match number of elements.")

    def assign(self, index, value, last):
        since = self._record.reshapes
        if self._slice is not None:
            if index >= len(self._slice):
                raise RuntimeError("unable to index into slice.")
            index = self._slice[index]
        at = [*self._indices, index]
        if last:
            return self._record.store([at], [judge(value, self.kind, self._is_complex)])
        walk = Walk(value, self.kind, self._is_complex)
        self.settle([index], False, since)
        if walk.dims != self._record.dims[len(at) :]:
            raise ValueError(f"unable to perform assignment because the {SHAPES_DIFFER}")
        self._record.store(self._record.below(at), walk.values)

    def settle(self, positions, last, since):
        """Foreign code has run: after a reshape, what was judged is judged again."""
        if self._record.reshapes == since:
            return
        try:
            dims, depth = self.check()
        except (IndexError, RuntimeError):
            raise RuntimeError(CANNOT_SET) from None
        if last != (depth == len(dims) - 1) or any(not 0 <= at < dims[depth] for at in positions):
            raise RuntimeError(CANNOT_SET)

    def __delitem__(self, key):
        self[key] = NULL

    def __iter__(self):
        return Iterator(self)

    def __eq__(self, other):
        if not isinstance(other, Array) or self.kind != other.kind:
            return False
        return all(x == y for x, y in itertools.zip_longest(self, other, fillvalue=NULL))

    def __lt__(self, other):
        raise NotImplementedError("inequality operators not supported.")

    __le__ = __gt__ = __ge__ = __lt__

    def nested(self):
        return [x.nested() if isinstance(x, Array) else x for x in map(self.at, self.selected())]

    def __str__(self):
        return str(self.nested()).replace(" ", "")

    def __repr__(self):
        return f"vellum.{self.kind}({self}{', is_complex=True' * self._is_complex})"

    def __reduce__(self):  # a slice at the end must fit, but is not followed
        self.check()
        whole = make(self._record, self._indices)
        return type(self), ({"is_complex": True} if self._is_complex else {}, whole.nested())

    def selection(self, expand_vector):
        """The selected elements as a record; kept, whoever asked, until the next change."""
        if self._kept[0] != self._record.version:
            values = Walk(self.nested(), self.kind, self._is_complex).values
            dims = list(self._record.dims)
            if self._record.values:
                dims = [1, *self.size][0 if expand_vector and len(self.size) == 1 else 1 :]
            kept = from_rows(self.kind, self._is_complex, dims, values)
            self._kept = self._record.version, kept
        return self._kept[1]

    def clone(self):
        return make(copy.deepcopy(self.selection(False)))

    def row(self, part):
        if self._is_complex != (part is not None):
            if part is None:
                raise ValueError("noncomplex() must not be called on a complex array.")
            raise ValueError("real() and imag() can be called only on a complex array.")
        values = [x if part is None else x[part] for x in self._record.values]
        return make(Record(self.kind, False, [1, len(values)], values), [0])

    real, imag, noncomplex = (lambda self, part=part: self.row(part) for part in (0, 1, None))
    _real, _imag, _data = map(property, (real, imag, noncomplex))

    def toarray(self):
        steps = Iterator(self)
        left = len(self._record.dims) - len(self._indices)
        try:
            return array.array(FORMATS[self.kind].replace("?", "B"), steps)
        except TypeError:
            only = "can be called only on a one-dimensional sequence."
            raise RuntimeError(f"toarray() {'failed.' if left == 1 else only}") from None

    def tomemoryview(self):
        return Export(self._record)

    def reshape(self, *args, **options):
        if self._indices:
            raise RuntimeError("reshape() not supported for a partial array.")
        value = args[0] if len(args) == 1 else args
        try:
            length = len(value) if is_sequence(value) else 0
        except MemoryError:
            raise
        except Exception:
            length = 0
        if length < 2:
            raise ValueError(DIMENSIONS)
        if length > INT_MAX:
            raise ValueError("too many dimensions.")
        dims, where = [], "could not be retrieved from the value passed to reshape()."
        for i in range(length):
            item = fetch(value, i, f"Item {i} {where}")
            if not isinstance(item, int) or not 0 <= item <= SSIZE_MAX:
                raise ValueError(DIMENSIONS)
            dims.append(int(item))
        product, count = math.prod(dims), len(self._record.values)
        if product != count:
            text = f"specified by arguments to reshape() ({product}) does not match current number"
            text = f"number of elements {text} ({count})."
            raise ShapeError(ANY if product > SSIZE_MAX else text)
        if options:
            raise ValueError("reshape() does not accept keyword arguments.")
        self._record.dims = trim(dims)
        self._record.version += 1
        self._record.reshapes += 1
        return self


class Iterator:
    def __init__(self, view):
        selected = view.selected()
        self.view = make(view._record, view._indices, view._slice)
        self.position = selected.start
        self.is_over = not selected
        self.yields_arrays = len(view._record.dims) - len(view._indices) > 1

    def __iter__(self):
        return self

    def __next__(self):
        if self.is_over:
            raise StopIteration
        view, position = self.view, self.position
        dims, depth = view._record.dims, len(view._indices)
        walked = view._slice or range(dims[depth] if depth < len(dims) else 0)
        self.position += walked.step
        self.is_over = self.position not in walked
        if depth + self.yields_arrays >= len(dims):
            raise RuntimeError("too many indices.")
        indices = [*view._indices, position]
        locate(indices, dims)
        return make(view._record, indices) if self.yields_arrays else view._record.element(indices)


def make(record, indices=(), selected=None):
    view = object.__new__(globals()[record.kind])
    view._record, view._indices, view._slice = record, [*indices], selected
    view._kept = None, None
    return view


for kind in FORMATS:
    globals()[kind] = type(kind, (Array,), {"kind": kind, "__module__": __name__})


def service_bytes(view):
    """The elements as another native module gets them."""
    if not isinstance(view, Array):
        raise TypeError(ANY)
    whole = not view._indices and view._slice is None
    return (view._record if whole else view.selection(True)).tobytes()


def export(value):
    """memoryview() for both: Python's own doesn't know these arrays."""
    return Export(value._record) if isinstance(value, Array) else memoryview(value)
