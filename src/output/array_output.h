/// `toarray()`: the elements of a one-dimensional view as an `array.array`.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// A new `array.array` of the kind's type code, filled through an iterator over
/// the view. The first error of that pull is printed, and the caller gets a
/// `RuntimeError`.
PyObject* toArrayArray(PyObject* self, MDArrayView& view);

} // namespace vellum
