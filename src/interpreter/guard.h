/// The one guard: every function that Python or a native client can call runs
/// its body inside it, and no C++ exception leaves it. What fails comes out as a
/// Python error and a null result, or -1 where the result is a number.
#pragma once

#include "base/allocation.h"
#include "interpreter/python_error.h"

#include <cxxabi.h>
#include <type_traits>
#include <utility>

namespace vellum
{
/// Turns the exception in flight into a Python error:
///
/// | exception                          | Python error                            |
/// |------------------------------------|-----------------------------------------|
/// | `PythonError`                      | the one that is set                     |
/// | `std::bad_alloc`, service code 19  | `MemoryError`                           |
/// | service code 26                    | `MemoryError` while constructing, else `RuntimeError` |
/// | any other                          | `RuntimeError` with `what()`            |
///
/// While constructing (`request` not null) a `MemoryError` carries the text of
/// the request.
void setErrorFromException(const AllocationRequest* request) noexcept;

template <class Body>
auto guarded(Body&& body, const AllocationRequest* request = nullptr)
{
    using Result = std::invoke_result_t<Body>;
    try
    {
        return std::forward<Body>(body)();
    }
    catch (const PythonError&)
    {
    }
    catch (const abi::__forced_unwind&)
    {
        throw; // the thread is being ended: not a failure, and not ours to stop
    }
    catch (...)
    {
        setErrorFromException(request);
    }
    if constexpr (std::is_pointer_v<Result>)
    {
        return Result(nullptr);
    }
    else if constexpr (std::is_integral_v<Result>)
    {
        return Result(-1);
    }
}

} // namespace vellum
