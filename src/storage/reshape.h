/// `reshape`: new dimensions with the same number of elements, in place.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `reshape(d0, d1, ...)` or `reshape((d0, d1, ...))`: at least two nonnegative
/// integers. Returns the array itself. `ShapeError` if the counts differ; a call
/// that raises has changed nothing.
PyObject* reshapeArray(PyObject* self, MDArrayView& view, PyObject* args, PyObject* kwds);

} // namespace vellum
