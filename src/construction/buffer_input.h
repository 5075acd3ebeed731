/// The buffer road: an initializer that exports the buffer protocol is taken
/// over in one copy, after a strict test of its format. No conversion is made.
#pragma once

#include "construction/array_builder.h"

namespace vellum
{
/// Whether `value` takes this road: its type exports buffers, is none of the array
/// classes, and `value` is no number. A number takes the walk, as it does in a list.
bool takesBufferRoad(PyObject* value);

/// Stages the elements that `value` exports, in its own order, and records its
/// shape and whether that order is column-major. Nothing is shared with the
/// source afterwards. False: a `BufferError` or `MemoryError` is set, or what the
/// exporter raised if that is no `Exception`.
template <class T>
bool readBufferInitializer(MDArrayBuilder<T>& builder, PyObject* value);

} // namespace vellum
