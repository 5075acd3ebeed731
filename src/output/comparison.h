/// `==` and `!=`: same kind and equal items throughout, as iteration gives them.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `tp_richcompare`: one `bool`, never `NotImplemented`. What is no array is
/// unequal to every array; other operators are refused.
PyObject* compareArrays(PyObject* self, MDArrayView& view, PyObject* other, int operation);

} // namespace vellum
