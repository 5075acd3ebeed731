/// Iterators and references: both point straight into an array's elements, own
/// nothing, and are good for as long as the array lives unchanged.
#pragma once

#include "service/array.h"
#include "service/service_interface.h"

#include <cstddef>

namespace vellum::data::service
{
struct Position
{
    ArrayTypeCode m_type;
    std::byte* m_address;
    bool m_hasElement; ///< false behind the last element

    Position(const impl::ArrayImpl& array, std::size_t elementNumber) noexcept
        : m_type(array.type()), m_address(array.address(elementNumber)),
          m_hasElement(elementNumber < array.shape().elementCount())
    {
    }
};
} // namespace vellum::data::service

namespace vellum::data::detail
{
class IteratorImpl
{
public:
    explicit IteratorImpl(const service::Position& position) noexcept : m_position(position) {}
    const service::Position& position() const noexcept { return m_position; }

private:
    service::Position m_position;
};

class ReferenceImpl
{
public:
    explicit ReferenceImpl(const service::Position& position) noexcept : m_position(position) {}
    const service::Position& position() const noexcept { return m_position; }

private:
    service::Position m_position;
};
} // namespace vellum::data::detail
