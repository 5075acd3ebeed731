"""The tests run on whatever build PYTHONPATH leads to; scripts/test sets it."""

import pytest

try:
    import vellummultidimarrayforpython
except ImportError as error:
    raise pytest.UsageError(
        f"{error}; build first and set PYTHONPATH=BUILD/python, or run scripts/test"
    )

def pytest_report_header():
    return f"module under test: {vellummultidimarrayforpython.__file__}"
