/// Small owners for what the Python API hands out, and the one way to raise.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string>
#include <utility>

namespace vellum
{
/// Sets a Python error. Returns null, for the return statement of a function
/// that reports by a null result.
inline std::nullptr_t raise(PyObject* exceptionClass, const char* text)
{
    PyErr_SetString(exceptionClass, text);
    return nullptr;
}
inline std::nullptr_t raise(PyObject* exceptionClass, const std::string& text)
{
    return raise(exceptionClass, text.c_str());
}

/// The texts that recur everywhere.
inline constexpr const char* kNotInitialized = "object not initialized.";
inline constexpr const char* kNullData = "null data pointer.";
inline constexpr const char* kNoInstance = "unable to initialize C object.";
inline constexpr const char* kTooManyIndices = "too many indices.";
inline constexpr const char* kUnableToSet = "unable to set value.";

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
    ~PyRef() { Py_XDECREF(m_object); }

    PyObject* get() const { return m_object; }
    PyObject* release() { return std::exchange(m_object, nullptr); }
    explicit operator bool() const { return m_object != nullptr; }

private:
    PyObject* m_object = nullptr;
};

/// Takes a pending error away for its lifetime and puts it back, unless a new
/// one stands by then.
class SavedError
{
public:
    SavedError() { PyErr_Fetch(&m_type, &m_value, &m_traceback); }
    SavedError(const SavedError&) = delete;
    SavedError& operator=(const SavedError&) = delete;
    ~SavedError()
    {
        if (m_type != nullptr && PyErr_Occurred() == nullptr)
        {
            PyErr_Restore(m_type, m_value, m_traceback);
            return;
        }
        Py_XDECREF(m_type);
        Py_XDECREF(m_value);
        Py_XDECREF(m_traceback);
    }

private:
    PyObject* m_type = nullptr;
    PyObject* m_value = nullptr;
    PyObject* m_traceback = nullptr;
};

/// One level of the interpreter's recursion guard. `entered()` false: the limit
/// is reached and a `RecursionError` stands.
class RecursionLevel
{
public:
    explicit RecursionLevel(const char* where) : m_entered(Py_EnterRecursiveCall(where) == 0) {}
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
