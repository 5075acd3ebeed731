#include "index/index_items.h"

#include <gtest/gtest.h>
#include <limits>
#include <vector>

using namespace vellum;

namespace
{
constexpr Index kMost = std::numeric_limits<Index>::max();
constexpr Index kLeast = std::numeric_limits<Index>::min();
constexpr Index kHalf = kMost / 2 + 1;

Index at(const SliceIndexItem& slice, Index k)
{
    return slice.m_start + k * slice.m_step;
}

/// All slices of a dimension of length `len`; an empty one can start beside it.
std::vector<SliceIndexItem> slicesOf(Index len)
{
    std::vector<SliceIndexItem> slices;
    for (const Index step : {-4, -3, -2, -1, 1, 2, 3, 4})
    {
        for (Index start = -1; start <= len; ++start)
        {
            slices.push_back({start, step, 0});
            for (Index last = start; last >= 0 && last < len; last += step)
                slices.push_back({start, step, slices.back().m_slice_len + 1});
        }
    }
    return slices;
}

TEST(Slice, ComposedSelectsWhatTheKeySelectsOfIt)
{
    for (const SliceIndexItem& slice : slicesOf(6))
    {
        for (const SliceIndexItem& key : slicesOf(slice.m_slice_len))
        {
            const SliceIndexItem composed = composeWithSlice(slice, key);
            for (Index k = 0; k < key.m_slice_len; ++k)
                ASSERT_EQ(indexIntoSlice(composed, k), at(slice, at(key, k)));
            for (const Index outside : {kLeast, Index(-1), key.m_slice_len, kMost})
                ASSERT_EQ(indexIntoSlice(composed, outside), std::nullopt);
        }
    }
}

TEST(Slice, ComposedSaturatesAndStaysWithinTheLengthOfTheFirst)
{
    const auto fields = [](const SliceIndexItem& item) {
        return std::vector<Index>{item.m_start, item.m_step, item.m_slice_len};
    };
    const SliceIndexItem cases[][3] = {
        {{0, kHalf, 2}, {1, kHalf, 1}, {kHalf, kMost, 1}},
        {{9, kHalf, 2}, {0, -kHalf, 1}, {9, kLeast, 1}},
        // Keys that were read against a longer dimension.
        {{3, 1, 2}, {4, -1, 5}, {4, -1, 2}},
        {{3, -2, 0}, {0, 5, 1}, {3, -2, 0}},
    };
    for (const auto& [slice, key, expected] : cases)
        EXPECT_EQ(fields(composeWithSlice(slice, key)), fields(expected));
}

TEST(Slice, NamesItsFirstPositionOutsideADimension)
{
    for (SliceIndexItem slice : slicesOf(12))
    {
        slice.m_start -= 4; // to both sides of a shorter dimension
        std::optional<Index> outside;
        for (Index k = 0; k < slice.m_slice_len && !outside; ++k)
            outside = firstOutside(at(slice, k), 5);
        EXPECT_EQ(firstOutside(slice, 5), outside);
    }
    EXPECT_EQ(firstOutside(SliceIndexItem{5, kLeast, 3}, kMost), 5 + kLeast);
    EXPECT_EQ(firstOutside(SliceIndexItem{5, kMost, 3}, kMost), kMost);
}
} // namespace
