/// Python keys into index items.
#pragma once

#include <Python.h>

#include "index/index_items.h"

namespace vellum
{
/// Whether a key is an integer: an `int` or of a subclass. What is neither that nor
/// exactly a slice is refused by `readSliceKey`.
inline bool isIntegerKey(PyObject* key)
{
    return PyLong_Check(key);
}

/// The value of an integer key; Python's `OverflowError` where it has none.
Py_ssize_t readIntegerKey(PyObject* key);

/// Throws unless the key is exactly a slice.
void requireSliceKey(PyObject* key);

/// What `range(*key.indices(len))` selects. A slice member's `__index__` can run
/// any code.
SliceIndexItem readSliceKey(PyObject* slice, Py_ssize_t len);

} // namespace vellum
