"""The module and its classes as Python sees them."""

import struct
import subprocess
import sys
import types
import weakref

import hillshade
import oracle
import pytest
import vellum
import vellumexceptions
import vellummultidimarrayforpython as module

MEMBERS = {
    types.MethodDescriptorType: "reshape buffer_info get_bytewise_strides clone real imag"
                                " noncomplex toarray tomemoryview __reduce__".split(),
    types.GetSetDescriptorType: "size _size itemsize _real _imag _data _is_complex".split(),
}  # fmt: skip
SLOTS = {f"__{name}__" for name in
         "repr str len getitem setitem delitem iter lt le eq ne gt ge".split()}  # fmt: skip


def test_module_holds_its_classes_in_order_and_nothing_to_call():
    public = [name for name in vars(module) if not name.startswith("__")]
    assert public == [*oracle.FORMATS, "VellumPyIter", "ShapeError", "SizeError", "_capi"]
    assert module.__doc__ == module.__name__ == "vellummultidimarrayforpython"
    assert '"vellummultidimarrayforpython._capi"' in repr(module._capi)
    assert all(getattr(vellum, name) is getattr(module, name) for name in oracle.FORMATS)
    for name in ("ShapeError", "SizeError"):
        error = getattr(vellumexceptions, name)
        assert error is getattr(module, name) is getattr(vellum, name)
        assert repr(error) == f"<class 'vellumexceptions.{name}'>"
        assert error.__bases__ == (Exception,)


@pytest.mark.parametrize("cls", [getattr(module, name) for name in oracle.FORMATS])
def test_class_record(cls):
    name = cls.__name__
    assert (cls.__doc__, cls.__module__, repr(cls)) == (name, "vellum", f"<class 'vellum.{name}'>")
    assert cls.__basicsize__ == object.__basicsize__ + struct.calcsize("P")
    heap, subclassable, collected = 1 << 9, 1 << 10, 1 << 14
    assert cls.__flags__ & (heap | subclassable | collected) == cls.__itemsize__ == 0
    for kind, names in MEMBERS.items():
        assert [n for n, d in vars(cls).items() if type(d) is kind] == names
        assert all(vars(cls)[n].__doc__ for n in names)
    slots = {n for n, d in vars(cls).items() if type(d) is types.WrapperDescriptorType}
    assert slots - {"__buffer__", "__release_buffer__"} == SLOTS


@pytest.mark.parametrize("error, call", [
    (TypeError, lambda a: type("Sub", (type(a),), {})), (TypeError, lambda a: {a: 1}),
    (TypeError, lambda a: a + a), (TypeError, lambda a: a * 2), (TypeError, weakref.ref),
    (AttributeError, lambda a: setattr(a, "x", 1)),
    (AttributeError, lambda a: setattr(a, "size", (1, 1))),
    (TypeError, lambda a: setattr(type(a), "x", 1)),
    (TypeError, lambda a: object.__new__(type(a))), (TypeError, lambda a: type(iter(a))()),
    (TypeError, lambda a: object.__new__(type(iter(a)))),
    (TypeError, lambda a: module.int8.__getitem__(a, 0)),
])  # fmt: skip
def test_refused(error, call):
    with pytest.raises(error):
        call(module.double([[1.5]]))


def test_truth_is_length():
    assert module.double([[0.0]]) and not module.double() and module.double(size=(1, 0))


def test_iterator_class():
    iterator = iter(module.double([1]))
    assert iter(iterator) is iterator and type(iterator) is module.VellumPyIter
    assert repr(module.VellumPyIter) == "<class 'VellumPyIter'>"


@pytest.mark.parametrize("extension", [module, hillshade])
def test_entry_point_is_the_only_dynamic_symbol(extension):
    command = ["nm", "--dynamic", "--defined-only", extension.__file__]
    symbols = subprocess.run(command, env={}, stdout=-1, text=True, check=True).stdout
    assert [line.split()[-1] for line in symbols.splitlines()] == [f"PyInit_{extension.__name__}"]


@pytest.mark.parametrize("stand_in", ["None", "sys", "types.SimpleNamespace(array=5)"])
def test_import_fails_without_the_array_class(stand_in):
    program = f"import sys, types; sys.modules['array'] = {stand_in}; import {module.__name__}"
    run = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert run.returncode == 1 and "raised unreported exception" in run.stderr
