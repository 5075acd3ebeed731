#include "interpreter/guard.h"

#include "dataclient/array_exception.h"
#include "interpreter/foreign_code.h"

namespace vellum
{
namespace
{
void setMemoryError(const AllocationRequest* request, const char* text) noexcept
{
    try
    {
        setError(PyExc_MemoryError, request != nullptr ? request->failureText() : text);
    }
    catch (const std::bad_alloc&)
    {
        callOut(PyErr_NoMemory); // not even the text can be had
    }
}
} // namespace

void setErrorFromException(const AllocationRequest* request) noexcept
{
    try
    {
        throw;
    }
    catch (const AllocationError& error)
    {
        setMemoryError(nullptr, error.what());
    }
    catch (const std::bad_alloc&)
    {
        // Its own text says nothing that the class doesn't.
        setMemoryError(request, "");
    }
    catch (const data::detail::OutOfMemory& error)
    {
        setMemoryError(request, error.what());
    }
    catch (const data::detail::TooManyElements& error)
    {
        if (request != nullptr)
        {
            setMemoryError(request, error.what());
        }
        else
        {
            setError(PyExc_RuntimeError, error.what());
        }
    }
    catch (const std::exception& error)
    {
        setError(PyExc_RuntimeError, error.what());
    }
    catch (...)
    {
        setError(PyExc_RuntimeError, "unknown error.");
    }
}

} // namespace vellum
