#include "construction/buffer_input.h"

#include "interpreter/buffer_export.h"
#include "module/array_object.h"

#include <cstring>

namespace vellum
{
namespace
{
constexpr const char* kUneven = "input does not fit evenly into output type.";

bool fail(const std::string& text)
{
    raise(PyExc_BufferError, text);
    return false;
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
        return false;
    }
}

template <class T>
bool checkFormat(const Py_buffer& buffer)
{
    constexpr bool isComplex = ElementTraits<T>::kIsComplex;
    constexpr const KindInfo& kind = kKindInfoOf<T>;
    if (buffer.format == nullptr || buffer.format[0] == '\0')
    {
        return fail("input 'format' field is null.");
    }
    const std::string format = buffer.format;
    if (isComplex && format[0] != 'Z')
    {
        return fail("input buffer format ('" + format +
                    "') does not begin with 'Z', but output type is complex");
    }
    const char code = buffer.format[isComplex ? 1 : 0];
    if (code != kind.m_arrayCode && !formatMatches(code, kind.m_arrayCode, buffer.itemsize))
    {
        const std::string output{kind.m_arrayCode};
        return fail("input buffer format ('" + format +
                    "') is not compatible with output format ('" + (isComplex ? "Z" : "") + output +
                    "'); use a different input or output type");
    }
    return true;
}

template <class T>
void stageBytes(MDArrayBuilder<T>& builder, const Py_buffer& buffer, std::size_t count)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        const auto* bytes = static_cast<const unsigned char*>(buffer.buf);
        for (std::size_t i = 0; i < count; ++i)
        {
            builder.m_values.push_back(bytes[i] != 0);
        }
    }
    else
    {
        builder.m_values.resize(count);
        if (count != 0)
        {
            std::memcpy(static_cast<void*>(builder.m_values.data()), buffer.buf, count * sizeof(T));
        }
    }
}

/// The lengths as the exporter gives them; none if it gives none where none are
/// needed.
bool readLengths(const Py_buffer& buffer, Dimensions& lengths)
{
    if (buffer.ndim < 0 || buffer.ndim > PyBUF_MAX_NDIM)
    {
        return fail(kUneven);
    }
    if (buffer.shape == nullptr)
    {
        return buffer.ndim < 2 || fail("shape is null.");
    }
    for (int k = 0; k < buffer.ndim; ++k)
    {
        if (buffer.shape[k] < 0)
        {
            return fail(kUneven);
        }
        lengths.push_back(static_cast<std::uint64_t>(buffer.shape[k]));
    }
    return true;
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
bool takeDimensions(BuilderDimensions& builder, const Py_buffer& buffer, std::uint64_t count)
{
    Dimensions lengths;
    if (!readLengths(buffer, lengths))
    {
        return false;
    }
    if (!agreesWithLength(buffer, lengths))
    {
        return fail(kUneven);
    }
    if (buffer.ndim == 1)
    {
        lengths = {count}; // an item can be larger or smaller than an element
    }
    else if (buffer.ndim > 1 && buffer.strides == nullptr)
    {
        return fail("strides or itemsize of input buffer are missing.");
    }
    else if (checkedProduct(lengths) != count)
    {
        return fail(kUneven);
    }
    // The request made it contiguous in one order or the other. The first stride
    // alone doesn't tell which: that of a dimension of length 1 can be anything.
    builder.m_isColumnMajor = buffer.ndim > 1 && PyBuffer_IsContiguous(&buffer, 'F') != 0;
    builder.m_initializerDims = lengths.empty() ? Dimensions{1} : std::move(lengths);
    return true;
}

/// Exporters can be wrong about their memory: nothing is reserved or read before
/// all that they say has been held against each other.
template <class T>
bool copyBufferToValues(MDArrayBuilder<T>& builder, const Py_buffer& buffer)
{
    if (!checkFormat<T>(buffer))
    {
        return false;
    }
    constexpr auto width = static_cast<Py_ssize_t>(sizeof(T));
    if (buffer.len < 0 || buffer.len % width != 0 || (buffer.len != 0 && buffer.buf == nullptr))
    {
        return fail(kUneven);
    }
    const auto count = static_cast<std::size_t>(buffer.len / width);
    if (!takeDimensions(builder, buffer, count) || !builder.reserveValues(count))
    {
        return false;
    }
    stageBytes(builder, buffer, count);
    return true;
}

/// Subclasses included: numpy's `float64` is a `float` that exports a buffer.
bool isNumber(PyObject* value)
{
    return PyLong_Check(value) || PyFloat_Check(value) || PyComplex_Check(value);
}

} // namespace

bool takesBufferRoad(PyObject* value)
{
    const PyBufferProcs* procs = Py_TYPE(value)->tp_as_buffer;
    const bool isExporter = procs != nullptr && procs->bf_getbuffer != nullptr;
    return isExporter && !isArrayObject(value) && !isNumber(value);
}

template <class T>
bool readBufferInitializer(MDArrayBuilder<T>& builder, PyObject* value)
{
    const BufferExport exported(value, PyBUF_FORMAT | PyBUF_ANY_CONTIGUOUS);
    if (!exported.isHeld())
    {
        replaceError(PyExc_BufferError, "unable to retrieve buffer.");
        return false;
    }
    return copyBufferToValues(builder, exported.get());
}

#define VELLUM_INSTANTIATE(T) template bool readBufferInitializer<T>(MDArrayBuilder<T>&, PyObject*);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
