/// The traversal of a nested sequence: finds its shape, validates that it is
/// rectangular, and reads its elements, all in one pass. It serves the
/// constructors and assignment.
#pragma once

#include <Python.h>

#include "construction/array_builder.h"

namespace vellum
{
/// Appends the elements of `value`, a sequence nested to any depth or a bare
/// number, in reading order, and records its dimensions: (1, 1) for a number. At
/// the end the number of elements is the product of the dimensions.
///
/// `value` may be null, for an element that couldn't be fetched. After a failure
/// the builder is of no further use. Foreign code can run in every fetch; its
/// errors that are no `Exception`, and a `MemoryError`, stand, as does what a
/// signal handler raises.
void walkSequence(MDArrayBuilder& builder, PyObject* value, bool isConstructor);

} // namespace vellum
