#include "interpreter/python_error.h"

#include "interpreter/python_ref.h"

#include <utility>

namespace vellum
{
namespace
{
/// The pending error as an exception object, with its traceback; nothing stands
/// afterwards. Empty if it can't be made.
PyRef takeException()
{
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    callOut(PyErr_NormalizeException, &type, &value, &traceback);
    const PyRef ownedType(type);
    PyRef exception(value);
    const PyRef ownedTraceback(traceback);
    if (!exception || !PyExceptionInstance_Check(exception.get()))
    {
        return PyRef();
    }
    if (ownedTraceback)
    {
        PyException_SetTraceback(exception.get(), ownedTraceback.get());
    }
    return exception;
}
} // namespace

std::nullptr_t raise(PyObject* exceptionClass, std::string_view text)
{
    const PyRef message(callOut(PyUnicode_DecodeUTF8, text.data(),
                                static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
    if (message)
    {
        callOut(PyErr_SetObject, exceptionClass, message.get());
    }
    return nullptr;
}

std::nullptr_t replaceError(PyObject* exceptionClass, std::string_view text)
{
    if (PyErr_Occurred() == nullptr)
    {
        return raise(exceptionClass, text);
    }
    if (PyErr_ExceptionMatches(PyExc_Exception) == 0 || PyErr_ExceptionMatches(PyExc_MemoryError))
    {
        return nullptr;
    }
    PyRef cause = takeException();
    raise(exceptionClass, text);
    PyRef exception = takeException();
    if (!exception)
    {
        return raise(exceptionClass, text);
    }
    if (cause)
    {
        PyException_SetContext(exception.get(), PyRef::fromBorrowed(cause.get()).release());
        PyException_SetCause(exception.get(), cause.release());
    }
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.get())), exception.get());
    return nullptr;
}

SavedError::~SavedError()
{
    if (m_type != nullptr && PyErr_Occurred() == nullptr)
    {
        restore();
        return;
    }
    const PyRef type(m_type);
    const PyRef value(m_value);
    const PyRef traceback(m_traceback);
}

void SavedError::restore()
{
    callOut(PyErr_Restore, std::exchange(m_type, nullptr), std::exchange(m_value, nullptr),
            std::exchange(m_traceback, nullptr));
}

} // namespace vellum
