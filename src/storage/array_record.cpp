#include "storage/array_record.h"

#include "base/allocation.h"
#include "base/checked_size.h"
#include "dataclient/array_factory.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <utility>

namespace vellum
{
namespace
{
/// `value`, or the failure of an array that can't be represented.
template <class T>
T orUnallocatable(std::optional<T> value, const AllocationRequest& request)
{
    if (!value)
    {
        throw AllocationError(request);
    }
    return std::move(*value);
}

/// The block, not filled. A record without elements has one of zeros, large
/// enough for an element: a buffer without dimensions counts as one, whatever its length
/// says, and only native code makes such arrays.
char* allocateBlock(std::size_t byteCount, std::size_t width, const AllocationRequest& request)
{
    void* block = byteCount != 0 ? std::malloc(byteCount) : std::calloc(1, width);
    if (block == nullptr)
    {
        throw AllocationError(request);
    }
    return static_cast<char*>(block);
}
} // namespace

std::optional<Layout> denseLayout(std::vector<Py_ssize_t> shape, std::size_t width)
{
    std::vector<Py_ssize_t> strides(shape.size(), 0);
    auto stride = static_cast<Py_ssize_t>(width);
    for (std::size_t k = 0; k < shape.size(); ++k)
    {
        strides[k] = stride;
        const bool isLast = k + 1 == shape.size();
        if (!isLast && __builtin_mul_overflow(stride, shape[k], &stride))
        {
            return std::nullopt;
        }
    }
    return Layout{std::move(shape), std::move(strides)};
}

MDArrayWrapper::MDArrayWrapper(data::Array array, const ElementType& type)
    : m_array(std::move(array), type), m_type(type)
{
    readArray();
}

void MDArrayWrapper::readArray()
{
    const data::Array& array = m_array.array();
    const std::size_t count = array.getNumberOfElements();
    const AllocationRequest request{m_type.shortName(), count};
    m_numElems = orUnallocatable(toSigned(count), request);
    m_bufferSizeInBytes = orUnallocatable(
        toSigned(checkedMultiply(m_type.m_width, count).value_or(kUnrepresentable)), request);
    std::vector<Py_ssize_t> shape;
    for (const std::size_t dim : array.getDimensions())
    {
        shape.push_back(orUnallocatable(toSigned(dim), request));
    }
    if (shape.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    {
        throw AllocationError(request);
    }
    // Without dimensions, which only native code can make, a service may count no
    // element or one.
    const bool isCounted =
        shape.empty() ? count <= 1 : checkedProduct(shape) == std::uint64_t(count);
    if (!isCounted)
    {
        throw std::runtime_error("array dimensions do not match its number of elements.");
    }
    m_layout = orUnallocatable(denseLayout(std::move(shape), m_type.m_width), request);

    const auto byteCount = static_cast<std::size_t>(m_bufferSizeInBytes);
    m_buf.reset(allocateBlock(byteCount, m_type.m_width, request));
    const data::Buffer elements = m_array.copyElements();
    if (byteCount == 0)
    {
        return;
    }
    if (elements.get() == nullptr)
    {
        throw std::runtime_error("null data pointer.");
    }
    std::memcpy(m_buf.get(), elements.get(), byteCount);
}

data::TypedArray& MDArrayWrapper::array()
{
    if (m_array.array().isEmpty())
    {
        m_array = arrayFromBlock();
    }
    return m_array;
}

data::TypedArray MDArrayWrapper::arrayFromBlock() const
{
    data::ArrayFactory factory;
    data::Buffer elements =
        factory.createBuffer(m_type.m_type, static_cast<std::size_t>(m_numElems));
    if (elements.get() == nullptr)
    {
        throw AllocationError({m_type.shortName(), static_cast<std::uint64_t>(m_numElems)});
    }
    std::memcpy(elements.get(), m_buf.get(), static_cast<std::size_t>(m_bufferSizeInBytes));
    const std::vector<std::size_t> dims(shape().begin(), shape().end());
    return {factory.createArrayFromBuffer(m_type.m_type, dims, std::move(elements)), m_type};
}

WritableElements MDArrayWrapper::writableElements()
{
    char* elements = array().writableElements();
    ++m_changes;
    return {elements, m_buf.get()};
}

void MDArrayWrapper::reshape(Layout layout)
{
    // Everything that can fail before the storage is handed over.
    keepLayoutForExports();
    const std::vector<std::size_t> dims(layout.m_shape.begin(), layout.m_shape.end());
    data::ArrayFactory factory;
    data::ArrayFactory::requireCreationFromBuffer();
    const bool wasSole = array().array().isSoleOwner();
    data::Buffer elements = m_array.release();
    try
    {
        m_array = {factory.createArrayFromBuffer(m_type.m_type, dims, std::move(elements)), m_type};
    }
    catch (...)
    {
        if (wasSole)
        {
            recoverArray();
        }
        throw;
    }
    if (m_isLayoutExported)
    {
        m_retired.push_back(std::exchange(m_layout, std::move(layout)));
        m_isLayoutExported = false;
    }
    else
    {
        m_layout = std::move(layout);
    }
    ++m_reshapes;
    ++m_changes;
}

/// The storage went with a failed creation. The block holds every value; if even
/// that can't be made an array now, the next operation that needs one tries again.
void MDArrayWrapper::recoverArray() noexcept
{
    m_array = data::TypedArray();
    try
    {
        m_array = arrayFromBlock();
    }
    catch (...)
    {
        return;
    }
}

/// Reserves memory for one more kept layout, so that keeping it can't fail.
void MDArrayWrapper::keepLayoutForExports()
{
    if (m_isLayoutExported && m_retired.size() == m_retired.capacity())
    {
        m_retired.reserve(std::max<std::size_t>(4, 2 * m_retired.size()));
    }
}

void MDArrayWrapper::addExport()
{
    ++m_exports;
    m_isLayoutExported = true;
}

void MDArrayWrapper::releaseExport()
{
    if (--m_exports == 0)
    {
        m_isLayoutExported = false;
        m_retired.clear();
    }
}

} // namespace vellum
