"""Code that runs in the middle of an operation: of sequences, keys, signals, collections."""

import contextlib
import gc
import itertools
import signal
import sys
import time

import pytest
import vellum
from helpers import Foreign, Index, outcome
from vellum import double

CANNOT = (RuntimeError, "unable to set value.")


@pytest.mark.parametrize("error", [KeyboardInterrupt, GeneratorExit, MemoryError, KeyError])
@pytest.mark.parametrize("replacement, statement", [
    (None, "double(length)"), (None, "double([length, length])"), (None, "double(size=length)"),
    (None, "double(vector=length)"), (None, "a.__setitem__(0, length)"), (None, "a[index:]"),
    (None, "a.__setitem__(slice(1), length)"), (None, "a.__setitem__(slice(index, 1), 1)"),
    (RuntimeError, "double(item)"), (RuntimeError, "double([item, item])"),
    (RuntimeError, "double(size=item)"), (RuntimeError, "double(vector=item)"),
    (RuntimeError, "a.__setitem__(0, item)"), (RuntimeError, "a.reshape(item)"),
    (ValueError, "a.reshape(length)"), (ValueError, "a[::index]"),
    (ValueError, "a.__setitem__(slice(None, None, index), 1)"),
])  # fmt: skip
def test_what_foreign_code_raises_stands_or_is_the_cause(error, replacement, statement):
    def fail():
        raise own

    own = error("own")
    scope = {"double": double, "a": double(size=(2, 2)), "index": Index(0, fail)}
    scope["length"] = Foreign([1, 2], length=fail)
    scope["item"] = Foreign([1, 2], fail)
    is_replaced = replacement and error is KeyError
    with pytest.raises(replacement if is_replaced else error) as caught:
        eval(statement, scope)
    assert own is (caught.value.__cause__ if is_replaced else caught.value)


def test_an_own_refusal_has_no_cause():
    with pytest.raises(ValueError) as caught:
        double(size=(2**70,))
    assert caught.value.__cause__ is caught.value.__context__ is None


def test_code_that_runs_between_key_and_store():
    a = vellum.int32(vector=range(12), size=(4, 3))
    reshaping = Index(0, lambda: a.reshape(2, 6))
    assert outcome(a[3].__setitem__, slice(reshaping, 3), [1, 2, 3]) == CANNOT
    a.reshape(4, 3)
    reshaping = Foreign([1, 2, 3], lambda: a.reshape(2, 6))
    assert outcome(a[3].__setitem__, slice(3), reshaping) == CANNOT
    assert outcome(a.reshape(4, 3).__setitem__, 3, reshaping) == CANNOT
    assert list(a.noncomplex()) == list(range(12))
    holder = [a.reshape(4, 3)[1:]]
    holder[0][0] = Foreign([1, 2, 3], holder.clear)
    assert list(a[1]) == [1, 2, 3]


def test_foreign_code_takes_nothing_away():
    class Key(str):
        """Drops the value beside it while it is looked up."""

        def __hash__(self):
            return hash("size")

        def __eq__(self, other):
            options["initializer"] = None
            return True

    options = {"initializer": [[1.5] * 3 for _ in range(3)], Key("zz"): None}
    assert double(options).size == (3, 3)
    assert options["initializer"] is None


@pytest.mark.parametrize("allowed", range(8))
@pytest.mark.parametrize("call", [double, lambda options: double(**options)])
def test_a_key_that_raises_is_heard(call, allowed):
    class Key(str):
        asked = 0

        def answer(self, *_):
            self.asked += 1
            if self.asked > allowed:
                raise KeyboardInterrupt
            return hash("vector")

        __hash__ = __eq__ = answer

    key = Key("vector")
    with contextlib.suppress(KeyboardInterrupt):
        call({key: [2]})
        assert key.asked <= allowed


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


@pytest.mark.parametrize("operation", [
    "double(range(2**40))", "double([[[]] * 60000] * 60000)", "double(vector=range(2**28))",
    "double(size=range(1, 2**31))", "small.reshape(range(1, 2**31))",
    "small.__setitem__(0, range(2**40))", "str(rows)", "square.__reduce__()",
])  # fmt: skip
def test_long_work_ends_where_a_handler_raises(operation):
    def handler(*_):
        raise TimeoutError(sys.getallocatedblocks() - blocks, time.process_time() - started)

    arrays = {"small": double(size=(2, 2)), "rows": double(size=(2**23, 0))}
    arrays["square"] = double(size=(2**11, 2**11))
    blocks = sys.getallocatedblocks()
    started = time.process_time()
    with pytest.raises(TimeoutError) as caught, alarm(handler):
        eval(operation, {"double": double}, arrays)
    assert caught.value.__context__ is caught.value.__cause__ is None
    assert caught.value.args[0] < 2**21
    assert caught.value.args[1] < 1
    assert sys.getallocatedblocks() < blocks + 2**12


def test_rows_without_elements_take_no_time():
    assert double(double(size=(2**59, 0))).size == (2**59, 0)


def test_a_list_keeps_the_shape_that_it_began_with():
    array = vellum.int8(size=(2**17, 2))
    with alarm(lambda *_: array.reshape(2, 2**17)):
        while array.size == (2**17, 2):
            size = array.size
            rows = array.__reduce__()[1][1]
            assert (len(rows), {*map(len, rows)}) == (size[0], {size[1]})


@contextlib.contextmanager
def collecting(action, times):
    """So often garbage acts when it is collected, and is there again afterwards."""

    class Cycle:
        def __init__(self, left):
            self.itself = self
            self.left = left

        def __del__(self):
            action()
            if self.left:
                Cycle(self.left - 1)

    thresholds = gc.get_threshold()
    Cycle(times)
    gc.set_threshold(1)
    try:
        yield
    finally:
        gc.set_threshold(*thresholds)
        del Cycle.__del__


# On later versions than 3.11 collections run between these operations only.
@pytest.mark.parametrize("operation", [
    "array.get_bytewise_strides()", "array.size", "str(array)", "str(array.__reduce__())",
    "array.clone().size", "array.tomemoryview().shape",
])  # fmt: skip
def test_a_collection_that_reshapes(operation):
    array = double(size=(4, 4, 4))
    shapes = [(2, 2, 2, 2, 2, 2), (4, 4, 4)]
    expected = [eval(operation, {"array": array.reshape(shape)}) for shape in shapes]
    later = itertools.cycle(shapes)
    # Uses up the tuples that are made without asking the collector.
    kept = [(number,) * len(shape) for number in range(5_000) for shape in shapes]
    with collecting(lambda: array.reshape(next(later)), 200):
        results = [eval(operation, {"array": array}) for _ in range(40)]
    assert kept and all(result in expected for result in results)


def test_nobody_sees_a_list_that_is_half_made():
    array = double(size=(7, 7, 7, 2))
    text = str(array)

    def read_everything():
        for found in gc.get_objects():
            if type(found) in (list, tuple) and found:
                id(found[-1])

    gc.freeze()  # leaves few objects to read
    with collecting(read_everything, 10):
        assert str(array) == text
    gc.unfreeze()
