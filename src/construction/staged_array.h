/// From staged elements to an array of the service.
#pragma once

#include "construction/array_builder.h"
#include "construction/column_major.h"
#include "dataclient/array_factory.h"

#include <algorithm>

namespace vellum
{
/// A buffer of the service for `count` elements, told to `request` first. A null
/// buffer is a failed allocation too.
template <class T>
data::Buffer<T> createElementBuffer(std::uint64_t count, AllocationRequest& request)
{
    request.m_count = count;
    auto buffer = data::ArrayFactory().createBuffer<T>(count);
    if (buffer.get() == nullptr)
    {
        throw AllocationError(request);
    }
    return buffer;
}

/// The array adopts the buffer, whose elements stand in storage order.
template <class T>
data::TypedArray<T> adoptElementBuffer(const Dimensions& dims, data::Buffer<T> buffer)
{
    return data::ArrayFactory().createArrayFromBuffer<T>(
        std::vector<std::size_t>(dims.begin(), dims.end()), std::move(buffer),
        data::MemoryLayout::ColumnMajor);
}

/// An array of shape `dims` of the elements that the builder has staged, brought
/// from reading order into storage order where they don't stand in it already.
/// The product of `dims` is the number of staged elements.
template <class T>
data::TypedArray<T> createFromStaged(MDArrayBuilder<T>& builder, const Dimensions& dims)
{
    const std::vector<T>& values = builder.m_values;
    auto buffer = createElementBuffer<T>(values.size(), builder.m_request);
    if (values.size() < 2 || builder.m_isColumnMajor)
    {
        std::copy(values.begin(), values.end(), buffer.get());
    }
    else
    {
        reorderToColumnMajor(values, dims, buffer.get());
    }
    return adoptElementBuffer<T>(dims, std::move(buffer));
}

} // namespace vellum
