#include "construction/element_conversion.h"

#include "base/load_element.h"

#include <array>
#include <boost/numeric/conversion/cast.hpp>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

namespace vellum
{
namespace
{
using Form = ScalarReading::Form;

template <class T>
using RealOf = typename ElementTraits<T>::Real;

// Each `refuse...` is false, for the return statement of a conversion.

bool refuse(Refusal& refusal, PyObject* exceptionClass, std::string message)
{
    refusal = {exceptionClass, std::move(message)};
    return false;
}

bool refuseTooLarge(Refusal& refusal)
{
    return refuse(refusal, PyExc_OverflowError, "Python int too large to convert to C long long");
}

bool refuseFloat(Refusal& refusal, const char* className)
{
    return refuse(refusal, PyExc_TypeError,
                  std::string(className) + " does not accept floating-point values.");
}

bool refuseComplex(Refusal& refusal, const char* className)
{
    return refuse(refusal, PyExc_TypeError,
                  std::string(className) +
                      " does not accept complex values if 'is_complex' is not set to 'True'.");
}

bool refuseNonNumber(Refusal& refusal, PyObject* object)
{
    if (PyUnicode_Check(object))
    {
        return refuse(refusal, PyExc_TypeError, "value is not numeric.");
    }
    if (PySequence_Check(object))
    {
        return refuse(refusal, PyExc_TypeError, "sequence passed when scalar was expected.");
    }
    return refuse(refusal, PyExc_TypeError,
                  object == Py_None ? "value must not be 'None'." : "type does not match.");
}

/// As a text stream prints it by default, but in no locale. 24 characters at most:
/// those of the least 64-bit integer are 20, six digits and an exponent are fewer.
template <class... Format>
std::string charactersOf(Format... value)
{
    std::array<char, 24> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value...).ptr};
}

std::string numberText(std::int64_t value)
{
    return charactersOf(value);
}

std::string numberText(double value)
{
    constexpr int digits = 6;
    // A NaN is shown without its sign.
    return std::isnan(value) ? "nan" : charactersOf(value, std::chars_format::general, digits);
}

template <class Value>
bool refuseRange(Refusal& refusal, Value value, const char* shortName)
{
    return refuse(refusal, PyExc_OverflowError,
                  "value (" + numberText(value) + ") cannot be stored in a variable of type " +
                      shortName + ".");
}

/// Nothing if the value is out of the range of T. A float is cut toward zero.
template <class T, class Value>
std::optional<T> castToKind(Value value)
{
    try
    {
        // NaN is in no range, but passes every comparison with its limits.
        if (!std::is_floating_point_v<Value> || !std::isnan(static_cast<double>(value)))
        {
            return boost::numeric_cast<T>(value);
        }
    }
    catch (const boost::numeric::bad_numeric_cast&)
    {
    }
    return std::nullopt;
}

/// Every value that a single can't hold, the negative ones too, is plus infinity.
template <class Real>
Real toFloating(double value)
{
    if constexpr (std::is_same_v<Real, float>)
    {
        constexpr double most = std::numeric_limits<float>::max();
        return value > most || value < -most ? std::numeric_limits<float>::infinity()
                                             : static_cast<float>(value);
    }
    else
    {
        return value;
    }
}

bool convertLogical(const ScalarReading& reading, bool& element, bool isConstructor,
                    Refusal& refusal)
{
    const char* className = kindInfo(SupportedArrayEnum::Logical).m_className;
    switch (reading.m_form)
    {
    case Form::Integer:
        element = reading.m_integer != 0;
        return true;
    case Form::TooLargeInteger:
        return refuseTooLarge(refusal);
    case Form::Float:
        element = reading.m_real != 0.0;
        return isConstructor || refuseFloat(refusal, className);
    case Form::Complex:
        element = reading.m_real != 0.0 || reading.m_imaginary != 0.0;
        return isConstructor || refuseComplex(refusal, className);
    case Form::NotANumber:
        break;
    }
    return refuseNonNumber(refusal, reading.m_object);
}

template <class T>
bool convertFloating(const ScalarReading& reading, T& element, Refusal& refusal)
{
    using Real = RealOf<T>;
    switch (reading.m_form)
    {
    case Form::Integer:
        element = static_cast<Real>(reading.m_integer);
        return true;
    case Form::TooLargeInteger:
        if constexpr (std::is_same_v<Real, float>)
        {
            element = std::numeric_limits<float>::infinity();
            return true;
        }
        return refuseTooLarge(refusal);
    case Form::Float:
        element = toFloating<Real>(reading.m_real);
        return true;
    case Form::Complex:
        if constexpr (kIsComplex<T>)
        {
            element = {toFloating<Real>(reading.m_real), toFloating<Real>(reading.m_imaginary)};
            return true;
        }
        return refuseComplex(refusal, ElementTraits<T>::kType.kind().m_className);
    case Form::NotANumber:
        break;
    }
    return refuseNonNumber(refusal, reading.m_object);
}

/// One part of an integer element. Not touched if the value is out of range.
template <class Real, class Value>
bool convertPart(Value value, Real& part, Refusal& refusal)
{
    const auto converted = castToKind<Real>(value);
    if (!converted)
    {
        return refuseRange(refusal, value, ElementTraits<Real>::kType.shortName());
    }
    part = *converted;
    return true;
}

template <class T>
bool convertInteger(const ScalarReading& reading, T& element, Refusal& refusal)
{
    using Real = RealOf<T>;
    Real real = 0;
    [[maybe_unused]] Real imaginary = 0;
    bool isTaken = false;
    switch (reading.m_form)
    {
    case Form::Integer:
        isTaken = convertPart(reading.m_integer, real, refusal);
        break;
    case Form::TooLargeInteger:
        return refuseTooLarge(refusal);
    case Form::Float:
    case Form::Complex:
        if constexpr (kIsComplex<T>)
        {
            isTaken = convertPart(reading.m_real, real, refusal) &&
                      convertPart(reading.m_imaginary, imaginary, refusal);
            break;
        }
        return reading.m_form == Form::Float
                   ? refuseFloat(refusal, ElementTraits<T>::kType.kind().m_className)
                   : refuseComplex(refusal, ElementTraits<T>::kType.kind().m_className);
    case Form::NotANumber:
        return refuseNonNumber(refusal, reading.m_object);
    }
    if constexpr (kIsComplex<T>)
    {
        element = {real, imaginary};
    }
    else
    {
        element = real;
    }
    return isTaken;
}

template <class T, bool isConstructor>
bool convert(const ScalarReading& reading, void* destination, Refusal& refusal)
{
    T element{};
    bool isTaken = false;
    if constexpr (std::is_same_v<T, bool>)
    {
        isTaken = convertLogical(reading, element, isConstructor, refusal);
    }
    else if constexpr (std::is_floating_point_v<RealOf<T>>)
    {
        isTaken = convertFloating(reading, element, refusal);
    }
    else
    {
        isTaken = convertInteger(reading, element, refusal);
    }
    if (isTaken)
    {
        std::memcpy(destination, &element, sizeof(T));
    }
    return isTaken;
}

template <class T>
ScalarReading readElement(const void* address)
{
    const T element = loadElement<T>(address);
    ScalarReading reading;
    if constexpr (kIsComplex<T>)
    {
        reading.m_form = Form::Complex;
        reading.m_real = static_cast<double>(element.real());
        reading.m_imaginary = static_cast<double>(element.imag());
    }
    else if constexpr (std::is_floating_point_v<T>)
    {
        reading.m_form = Form::Float;
        reading.m_real = element;
    }
    else if (std::is_same_v<T, std::uint64_t> &&
             static_cast<std::uint64_t>(element) > std::numeric_limits<std::int64_t>::max())
    {
        reading.m_form = Form::TooLargeInteger;
    }
    else
    {
        reading.m_form = Form::Integer;
        reading.m_integer = static_cast<std::int64_t>(element);
    }
    return reading;
}

/// An `int`, whose size its class can't change.
void readInteger(PyObject* object, ScalarReading& reading)
{
    int overflow = 0;
    reading.m_integer = PyLong_AsLongLongAndOverflow(object, &overflow);
    reading.m_form = overflow != 0 ? Form::TooLargeInteger : Form::Integer;
}

} // namespace

ScalarReading readScalar(PyObject* object)
{
    ScalarReading reading;
    if (PyFloat_Check(object))
    {
        reading.m_form = Form::Float;
        reading.m_real = PyFloat_AS_DOUBLE(object);
    }
    else if (PyLong_Check(object))
    {
        readInteger(object, reading);
    }
    else if (PyComplex_Check(object))
    {
        reading.m_form = Form::Complex;
        reading.m_real = PyComplex_RealAsDouble(object);
        reading.m_imaginary = PyComplex_ImagAsDouble(object);
    }
    else
    {
        reading.m_object = object;
    }
    return reading;
}

ElementReader elementReader(ArrayType type)
{
    return visitElementType(
        type, []<class T>(std::type_identity<T>) -> ElementReader { return readElement<T>; });
}

ElementConverter elementConverter(ArrayType type, bool isConstructor)
{
    return visitElementType(type, [=]<class T>(std::type_identity<T>) -> ElementConverter {
        if constexpr (std::is_same_v<T, bool>)
        {
            return isConstructor ? convert<T, true> : convert<T, false>;
        }
        else
        {
            return convert<T, true>;
        }
    });
}

} // namespace vellum
