#include "construction/buffer_input.h"

#include "interpreter/buffer_export.h"
#include "storage/array_object.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace vellum
{
namespace
{
[[noreturn]] void refuse(const std::string& text)
{
    raise(PyExc_BufferError, text);
}

[[noreturn]] void refuseUneven()
{
    refuse("input does not fit evenly into output type.");
}

/// "l" and "L" stand for the 32-bit or the 64-bit kind, as the platform that
/// wrote them has it.
bool formatMatches(char format, char expected, Py_ssize_t itemsize)
{
    switch (format)
    {
    case 'L':
        return expected == (itemsize == 4 ? 'I' : 'Q');
    case 'l':
        return expected == (itemsize == 4 ? 'i' : 'q');
    default:
        return format == expected;
    }
}

void checkFormat(const Py_buffer& buffer, const ElementType& type)
{
    if (buffer.format == nullptr || buffer.format[0] == '\0')
    {
        refuse("input 'format' field is null.");
    }
    const std::string format = buffer.format;
    if (type.m_isComplex && format[0] != 'Z')
    {
        refuse("input buffer format ('" + format +
               "') does not begin with 'Z', but output type is complex");
    }
    const char code = buffer.format[type.m_isComplex ? 1 : 0];
    const char expected = type.kind().m_arrayCode;
    if (!formatMatches(code, expected, buffer.itemsize))
    {
        refuse("input buffer format ('" + format + "') is not compatible with output format ('" +
               (type.m_isComplex ? "Z" : "") + expected +
               "'); use a different input or output type");
    }
}

/// The lengths as the exporter gives them; none if it gives none where none are
/// needed.
Dimensions readLengths(const Py_buffer& buffer)
{
    if (buffer.ndim < 0 || buffer.ndim > PyBUF_MAX_NDIM)
    {
        refuseUneven();
    }
    if (buffer.shape == nullptr && buffer.ndim > 1)
    {
        refuse("shape is null.");
    }
    Dimensions lengths;
    for (int k = 0; buffer.shape != nullptr && k < buffer.ndim; ++k)
    {
        if (buffer.shape[k] < 0)
        {
            refuseUneven();
        }
        lengths.push_back(static_cast<std::uint64_t>(buffer.shape[k]));
    }
    return lengths;
}

/// Whether items of that size and that number make up the bytes of the export.
bool agreesWithLength(const Py_buffer& buffer, const Dimensions& lengths)
{
    if (buffer.itemsize <= 0)
    {
        return false;
    }
    if (buffer.ndim == 1 && lengths.empty())
    {
        return true;
    }
    const auto items = checkedProduct(lengths);
    const auto size =
        items ? checkedMultiply(*items, static_cast<std::uint64_t>(buffer.itemsize)) : std::nullopt;
    return size == static_cast<std::uint64_t>(buffer.len);
}

/// Takes the dimensions of an export of `count` elements, after a test of all that
/// it says of them.
void takeDimensions(MDArrayBuilder& builder, const Py_buffer& buffer, std::uint64_t count)
{
    Dimensions lengths = readLengths(buffer);
    if (!agreesWithLength(buffer, lengths))
    {
        refuseUneven();
    }
    if (buffer.ndim == 1)
    {
        lengths = {count}; // an item can be larger or smaller than an element
    }
    else if (buffer.ndim > 1 && buffer.strides == nullptr)
    {
        refuse("strides or itemsize of input buffer are missing.");
    }
    else if (checkedProduct(lengths) != count)
    {
        refuseUneven();
    }
    // The request made it contiguous in one order or the other. The first stride
    // alone doesn't tell which: that of a dimension of length 1 can be anything.
    builder.m_isColumnMajor = buffer.ndim > 1 && PyBuffer_IsContiguous(&buffer, 'F') != 0;
    builder.m_initializerDims = lengths.empty() ? Dimensions{1} : std::move(lengths);
}

void copyBytes(const Py_buffer& buffer, const ElementType& type, char* elements)
{
    const auto* bytes = static_cast<const unsigned char*>(buffer.buf);
    if (type.m_kind == SupportedArrayEnum::Logical)
    {
        std::transform(bytes, bytes + buffer.len, elements,
                       [](unsigned char byte) { return static_cast<char>(byte != 0); });
    }
    else if (buffer.len != 0)
    {
        std::memcpy(elements, bytes, static_cast<std::size_t>(buffer.len));
    }
}

/// Exporters can be wrong about their memory: nothing is reserved or read before
/// all that they say has been held against each other.
void copyBufferToValues(MDArrayBuilder& builder, const Py_buffer& buffer)
{
    checkFormat(buffer, builder.m_type);
    const auto width = static_cast<Py_ssize_t>(builder.m_type.m_width);
    if (buffer.len < 0 || buffer.len % width != 0 || (buffer.len != 0 && buffer.buf == nullptr))
    {
        refuseUneven();
    }
    const auto count = static_cast<std::size_t>(buffer.len / width);
    takeDimensions(builder, buffer, count);
    builder.reserveValues(count);
    copyBytes(buffer, builder.m_type, builder.appendElements(count));
}

/// Subclasses included: numpy's `float64` is a `float` that exports a buffer.
bool isNumber(PyObject* value)
{
    return PyLong_Check(value) || PyFloat_Check(value) || PyComplex_Check(value);
}

} // namespace

bool isBufferInput(PyObject* value)
{
    const PyBufferProcs* procs = Py_TYPE(value)->tp_as_buffer;
    const bool isExporter = procs != nullptr && procs->bf_getbuffer != nullptr;
    return isExporter && !isArrayObject(value) && !isNumber(value);
}

void readBufferInitializer(MDArrayBuilder& builder, PyObject* value)
{
    const BufferExport exported(value, PyBUF_FORMAT | PyBUF_ANY_CONTIGUOUS);
    if (!exported.isHeld())
    {
        replaceError(PyExc_BufferError, "unable to retrieve buffer.");
    }
    copyBufferToValues(builder, exported.get());
}

} // namespace vellum
