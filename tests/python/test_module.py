"""The module and its classes as Python sees them."""

import struct
import subprocess
import sys
import types

import pytest

import vellum
import vellumexceptions
import vellummultidimarrayforpython as module

KINDS = "double single int8 uint8 int16 uint16 int32 uint32 int64 uint64 logical".split()
METHODS = """
reshape: reshape changes the dimensions of an N-dimensional array while preserving the values
buffer_info: buffer_info returns a two-element tuple containing the address of the buffer and the number of elements
get_bytewise_strides: get_bytewise_strides returns a tuple containing the bytewise strides
clone: clone returns an independent copy of the input object
real: real returns the real part of the input object as a 1-by-N array
imag: imag returns the imaginary part of the input object as a 1-by-N array
noncomplex: noncomplex returns the the input object (which must be noncomplex) as a 1-by-N array
toarray: toarray returns an array.array initialized from the input object
tomemoryview: tomemoryview returns a memoryview initialized from the input object
__reduce__: __reduce__ pickles the input object
"""
ATTRIBUTES = """
size: dimensions
_size: dimensions
itemsize: size of an element in bytes
_real: real part of elements; equivalent to real()
_imag: imaginary part of elements; equivalent to imag()
_data: elements in storage order; equivalent to noncomplex()
_is_complex: whether array is complex
"""
SLOTS = "repr str len getitem setitem delitem iter lt le eq ne gt ge".split()


def test_module_holds_its_classes_in_order_and_nothing_to_call():
    public = [name for name in vars(module) if not name.startswith("__")]
    assert public == [*KINDS, "VellumPyIter", "ShapeError", "SizeError", "_capi"]
    assert module.__doc__ == module.__name__ == "vellummultidimarrayforpython"
    assert '"vellummultidimarrayforpython._capi"' in repr(module._capi)
    for name in [*KINDS, "ShapeError", "SizeError"]:
        assert getattr(vellum, name) is getattr(module, name)
    for name in ("ShapeError", "SizeError"):
        error = getattr(vellumexceptions, name)
        assert error is getattr(module, name)
        assert (error.__name__, error.__module__) == (name, "vellumexceptions")
        assert error.__bases__ == (Exception,)


@pytest.mark.parametrize("cls", [getattr(module, name) for name in KINDS])
def test_class_record(cls):
    name = cls.__name__
    assert (cls.__doc__, cls.__module__, repr(cls)) == (name, "vellum", f"<class 'vellum.{name}'>")
    assert cls.__basicsize__ == object.__basicsize__ + struct.calcsize("P")
    assert (cls.__itemsize__, cls.__dictoffset__, cls.__weakrefoffset__) == (0, 0, 0)
    heap, subclassable, collected = 1 << 9, 1 << 10, 1 << 14
    assert cls.__flags__ & (heap | subclassable | collected) == 0
    tables = {types.MethodDescriptorType: METHODS, types.GetSetDescriptorType: ATTRIBUTES}
    for descriptor, table in tables.items():
        found = [f"{n}: {d.__doc__}" for n, d in vars(cls).items() if isinstance(d, descriptor)]
        assert found == table.split("\n")[1:-1]
    slots = {n for n, d in vars(cls).items() if isinstance(d, types.WrapperDescriptorType)}
    assert slots - {"__buffer__", "__release_buffer__"} == {f"__{slot}__" for slot in SLOTS}
    assert vars(cls)["__hash__"] is None


REFUSED = {
    "subclass": (TypeError, lambda a: type("Sub", (type(a),), {})),
    "hash": (TypeError, lambda a: {a: 1}),
    "arithmetic": (TypeError, lambda a: a + a),
    "repetition": (TypeError, lambda a: a * 2),
    "set attribute": (AttributeError, lambda a: setattr(a, "x", 1)),
    "set size": (AttributeError, lambda a: setattr(a, "size", (1, 1))),
    "set on the class": (TypeError, lambda a: setattr(type(a), "x", 1)),
    "weak reference": (TypeError, lambda a: __import__("weakref").ref(a)),
    "bare instance": (TypeError, lambda a: object.__new__(type(a))),
    "make an iterator": (TypeError, lambda a: type(iter(a))()),
    "bare iterator": (TypeError, lambda a: object.__new__(type(iter(a)))),
    "foreign self": (TypeError, lambda a: module.int8.__getitem__(a, 0)),
    "order": (NotImplementedError, lambda a: a < a),
}


@pytest.mark.parametrize("error, call", REFUSED.values(), ids=REFUSED)
def test_refused(error, call):
    with pytest.raises(error):
        call(module.double([[1.5]]))


def test_truth_is_length_and_containment_is_iteration():
    assert module.double([[0.0]]) and not module.double() and module.double(size=(1, 0))
    assert 2.0 in module.double([1, 2])[0] and 3.0 not in module.double([1, 2])[0]
    iterator = iter(module.double([1]))
    assert iter(iterator) is iterator and type(iterator) is module.VellumPyIter
    assert module.VellumPyIter.__name__ == "VellumPyIter"
    assert module.VellumPyIter.__doc__ == "Internal iterator object"


@pytest.mark.parametrize("stand_in", ["None", "sys", "types.SimpleNamespace(array=5)"])
def test_import_fails_without_the_array_class(stand_in):
    program = f"import sys, types; sys.modules['array'] = {stand_in}; import {module.__name__}"
    run = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert run.returncode == 1 and "raised unreported exception" in run.stderr
