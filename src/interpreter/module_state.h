/// The few Python values that belong to the process. Each is made or found once
/// in a process and kept for its life: objects that outlive the module still
/// raise the exceptions, and a second module out of the same file shares them.
#pragma once

#include <Python.h>

namespace vellum
{
/// Make and find what isn't there yet.
void makeExceptionClasses();
void findArrayArrayClass();

/// Borrowed. Element counts differ: raised by construction and reshape.
/// `RuntimeError` while the class couldn't be made.
PyObject* shapeErrorClass();
/// Borrowed. Counts agree and shapes don't: raised by construction.
/// `RuntimeError` while the class couldn't be made.
PyObject* sizeErrorClass();
/// Borrowed. The class `array.array`. Throws a `RuntimeError` while it isn't found.
PyObject* arrayArrayClass();
} // namespace vellum
