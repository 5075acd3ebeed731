#include "construction/new_array.h"

#include "construction/column_major.h"

#include <cstring>

namespace vellum
{
namespace
{
AllocationRequest& told(AllocationRequest& request, std::uint64_t count)
{
    request.m_count = count;
    return request;
}
} // namespace

NewArray::NewArray(const ElementType& type, std::uint64_t count, AllocationRequest& request)
    : m_request(told(request, count)), m_type(type.m_type)
{
    m_buffer = m_factory.createBuffer(m_type, count);
    if (m_buffer.get() == nullptr)
    {
        throw AllocationError(m_request);
    }
}

data::Array createFromValues(MDArrayBuilder& builder, const Dimensions& dims)
{
    const ElementBuffer& values = builder.m_values;
    NewArray array(builder.m_type, values.count(), builder.m_request);
    if (values.count() >= 2 && !builder.m_isColumnMajor)
    {
        reorderToColumnMajor(values.data(), dims, values.width(), array.elements());
    }
    else if (values.count() != 0)
    {
        std::memcpy(array.elements(), values.data(), values.count() * values.width());
    }
    return array.adopt(dims);
}

} // namespace vellum
