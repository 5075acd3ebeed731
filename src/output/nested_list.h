/// The nested Python list of what a view selects: the base of the text form and
/// of pickling.
#pragma once

#include "interpreter/python_ref.h"
#include "storage/selection.h"

namespace vellum
{
/// A new list of the elements of a selection of `record`, one level of nesting per
/// dimension, outermost first, a dimension of length 0 being an empty list with
/// nothing below it. Collections and signal handlers run meanwhile: the list has
/// the shape that the selection had.
PyRef buildList(std::shared_ptr<const MDArrayWrapper> record, const Selection& selection);

/// The list of what a view selects.
PyRef toNestedList(const MDArrayView& view);

} // namespace vellum
