"""What no operation says: the documentation, and a start-up that fails."""

import subprocess
import sys
import types
import zlib

import oracle
import pytest
import vellummultidimarrayforpython as module

# Of what `help` shows of the methods and attributes: whoever changes a text changes it here.
DOCUMENTATION = 2423909469


def test_documentation():
    assert module.VellumPyIter.__doc__ == "Internal iterator object"
    kinds = types.MethodDescriptorType, types.GetSetDescriptorType
    for name in oracle.FORMATS:
        members = [m for m in vars(getattr(module, name)).values() if type(m) in kinds]
        texts = [f"{member.__name__}: {member.__doc__}" for member in members]
        assert zlib.crc32("\n".join(texts).encode()) == DOCUMENTATION


UNREADY = """
import ctypes, importlib.util, sys, vellummultidimarrayforpython as module
words = ctypes.cast(id(getattr(module, sys.argv[1])), ctypes.POINTER(ctypes.c_size_t))
tp_name, tp_flags, ready = 3, 21, 1 << 12
name, words[tp_name] = words[tp_name], 0
words[tp_flags] ^= ready
spec = importlib.util.spec_from_file_location(f"again.{module.__name__}", module.__file__)
try:
    importlib.util.module_from_spec(spec)
except SystemError:
    print("refused")
words[tp_name] = name
words[tp_flags] |= ready
"""


@pytest.mark.parametrize("name, text", [
    ("int8", "Could not initialize type."),
    ("VellumPyIter", "Could not initialize VellumPyIter_Type."),
])  # fmt: skip
def test_a_class_that_cannot_be_readied_ends_the_import(name, text):
    command = [sys.executable, "-c", UNREADY, name]
    run = subprocess.run(command, capture_output=True, text=True)
    assert (run.stdout, run.stderr) == ("refused\n", f"{text}\n")
