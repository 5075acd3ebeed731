/// The Python instance of the eleven array classes.
#pragma once

#include "interpreter/guard.h"
#include "storage/array_view.h"

#include <memory>

namespace vellum
{
struct MDArrayObject
{
    PyObject_HEAD MDArrayView* m_view; ///< owned; null if the object was never initialised
};

/// `tp_dealloc` of all eleven classes, and what tells their instances from all
/// other objects.
void deallocateArray(PyObject* self);

inline bool isArrayObject(PyObject* object)
{
    return Py_TYPE(object)->tp_dealloc == deallocateArray;
}

/// The view of an array object, borrowed; null if it has none.
inline MDArrayView* viewOf(PyObject* arrayObject)
{
    return reinterpret_cast<MDArrayObject*>(arrayObject)->m_view;
}

/// A new instance of the kind's class, without a view. Empty with
/// "unable to initialize C object." if there is no memory for it.
PyRef allocateArrayObject(SupportedArrayEnum kind);

inline PyObject* giveView(PyRef object, std::unique_ptr<MDArrayView> view)
{
    reinterpret_cast<MDArrayObject*>(object.get())->m_view = view.release();
    return object.release();
}

/// A new instance of the view's class that holds the view; null with a Python
/// error if there is no memory for it.
PyObject* newArrayObject(std::unique_ptr<MDArrayView> view);

/// A static class record with nothing but its head filled.
constexpr PyTypeObject blankClass()
{
    const PyVarObject head[] = {PyVarObject_HEAD_INIT(nullptr, 0)};
    PyTypeObject type{};
    type.ob_base = head[0];
    return type;
}

/// From a body that works on a view to the function that Python calls: tests the
/// object, then runs the body inside the guard. `Unused` are arguments that the
/// protocol supplies and the body doesn't take.
template <class Body, class... Unused>
struct SlotFor;

template <class Result, class... Arguments, class... Unused>
struct SlotFor<Result (*)(PyObject*, MDArrayView&, Arguments...), Unused...>
{
    template <auto body>
    static Result call(PyObject* self, Arguments... arguments, Unused...)
    {
        return guarded([&]() -> Result {
            if (self == nullptr || viewOf(self) == nullptr)
            {
                raise(PyExc_RuntimeError, kNotInitialized);
                return failure();
            }
            return body(self, *viewOf(self), arguments...);
        });
    }

    static constexpr Result failure()
    {
        if constexpr (std::is_pointer_v<Result>)
        {
            return nullptr;
        }
        else
        {
            return -1;
        }
    }
};

template <auto body>
inline constexpr auto slot = &SlotFor<decltype(body)>::template call<body>;
template <auto body>
inline constexpr auto method = &SlotFor<decltype(body), PyObject*>::template call<body>;
template <auto body>
inline constexpr auto getter = &SlotFor<decltype(body), void*>::template call<body>;

} // namespace vellum
