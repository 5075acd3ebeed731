/// Small owners for what the Python API hands out.
#pragma once

#include <Python.h>

#include "interpreter/foreign_code.h"
#include "interpreter/python_error.h"

#include <utility>

namespace vellum
{
/// Owns one reference, or nothing. Giving up the last reference to an object can
/// run any code; the error that stands then stands afterwards.
class PyRef
{
public:
    PyRef() = default;
    /// Takes over `owned`, which may be null.
    explicit PyRef(PyObject* owned) : m_object(owned) {}
    static PyRef fromBorrowed(PyObject* borrowed)
    {
        Py_XINCREF(borrowed);
        return PyRef(borrowed);
    }
    PyRef(PyRef&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    PyRef& operator=(PyRef&& other) noexcept
    {
        // The old object goes last: its deallocation can run any code.
        PyRef old(std::exchange(m_object, std::exchange(other.m_object, nullptr)));
        return *this;
    }
    ~PyRef()
    {
        if (m_object == nullptr)
        {
            return;
        }
        if (Py_REFCNT(m_object) > 1)
        {
            Py_DECREF(m_object);
        }
        else
        {
            dropLastReference(m_object);
        }
    }

    PyObject* get() const { return m_object; }
    PyObject* release() { return std::exchange(m_object, nullptr); }
    explicit operator bool() const { return m_object != nullptr; }

private:
    static void dropLastReference(PyObject* object) noexcept;

    PyObject* m_object = nullptr;
};

/// The result of a call of Python's API, for which null means that an error is set.
inline PyObject* orThrow(PyObject* result)
{
    if (result == nullptr)
    {
        throw PythonError();
    }
    return result;
}

/// The same, owned.
inline PyRef checked(PyObject* owned)
{
    return PyRef(orThrow(owned));
}

/// One level of the interpreter's recursion guard. Throws at its limit.
class RecursionLevel
{
public:
    explicit RecursionLevel(const char* where)
    {
        if (callOut([where] { return Py_EnterRecursiveCall(where); }) != 0)
        {
            throw PythonError();
        }
    }
    RecursionLevel(const RecursionLevel&) = delete;
    RecursionLevel& operator=(const RecursionLevel&) = delete;
    ~RecursionLevel() { Py_LeaveRecursiveCall(); }
};

} // namespace vellum
