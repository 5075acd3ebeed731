"""Signal handlers and garbage collections in the middle of an operation."""

import contextlib
import gc
import itertools
import signal
import sys

import pytest
import vellum


@contextlib.contextmanager
def alarm(handler):
    """Calls the handler when the process has worked for a moment."""
    old = signal.signal(signal.SIGVTALRM, handler)
    gc.disable()  # a handler that runs in a callback of the collector raises to nobody
    signal.setitimer(signal.ITIMER_VIRTUAL, 0.005)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_VIRTUAL, 0)
        gc.enable()
        signal.signal(signal.SIGVTALRM, old)


class Stop(Exception):
    pass


@pytest.mark.parametrize("size, work", [
    ((3, 2), lambda array: array.reshape(range(1, 2**26))), ((2**23, 0), str),
    ((2**11, 2**11), vellum.double.__reduce__),
])  # fmt: skip
def test_long_work_ends_where_a_handler_raises(size, work):
    array, blocks = vellum.double(size=size), sys.getallocatedblocks()

    def handler(*_):
        raise Stop(sys.getallocatedblocks() - blocks)

    with pytest.raises(Stop) as caught, alarm(handler):
        work(array)
    assert caught.value.__context__ is caught.value.__cause__ is None
    assert caught.value.args[0] < 2**21
    assert array.size == size


def test_a_list_keeps_the_shape_that_it_began_with():
    array = vellum.int8(size=(2**19, 2))
    with alarm(lambda *_: array.reshape(2, 2**19)):
        rows = array.__reduce__()[1][1]
    assert rows == [[0, 0]] * 2**19 and array.size == (2, 2**19)


class Cycle:
    """Garbage that acts when it is collected, and is there again afterwards."""

    action = staticmethod(int)

    def __init__(self, times):
        self.itself, self.times = self, times

    def __del__(self):
        self.action()
        if self.times:
            Cycle(self.times - 1)


@contextlib.contextmanager
def collecting(action, times):
    thresholds = gc.get_threshold()
    Cycle.action = staticmethod(action)
    Cycle(times)
    gc.set_threshold(1)
    try:
        yield
    finally:
        gc.set_threshold(*thresholds)
        Cycle.action = staticmethod(int)


# On later versions than 3.11 collections run between these operations only.
@pytest.mark.parametrize("operation", [
    vellum.double.get_bytewise_strides, lambda array: array.size, str,
    lambda array: str(array.__reduce__()), lambda array: array.clone().size,
    lambda array: array.tomemoryview().shape,
])  # fmt: skip
def test_a_collection_that_reshapes(operation):
    array, shapes = vellum.double(size=(4, 4, 4)), [(2, 2, 2, 2, 2, 2), (4, 4, 4)]
    expected = [operation(array.reshape(shape)) for shape in shapes]
    later = itertools.cycle(shapes)
    # Uses up the tuples that are made without asking the collector.
    kept = [(number,) * len(shape) for number in range(5_000) for shape in shapes]
    with collecting(lambda: array.reshape(next(later)), 200):
        results = [operation(array) for _ in range(40)]
    assert kept and all(result in expected for result in results)


def test_nobody_sees_a_list_that_is_half_made():
    array = vellum.double(size=(7, 7, 7, 2))
    text = str(array)

    def read_everything():
        for found in gc.get_objects():
            if type(found) in (list, tuple) and found:
                id(found[-1])

    with collecting(read_everything, 10):
        assert str(array) == text and array.size == (7, 7, 7, 2)
