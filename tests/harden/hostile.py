"""Foreign code does its worst in every hook that it has while an operation runs.

Each hook does each hostility at its first call, its second, ... until there are no
more: the methods of what the module is given, finalizers of garbage that is collected
meanwhile, functions that trace, handlers of signals.
"""

import _thread
import ctypes
import functools
import gc
import itertools
import math
import signal
import sys

import vellum
from operations import (MODULE, ORACLE, Attempt, Inputs, describe, is_array, main, outcome,
                        require_level)  # fmt: skip

from exporter import Exporter, set_buffer_slots  # beside the oracle


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


def throw(exception, *_):
    raise exception("hostile")


RAISED = {"raises": ValueError, "interrupts": KeyboardInterrupt, "wants memory": MemoryError,
          "leaves": GeneratorExit}  # fmt: skip
LIES = {"none": None, "a few": 9, "no": 0, "too many": 2**62, "negative": -1, "text": "ab",
        "a list": [1]}  # fmt: skip
DISTURBING = {"reshapes": flip, "assigns": assign, "clears": lambda *all_: all_[2].clear(),
              **{f"gives {name}": lambda *_, lie=lie: (lie,) for name, lie in LIES.items()}}
HOSTILITIES = {**DISTURBING, "drops": drop,
               **{name: functools.partial(throw, error) for name, error in RAISED.items()}}
IN_METHODS = {"__len__", "__getitem__", "__index__"}
IN_BUFFERS = {"buffer", "buffer released", "refused buffer"}
BESIDE = {"finalizer", "trace", "profile", "signal"}
IN_CONVERSIONS = {"__index__", "number", "foreign number"}
HOOKS = [*sorted(IN_METHODS | IN_CONVERSIONS), *sorted(IN_BUFFERS), *sorted(BESIDE)]
REFUSALS = (RuntimeError, TypeError, ValueError, IndexError, OverflowError, BufferError,
            MemoryError, AttributeError, vellum.ShapeError, vellum.SizeError)  # fmt: skip


class Hostile(Inputs):
    """Whose `hook` does the `hostility` at its call number `at`."""

    def __init__(self, hook, hostility, at, library=MODULE):
        super().__init__(library)
        self.hook, self.hostility, self.at = hook, HOSTILITIES[hostility], at
        self.calls, self.arrays, self.kept, self.items = 0, [], [], []

    def fire(self, hook, items=None):
        """What the hook is to give in place of the truth, in a tuple."""
        self.calls += hook == self.hook
        if hook != self.hook or self.calls != self.at:
            return None
        return self.hostility(self.arrays, self.kept, self.items if items is None else items)

    def sequence(self, items):
        self.items = [*items]
        return Sequence(self, self.items)

    def index(self, value):
        return Foreign(value).watch(self)

    def number(self, value):
        if self.hook == "foreign number":
            return Foreign(value).watch(self)
        return NUMBERS[type(value)](value).watch(self) if self.hook == "number" else value

    def exporter(self, source):
        exporters = {"refused buffer": Refusing, "buffer": Exporting, "buffer released": Exporting}
        return exporters[self.hook](self, source) if self.hook in exporters else memoryview(source)


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


class Conversions:
    """All are hooks."""

    def watch(self, inputs):
        self.inputs = inputs
        return self


class Foreign(Conversions):
    """No number for the module, but a member of a slice."""

    def __init__(self, value):
        self.value = value


def conversion(name):
    def convert(self):
        given = self.inputs.hook in IN_CONVERSIONS and self.inputs.fire(self.inputs.hook)
        return given[0] if given else getattr(getattr(self, "value", 1), name)()

    return convert


for name in "__index__", "__float__", "__complex__", "__bool__", "__int__":
    setattr(Conversions, name, conversion(name))
NUMBERS = {cls: type("Number", (Conversions, int if cls is bool else cls), {})
           for cls in (bool, int, float, complex)}  # fmt: skip


class Exporting(Exporter):
    def __init__(self, inputs, source):
        view, self.inputs = memoryview(source), inputs
        super().__init__(buf=source.ctypes.data, len=view.nbytes, itemsize=view.itemsize,
                         ndim=view.ndim, format=view.format.encode(), shape=view.shape,
                         strides=view.strides)  # fmt: skip

    @type(Exporter.get)
    def get(self, buffer, flags):
        try:
            given = self.inputs.fire("buffer")
        except BaseException:
            given = None  # no way to raise out of here: see Refusing
        return -1 if given else Exporter.get(self, buffer, flags)

    @type(Exporter.release)
    def release(self, buffer):
        Exporter.release(self, buffer)
        self.inputs.fire("buffer released")


class Refusing:
    """Its truth is what a request for its buffer comes to."""

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


def check_against_oracle(attempt, *how):
    inputs = Hostile(*how, ORACLE)
    inputs.arrays = attempt.operation.prepare(ORACLE)
    result = outcome(attempt.operation.act, inputs.arrays, inputs)
    found = attempt.outcome, describe(attempt.arrays)
    assert found == (result, describe(inputs.arrays)), f"{found}, oracle: {result}"


def reaches(name, hook, hostility, at):
    """One attempt. Whether the hook was called so often."""
    inputs = Hostile(hook, hostility, at)
    attempt = Attempt(name, inputs)
    inputs.arrays, inputs.kept = attempt.arrays, attempt.kept
    attempt.run(functools.partial(start, inputs), stop)
    is_reached = inputs.calls >= at
    if hook in IN_METHODS and attempt.operation.is_modelled:
        check_against_oracle(attempt, hook, hostility, at)
    raised = RAISED.get(hostility, RuntimeError) if is_reached else RuntimeError
    if not issubclass(raised, (ValueError, RuntimeError)):
        stands = attempt.error is raised or hook in {"number", *IN_BUFFERS, *BESIDE} - {
            "refused buffer", "trace", "profile"}  # fmt: skip
        assert stands, f"{attempt.outcome} in place of {raised}"
    is_disturbed = is_reached and (hostility in DISTURBING or hook in IN_BUFFERS)
    attempt.check(lambda cls, _: issubclass(cls, (raised, *REFUSALS)), is_disturbed, hook in BESIDE)
    return is_reached


def sweep(name):
    gc.set_threshold(1)
    sys.unraisablehook = lambda _: None
    total = 0

    def run_all(hook):
        nonlocal total
        for hostility in HOSTILITIES:
            for at in itertools.count(1):
                total += 1
                try:
                    if not reaches(name, hook, hostility, at):
                        break
                except AssertionError as error:
                    raise AssertionError(f"{hook} {hostility} at {at}: {error}") from None

    stop()
    for hook in HOOKS:
        require_level(functools.partial(run_all, hook), hook)
    return total


if __name__ == "__main__":
    main({"hostile code": sweep}, ["vellum_service_shim.so"])
