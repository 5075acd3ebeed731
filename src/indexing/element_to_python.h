/// The table from an element to the Python object that stands for it, wherever
/// an element leaves the system.
#pragma once

#include "base/element_kinds.h"
#include "interpreter/python_ref.h"
#include "storage/array_record.h"

namespace vellum
{
/// A new reference: `float`, `int` of exactly the value, `bool` for logical, and
/// `complex` for every complex element, with its parts as doubles. Null with a
/// Python error if there is no memory for it.
template <class T>
PyObject* elementToPython(const void* address)
{
    const T element = loadElement<T>(address);
    if constexpr (ElementTraits<T>::kIsComplex)
    {
        return PyComplex_FromDoubles(static_cast<double>(element.real()),
                                     static_cast<double>(element.imag()));
    }
    else if constexpr (std::is_same_v<T, bool>)
    {
        return PyBool_FromLong(element);
    }
    else if constexpr (std::is_floating_point_v<T>)
    {
        return PyFloat_FromDouble(element);
    }
    else if constexpr (std::is_signed_v<T>)
    {
        return PyLong_FromLongLong(element);
    }
    else
    {
        return PyLong_FromUnsignedLongLong(element);
    }
}

/// The same where the type is known at run time only.
inline PyObject* elementOfType(ArrayType type, const void* address)
{
    return visitElementType(
        type, [address]<class T>(std::type_identity<T>) { return elementToPython<T>(address); });
}

} // namespace vellum
