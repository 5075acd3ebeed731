/// The few Python values that belong to the process. Each is made or found once
/// in a process and kept for its life: objects that outlive the module still
/// raise the exceptions, and a second module out of the same file shares them.
#pragma once

#include <Python.h>

namespace vellum
{
inline constexpr const char* kNoArrayArrayClass = "unable to retrieve array.array class.";

/// Makes what isn't made yet. False with the Python error that has come up.
bool makeExceptionClasses();
/// Looks for `array.array` unless it's found already. False with a Python error,
/// a `RuntimeError` of its own as a rule.
bool findArrayArrayClass();

/// Borrowed. Element counts differ: raised by construction and reshape.
/// `RuntimeError` while the class couldn't be made.
PyObject* shapeErrorClass();
/// Borrowed. Counts agree and shapes don't: raised by construction.
/// `RuntimeError` while the class couldn't be made.
PyObject* sizeErrorClass();
/// Borrowed. The class `array.array`; null while it isn't found.
PyObject* arrayArrayClass();
} // namespace vellum
