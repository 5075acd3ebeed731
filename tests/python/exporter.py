"""Exporters of the buffer protocol that say of their memory whatever a test wants."""

import ctypes


class Buffer(ctypes.Structure):
    pointer, size, number = ctypes.c_void_p, ctypes.c_ssize_t, ctypes.c_int
    sizes = ctypes.POINTER(size)
    _fields_ = [("buf", pointer), ("obj", pointer), ("len", size), ("itemsize", size),
                ("readonly", number), ("ndim", number), ("format", ctypes.c_char_p),
                ("shape", sizes), ("strides", sizes), ("suboffsets", sizes),
                ("internal", pointer)]  # fmt: skip


def set_buffer_slots(cls, get, release=None):
    """Both are functions of C; the class keeps them."""
    tp_as_buffer = 20  # counted in pointers, in every version
    pointers = ctypes.POINTER(ctypes.c_void_p)
    slots = ctypes.cast(id(cls), ctypes.POINTER(pointers))[tp_as_buffer]
    for i, function in enumerate((get, release)):
        slots[i] = ctypes.cast(function, ctypes.c_void_p)
    cls.slots = get, release


class Exporter:
    """Exports six doubles, 0 to 5, as a flat buffer; other `fields` say otherwise."""

    def __init__(self, **fields):
        self.memory = (ctypes.c_double * 6)(*range(6))
        self.fields = {"buf": ctypes.addressof(self.memory), "len": 48, "itemsize": 8, "ndim": 1,
                       "format": b"d", "shape": (6,), **fields}  # fmt: skip
        for name in {"shape", "strides"} & self.fields.keys():
            lengths = self.fields[name]
            self.fields[name] = lengths and (ctypes.c_ssize_t * len(lengths))(*lengths)
        self.exports = 0  # now alive

    @ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object, ctypes.POINTER(Buffer), ctypes.c_int)
    def get(self, buffer, flags):
        ctypes.pythonapi.Py_IncRef(ctypes.py_object(self))
        for name, value in {**self.fields, "obj": id(self)}.items():
            setattr(buffer[0], name, value)
        self.exports += 1
        return 0

    @ctypes.PYFUNCTYPE(None, ctypes.py_object, ctypes.POINTER(Buffer))
    def release(self, buffer):
        self.exports -= 1


set_buffer_slots(Exporter, Exporter.get, Exporter.release)
