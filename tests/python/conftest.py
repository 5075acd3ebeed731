"""The tests run on whatever build PYTHONPATH leads to; scripts/test sets it."""

import vellummultidimarrayforpython as module


def pytest_report_header():
    return f"module under test: {module.__file__}"
