/// `a[key] = value`: the only way in which the values of an array change. The
/// right side is read completely before the first store.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `mp_ass_subscript`: a null `value` means `del a[key]`, which is refused.
int assignSubscript(PyObject* self, MDArrayView& view, PyObject* key, PyObject* value);

} // namespace vellum
