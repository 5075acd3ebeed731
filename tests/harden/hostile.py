"""Foreign code does its worst in every hook that it has while an operation runs.

Each hook does each hostility at its first call, its second, ... until there are no
more: the methods of what the module is given, finalizers of garbage that is collected
meanwhile, functions that trace, handlers of signals.
"""

import _thread
import ctypes
import functools
import gc
import math
import signal
import sys

import vellum
from operations import (MODULE, OPERATIONS, ORACLE, Attempt, Inputs, describe_all, is_array, main,
                        outcome, require_level)  # fmt: skip

from exporter import Exporter, set_buffer_slots  # beside the oracle

MOST = 30  # calls of one hook


def flip(arrays, *_):
    """Each array gets seven dimensions, or two again."""
    for value in filter(is_array, arrays):
        count = math.prod(value.size)
        value.reshape((1,) * 6 + (count,) if len(value.size) < 7 else (1, count))


def assign(arrays, *_):
    for value in filter(is_array, arrays):
        while is_array(value[0]):
            value = value[0]
        value[0] = not value[0]


def drop(arrays, kept, _):
    arrays.clear()
    kept.clear()


def export(arrays, *_):
    for value in filter(is_array, arrays):
        value.tomemoryview()[()] if not value.size else value.tomemoryview()


def raising(exception):
    def act(*_):
        raise exception("hostile")

    return act


def giving(value):
    return lambda *_: (value,)


ACTS = {
    "reshapes": flip, "assigns": assign, "exports": export, "drops": drop,
    "clears": lambda arrays, kept, items: items.clear(), "raises": raising(ValueError),
    "interrupts": raising(KeyboardInterrupt), "wants memory": raising(MemoryError),
    "leaves": raising(GeneratorExit),
}  # fmt: skip
LIES = {
    "gives one more": lambda arrays, kept, items: (len(items) + 1,), "gives 0": giving(0),
    "gives many": giving(2**62), "gives -1": giving(-1), "gives None": giving(None),
    "gives text": giving("ab"), "gives a list": lambda arrays, kept, items: ([items],),
}  # fmt: skip
DISTURBING = {"reshapes", "assigns", "clears", *LIES}
STRONG = {"interrupts": KeyboardInterrupt, "wants memory": MemoryError, "leaves": GeneratorExit}


class Hostile(Inputs):
    """Whose `hook` does the `hostility` at its call number `at`."""

    def __init__(self, hook, hostility, at, library=MODULE):
        super().__init__(library)
        self.hook, self.at, self.calls = hook, at, 0
        self.hostility = {**ACTS, **LIES}[hostility]
        self.arrays, self.kept, self.items = [], [], []

    def fire(self, hook, items=None):
        """What the hook is to give in a tuple, if not the truth."""
        if hook != self.hook:
            return None
        self.calls += 1
        if self.calls != self.at:
            return None
        return self.hostility(self.arrays, self.kept, self.items if items is None else items)

    def sequence(self, items):
        self.items = [*items]
        return Sequence(self, self.items)

    def index(self, value):
        return Index(self, value)

    def number(self, value):
        if self.hook == "foreign number":
            return Index(self, value)
        return NUMBERS[type(value)].make(self, value) if self.hook == "number" else value

    def exporter(self, source):
        if self.hook == "refused buffer":
            return Refusing(self, source)
        return Exporting(self, source) if "buffer" in self.hook else memoryview(source)


class Sequence:
    def __init__(self, inputs, items):
        self.inputs, self.items = inputs, items

    def __len__(self):
        given = self.inputs.fire("__len__", self.items)
        return given[0] if given else len(self.items)

    def __getitem__(self, i):
        if self.inputs.hook == "signal":
            _thread.interrupt_main(signal.SIGUSR1)
        given = self.inputs.fire("__getitem__", self.items)
        return given[0] if given else self.items[i]


def converting(name):
    hooks = {"__index__", "number", "foreign number"}

    def convert(self):
        given = self.inputs.fire(self.inputs.hook) if self.inputs.hook in hooks else None
        return given[0] if given else getattr(self.value, name)()

    return convert


METHODS = {name: converting(name) for name in (
    "__index__", "__float__", "__complex__", "__bool__", "__int__")}  # fmt: skip


class Index:
    """No number for the module, but in a slice."""

    def __init__(self, inputs, value):
        self.inputs, self.value = inputs, value


def make_number(cls, inputs, value):
    number = cls(value)
    number.inputs, number.value = inputs, value
    return number


for name, method in METHODS.items():
    setattr(Index, name, method)
NUMBERS = {base: type("Number", (int if base is bool else base,),
                      {**METHODS, "make": classmethod(make_number)})
           for base in (bool, int, float, complex)}  # fmt: skip


class Exporting(Exporter):
    def __init__(self, inputs, source):
        view = memoryview(source)
        super().__init__(buf=source.ctypes.data, len=view.nbytes, itemsize=view.itemsize,
                         ndim=view.ndim, format=view.format.encode(), shape=view.shape,
                         strides=view.strides)  # fmt: skip
        self.inputs, self.source = inputs, source

    @Exporter.get.__class__
    def get(self, buffer, flags):
        try:
            given = self.inputs.fire("buffer")
        except BaseException:
            given = None  # a function of C can't raise: see Refusing
        return -1 if given else Exporter.get(self, buffer, flags)

    @Exporter.release.__class__
    def release(self, buffer):
        Exporter.release(self, buffer)
        self.inputs.fire("buffer released")


class Refusing:
    """The truth of an exporter is what its request for a buffer gives: 1 is none."""

    def __init__(self, inputs, source):
        self.inputs = inputs

    def __bool__(self):
        given = self.inputs.fire("refused buffer")
        return given[0] if given else True


set_buffer_slots(Exporting, Exporting.get, Exporting.release)
set_buffer_slots(Refusing, ctypes.pythonapi.PyObject_IsTrue)


class Garbage:
    def __init__(self, inputs):
        self.itself, self.inputs = self, inputs

    def __del__(self):
        if gc.isenabled():
            Garbage(self.inputs)
            self.inputs.fire("finalizer")


def start(inputs):
    def trace(_, event, *rest):
        if event != "exception":  # the interpreter itself drops what is raised there
            inputs.fire(inputs.hook)
        return trace

    if inputs.hook == "trace":
        sys.settrace(trace)
    elif inputs.hook == "profile":
        sys.setprofile(trace)
    elif inputs.hook == "signal":
        signal.signal(signal.SIGUSR1, trace)
    elif inputs.hook == "finalizer":
        gc.collect()  # it drops the lists and tuples that are kept for reuse
        Garbage(inputs)
        gc.enable()


def stop():
    gc.disable()
    sys.settrace(None)
    sys.setprofile(None)


REFUSALS = (RuntimeError, TypeError, ValueError, IndexError, OverflowError, BufferError,
            MemoryError, NotImplementedError, AttributeError, vellum.ShapeError,
            vellum.SizeError)  # fmt: skip
IN_METHODS = ["__len__", "__getitem__", "__index__"]
IN_NUMBERS = ["number", "foreign number"]
IN_BUFFERS = ["buffer", "buffer released", "refused buffer"]
BESIDE = ["finalizer", "trace", "profile", "signal"]


def check_against_oracle(name, attempt, *how):
    arrays, inputs = OPERATIONS[name].prepare(ORACLE), Hostile(*how, ORACLE)
    inputs.arrays = arrays
    result = outcome(OPERATIONS[name].act, arrays, inputs)
    found = attempt.outcome, describe_all(attempt.arrays)
    assert found == (result, describe_all(arrays)), f"{found}, oracle: {result, arrays}"


def attempt_at(name, hook, hostility, at):
    inputs = Hostile(hook, hostility, at)
    attempt = Attempt(name, inputs)
    inputs.arrays, inputs.kept = attempt.arrays, attempt.kept
    attempt.run(functools.partial(start, inputs), stop)
    is_reached = inputs.calls >= at
    if hook in IN_METHODS and attempt.operation.is_modelled:
        check_against_oracle(name, attempt, hook, hostility, at)
    raised = STRONG.get(hostility) if is_reached else None
    if raised and hook in [*IN_METHODS, "refused buffer", "trace", "profile"]:
        assert attempt.error is raised, f"{attempt.outcome} in place of what was raised"

    def allows(cls, _):
        return cls is raised or issubclass(cls, REFUSALS)

    is_disturbed = hostility in DISTURBING or hook in IN_BUFFERS
    attempt.check(allows, is_disturbed and is_reached, hook in BESIDE)
    return is_reached


def sweep(name, is_quick):
    gc.disable()
    total = 0

    def run_all(hook, hostilities):
        nonlocal total
        for hostility in hostilities:
            for at in range(1, MOST):
                total += 1
                try:
                    if not attempt_at(name, hook, hostility, at):
                        break
                except AssertionError as error:
                    raise AssertionError(f"{hook} {hostility} at {at}: {error}") from None

    for hook in [*IN_METHODS, *IN_NUMBERS, *IN_BUFFERS, *BESIDE]:
        hostilities = ACTS if hook in BESIDE else {**ACTS, **LIES}
        try:
            require_level(functools.partial(run_all, hook, hostilities))
        except AssertionError as error:
            raise AssertionError(f"{hook}: {error}") from None
    return total


if __name__ == "__main__":
    main({"hostile code": sweep})
