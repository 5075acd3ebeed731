/// How the service fails. Inside it, failures are exceptions; an operation
/// runs its work in `answer`, which turns every exception into a code, since
/// callers reach operations through plain function pointers.
#pragma once

#include "service/service_interface.h"

#include <new>

namespace vellum::data::service
{
/// The codes that this service answers with.
enum class Status : Code
{
    success = 0,
    invalidIndex = 1,
    dataTypeMismatch = 8,
    arrayTypeMismatch = 9,
    outOfMemory = 19,
    systemError = 20,
    layoutMismatch = 23,
    tooManyElements = 26,
};

struct Failure
{
    Status status;
};

inline void require(bool condition, Status otherwise)
{
    if (!condition)
    {
        throw Failure{otherwise};
    }
}

/// A null argument is the caller's fault, which the code table has no word for.
template <class... Pointers>
void requireArguments(const Pointers*... arguments)
{
    require((... && (arguments != nullptr)), Status::systemError);
}

template <class Work>
Code answer(Work&& work) noexcept
{
    Status status = Status::success;
    try
    {
        work();
    }
    catch (const Failure& failure)
    {
        status = failure.status;
    }
    catch (const std::bad_alloc&)
    {
        status = Status::outOfMemory;
    }
    catch (...)
    {
        status = Status::systemError;
    }
    return static_cast<Code>(status);
}
} // namespace vellum::data::service
