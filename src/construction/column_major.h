/// From reading order, last dimension fastest, to storage order, first dimension
/// fastest.
#pragma once

#include "construction/array_builder.h"

namespace vellum
{
/// Writes the elements at `values`, `width` bytes each, which stand in reading
/// order, to `storage` in storage order. `dims` has at least one entry, and its
/// product is the number of elements, at least 1.
void reorderToColumnMajor(const char* values, const Dimensions& dims, std::size_t width,
                          char* storage);

} // namespace vellum
