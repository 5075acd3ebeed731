#include "storage/element_to_python.h"

#include "base/load_element.h"

namespace vellum
{
namespace
{
template <class T>
PyObject* toPython(const void* address)
{
    const T element = loadElement<T>(address);
    if constexpr (kIsComplex<T>)
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
} // namespace

ElementToPython elementToPython(ArrayType type)
{
    return visitElementType(
        type, []<class T>(std::type_identity<T>) -> ElementToPython { return toPython<T>; });
}

} // namespace vellum
