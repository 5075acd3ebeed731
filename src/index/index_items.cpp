#include "index/index_items.h"

#include <algorithm>
#include <limits>

namespace vellum
{
namespace
{
constexpr Index kMost = std::numeric_limits<Index>::max();
constexpr Index kLeast = std::numeric_limits<Index>::min();

Index saturatedAdd(Index left, Index right)
{
    Index sum = 0;
    return __builtin_add_overflow(left, right, &sum) ? (right < 0 ? kLeast : kMost) : sum;
}

Index saturatedMultiply(Index left, Index right)
{
    Index product = 0;
    return __builtin_mul_overflow(left, right, &product)
               ? ((left < 0) == (right < 0) ? kMost : kLeast)
               : product;
}
} // namespace

Index SliceIndexItem::valueAt(Index position) const
{
    return saturatedAdd(m_start, saturatedMultiply(position, m_step));
}

std::optional<Index> normalizeIndex(Index index, Index len)
{
    const Index position = index < 0 ? index + len : index;
    return firstOutside(position, len) ? std::nullopt : std::optional(position);
}

std::optional<Index> indexIntoSlice(const SliceIndexItem& slice, Index position)
{
    return firstOutside(position, slice.m_slice_len) ? std::nullopt
                                                     : std::optional(slice.valueAt(position));
}

SliceIndexItem composeWithSlice(const SliceIndexItem& slice, const SliceIndexItem& item)
{
    if (slice.m_slice_len == 0)
    {
        return slice;
    }
    return {slice.valueAt(std::min(item.m_start, slice.m_slice_len - 1)),
            saturatedMultiply(item.m_step, slice.m_step),
            std::min(item.m_slice_len, slice.m_slice_len)};
}

std::optional<Index> firstOutside(const SliceIndexItem& slice, Index len)
{
    if (slice.m_slice_len == 0)
    {
        return std::nullopt;
    }
    const Index first = slice.valueAt(0);
    if (firstOutside(first, len))
    {
        return first;
    }
    if (!firstOutside(slice.valueAt(slice.m_slice_len - 1), len))
    {
        return std::nullopt;
    }
    // The first is a position and the last isn't: the range leaves the dimension
    // once, at the first multiple of the step behind its edge.
    const Index step = slice.m_step;
    const Index toEdge = step > 0 ? len - 1 - first : first;
    const Index stride = step > 0 ? step : (step == kLeast ? kMost : -step);
    return slice.valueAt(toEdge / stride + 1);
}

std::optional<Index> firstOutside(Index index, Index len)
{
    return index < 0 || index >= len ? std::optional(index) : std::nullopt;
}

} // namespace vellum
