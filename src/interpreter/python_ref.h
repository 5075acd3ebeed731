/// Small owners for what the Python API hands out.
#pragma once

#include <Python.h>

#include "interpreter/foreign_code.h"
#include "interpreter/python_error.h"

#include <utility>

namespace vellum
{
/// Owns one reference, or nothing.
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
        if (m_object != nullptr)
        {
            callOut([this] { Py_DECREF(m_object); });
        }
    }

    PyObject* get() const { return m_object; }
    PyObject* release() { return std::exchange(m_object, nullptr); }
    explicit operator bool() const { return m_object != nullptr; }

private:
    PyObject* m_object = nullptr;
};

/// One level of the interpreter's recursion guard. `entered()` false: the limit
/// is reached and a `RecursionError` stands.
class RecursionLevel
{
public:
    explicit RecursionLevel(const char* where)
        : m_entered(callOut([where] { return Py_EnterRecursiveCall(where); }) == 0)
    {
    }
    RecursionLevel(const RecursionLevel&) = delete;
    RecursionLevel& operator=(const RecursionLevel&) = delete;
    ~RecursionLevel()
    {
        if (m_entered)
        {
            Py_LeaveRecursiveCall();
        }
    }
    bool entered() const { return m_entered; }

private:
    bool m_entered;
};

} // namespace vellum
