/// The nested Python list of what a view selects: the base of the text form and
/// of pickling.
#pragma once

#include "storage/array_view.h"

namespace vellum
{
/// A new list, one level of nesting per dimension, outermost first, a dimension
/// of length 0 being an empty list with nothing below it. Null with a Python
/// error if a list or an element can't be made.
template <class T>
PyObject* buildList(const Selection& selection);

/// The list of a view's selection.
template <class T>
PyObject* toNestedList(const MDArrayView& view);

} // namespace vellum
