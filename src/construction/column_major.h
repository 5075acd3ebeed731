/// From reading order, last dimension fastest, to storage order, first dimension
/// fastest.
#pragma once

#include "construction/array_builder.h"

namespace vellum
{
/// Writes the elements of `values`, which stand in reading order, to `storage`
/// in storage order. `dims` has at least one entry, and its product is the
/// number of elements, at least 1.
template <class T>
void reorderToColumnMajor(const std::vector<T>& values, const Dimensions& dims, T* storage)
{
    std::vector<std::uint64_t> rowStrides(dims.size(), 1);
    for (std::size_t k = dims.size() - 1; k > 0; --k)
    {
        rowStrides[k - 1] = rowStrides[k] * dims[k];
    }
    std::vector<std::uint64_t> counters(dims.size(), 0);
    std::uint64_t columnStart = 0;
    while (true)
    {
        std::uint64_t offset = columnStart;
        for (std::uint64_t i = 0; i < dims[0]; ++i)
        {
            *storage++ = values[offset];
            offset += rowStrides[0];
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

} // namespace vellum
