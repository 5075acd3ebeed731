/// From elements to an array of the service.
#pragma once

#include "construction/array_builder.h"
#include "dataclient/array_factory.h"

namespace vellum
{
/// A buffer of the service that is being filled, and then the array that adopts it.
class NewArray
{
public:
    /// Memory for `count` elements, not cleared, told to `request` first. A null
    /// buffer is a failed allocation too.
    NewArray(const ElementType& type, std::uint64_t count, AllocationRequest& request);

    /// Where the elements go, in storage order.
    char* elements() const { return static_cast<char*>(m_buffer.get()); }

    /// The product of `dims` is the number of elements.
    template <class Dims>
    data::Array adopt(const Dims& dims)
    {
        return m_factory.createArrayFromBuffer(m_type, {dims.begin(), dims.end()},
                                               std::move(m_buffer));
    }

private:
    AllocationRequest& m_request;
    data::ArrayFactory m_factory;
    ArrayType m_type;
    data::Buffer m_buffer;
};

/// An array of shape `dims` of the elements that the builder has read, brought from
/// reading order into storage order where they don't stand in it already. The
/// product of `dims` is the number of elements.
data::Array createFromValues(MDArrayBuilder& builder, const Dimensions& dims);

} // namespace vellum
