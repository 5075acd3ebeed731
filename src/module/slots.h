/// From a body that works on a view to the function that Python calls.
#pragma once

#include "interpreter/guard.h"
#include "storage/array_object.h"

namespace vellum
{
/// Tests the object, then runs the body inside the guard. `Unused` are arguments
/// that the protocol supplies and the body doesn't take.
template <class Body, class... Unused>
struct SlotFor;

template <class Result, class... Arguments, class... Unused>
struct SlotFor<Result (*)(PyObject*, MDArrayView&, Arguments...), Unused...>
{
    template <auto body>
    static Result call(PyObject* self, Arguments... arguments, Unused...)
    {
        return guarded([&] { return body(self, viewOf(self), arguments...); });
    }
};

template <auto body>
inline constexpr auto slot = &SlotFor<decltype(body)>::template call<body>;
template <auto body>
inline constexpr auto method = &SlotFor<decltype(body), PyObject*>::template call<body>;
template <auto body>
inline constexpr auto getter = &SlotFor<decltype(body), void*>::template call<body>;

} // namespace vellum
