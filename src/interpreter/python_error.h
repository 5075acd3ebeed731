/// Python's error state: the one way to raise, to replace and to put aside.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string_view>

namespace vellum
{
/// The texts that recur everywhere.
inline constexpr const char* kNotInitialized = "object not initialized.";
inline constexpr const char* kNullData = "null data pointer.";
inline constexpr const char* kNoInstance = "unable to initialize C object.";
inline constexpr const char* kTooManyIndices = "too many indices.";
inline constexpr const char* kTooManyDimensions = "too many dimensions.";
inline constexpr const char* kUnableToSet = "unable to set value.";

/// Sets a Python error, in place of any other. Bytes that are no UTF-8 appear as
/// escapes. Returns null, for the return statement of a function that reports by
/// a null result.
std::nullptr_t raise(PyObject* exceptionClass, std::string_view text);

/// The same where foreign code may have left an error, which becomes the cause.
/// One that is no `Exception` (`KeyboardInterrupt`, `SystemExit`) and a
/// `MemoryError` are stronger than the text: they stand as they are.
std::nullptr_t replaceError(PyObject* exceptionClass, std::string_view text);

/// Takes a pending error away for its lifetime and puts it back, unless a new
/// one stands by then.
class SavedError
{
public:
    SavedError() { PyErr_Fetch(&m_type, &m_value, &m_traceback); }
    SavedError(const SavedError&) = delete;
    SavedError& operator=(const SavedError&) = delete;
    ~SavedError();

    /// Whether an error was taken.
    explicit operator bool() const { return m_type != nullptr; }
    /// Makes it the pending one now, whatever stands.
    void restore();

private:
    PyObject* m_type = nullptr;
    PyObject* m_value = nullptr;
    PyObject* m_traceback = nullptr;
};

} // namespace vellum
