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
    Success = 0,
    InvalidIndex = 1,
    DataTypeMismatch = 8,
    ArrayTypeMismatch = 9,
    OutOfMemory = 19,
    SystemError = 20,
    LayoutMismatch = 23,
    TooManyElements = 26,
};

struct Failure
{
    Status m_status;
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
    require((... && (arguments != nullptr)), Status::SystemError);
}

template <class Work>
Code answer(Work&& work) noexcept
{
    Status status = Status::Success;
    try
    {
        work();
    }
    catch (const Failure& failure)
    {
        status = failure.m_status;
    }
    catch (const std::bad_alloc&)
    {
        status = Status::OutOfMemory;
    }
    catch (...)
    {
        status = Status::SystemError;
    }
    return static_cast<Code>(status);
}
} // namespace vellum::data::service
