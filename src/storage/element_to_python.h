/// From an element to the Python object that stands for it, wherever an element
/// leaves the system.
#pragma once

#include <Python.h>

#include "base/element_kinds.h"

namespace vellum
{
/// Makes a new reference from the element at an address, which may be unaligned:
/// `float`, `int` of exactly the value, `bool` for logical, and `complex` for every
/// complex element, with its parts as doubles. Null with a Python error if there is
/// no memory for it; makes no tracked object.
using ElementToPython = PyObject* (*)(const void* address);

/// For the elements of a type: fetched once an operation.
ElementToPython elementToPython(ArrayType type);

} // namespace vellum
