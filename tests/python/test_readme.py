"""The tour in the README shows what the module really prints."""

import doctest
from pathlib import Path


def test_tour():
    readme = Path(__file__).resolve().parents[2] / "README.md"
    result = doctest.testfile(str(readme), module_relative=False)
    assert result.attempted > 15 and result.failed == 0
