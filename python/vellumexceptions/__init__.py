"""The two exception classes of the array classes, under the names they carry."""

from vellummultidimarrayforpython import ShapeError, SizeError

__all__ = ["ShapeError", "SizeError"]
