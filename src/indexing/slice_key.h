/// Python slices into index items, and items applied to a view. `bool` results:
/// false means that a Python error is set.
#pragma once

#include "storage/array_view.h"

namespace vellum
{
/// Sets the refusal as a Python error. Returns false.
bool raiseRefusal(const IndexRefusal& refusal);

/// The item that selects what `range(*key.indices(len))` selects. A slice
/// member's `__index__` can run any code.
bool readSliceKey(PyObject* slice, Py_ssize_t len, SliceIndexItem& item);

/// The item's value goes through the view's final slice.
bool indexIntoFinalSlice(const MDArrayView& view, IntegerIndexItem& item);

/// The item becomes the slice of the view's final slice.
bool composeWithFinalSlice(const MDArrayView& view, SliceIndexItem& item);

} // namespace vellum
