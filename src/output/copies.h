/// New arrays made from an array: `clone`, `real`, `imag`, `noncomplex`, and the
/// selected part of a view as an array of the service.
#pragma once

#include "storage/array_object.h"

namespace vellum
{
/// The selected elements as an array of their own, from the view's cache if that
/// is as new as the record. `expandVector`: one dimension (n) becomes (1, n).
/// Throws if an element can't be taken over.
const data::Array& indexedArray(MDArrayView& view, bool expandVector);

/// `clone()`: an independent array of the selected part.
PyObject* cloneArray(PyObject* self, MDArrayView& view);

/// `real()`, `imag()`, `noncomplex()`: one part of every element of the record,
/// whatever the view selects, in storage order. The result is a new array with a
/// record of shape (1, N) that stands at row 0, so Python sees N elements.
PyObject* realPart(PyObject* self, MDArrayView& view);
PyObject* imaginaryPart(PyObject* self, MDArrayView& view);
PyObject* noncomplexElements(PyObject* self, MDArrayView& view);

} // namespace vellum
