#include "service/array.h"

#include <cstring>
#include <utility>

namespace vellum::data::impl
{
ArrayImpl::ArrayImpl(ArrayTypeCode type, service::Shape shape, service::Buffer elements)
    : m_type(type), m_width(service::elementWidth(type)), m_shape(std::move(shape)),
      m_elements(std::move(elements))
{
}

std::byte* ArrayImpl::address(std::size_t elementNumber) const noexcept
{
    return static_cast<std::byte*>(m_elements.get()) + elementNumber * m_width;
}

std::unique_ptr<ArrayImpl> ArrayImpl::copy() const
{
    if (m_elements == nullptr)
    {
        return std::make_unique<ArrayImpl>();
    }
    return std::make_unique<ArrayImpl>(m_type, m_shape, copyElements());
}

service::Buffer ArrayImpl::copyElements() const
{
    const std::size_t bytes = service::byteCount(m_shape.elementCount(), m_width);
    service::Buffer elements = service::allocateBuffer(bytes);
    if (bytes != 0)
    {
        std::memcpy(elements.get(), m_elements.get(), bytes);
    }
    return elements;
}

service::Buffer ArrayImpl::takeElements()
{
    if (m_elements == nullptr)
    {
        return copyElements();
    }
    return std::exchange(*this, ArrayImpl()).m_elements;
}
} // namespace vellum::data::impl
