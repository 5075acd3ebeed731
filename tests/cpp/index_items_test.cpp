#include "index/index_items.h"

#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vector>

using namespace vellum;
using Positions = std::vector<Index>;

namespace
{
constexpr Index kMost = std::numeric_limits<Index>::max();
constexpr Index kLeast = std::numeric_limits<Index>::min();
constexpr Index kHalf = kMost / 2 + 1;

/// A slice, and the positions that it selects, counted out one by one.
using Range = std::pair<SliceIndexItem, Positions>;

/// All ranges of a dimension of length `len`; an empty one can start beside it.
std::vector<Range> rangesOf(Index len)
{
    std::vector<Range> ranges;
    for (const Index step : {-3, -2, -1, 1, 2, 3})
    {
        for (Index start = -1; start <= len; ++start)
        {
            ranges.push_back({{start, step, 0}, {}});
            Positions positions;
            for (Index at = start; at >= 0 && at < len; at += step)
            {
                positions.push_back(at);
                ranges.push_back({{start, step, std::ssize(positions)}, positions});
            }
        }
    }
    return ranges;
}

/// `slice` selects `positions`; so does every composition with a range of it, and
/// with a range of that, `depth` times over.
void expectSelects(const SliceIndexItem& slice, const Positions& positions, int depth)
{
    const Index count = std::ssize(positions);
    ASSERT_EQ(slice.m_slice_len, count);
    for (Index k = 0; k < count; ++k)
        ASSERT_EQ(indexIntoSlice(slice, k), positions[static_cast<std::size_t>(k)]);
    for (const Index outside : {kLeast, Index(-1), count, kMost})
        ASSERT_EQ(indexIntoSlice(slice, outside), std::nullopt);
    for (const auto& [key, chosen] : depth > 0 ? rangesOf(count) : std::vector<Range>())
    {
        Positions selected;
        for (const Index k : chosen)
            selected.push_back(positions[static_cast<std::size_t>(k)]);
        const SliceIndexItem composed = composeWithSlice(slice, key);
        ASSERT_NO_FATAL_FAILURE(expectSelects(composed, selected, depth - 1));
    }
}

TEST(Slice, ComposedSelectsWhatTheKeySelectsOfIt)
{
    for (Index len = 0; len <= 6; ++len)
    {
        for (const auto& [slice, positions] : rangesOf(len))
            ASSERT_NO_FATAL_FAILURE(expectSelects(slice, positions, len <= 3 ? 2 : 1));
    }
}

TEST(Slice, ComposedSaturatesAndStaysWithinTheLengthOfTheFirst)
{
    const SliceIndexItem cases[][3] = {
        {{0, kHalf, 2}, {1, kHalf, 1}, {kHalf, kMost, 1}},
        {{9, kHalf, 2}, {0, -kHalf, 1}, {9, kLeast, 1}},
        {{kHalf + 9, -kHalf, 2}, {1, -1, 2}, {9, kHalf, 2}},
        // Keys that were read against a longer dimension.
        {{3, 1, 2}, {1, 1, 4}, {4, 1, 2}},
        {{3, 1, 2}, {4, -1, 5}, {4, -1, 2}},
        {{3, -2, 0}, {0, 5, 1}, {3, -2, 0}},
    };
    for (const auto& [slice, key, expected] : cases)
    {
        const SliceIndexItem composed = composeWithSlice(slice, key);
        EXPECT_EQ(composed.m_start, expected.m_start);
        EXPECT_EQ(composed.m_step, expected.m_step);
        EXPECT_EQ(composed.m_slice_len, expected.m_slice_len);
    }
}

TEST(Slice, NamesItsFirstPositionOutsideADimension)
{
    for (Index start = -2; start <= 8; ++start)
    {
        for (const Index step : {-4, -3, -2, -1, 1, 2, 3, 4})
        {
            for (const Index len : {0, 1, 2, 3, 5, 8})
            {
                std::optional<Index> outside;
                for (Index count = 0; count <= 4; ++count)
                {
                    ASSERT_EQ(firstOutside(SliceIndexItem{start, step, count}, len), outside);
                    const Index next = start + count * step;
                    if (!outside && (next < 0 || next >= len))
                        outside = next;
                }
            }
        }
    }
    EXPECT_EQ(firstOutside(SliceIndexItem{5, kLeast, 3}, kMost), 5 + kLeast);
    EXPECT_EQ(firstOutside(SliceIndexItem{5, kMost, 3}, kMost), kMost);
}

TEST(Index, IsCountedFromEitherEndOfADimension)
{
    for (Index len = 0; len <= 4; ++len)
    {
        for (const Index outside : {kLeast, -len - 1, len, kMost})
            EXPECT_EQ(normalizeIndex(outside, len), std::nullopt);
        for (Index position = 0; position < len; ++position)
        {
            EXPECT_EQ(normalizeIndex(position, len), position);
            EXPECT_EQ(normalizeIndex(position - len, len), position);
        }
    }
}
} // namespace
