#include "construction/buffer_input.h"

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

/// Owns an export while it is read.
class BufferExport
{
public:
    explicit BufferExport(PyObject* exporter)
        : m_isHeld(PyObject_GetBuffer(exporter, &m_buffer, PyBUF_FORMAT | PyBUF_ANY_CONTIGUOUS) ==
                   0)
    {
    }
    BufferExport(const BufferExport&) = delete;
    BufferExport& operator=(const BufferExport&) = delete;
    ~BufferExport()
    {
        if (m_isHeld)
        {
            PyBuffer_Release(&m_buffer);
        }
    }
    bool isHeld() const { return m_isHeld; }
    const Py_buffer& get() const { return m_buffer; }

private:
    Py_buffer m_buffer{};
    bool m_isHeld;
};

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

/// The shape as the exporter gives it. False if it breaks the protocol.
template <class T>
bool readShape(MDArrayBuilder<T>& builder, const Py_buffer& buffer, std::uint64_t count)
{
    if (buffer.ndim < 2)
    {
        // Counted, not taken from the shape. No dimensions: a scalar.
        builder.m_initializerDims.push_back(buffer.ndim == 0 ? 1 : count);
    }
    else
    {
        if (buffer.shape == nullptr)
        {
            return fail("shape is null.");
        }
        if (buffer.strides == nullptr || buffer.itemsize <= 0)
        {
            return fail("strides or itemsize of input buffer are missing.");
        }
        for (int k = 0; k < buffer.ndim; ++k)
        {
            if (buffer.shape[k] < 0)
            {
                return fail(kUneven);
            }
            builder.m_initializerDims.push_back(static_cast<std::uint64_t>(buffer.shape[k]));
        }
        // The request made it contiguous in one order or the other. The first stride
        // alone doesn't tell which: that of a dimension of length 1 can be anything.
        builder.m_isColumnMajor = PyBuffer_IsContiguous(&buffer, 'F') != 0;
    }
    return checkedProduct(builder.m_initializerDims) == count || fail(kUneven);
}

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
    if (!builder.reserveValues(count))
    {
        return false;
    }
    stageBytes(builder, buffer, count);
    return readShape(builder, buffer, count);
}

} // namespace

bool takesBufferRoad(PyObject* value)
{
    const PyBufferProcs* procs = Py_TYPE(value)->tp_as_buffer;
    return procs != nullptr && procs->bf_getbuffer != nullptr && !isArrayObject(value);
}

template <class T>
bool readBufferInitializer(MDArrayBuilder<T>& builder, PyObject* value)
{
    const BufferExport exported(value);
    if (!exported.isHeld())
    {
        return fail("unable to retrieve buffer.");
    }
    return copyBufferToValues(builder, exported.get());
}

#define VELLUM_INSTANTIATE(T) template bool readBufferInitializer<T>(MDArrayBuilder<T>&, PyObject*);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
