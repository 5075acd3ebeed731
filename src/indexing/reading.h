/// `a[i]` and `a[i:j:k]`: an integer at the last dimension gives a scalar, every
/// other index a partial array that shares the record. Nothing is copied.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `sq_item`: `index` may be negative, in -length to length - 1. Behind the end it
/// returns null with the `IndexError` set, without a throw: that ends every loop
/// over an array as a sequence.
PyObject* readItem(PyObject* self, MDArrayView& view, Py_ssize_t index);

/// `mp_subscript`: the key is an `int` or exactly a slice.
PyObject* readSubscript(PyObject* self, MDArrayView& view, PyObject* key);

} // namespace vellum
