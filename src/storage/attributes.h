/// Length and attributes: the small operations that read a view.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `sq_length` and `mp_length`: of the selected part's first dimension.
Py_ssize_t arrayLength(PyObject* self, MDArrayView& view);

/// `size` and `_size`: the dimensions of the selected part.
PyObject* arraySize(PyObject* self, MDArrayView& view);

/// `itemsize`: bytes of one element, both parts of a complex one.
PyObject* arrayItemsize(PyObject* self, MDArrayView& view);

/// `_is_complex`
PyObject* arrayIsComplex(PyObject* self, MDArrayView& view);

} // namespace vellum
