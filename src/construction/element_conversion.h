/// The one place where a value is converted: a Python object, or an element of
/// another array, is read into what it is, and what it is becomes an element of
/// some type, or a refusal.
///
/// Nothing here raises: a refusal is returned as data, and the caller raises it.
/// Python's error state is left clean.
#pragma once

#include <Python.h>

#include "base/element_kinds.h"

#include <cstdint>
#include <string>

namespace vellum
{
struct Refusal
{
    PyObject* m_exceptionClass = nullptr; ///< borrowed
    std::string m_message;
};

/// What a value is, before any element type looks at it.
struct ScalarReading
{
    enum class Form
    {
        Integer,
        TooLargeInteger, ///< an `int` that doesn't fit 64 signed bits
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

/// Reads the element at an address as the Python object that it would be.
using ElementReader = ScalarReading (*)(const void* address);
ElementReader elementReader(ArrayType type);

/// Writes the element that a reading becomes to `element`. False, with nothing
/// written, if the type doesn't take it: `refusal` says why.
using ElementConverter = bool (*)(const ScalarReading& reading, void* element, Refusal& refusal);

/// For the elements of a type: fetched once an operation. `isConstructor` lets
/// `logical` take floats and complex numbers.
ElementConverter elementConverter(ArrayType type, bool isConstructor);

} // namespace vellum
