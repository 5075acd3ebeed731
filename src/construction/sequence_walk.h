/// The walk over a nested sequence: finds its shape, checks that it is
/// rectangular, and stages its elements in reading order, all in one pass.
/// It serves the constructors and assignment.
#pragma once

#include "construction/array_builder.h"

namespace vellum
{
/// Stages the elements of `value`, a sequence nested to any depth or a bare
/// number, and records its dimensions: (1, 1) for a number. On success the
/// number of staged elements is the product of the dimensions.
///
/// `value` may be null, for an element that couldn't be fetched. False means
/// that a Python error is set; the builder is then of no further use.
/// Foreign code can run in every fetch; its errors that are no `Exception`, and a
/// `MemoryError`, stand, as does what a signal handler raises.
template <class T>
bool walkSequence(MDArrayBuilder<T>& builder, PyObject* value, bool isConstructor);

} // namespace vellum
