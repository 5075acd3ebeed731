/// The record's dense block through the buffer protocol, read-only and
/// column-major, and the same facts as numbers. All of it shows the whole record,
/// whatever the view selects; nothing is copied.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `bf_getbuffer`: an export holds a reference to the array object. Shape and
/// strides point into the record and are given whatever the flags ask for.
int getBuffer(PyObject* self, Py_buffer* buffer, int flags);
/// `bf_releasebuffer`
void releaseBuffer(PyObject* self, Py_buffer* buffer);

/// `buffer_info()`: (address of the block, number of elements)
PyObject* bufferInfo(PyObject* self, MDArrayView& view);
/// `get_bytewise_strides()`: bytes per dimension
PyObject* bytewiseStrides(PyObject* self, MDArrayView& view);
/// `tomemoryview()`
PyObject* toMemoryView(PyObject* self, MDArrayView& view);

} // namespace vellum
