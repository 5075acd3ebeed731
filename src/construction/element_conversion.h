/// The one place where a value is judged: a Python object, or a raw element of
/// another array, in; one element of type T, or a refusal, out.
///
/// Nothing here raises: a refusal is returned as data and the caller raises it.
/// Python's error state is left clean.
#pragma once

#include "base/element_kinds.h"
#include "interpreter/python_ref.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vellum
{
template <class T>
struct ConvertedScalar
{
    T m_value{};
    bool m_hasValue = false;
    PyObject* m_exceptionClass = nullptr; ///< refusal: borrowed
    std::string m_message;                ///< refusal: the text
};

/// A Python `int`, read; all fields empty for an object that is none.
struct PythonIntReading
{
    std::int64_t m_value = 0;
    bool m_hasValue = false;
    bool m_isTooLarge = false; ///< an `int` that doesn't fit 64 signed bits
};

PythonIntReading readPythonInt(PyObject* object);

/// What a value is, before any kind judges it.
struct ScalarReading
{
    enum class Form
    {
        Integer,
        TooLargeInteger,
        Float,
        Complex,
        NotANumber,
    };
    Form m_form = Form::NotANumber;
    std::int64_t m_integer = 0;   ///< Integer
    double m_real = 0;            ///< Float and Complex
    double m_imaginary = 0;       ///< Complex
    PyObject* m_object = nullptr; ///< NotANumber: borrowed
};

/// Reads a Python object. No conversion hook is consulted: an object that is no
/// `int`, `float` or `complex` is no number here.
ScalarReading readScalar(PyObject* object);

/// Reads a raw element as the Python object that it would be.
template <class T>
ScalarReading readElement(T element);

/// Judges a reading for T. `isConstructor` lets `logical` take floats and
/// complex numbers.
template <class T>
ConvertedScalar<T> judgeScalar(const ScalarReading& reading, bool isConstructor);

template <class T>
ConvertedScalar<T> convertScalar(PyObject* object, bool isConstructor)
{
    return judgeScalar<T>(readScalar(object), isConstructor);
}

/// Range-checked casts to an integer kind; a float is cut toward zero. Nothing
/// if the value is out of range: the range text is in `text` then.
template <class T>
std::optional<T> castIntToKind(std::int64_t value, std::string& text);
template <class T>
std::optional<T> castFloatToKind(double value, std::string& text);

} // namespace vellum
