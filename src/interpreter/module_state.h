/// The few module-wide Python values, filled at start-up and kept until the
/// process ends.
#pragma once

#include <Python.h>

namespace vellum
{
/// Borrowed. Element counts differ: raised by construction and reshape.
PyObject* shapeErrorClass();
/// Borrowed. Counts agree and shapes don't: raised by construction.
PyObject* sizeErrorClass();
/// Borrowed. The class `array.array`.
PyObject* arrayArrayClass();
} // namespace vellum
