/// From the call of a class to the finished object.
#pragma once

#include "module/array_object.h"

namespace vellum
{
/// `tp_new` of the kind's class:
/// `(initializer=None, size=None, vector=None, is_complex=False)`.
template <SupportedArrayEnum kind>
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds);

} // namespace vellum
