/// The array object: a type, a shape and dense column-major elements.
#pragma once

#include "service/buffer.h"
#include "service/element_type.h"
#include "service/service_interface.h"
#include "service/shape.h"

#include <cstddef>
#include <memory>

namespace vellum::data::impl
{
class ArrayImpl
{
public:
    /// An array without content.
    ArrayImpl() noexcept = default;

    /// Takes over the elements: at least as many as the shape has, column-major.
    ArrayImpl(ArrayTypeCode type, service::Shape shape, service::Buffer elements);

    ArrayTypeCode type() const noexcept { return m_type; }
    const service::Shape& shape() const noexcept { return m_shape; }

    /// The address of the element at this position in memory order; the count
    /// of elements gives the address behind the last. Null without content.
    std::byte* address(std::size_t elementNumber) const noexcept;

    std::unique_ptr<ArrayImpl> copy() const;

    service::Buffer copyElements() const;

    /// Gives the elements away without copying and is an array without content
    /// from then on.
    service::Buffer takeElements();

private:
    ArrayTypeCode m_type = service::kNoElementType;
    std::size_t m_width = 0;
    service::Shape m_shape;
    service::Buffer m_elements; // null only without content
};
} // namespace vellum::data::impl
