/// The Python instance of the eleven array classes: an object that holds a view.
#pragma once

#include "interpreter/python_ref.h"
#include "storage/array_view.h"

#include <memory>

namespace vellum
{
struct MDArrayObject
{
    PyObject_HEAD MDArrayView* m_view; ///< owned; null if the object was never initialised
};

/// A static class record with nothing but its head filled.
constexpr PyTypeObject blankClass()
{
    const PyVarObject head[] = {PyVarObject_HEAD_INIT(nullptr, 0)};
    PyTypeObject type{};
    type.ob_base = head[0];
    return type;
}

/// The classes, in the order of `SupportedArrayEnum`. They are blank until they
/// are described at start-up.
extern PyTypeObject arrayClasses[kKindCount];

inline PyTypeObject& arrayClass(SupportedArrayEnum kind)
{
    return arrayClasses[static_cast<std::size_t>(kind)];
}

/// The kind of one of the classes: its position tells it.
inline SupportedArrayEnum kindOfClass(const PyTypeObject* type)
{
    return static_cast<SupportedArrayEnum>(type - arrayClasses);
}

/// `tp_dealloc` of all classes, and what tells their instances from all other
/// objects.
void deallocateArray(PyObject* self);

inline bool isArrayObject(PyObject* object)
{
    return Py_TYPE(object)->tp_dealloc == deallocateArray;
}

/// The view of an array object. Throws "object not initialized." if it, or the
/// object, is null.
MDArrayView& viewOf(PyObject* arrayObject);

/// A new instance without a view. Throws "unable to initialize C object." if there
/// is no memory for it.
PyRef allocateArrayObject(SupportedArrayEnum kind);

/// Completes a new instance.
PyObject* giveView(PyRef object, std::unique_ptr<MDArrayView> view);

/// A new instance, of the class of the record's element type.
PyObject* newArrayObject(std::unique_ptr<MDArrayView> view);

} // namespace vellum
