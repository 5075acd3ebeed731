#include "service/shape.h"

#include "service/failure.h"

#include <algorithm>
#include <limits>

namespace vellum::data::service
{
namespace
{
std::size_t checkedProduct(std::size_t a, std::size_t b)
{
    require(b == 0 || a <= std::numeric_limits<std::size_t>::max() / b, Status::TooManyElements);
    return a * b;
}

std::size_t countElements(const std::vector<std::size_t>& dimensions)
{
    const bool hasElements = !dimensions.empty() &&
                             std::find(dimensions.begin(), dimensions.end(), 0) == dimensions.end();
    std::size_t count = hasElements ? 1 : 0;
    for (const std::size_t extent : dimensions)
    {
        count = checkedProduct(count, extent);
    }
    return count;
}
} // namespace

Shape::Shape(const std::size_t* dims, std::size_t dimCount)
{
    if (dimCount != 0)
    {
        requireArguments(dims);
        m_dimensions.assign(dims, dims + dimCount);
    }
    m_elementCount = countElements(m_dimensions);
}

std::size_t byteCount(std::size_t elementCount, std::size_t width)
{
    return checkedProduct(elementCount, width);
}
} // namespace vellum::data::service
