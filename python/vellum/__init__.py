"""The eleven numeric N-dimensional array classes, under the names they carry.

`vellum.double` to `vellum.logical` are built as

    vellum.double(initializer=None, size=None, vector=None, is_complex=False)

from nested sequences, from any exporter of the buffer protocol, from a flat
`vector` in storage order, or from a `size` alone. Arrays are column-major:
the first dimension is fastest. `ShapeError` means that element counts differ,
`SizeError` that the counts agree and the shapes do not.
"""

from vellummultidimarrayforpython import (
    ShapeError,
    SizeError,
    double,
    int8,
    int16,
    int32,
    int64,
    logical,
    single,
    uint8,
    uint16,
    uint32,
    uint64,
)

__all__ = [
    "ShapeError",
    "SizeError",
    "double",
    "int8",
    "int16",
    "int32",
    "int64",
    "logical",
    "single",
    "uint8",
    "uint16",
    "uint32",
    "uint64",
]
