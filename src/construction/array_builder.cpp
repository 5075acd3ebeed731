#include "construction/array_builder.h"

#include <algorithm>

namespace vellum
{
bool ElementBuffer::reserve(std::uint64_t count)
{
    if (count <= m_capacity)
    {
        return true;
    }
    const auto byteCount = checkedMultiply(count, m_width);
    char* grown = byteCount && toSigned(*byteCount)
                      ? static_cast<char*>(std::realloc(m_elements.get(), *byteCount))
                      : nullptr;
    if (grown == nullptr)
    {
        return false;
    }
    static_cast<void>(m_elements.release());
    m_elements.reset(grown);
    m_capacity = count;
    return true;
}

bool ElementBuffer::grow(std::size_t count)
{
    return reserve(m_count + std::max(count, m_count / 2 + 8));
}

void MDArrayBuilder::storeSizeDims(Dimensions dims)
{
    m_sizeDims = std::move(dims);
    reserveValues(getNumElems());
}

void MDArrayBuilder::reserveValues(std::uint64_t count)
{
    if (m_isReserved)
    {
        return;
    }
    m_request.m_count = count;
    if (!m_values.reserve(count))
    {
        throw AllocationError(m_request);
    }
    m_isReserved = true;
}

} // namespace vellum
