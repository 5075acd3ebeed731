/// An initializer that exports the buffer protocol is taken over in one copy, after
/// a strict test of all that it says of itself. No conversion is made.
#pragma once

#include <Python.h>

#include "construction/array_builder.h"

namespace vellum
{
/// Whether `value` is read as a buffer: its type exports buffers, is none of the
/// array classes, and `value` is no number. A number is converted as in a list.
bool isBufferInput(PyObject* value);

/// Takes the elements that `value` exports, in its own order, and records its shape
/// and whether that order is column-major. Nothing is shared with the source
/// afterwards. Raises `BufferError`, `MemoryError`, or what the exporter raised if
/// that is no `Exception`.
void readBufferInitializer(MDArrayBuilder& builder, PyObject* value);

} // namespace vellum
