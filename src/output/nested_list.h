/// The nested Python list of what a view selects: the base of the text form and
/// of pickling.
#pragma once

#include "storage/array_view.h"

namespace vellum
{
/// A new list, one level of nesting per dimension, outermost first, a dimension
/// of length 0 being an empty list with nothing below it. Null with a Python
/// error if the view doesn't fit its record, if a list or an element can't be
/// made, or if a signal handler raises. Collections and handlers run meanwhile:
/// the list has the shape that the view had at the call.
template <class T>
PyObject* toNestedList(const MDArrayView& view);

} // namespace vellum
