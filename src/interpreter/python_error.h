/// Python's error state, and the one channel in which its errors travel.
///
/// A function that fails sets the error and throws `PythonError`; what it returns
/// is what it is for. The guard alone catches it. Where failing is part of normal
/// use, a function sets the error and returns without a throw, and says so.
#pragma once

#include <Python.h>

#include <string_view>

namespace vellum
{
/// A Python error is set: the error itself stays with the interpreter.
struct PythonError
{};

/// The texts that recur everywhere.
inline constexpr const char* kNotInitialized = "object not initialized.";
inline constexpr const char* kNullData = "null data pointer.";
inline constexpr const char* kNoInstance = "unable to initialize C object.";
inline constexpr const char* kTooManyIndices = "too many indices.";
inline constexpr const char* kTooManyDimensions = "too many dimensions.";
inline constexpr const char* kUnableToSet = "unable to set value.";

/// Sets a Python error, in place of any other. Bytes that are no UTF-8 appear as
/// escapes.
void setError(PyObject* exceptionClass, std::string_view text) noexcept;

[[noreturn]] void raise(PyObject* exceptionClass, std::string_view text);

/// Raises where foreign code may have left an error, which becomes the cause. One
/// that is no `Exception` (`KeyboardInterrupt`, `SystemExit`) and a `MemoryError`
/// are stronger than the text: they stand as they are.
[[noreturn]] void replaceError(PyObject* exceptionClass, std::string_view text);

/// The same where the interpreter may have set an error about what we have asked of
/// it, which is dropped.
[[noreturn]] void overrideError(PyObject* exceptionClass, std::string_view text);

/// Takes a pending error away for its lifetime and puts it back, unless a new
/// one stands by then.
class SavedError
{
public:
    SavedError() { PyErr_Fetch(&m_type, &m_value, &m_traceback); }
    SavedError(const SavedError&) = delete;
    SavedError& operator=(const SavedError&) = delete;
    ~SavedError();

    /// Makes it the pending one now, whatever stands.
    void restore();

private:
    PyObject* m_type = nullptr;
    PyObject* m_value = nullptr;
    PyObject* m_traceback = nullptr;
};

} // namespace vellum
