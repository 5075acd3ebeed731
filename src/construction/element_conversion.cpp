#include "construction/element_conversion.h"

#include <array>
#include <boost/numeric/conversion/cast.hpp>
#include <charconv>
#include <cmath>
#include <limits>

namespace vellum
{
namespace
{
using Form = ScalarReading::Form;

template <class T>
using RealOf = typename ElementTraits<T>::Real;

template <class T>
inline constexpr bool kIsFloating = std::is_floating_point_v<RealOf<T>>;

template <class T>
ConvertedScalar<T> accept(T value)
{
    return {value, true, nullptr, {}};
}

/// Kept out of the way of what is accepted.
template <class T>
[[gnu::cold, gnu::noinline]] ConvertedScalar<T> refuse(PyObject* exceptionClass, std::string text)
{
    return {T{}, false, exceptionClass, std::move(text)};
}

template <class T>
[[gnu::cold, gnu::noinline]] ConvertedScalar<T> refuseTooLarge()
{
    return refuse<T>(PyExc_OverflowError, "Python int too large to convert to C long long");
}

template <class T>
[[gnu::cold, gnu::noinline]] ConvertedScalar<T> refuseFloat()
{
    return refuse<T>(PyExc_TypeError, std::string(kKindInfoOf<T>.m_className) +
                                          " does not accept floating-point values.");
}

template <class T>
[[gnu::cold, gnu::noinline]] ConvertedScalar<T> refuseComplex()
{
    return refuse<T>(PyExc_TypeError,
                     std::string(kKindInfoOf<T>.m_className) +
                         " does not accept complex values if 'is_complex' is not set to 'True'.");
}

template <class T>
[[gnu::cold, gnu::noinline]] ConvertedScalar<T> refuseNonNumber(PyObject* object)
{
    if (PyUnicode_Check(object))
    {
        return refuse<T>(PyExc_TypeError, "value is not numeric.");
    }
    if (PySequence_Check(object))
    {
        return refuse<T>(PyExc_TypeError, "sequence passed when scalar was expected.");
    }
    return refuse<T>(PyExc_TypeError,
                     object == Py_None ? "value must not be 'None'." : "type does not match.");
}

template <class Value>
bool isNan(Value value)
{
    if constexpr (std::is_floating_point_v<Value>)
    {
        return std::isnan(value);
    }
    else
    {
        return false;
    }
}

/// As a text stream prints it by default, but in no locale. 24 characters at most:
/// those of the least 64-bit integer are 20, six digits and an exponent are fewer.
template <class Value>
std::string numberText(Value value)
{
    if (isNan(value))
    {
        return "nan"; // without its sign
    }
    std::array<char, 24> text{};
    char* const end = text.data() + text.size();
    if constexpr (std::is_floating_point_v<Value>)
    {
        constexpr int digits = 6;
        return {text.data(),
                std::to_chars(text.data(), end, value, std::chars_format::general, digits).ptr};
    }
    else
    {
        return {text.data(), std::to_chars(text.data(), end, value).ptr};
    }
}

template <class T, class Value>
std::string rangeText(Value value)
{
    return "value (" + numberText(value) + ") cannot be stored in a variable of type " +
           kKindInfoOf<T>.m_shortName + ".";
}

template <class T, class Value>
std::optional<T> castToKind(Value value, std::string& text)
{
    try
    {
        // NaN is in no range, but passes every comparison with its limits.
        if (!isNan(value))
        {
            return boost::numeric_cast<T>(value);
        }
    }
    catch (const boost::numeric::bad_numeric_cast&)
    {
    }
    text = rangeText<T>(value);
    return std::nullopt;
}

/// Every value that a single can't hold, the negative ones too, is plus infinity.
float toSingle(double value)
{
    constexpr double most = std::numeric_limits<float>::max();
    return value > most || value < -most ? std::numeric_limits<float>::infinity()
                                         : static_cast<float>(value);
}

/// One real part of a value of the floating kinds.
template <class Real>
Real toFloating(double value)
{
    if constexpr (std::is_same_v<Real, float>)
    {
        return toSingle(value);
    }
    else
    {
        return value;
    }
}

template <class T>
ConvertedScalar<T> judgeLogical(const ScalarReading& reading, bool isConstructor)
{
    switch (reading.m_form)
    {
    case Form::Integer:
        return accept<T>(reading.m_integer != 0);
    case Form::TooLargeInteger:
        return refuseTooLarge<T>();
    case Form::Float:
        return isConstructor ? accept<T>(reading.m_real != 0.0) : refuseFloat<T>();
    case Form::Complex:
        return isConstructor ? accept<T>(reading.m_real != 0.0 || reading.m_imaginary != 0.0)
                             : refuseComplex<T>();
    case Form::NotANumber:
        break;
    }
    return refuseNonNumber<T>(reading.m_object);
}

template <class T>
ConvertedScalar<T> judgeFloating(const ScalarReading& reading)
{
    using Real = RealOf<T>;
    switch (reading.m_form)
    {
    case Form::Integer:
        return accept<T>(static_cast<Real>(reading.m_integer));
    case Form::TooLargeInteger:
        if constexpr (std::is_same_v<Real, float>)
        {
            return accept<T>(std::numeric_limits<float>::infinity());
        }
        return refuseTooLarge<T>();
    case Form::Float:
        return accept<T>(toFloating<Real>(reading.m_real));
    case Form::Complex:
        if constexpr (ElementTraits<T>::kIsComplex)
        {
            return accept<T>(
                {toFloating<Real>(reading.m_real), toFloating<Real>(reading.m_imaginary)});
        }
        else
        {
            return refuseComplex<T>();
        }
    case Form::NotANumber:
        break;
    }
    return refuseNonNumber<T>(reading.m_object);
}

/// What a complex integer kind takes from a float or a complex number.
template <class T>
ConvertedScalar<T> judgeParts(double real, double imaginary)
{
    std::string text;
    const auto realPart = castFloatToKind<RealOf<T>>(real, text);
    const auto imaginaryPart =
        realPart ? castFloatToKind<RealOf<T>>(imaginary, text) : std::nullopt;
    return imaginaryPart ? accept<T>({*realPart, *imaginaryPart})
                         : refuse<T>(PyExc_OverflowError, std::move(text));
}

template <class T>
ConvertedScalar<T> judgeInteger(const ScalarReading& reading)
{
    switch (reading.m_form)
    {
    case Form::Integer: {
        std::string text;
        const auto value = castIntToKind<RealOf<T>>(reading.m_integer, text);
        return value ? accept<T>(*value) : refuse<T>(PyExc_OverflowError, std::move(text));
    }
    case Form::TooLargeInteger:
        return refuseTooLarge<T>();
    case Form::Float:
        if constexpr (ElementTraits<T>::kIsComplex)
        {
            return judgeParts<T>(reading.m_real, 0);
        }
        else
        {
            return refuseFloat<T>();
        }
    case Form::Complex:
        if constexpr (ElementTraits<T>::kIsComplex)
        {
            return judgeParts<T>(reading.m_real, reading.m_imaginary);
        }
        else
        {
            return refuseComplex<T>();
        }
    case Form::NotANumber:
        break;
    }
    return refuseNonNumber<T>(reading.m_object);
}

} // namespace

PythonIntReading readPythonInt(PyObject* object)
{
    if (!PyLong_Check(object))
    {
        return {};
    }
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(object, &overflow);
    if (overflow != 0)
    {
        return {0, false, true};
    }
    return {value, true, false};
}

ScalarReading readScalar(PyObject* object)
{
    ScalarReading reading;
    if (PyFloat_Check(object))
    {
        reading.m_form = Form::Float;
        reading.m_real = PyFloat_AS_DOUBLE(object);
    }
    else if (const auto integer = readPythonInt(object); integer.m_hasValue || integer.m_isTooLarge)
    {
        reading.m_form = integer.m_hasValue ? Form::Integer : Form::TooLargeInteger;
        reading.m_integer = integer.m_value;
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

template <class T>
ScalarReading readElement(T element)
{
    ScalarReading reading;
    if constexpr (ElementTraits<T>::kIsComplex)
    {
        reading.m_form = Form::Complex;
        reading.m_real = static_cast<double>(element.real());
        reading.m_imaginary = static_cast<double>(element.imag());
    }
    else if constexpr (kIsFloating<T>)
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

template <class T>
ConvertedScalar<T> judgeScalar(const ScalarReading& reading, bool isConstructor)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return judgeLogical<T>(reading, isConstructor);
    }
    else if constexpr (kIsFloating<T>)
    {
        return judgeFloating<T>(reading);
    }
    else
    {
        return judgeInteger<T>(reading);
    }
}

template <class T>
std::optional<T> castIntToKind(std::int64_t value, std::string& text)
{
    return castToKind<T>(value, text);
}

template <class T>
std::optional<T> castFloatToKind(double value, std::string& text)
{
    return castToKind<T>(value, text);
}

#define VELLUM_INSTANTIATE(T)                                                                      \
    template ScalarReading readElement<T>(T);                                                      \
    template ConvertedScalar<T> judgeScalar<T>(const ScalarReading&, bool);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
