"""The module and its classes as Python sees them."""

import importlib.util
import struct
import subprocess
import sys
import textwrap
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


def test_second_module_out_of_the_same_file_shares_the_exceptions():
    spec = importlib.util.spec_from_file_location(f"again.{module.__name__}", module.__file__)
    again = importlib.util.module_from_spec(spec)
    for name in ("double", "ShapeError", "SizeError"):
        assert getattr(again, name) is getattr(module, name)
    with pytest.raises(vellum.SizeError):
        again.double([[1, 2, 3]], size=(3, 1))


def run(program, *arguments):
    command = [sys.executable, "-c", textwrap.dedent(program), *arguments]
    process = subprocess.run(command, capture_output=True, text=True)
    assert (process.returncode, process.stderr) == (0, "")
    return process.stdout.split("\n")


def test_object_that_outlives_the_module_raises_its_exceptions():
    assert run("""
        import contextvars, os, vellum

        class Late:
            def __init__(self):
                self.reshape = vellum.double([[1, 2]]).reshape

            def __del__(self, Exception=Exception, type=type, write=os.write):
                try:
                    self.reshape(5, 5)
                except Exception as error:
                    write(1, type(error).__name__.encode())

        contextvars.ContextVar("late").set(Late())
        """) == ["ShapeError"]


@pytest.mark.parametrize("stand_in, error, cause", [
    ("None", "RuntimeError: unable to import array module.", "ModuleNotFoundError"),
    ("sys", "RuntimeError: unable to retrieve array.array class.", "AttributeError"),
    ("types.SimpleNamespace(array=5)", "RuntimeError: array.array class is not callable.",
     "NoneType"),
    ("Interrupting()", "KeyboardInterrupt: by hand", "NoneType"),
])  # fmt: skip
def test_import_without_the_array_class(stand_in, error, cause):
    assert run("""
        import sys, types
        stand_in, name = sys.argv[1:]

        class Interrupting:
            @property
            def array(self):
                raise KeyboardInterrupt("by hand")

        def show(call):
            try:
                call()
            except BaseException as error:
                print(f"{type(error).__name__}: {error}", type(error.__cause__).__name__)

        sys.modules["array"] = eval(stand_in)
        show(lambda: __import__(name))
        cls = [c for c in object.__subclasses__() if repr(c) == "<class 'vellum.double'>"][0]
        show(cls([[1, 2]])[0].toarray)
        show(lambda: cls([[1, 2]], size=(2, 1)))
        del sys.modules["array"]
        print(__import__(name).double is cls, cls([[1, 2]])[0].toarray())
        """, stand_in, module.__name__) == [
            f"{error} {cause}",
            "RuntimeError: unable to retrieve array.array class. NoneType",
            "SizeError: dimensions of initializer (1, 2) do not match dimensions"
            " specified by 'size' (2, 1). NoneType",
            "True array('d', [1.0, 2.0])",
            "",
        ]  # fmt: skip
