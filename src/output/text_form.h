/// `str` and `repr`: the selected elements as a nested list without blanks.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// `tp_str`: "[[1.0,2.0]]"
PyObject* arrayStr(PyObject* self, MDArrayView& view);

/// `tp_repr`: "vellum.double([[1.0,2.0]])"
PyObject* arrayRepr(PyObject* self, MDArrayView& view);

} // namespace vellum
