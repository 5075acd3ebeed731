/// The dimensions of an array, with their product.
#pragma once

#include <cstddef>
#include <vector>

namespace vellum::data::service
{
class Shape
{
public:
    /// No dimensions and no elements.
    Shape() = default;

    /// Copies the dimensions. A product beyond 64 bits is too many elements; a
    /// dimension of 0 makes the product 0 whatever the others are.
    Shape(const std::size_t* dims, std::size_t dimCount);

    const std::vector<std::size_t>& dimensions() const noexcept { return m_dimensions; }
    std::size_t elementCount() const noexcept { return m_elementCount; }

private:
    std::vector<std::size_t> m_dimensions;
    std::size_t m_elementCount = 0;
};

/// Bytes of that many elements; beyond 64 bits they are too many elements.
std::size_t byteCount(std::size_t elementCount, std::size_t width);
} // namespace vellum::data::service
