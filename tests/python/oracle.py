"""What the arrays should do, said a second time in plain Python.

The classes here answer to the same calls as those of the module, so that one
line of a program runs on either. An array is a list of exact Python values in
storage order, a view is a list of integers and at most one range; there is no
buffer, no cache and no fast path. Where a text is Python's own and not the
module's, an exception carries ANY in its place.
"""

import array
import math
import struct

ANY = object()
NULL = object()  # the right side of a deletion
FLOATS = {"double": "d", "single": "f"}
INTEGERS = dict(zip("int8 uint8 int16 uint16 int32 uint32 int64 uint64".split(), "bBhHiIqQ"))
FORMATS = {**FLOATS, **INTEGERS, "logical": "?"}
SSIZE_MAX = 2**63 - 1
DIMENSIONS = "reshape() must be passed a nonempty sequence of nonnegative integers."
SHAPES_DIFFER = (
    "unable to perform assignment because the left and right sides have a different shape."
)
COUNTS_DIFFER = "length of slice does not match number of elements."
CANNOT_SET = "unable to set value."


class ShapeError(Exception):
    pass


class SizeError(Exception):
    pass


def is_sequence(value):
    return not isinstance(value, dict) and hasattr(type(value), "__getitem__")


def fetch(value, i, message="null data pointer."):
    try:
        return value[i]
    except Exception:
        raise RuntimeError(message) from None


def trim(dims):
    while len(dims) > 2 and dims[-1] == 1:
        dims = dims[:-1]
    return dims


def to_single(value):
    if isinstance(value, int):  # one rounding, to the even one of two neighbours
        shift = max(abs(value).bit_length() - 24, 0)
        kept, lost = divmod(abs(value), 1 << shift)
        kept += 2 * lost > 1 << shift or (2 * lost == 1 << shift and kept & 1 and shift > 0)
        return math.copysign(float(kept << shift), value) if value else 0.0
    if abs(value) > 3.4028234663852886e38:
        return math.inf
    return struct.unpack("f", struct.pack("f", value))[0]


def judge(value, kind, is_complex, constructing):
    """One Python value to an element: a number, or a pair of them."""
    if is_complex:
        if isinstance(value, complex):
            return judge_part(value.real, kind), judge_part(value.imag, kind)
        if isinstance(value, (float, int)):
            return judge_part(value, kind), 0.0 if kind in FLOATS else 0
    elif isinstance(value, float) and kind in FLOATS or isinstance(value, int):
        return judge_part(value, kind)
    elif isinstance(value, (float, complex)):
        if kind == "logical" and constructing:
            return value != 0
        if isinstance(value, float):
            raise TypeError(f"vellum.{kind} does not accept floating-point values.")
        raise TypeError(
            f"vellum.{kind} does not accept complex values if 'is_complex' is not set to 'True'."
        )
    if isinstance(value, str):
        raise TypeError("value is not numeric.")
    if is_sequence(value):
        raise TypeError("sequence passed when scalar was expected.")
    raise TypeError("value must not be 'None'." if value is None else "type does not match.")


def judge_part(value, kind):
    if isinstance(value, int) and not -(2**63) <= value < 2**63:
        if kind == "single":
            return math.inf
        raise OverflowError("Python int too large to convert to C long long")
    if kind == "logical":
        return value != 0
    if kind in FLOATS:
        return to_single(value) if kind == "single" else float(value)
    bits = int(kind.lstrip("uint"))
    low, high = (0, 2**bits - 1) if kind[0] == "u" else (-(2 ** (bits - 1)), 2 ** (bits - 1) - 1)
    if isinstance(value, int) and low <= value <= high:
        return int(value)
    if isinstance(value, float) and float(low - 1) < value < float(high + 1):
        return int(value)
    shown = "nan" if value != value else f"{value:g}" if isinstance(value, float) else int(value)
    raise OverflowError(f"value ({shown}) cannot be stored in a variable of type {kind}.")


class Walk:
    """The shape and the elements of a nested sequence, in the order of reading."""

    def __init__(self, value, kind, is_complex, constructing):
        self.how = kind, is_complex, constructing
        self.dims, self.values, self.depth, self.scalar_depth = [], [], 0, 0
        self.enter(value)
        if len(self.values) != math.prod(self.dims):
            raise ValueError("arrays must be rectangular.")

    def enter(self, value):
        if value is NULL:
            raise RuntimeError("null data pointer.")
        if not is_sequence(value):
            return self.take(value)
        if isinstance(value, str):
            raise ValueError("value passed to initializer must be numeric.")
        length = self.probe(value)
        self.depth += 1
        if len(self.dims) < self.depth:
            self.dims.append(0)
        for i in range(length):
            self.enter(fetch(value, i))
        if self.dims[self.depth - 1] not in (0, length):
            raise ValueError("arrays must be rectangular.")
        self.dims[self.depth - 1] = length
        self.depth -= 1

    def take(self, value):
        element = judge(value, *self.how)
        self.scalar_depth = self.scalar_depth or self.depth
        if self.depth != self.scalar_depth:
            raise ValueError("arrays must be rectangular.")
        self.values.append(element)
        self.dims = self.dims or [1, 1]

    @staticmethod
    def probe(value):
        length = len(value)
        if length >= 2:
            first = fetch(value, 0)
            expected = len(first) if is_sequence(first) else None
            for i in range(1, length):
                child = fetch(value, i)
                if (len(child) if is_sequence(child) else None) != expected:
                    raise ValueError("elements of array are of different lengths or types.")
        return length


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

    def store(self, indices, element):
        self.values[self.position(indices)] = element
        self.version += 1

    def tobytes(self):
        parts = [part for pair in self.values for part in pair] if self.is_complex else self.values
        return struct.pack(f"={len(parts)}{FORMATS[self.kind]}", *parts)


def from_rows(kind, is_complex, dims, values):
    """A record of elements that were read with the last index fastest."""
    steps = [math.prod(dims[k + 1 :]) for k in range(len(dims))]
    order = [0] * bool(values)
    for length, step in zip(dims, steps) if values else ():
        order = [at + i * step for i in range(length) for at in order]
    return Record(kind, is_complex, dims, [values[at] for at in order])


def read_size(size):
    if not is_sequence(size):
        raise TypeError("value of 'size' must be a sequence.")
    dims = []
    length = len(size)
    if length == 0:
        raise ValueError("sequence passed to 'size' must not be empty.")
    for i in range(length):
        item = fetch(
            size, i, f"Item {i} could not be retrieved from the value associated with the 'size' keyword."
        )
        if not isinstance(item, int):
            raise TypeError("dimensions must be nonnegative integers.")
        if not 0 <= item <= SSIZE_MAX:
            raise ValueError(
                "size cannot contain negative dimensions. Use nonnegative integers for dimensions."
            )
        dims.append(int(item))
    return trim(dims) if length > 1 else [1, *dims]


def read_buffer(exporter, kind, is_complex):
    """Dimensions, elements in their order, and whether that is the storage order."""
    if not isinstance(exporter, Export):
        try:
            exporter = memoryview(exporter)
        except ValueError:
            raise BufferError("unable to retrieve buffer.") from None
        if not exporter.contiguous:
            raise BufferError("unable to retrieve buffer.")
    given = exporter.format
    code = "B" if kind == "logical" else FORMATS[kind]
    if is_complex and given[0] != "Z":
        raise BufferError(
            f"input buffer format ('{given}') does not begin with 'Z', but output type is complex"
        )
    meant = given[is_complex : is_complex + 1]
    if meant in ("l", "L"):
        meant = {"l": "iq", "L": "IQ"}[meant][exporter.itemsize != 4]
    if meant != code:
        raise BufferError(
            f"input buffer format ('{given}') is not compatible with output format "
            f"('{'Z' * is_complex}{code}'); use a different input or output type"
        )
    values = [part for (part,) in struct.iter_unpack("=" + FORMATS[kind], exporter.tobytes())]
    if is_complex:
        values = list(zip(values[::2], values[1::2]))
    dims = list(exporter.shape) if exporter.ndim > 1 else [len(values)] if exporter.ndim else [1]
    return dims, values, isinstance(exporter, Export)


def hold_against(size, dims):
    """True if flat data is to be read column by column."""
    text = (
        f"dimensions of initializer ({', '.join(map(str, dims))}) do not match dimensions "
        f"specified by 'size' ({', '.join(map(str, size or []))})."
    )
    if not size or size == dims:
        return False
    if math.prod(dims) != math.prod(size):
        raise ShapeError(text)
    if len(dims) != 1 and math.prod(dims) != 0:
        raise SizeError(text)
    return len(dims) == 1


def parse(args, options):
    names = ("initializer", "size", "vector", "is_complex")
    given = dict(zip(names, args))
    if len(args) + len(options) > 4 or any(k not in names or k in given for k in options):
        raise TypeError(ANY)
    return {**given, **options}


def construct(kind, args, options):
    if not options and args and isinstance(args[0], dict):
        options, args = args[0], args[1:]
    given = parse(args, options)
    is_complex = given.pop("is_complex", False)
    if type(is_complex) is not bool:
        raise TypeError("value passed to 'is_complex' must be a bool.")
    if is_complex and kind == "logical":
        raise TypeError("logical arrays must not be complex.")
    given = {name: value for name, value in given.items() if value is not None}
    if not given:
        return Record(kind, is_complex, [0, 0], [])
    if "initializer" in given and "vector" in given:
        raise TypeError(
            "initializer and 'vector' must not both be specified."
            if "vector" in options
            else "more than two positional arguments must not be specified. A third will be treated "
            "as 'vector', which must not be specified when an initializer is specified."
        )
    size = read_size(given["size"]) if "size" in given else None
    if size:
        count, width = math.prod(size), struct.calcsize("=" + FORMATS[kind]) * (1 + is_complex)
        if max(count, *(width * math.prod(size[:k]) for k in range(len(size)))) > SSIZE_MAX:
            raise MemoryError(
                "unable to allocate memory for array with number of elements = "
                f"{min(count, 2**64 - 1)}; type = {kind}"
            )
    if "vector" in given:
        return from_vector(kind, is_complex, given["vector"], size)
    if "initializer" not in given:
        zero = False if kind == "logical" else 0.0 if kind in FLOATS else 0
        return Record(kind, is_complex, size, [(zero, zero) if is_complex else zero] * count)
    return from_initializer(kind, is_complex, given["initializer"], size)


def from_vector(kind, is_complex, vector, size):
    if not is_sequence(vector):
        raise ValueError("value of 'vector' must be a sequence.")
    if isinstance(vector, str):
        raise ValueError("value passed to 'vector' must be numeric.")
    length = len(vector)
    dims = [length] if size else [1, length]
    hold_against(size, dims)
    values = []
    for i in range(length):
        item = fetch(vector, i, f"item {i} could not be retrieved.")
        if is_sequence(item):
            raise TypeError("value of 'vector' must be an unnested sequence.")
        try:
            values.append(judge(item, kind, is_complex, True))
        except (TypeError, OverflowError) as refusal:
            raise ValueError(str(refusal)) from None
    return Record(kind, is_complex, size or dims, values)


def from_initializer(kind, is_complex, value, size):
    if isinstance(value, str):
        raise ValueError("value passed to initializer must be numeric.")
    in_storage_order = False
    if isinstance(value, (bytes, bytearray, memoryview, array.array, Export)):
        dims, values, in_storage_order = read_buffer(value, kind, is_complex)
    else:
        walk = Walk(value, kind, is_complex, True)
        dims, values = walk.dims, walk.values
    if len(dims) == 1 and not size:
        dims = [1, dims[0]] if dims[0] else [0, 0]
    dims = trim(dims)
    if hold_against(size, dims) or in_storage_order:
        return Record(kind, is_complex, size or dims, values)
    return from_rows(kind, is_complex, size or dims, values)


class Export:
    """A buffer export: its shape is that of its first day, its bytes are live."""

    readonly = True

    def __init__(self, record):
        self.record, self.format, self.itemsize = record, record.format, record.width
        self.shape, self.strides, self.ndim = tuple(record.dims), record.strides(), len(record.dims)
        self.nbytes = record.width * len(record.values)

    def tobytes(self, order="F"):
        return self.record.tobytes()

    def __len__(self):
        return self.shape[0]

    def __getitem__(self, key):
        if self.ndim != 1 or self.record.is_complex:
            raise NotImplementedError
        return self.record.values[key]


def as_index(value):
    return max(-(2**63), min(SSIZE_MAX, value.__index__()))


def read_slice(key, length):
    """Foreign members are asked in Python's order: step, start, stop."""
    try:
        step = 1 if key.step is None else as_index(key.step)
    except Exception:
        step = 0
    if step == 0:
        raise ValueError("slice step cannot be zero.")
    bounds = []
    for bound in (key.start, key.stop):
        if bound is not None and not hasattr(type(bound), "__index__"):
            raise TypeError(ANY)
        bounds.append(bound if bound is None else as_index(bound))
    selected = range(*slice(*bounds, max(step, -SSIZE_MAX)).indices(length))
    return selected if selected else range(0)


def compose(outer, key):
    """The key was judged against a length that may be larger than the view's."""
    if not outer:
        return outer
    start = outer[max(min(key.start, len(outer) - 1), 0)] if key else outer[0]
    step = outer.step * key.step
    return range(start, start + min(len(key), len(outer)) * step, step)


def ssize(key):
    if not -(2**63) <= key <= SSIZE_MAX:
        raise OverflowError("Python int too large to convert to C ssize_t")
    return int(key)


class Array:
    kind = ""
    __hash__ = None

    def __new__(cls, *args, **options):
        return make(construct(cls.kind, args, options))

    _is_complex = property(lambda self: self._record.is_complex)
    itemsize = property(lambda self: self._record.width)

    def check(self):
        """A view may be older than the dimensions of its record."""
        dims, depth = self._record.dims, len(self._indices)
        if depth >= len(dims):
            raise RuntimeError("too many indices.")
        positions = [*zip(self._indices, dims)]
        positions += [(i, dims[depth]) for i in self._slice or ()]
        for i, length in positions:
            if not 0 <= i < length:
                raise IndexError(f"index has an invalid value: {i}")
        return dims, depth

    @property
    def size(self):
        dims, depth = self.check()
        left = dims[depth:]
        return tuple(left if self._slice is None else [len(self._slice), *left[1:]])

    _size = size

    def __len__(self):
        return self.size[0]

    def selected(self):
        dims, depth = self.check()
        return range(dims[depth]) if self._slice is None else self._slice

    def __getitem__(self, key):
        if isinstance(key, int):
            return self.item(ssize(key))
        if type(key) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        key = read_slice(key, len(self))
        key = key if self._slice is None else compose(self._slice, key)
        return make(self._record, self._indices, key)

    def item(self, index):
        selected = self.selected()
        if not -len(selected) <= index < len(selected):
            raise IndexError(f"index has an invalid value: {index}")
        return self.at(selected[index])

    def at(self, position):
        indices = [*self._indices, position]
        if len(indices) == len(self._record.dims):
            return self._record.element(indices)
        return make(self._record, indices)

    def __setitem__(self, key, value):
        dims, depth = self.check()
        last = depth == len(dims) - 1
        if isinstance(key, int):
            index = ssize(key)
            if not -dims[depth] <= index < dims[depth]:
                raise IndexError(f"index has an invalid value: {index}")
            index %= dims[depth]
            if self._slice is not None:
                if index >= len(self._slice):
                    raise RuntimeError("unable to index into slice.")
                index = self._slice[index]
            return self.assign_element(index, value) if last else self.assign_part(index, value)
        if type(key) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        since, key = self._record.reshapes, read_slice(key, dims[depth])
        self.settle(key, last, since)
        whole = key if self._slice is None else compose(self._slice, key)
        walk = Walk(value, self.kind, self._is_complex, False)
        self.settle(whole if last else key, last, since)
        if last:
            if walk.dims != [len(whole)]:
                raise ValueError(SHAPES_DIFFER)
        elif not walk.values and key:
            raise ValueError("slice is nonempty but values are empty.")
        elif not key and walk.values:
            raise ValueError("slice is empty, but number of elements assigned is greater than zero.")
        if any(not 0 <= at < self._record.dims[depth] for at in whole):
            raise RuntimeError(CANNOT_SET)
        targets = [i for at in whole for i in self.below([*self._indices, at])]
        for indices, element in zip(targets, walk.values):
            self._record.store(indices, element)
        if len(targets) != len(walk.values):
            raise ValueError(COUNTS_DIFFER)

    def assign_element(self, index, value):
        if value is NULL:
            raise RuntimeError("null data pointer.")
        element = judge(value, self.kind, self._is_complex, False)
        self._record.store([*self._indices, index], element)

    def assign_part(self, index, value):
        since = self._record.reshapes
        walk = Walk(value, self.kind, self._is_complex, False)
        self.settle([index], False, since)
        if walk.dims != self._record.dims[len(self._indices) + 1 :]:
            raise ValueError(SHAPES_DIFFER)
        for indices, element in zip(self.below([*self._indices, index]), walk.values):
            self._record.store(indices, element)

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

    def below(self, indices):
        dims = self._record.dims
        if len(indices) == len(dims):
            return [indices]
        return [full for i in range(dims[len(indices)]) for full in self.below([*indices, i])]

    def __delitem__(self, key):
        self[key] = NULL

    def __iter__(self):
        return Iterator(self)

    def __eq__(self, other):
        return isinstance(other, Array) and equal(self, other)

    def __lt__(self, other):
        raise NotImplementedError("inequality operators not supported.")

    __le__ = __gt__ = __ge__ = __lt__

    def nested(self):
        return [x.nested() if isinstance(x, Array) else x for x in map(self.at, self.selected())]

    def __str__(self):
        return str(self.nested()).replace(" ", "")

    def __repr__(self):
        return f"vellum.{self.kind}({self}{', is_complex=True' * self._is_complex})"

    def __reduce__(self):  # a slice at the end is not looked at
        whole = make(self._record, self._indices)
        return type(self), ({"is_complex": True} if self._is_complex else {}, whole.nested())

    def selection(self, expand_vector):
        """The selected elements as a record; kept, whoever asked, until the next change."""
        if self._kept[0] != self._record.version:
            walk = Walk(self.nested(), self.kind, self._is_complex, False)
            dims = list(self.size if self._record.values else self._record.dims)
            dims = [1, *dims] if expand_vector and len(dims) == 1 and walk.values else dims
            kept = from_rows(self.kind, self._is_complex, dims, walk.values)
            self._kept = self._record.version, kept
        return self._kept[1]

    def clone(self):
        kept = self.selection(False)
        return make(Record(self.kind, self._is_complex, kept.dims, list(kept.values)))

    def row(self, wanted_complex, refusal, part):
        if self._is_complex != wanted_complex:
            raise ValueError(refusal)
        values = [part(element) for element in self._record.values]
        return make(Record(self.kind, False, [1, len(values)], values), [0])

    def real(self):
        text = "real() and imag() can be called only on a complex array."
        return self.row(True, text, lambda pair: pair[0])

    def imag(self):
        text = "real() and imag() can be called only on a complex array."
        return self.row(True, text, lambda pair: pair[1])

    def noncomplex(self):
        text = "noncomplex() must not be called on a complex array."
        return self.row(False, text, lambda element: element)

    _real, _imag, _data = property(real), property(imag), property(noncomplex)

    def toarray(self):
        steps = Iterator(self)
        left = len(self._record.dims) - len(self._indices)
        try:
            return array.array(FORMATS[self.kind].replace("?", "B"), steps)
        except TypeError:
            raise RuntimeError(
                "toarray() failed."
                if left == 1
                else "toarray() can be called only on a one-dimensional sequence."
            ) from None

    def tomemoryview(self):
        return Export(self._record)

    def buffer_info(self):
        return ANY, len(self._record.values)

    def get_bytewise_strides(self):
        return self._record.strides()

    def reshape(self, *args, **options):
        if self._indices:
            raise RuntimeError("reshape() not supported for a partial array.")
        value = args[0] if len(args) == 1 else args
        try:
            length = len(value) if is_sequence(value) else 0
        except Exception:
            length = 0
        if length < 2:
            raise ValueError(DIMENSIONS)
        dims = []
        for i in range(length):
            item = fetch(
                value, i, f"Item {i} could not be retrieved from the value passed to reshape()."
            )
            if not isinstance(item, int) or not 0 <= item <= SSIZE_MAX:
                raise ValueError(DIMENSIONS)
            dims.append(int(item))
        product, count = math.prod(dims), len(self._record.values)
        if product != count:
            raise ShapeError(
                ANY
                if product > SSIZE_MAX
                else f"number of elements specified by arguments to reshape() ({product}) does not "
                f"match current number ({count})."
            )
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
        for index, length in zip(indices, dims):
            if not 0 <= index < length:
                raise IndexError(f"index has an invalid value: {index}")
        return make(view._record, indices) if self.yields_arrays else view._record.element(indices)


def equal(a, b):
    if a.kind != b.kind:
        return False
    steps_a, steps_b, end = Iterator(a), Iterator(b), object()
    while True:
        x, y = next(steps_a, end), next(steps_b, end)
        if x is end or y is end:
            return x is y
        if isinstance(x, Array) != isinstance(y, Array):
            return False
        if not (equal(x, y) if isinstance(x, Array) else x == y):
            return False


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
