"""The interpreter's end, while a daemon thread is inside the module.

Up to CPython 3.13 the thread is ended where it wants the interpreter's lock
back, by unwinding its stack.
"""

import os
import subprocess
import sys

import pytest

PROGRAM = """
import builtins, gc, os, threading, time
import vellum

inside = threading.Event()

def nap(*_):
    inside.set()
    time.sleep(0.01)
    return 1

class Last:
    '''Dies at the interpreter's end and lets the thread want the lock meanwhile.'''
    def __del__(self):
        time.sleep(0.2)
        os.write(1, b"last")

class Number(float):
    __del__ = nap

class Slow:
    '''An index, or a sequence of two items; each answer comes late.'''
    __index__ = nap
    __len__ = lambda self: 2 * nap()
    __getitem__ = lambda self, position: (1, 2)[position * nap()]

class Fresh:
    '''Two items that nobody else owns.'''
    __len__ = lambda self: 2
    __getitem__ = lambda self, position: (Number, Number)[position](1)

def collected():
    '''Leaves a napping cycle to the fourth object that is made next, up to CPython 3.11.'''
    gc.collect()
    number = Number(1)
    number.itself = number
    return array

gc.set_threshold(5)
array = vellum.double(size=(2, 2, 2))
builtins.last = Last()

def forever():
    while True:
        {operation}

threading.Thread(target=forever, daemon=True).start()
inside.wait(20)
"""


@pytest.mark.parametrize("operation", [
    "vellum.double(Slow())", "vellum.double([Slow(), Slow()])", "array[0][0:Slow()]",
    "array[0][0].__setitem__(slice(0, 2), Fresh())", "collected().__reduce__()",
])  # fmt: skip
def test_thread_that_is_ended_inside_the_module_ends_quietly(operation):
    command = [sys.executable, "-c", PROGRAM.replace("{operation}", operation)]
    # The interpreter's frames that are unwound lose what they own.
    env = {**os.environ, "LSAN_OPTIONS": "detect_leaks=0"}
    runs = [subprocess.Popen(command, env=env, stdout=-1, stderr=-1) for _ in range(3)]
    ends = [(*run.communicate(timeout=60), run.returncode) for run in runs]
    assert ends == [(b"last", b"", 0)] * 3
