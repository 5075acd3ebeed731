"""Found by every Python that a sanitized test run starts.

Importing numpy leaves some hundred small blocks behind for good, whatever is
done with it afterwards. They are the only leaks that are not this project's
business, so the leak checker looks away for exactly as long as a numpy module
is being imported. No suppression by stack is needed, and none can hide a leak
that happens to have numpy on its stack.
"""

import ctypes
import functools
import importlib.machinery
import sys

_process = ctypes.CDLL(None)


def _unchecked(function):
    @functools.wraps(function)
    def call(*arguments):
        _process.__lsan_disable()
        try:
            return function(*arguments)
        finally:
            _process.__lsan_enable()

    return call


class _NumpyFinder:
    @staticmethod
    def find_spec(name, path=None, target=None):
        if name.partition(".")[0] != "numpy":
            return None
        spec = importlib.machinery.PathFinder.find_spec(name, path, target)
        if spec is not None and spec.loader is not None:
            spec.loader.create_module = _unchecked(spec.loader.create_module)
            spec.loader.exec_module = _unchecked(spec.loader.exec_module)
        return spec


if hasattr(_process, "__lsan_disable"):
    sys.meta_path.insert(0, _NumpyFinder)
