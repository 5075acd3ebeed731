"""The module and its classes as Python sees them, their documentation, and the start-up."""

import subprocess
import sys
import types
import zlib

import hillshade
import oracle
import pytest
import vellum
import vellumexceptions
import vellummultidimarrayforpython as module

# Of all that `help` shows of the classes: whoever changes a name or a text changes this number.
DOCUMENTATION = 2876721557
OWN_MEMBERS = types.MethodDescriptorType, types.GetSetDescriptorType


def test_module_holds_its_classes_in_order_and_nothing_to_call():
    public = [name for name in vars(module) if not name.startswith("__")]
    assert public == [*oracle.FORMATS, "VellumPyIter", "ShapeError", "SizeError", "_capi"]
    assert module.__doc__ == module.__name__ == "vellummultidimarrayforpython"
    assert '"vellummultidimarrayforpython._capi"' in repr(module._capi)
    for name in ("ShapeError", "SizeError"):
        error = getattr(vellumexceptions, name)
        assert error is getattr(module, name) is getattr(vellum, name)
        assert (repr(error), error.__base__) == (f"<class 'vellumexceptions.{name}'>", Exception)


def test_classes_and_their_documentation():
    shown = []
    for name in [*oracle.FORMATS, "VellumPyIter"]:
        cls = getattr(module, name)
        members = vars(cls).items()
        shown += [repr(cls), cls.__module__, cls.__doc__]
        shown += [f"{n}: {m.__doc__}" for n, m in members if type(m) in OWN_MEMBERS]
        slots = {n for n, m in members if type(m) is types.WrapperDescriptorType}
        shown += sorted(slots - {"__buffer__", "__release_buffer__"})  # of later versions
    assert zlib.crc32("\n".join(shown).encode()) == DOCUMENTATION, shown
    for cls in [getattr(vellum, name) for name in oracle.FORMATS]:
        assert cls is getattr(module, cls.__name__)
        assert cls.__basicsize__ == object.__basicsize__ + tuple.__itemsize__  # a pointer
        assert cls.__itemsize__ == cls.__dictoffset__ == cls.__weakrefoffset__ == 0
        heap, subclassable, collected = 1 << 9, 1 << 10, 1 << 14
        assert cls.__flags__ & (heap | subclassable | collected) == 0
        assert cls.__hash__ is None


def test_refused():
    with pytest.raises(AttributeError):
        module.double(5).size = (1, 1)
    with pytest.raises(TypeError):
        module.VellumPyIter()


@pytest.mark.parametrize("extension", [module, hillshade])
def test_entry_point_is_the_only_dynamic_symbol(extension):
    command = ["nm", "--dynamic", "--defined-only", extension.__file__]
    symbols = subprocess.run(command, env={}, stdout=-1, text=True, check=True).stdout
    assert [line.split()[-1] for line in symbols.splitlines()] == [f"PyInit_{extension.__name__}"]


OUTLIVING = """
import contextvars, os, vellum

class Late:
    reshape = vellum.double([[1, 2]]).reshape

    def __del__(self, reshape=reshape, Exception=Exception, type=type, write=os.write):
        try:
            reshape(5, 5)
        except Exception as error:
            write(1, type(error).__name__.encode())

contextvars.ContextVar("late").set(Late())
"""
WITHOUT_ARRAY = """
import sys, types
name = "vellummultidimarrayforpython"

class Interrupting:
    array = property(lambda self: sys.exit("by hand"))

def show(call):
    try:
        print(call())
    except BaseException as error:
        print(f"{type(error).__name__}: {error}", type(error.__cause__).__name__)

for stand_in in (None, sys, types.SimpleNamespace(array=5), Interrupting()):
    sys.modules["array"] = stand_in
    show(lambda: __import__(name))
cls = [c for c in object.__subclasses__() if repr(c) == "<class 'vellum.double'>"][0]
show(cls([[1, 2]])[0].toarray)
del sys.modules["array"]
show(lambda: __import__(name).double is cls)
show(cls([[1, 2]])[0].toarray)
"""
WITHOUT_ARRAY_SHOWN = """\
RuntimeError: unable to import array module. ModuleNotFoundError
RuntimeError: unable to retrieve array.array class. AttributeError
RuntimeError: array.array class is not callable. NoneType
SystemExit: by hand NoneType
RuntimeError: unable to retrieve array.array class. NoneType
True
array('d', [1.0, 2.0])
"""
UNREADY = """
import ctypes, importlib.util, sys, vellummultidimarrayforpython as module
tp_name, tp_flags, ready = 3, 21, 1 << 12
for cls in (module.int8, module.VellumPyIter):
    words = ctypes.cast(id(cls), ctypes.POINTER(ctypes.c_size_t))
    name, words[tp_name] = words[tp_name], 0
    words[tp_flags] ^= ready
    spec = importlib.util.spec_from_file_location(f"again.{module.__name__}", module.__file__)
    try:
        importlib.util.module_from_spec(spec)
    except SystemError:
        print("refused")
    words[tp_name] = name
    words[tp_flags] |= ready
again = importlib.util.module_from_spec(spec)
print(*(getattr(again, name) is getattr(module, name) for name in ("double", "ShapeError")))
"""
UNREADY_TEXTS = "Could not initialize type.\nCould not initialize VellumPyIter_Type.\n"


@pytest.mark.parametrize("program, output, errors", [
    (OUTLIVING, "ShapeError", ""), (WITHOUT_ARRAY, WITHOUT_ARRAY_SHOWN, ""),
    (UNREADY, "refused\nrefused\nTrue True\n", UNREADY_TEXTS),
], ids=["outliving", "without array", "unready"])  # fmt: skip
def test_program_of_its_own(program, output, errors):
    run = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True)
    assert (run.stdout, run.stderr, run.returncode) == (output, errors, 0)
