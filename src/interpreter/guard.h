/// The one guard: every function that Python or a native client can call runs
/// its body inside it, and no C++ exception leaves it. What fails comes out as a
/// Python error and a null result, or -1 where the result is a number.
#pragma once

#include "base/checked_size.h"
#include "interpreter/python_ref.h"

#include <cstdint>
#include <cxxabi.h>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

namespace vellum
{
/// What a construction is about to ask memory for, kept up to date by it, so
/// that a failure can say what couldn't be had.
struct AllocationRequest
{
    const char* m_shortName = ""; ///< of the kind; a complex array says "double" too
    std::uint64_t m_count = 0;

    std::string failureText() const;
};

/// Memory for an array couldn't be had, or can't exist: `what()` says for how
/// many elements of which kind.
class AllocationError : public std::bad_alloc
{
public:
    explicit AllocationError(const AllocationRequest& request) : m_text(request.failureText()) {}
    const char* what() const noexcept override { return m_text.c_str(); }

private:
    std::string m_text;
};

/// Turns the exception in flight into a Python error:
///
/// | exception                          | Python error                            |
/// |------------------------------------|-----------------------------------------|
/// | `std::bad_alloc`, service code 19  | `MemoryError`                           |
/// | service code 26                    | `MemoryError` while constructing, else `RuntimeError` |
/// | any other                          | `RuntimeError` with `what()`            |
///
/// While constructing (`request` not null) a `MemoryError` carries the text of
/// the request.
void raiseFromException(const AllocationRequest* request);

template <class Body>
auto guarded(Body&& body, const AllocationRequest* request = nullptr)
{
    using Result = std::invoke_result_t<Body>;
    try
    {
        return std::forward<Body>(body)();
    }
    catch (const abi::__forced_unwind&)
    {
        throw; // the thread is being ended: not a failure, and not ours to stop
    }
    catch (...)
    {
        raiseFromException(request);
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
