/// From the call of a class to the finished object.
#pragma once

#include <Python.h>

namespace vellum
{
/// `tp_new` of all classes:
/// `(initializer=None, size=None, vector=None, is_complex=False)`.
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds);

} // namespace vellum
