#include "service/layout.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace vellum::data::service
{
namespace
{
bool ordersAgree(const Shape& shape)
{
    const auto& dims = shape.dimensions();
    const auto extended =
        std::count_if(dims.begin(), dims.end(), [](std::size_t extent) { return extent > 1; });
    return shape.elementCount() == 0 || extended <= 1;
}

/// Steps through the indices with the first dimension fastest and keeps the
/// byte offset of the element in a row-major buffer.
class RowMajorOffset
{
public:
    RowMajorOffset(const std::vector<std::size_t>& dims, std::size_t width)
        : m_dims(dims), m_strides(dims.size()), m_index(dims.size(), 0)
    {
        for (std::size_t d = dims.size(), stride = width; d-- > 0; stride *= dims[d])
        {
            m_strides[d] = stride;
        }
    }

    std::size_t bytes() const noexcept { return m_bytes; }

    void advance() noexcept
    {
        for (std::size_t d = 0; d < m_dims.size(); ++d)
        {
            if (++m_index[d] < m_dims[d])
            {
                m_bytes += m_strides[d];
                return;
            }
            m_bytes -= m_strides[d] * (m_dims[d] - 1);
            m_index[d] = 0;
        }
    }

private:
    const std::vector<std::size_t>& m_dims;
    std::vector<std::size_t> m_strides;
    std::vector<std::size_t> m_index;
    std::size_t m_bytes = 0;
};
} // namespace

Buffer rowToColumnMajor(const Shape& shape, std::size_t width, Buffer rowMajor)
{
    if (ordersAgree(shape))
    {
        return rowMajor;
    }
    const std::size_t bytes = byteCount(shape.elementCount(), width);
    Buffer columnMajor = allocateBuffer(bytes);
    const auto* const source = static_cast<const std::byte*>(rowMajor.get());
    auto* const target = static_cast<std::byte*>(columnMajor.get());
    RowMajorOffset offset(shape.dimensions(), width);
    for (std::size_t written = 0; written < bytes; written += width)
    {
        std::memcpy(target + written, source + offset.bytes(), width);
        offset.advance();
    }
    return columnMajor;
}
} // namespace vellum::data::service
