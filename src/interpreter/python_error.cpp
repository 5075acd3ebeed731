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

/// As it is: its context too.
void setException(PyRef exception)
{
    PyObject* type = reinterpret_cast<PyObject*>(Py_TYPE(exception.get()));
    PyObject* traceback = PyException_GetTraceback(exception.get());
    callOut(PyErr_Restore, PyRef::fromBorrowed(type).release(), exception.release(), traceback);
}

/// Whether an exception stands against any text.
bool isStronger(PyObject* exception)
{
    return PyErr_GivenExceptionMatches(exception, PyExc_Exception) == 0 ||
           PyErr_GivenExceptionMatches(exception, PyExc_MemoryError) != 0;
}

/// The pending error, if there is one and a text can take its place. One that is
/// stronger stands, and goes on.
PyRef takeWeakerException()
{
    if (PyErr_Occurred() == nullptr)
    {
        return PyRef();
    }
    // Making the exception object can raise another in its place: that one counts.
    PyRef exception = takeException();
    if (exception && isStronger(exception.get()))
    {
        setException(std::move(exception));
        throw PythonError();
    }
    return exception;
}
} // namespace

void setError(PyObject* exceptionClass, std::string_view text) noexcept
{
    const PyRef message(callOut(PyUnicode_DecodeUTF8, text.data(),
                                static_cast<Py_ssize_t>(text.size()), "backslashreplace"));
    if (message)
    {
        callOut(PyErr_SetObject, exceptionClass, message.get());
    }
}

void raise(PyObject* exceptionClass, std::string_view text)
{
    setError(exceptionClass, text);
    throw PythonError();
}

void replaceError(PyObject* exceptionClass, std::string_view text)
{
    PyRef cause = takeWeakerException();
    setError(exceptionClass, text);
    PyRef exception = cause ? takeException() : PyRef();
    if (exception)
    {
        PyException_SetContext(exception.get(), PyRef::fromBorrowed(cause.get()).release());
        PyException_SetCause(exception.get(), cause.release());
        setException(std::move(exception));
    }
    throw PythonError();
}

void overrideError(PyObject* exceptionClass, std::string_view text)
{
    takeWeakerException();
    raise(exceptionClass, text);
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
