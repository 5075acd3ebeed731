#include "construction/column_major.h"

#include "base/element_width.h"

#include <algorithm>
#include <cstring>

namespace vellum
{
namespace
{
template <std::size_t width>
void reorder(const char* values, const Dimensions& dims, char* storage)
{
    std::vector<std::uint64_t> rowStrides(dims.size(), width);
    for (std::size_t k = dims.size() - 1; k > 0; --k)
    {
        rowStrides[k - 1] = rowStrides[k] * dims[k];
    }
    std::vector<std::uint64_t> counters(dims.size(), 0);
    const char* columnStart = values;
    const std::uint64_t length = dims[0];
    const std::uint64_t stride = rowStrides[0];
    while (true)
    {
        const char* element = columnStart;
        for (std::uint64_t i = 0; i < length; ++i)
        {
            std::memcpy(storage, element, width);
            storage += width;
            element += stride;
        }
        std::size_t k = 1;
        for (; k < dims.size(); ++k)
        {
            columnStart += rowStrides[k];
            if (++counters[k] < dims[k])
            {
                break;
            }
            columnStart -= rowStrides[k] * dims[k];
            counters[k] = 0;
        }
        if (k == dims.size())
        {
            return;
        }
    }
}
} // namespace

void reorderToColumnMajor(const char* values, const Dimensions& dims, std::size_t width,
                          char* storage)
{
    // Dimensions of length 1 don't order anything, and there can be very many.
    Dimensions longer(dims);
    longer.erase(std::remove(longer.begin() + 1, longer.end(), 1), longer.end());
    visitElementWidth(width, [&](auto constant) { reorder<constant>(values, longer, storage); });
}

} // namespace vellum
