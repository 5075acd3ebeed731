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

NAP = 0.01
inside = threading.Event()

class Last:
    '''Dies at the interpreter's end and lets the thread want the lock meanwhile.'''
    def __del__(self):
        time.sleep(20 * NAP)
        os.write(1, b"last")

class Trace:
    def __del__(self):
        inside.set()
        time.sleep(NAP)

class Number(float):
    '''Naps when it is released.'''
    def __new__(cls):
        number = super().__new__(cls, 1)
        number.trace = Trace()
        return number

class Slow:
    '''A length, two items and an index that come late.'''
    def __len__(self):
        return 2 * self.__index__()

    def __getitem__(self, position):
        return (1, 2)[position * self.__index__()]

    def __index__(self):
        inside.set()
        time.sleep(NAP)
        return 1

class Fresh:
    '''Two items that nobody else owns.'''
    def __len__(self):
        return 2

    def __getitem__(self, position):
        return Number() if position < 2 else [][0]

def collected():
    '''Leaves a napping cycle to the fourth object that is made next, up to CPython 3.11.'''
    gc.collect()
    cycle = [Trace()]
    cycle.append(cycle)
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
    "vellum.double(Slow())",
    "vellum.double([Slow(), Slow()])",
    "array[0][0:Slow()]",
    "array[0][0].__setitem__(slice(0, 2), Fresh())",
    "collected().__reduce__()",
])  # fmt: skip
def test_thread_that_is_ended_inside_the_module_ends_quietly(operation):
    command = [sys.executable, "-c", PROGRAM.replace("{operation}", operation)]
    # The interpreter's frames that are unwound lose what they own.
    env = {**os.environ, "LSAN_OPTIONS": "detect_leaks=0"}
    runs = [subprocess.Popen(command, env=env, stdout=-1, stderr=-1) for _ in range(3)]
    ends = [(*run.communicate(timeout=60), run.returncode) for run in runs]
    assert ends == [(b"last", b"", 0)] * 3
