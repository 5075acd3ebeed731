/// `__reduce__`: the one hook of pickling and copying.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// (class, (options dict, nested list)). The view's integer items apply; a final
/// slice doesn't.
PyObject* reduceArray(PyObject* self, MDArrayView& view);

} // namespace vellum
