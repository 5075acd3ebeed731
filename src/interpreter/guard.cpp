#include "interpreter/guard.h"

#include "dataclient/array_exception.h"

namespace vellum
{
namespace
{
void raiseMemoryError(const AllocationRequest* request, const char* text)
{
    try
    {
        raise(PyExc_MemoryError, request != nullptr ? request->failureText() : text);
    }
    catch (const std::bad_alloc&)
    {
        PyErr_NoMemory(); // not even the text can be had
    }
}
} // namespace

std::string AllocationRequest::failureText() const
{
    return "unable to allocate memory for array with number of elements = " +
           std::to_string(m_count) + "; type = " + m_shortName;
}

void raiseFromException(const AllocationRequest* request)
{
    try
    {
        throw;
    }
    catch (const AllocationError& error)
    {
        raiseMemoryError(nullptr, error.what());
    }
    catch (const std::bad_alloc&)
    {
        // Its own text says nothing that the class doesn't.
        raiseMemoryError(request, "");
    }
    catch (const data::detail::OutOfMemory& error)
    {
        raiseMemoryError(request, error.what());
    }
    catch (const data::detail::TooManyElements& error)
    {
        if (request != nullptr)
        {
            raiseMemoryError(request, error.what());
        }
        else
        {
            raise(PyExc_RuntimeError, error.what());
        }
    }
    catch (const std::exception& error)
    {
        raise(PyExc_RuntimeError, error.what());
    }
    catch (...)
    {
        raise(PyExc_RuntimeError, "unknown error.");
    }
}

} // namespace vellum
