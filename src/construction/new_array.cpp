#include "construction/new_array.h"

#include "construction/column_major.h"

#include <cstring>

namespace vellum
{
NewArray::NewArray(const ElementType& type, std::uint64_t count, AllocationRequest& request)
    : m_type(type.m_type)
{
    request.m_count = count;
    m_buffer = m_factory.createBuffer(m_type, count);
    if (m_buffer.get() == nullptr)
    {
        throw AllocationError(request);
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
