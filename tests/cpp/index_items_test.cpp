#include "index/index_items.h"

#include <gtest/gtest.h>
#include <limits>
#include <tuple>

using namespace vellum;
using testing::PrintToString;
using Indices = std::vector<Index>;

namespace
{
constexpr Index kMost = std::numeric_limits<Index>::max();
constexpr Index kLeast = std::numeric_limits<Index>::min();
constexpr Index kHalf = kMost / 2 + 1;
constexpr std::nullopt_t none = std::nullopt;
IndexRefusal g_refusal; // of the last operation that refused

/// What a range selects, by definition.
Indices rangeOf(const SliceIndexItem& item)
{
    Indices values;
    const Index stop = *item.m_stop, step = *item.m_step;
    for (Index value = *item.m_start; step > 0 ? value < stop : value > stop; value += step)
        values.push_back(value);
    return values;
}

/// All slices of a dimension of length `len`, as Python's are once they have
/// been adjusted to it.
std::vector<SliceIndexItem> slicesOf(Index len)
{
    std::vector<SliceIndexItem> slices;
    for (const Index step : {-3, -2, -1, 1, 2, 3})
    {
        for (Index point = 0; point < (len + 1) * (len + 1); ++point)
        {
            const Index first = step < 0 ? -1 : 0;
            const Index start = first + point / (len + 1), stop = first + point % (len + 1);
            slices.push_back({start, stop, step, 0, false});
            slices.back().m_slice_len = static_cast<Index>(rangeOf(slices.back()).size());
        }
    }
    return slices;
}

TEST(IndexItem, NormalizesOrSaysWhyNot)
{
    const std::tuple<Index, Index, const char*> integers[] = {
        {3, 2, ""},
        {3, -3, ""},
        {kMost, -kMost, ""},
        {-1, 0, "len is invalid (-1); must be nonnegative."},
        {3, 3, "index is too large: (3; maximum: 2)."},
        {0, -1, "index is too small: (-1; minimum: -0)."}};
    for (const auto& [len, index, words] : integers)
    {
        IntegerIndexItem item = {index, false};
        g_refusal.m_text.clear();
        EXPECT_EQ(item.normalize(len, g_refusal), *words == 0);
        EXPECT_EQ(g_refusal.m_text, words);
        EXPECT_EQ(item.m_index, item.m_isNormalized && index < 0 ? index + len : index);
    }
    const std::tuple<Index, SliceIndexItem, SliceIndexItem> slices[] = {
        {3, {}, {0, 0, 1, 0, true}},
        {3, {2, 2, -1, 4, false}, {0, 0, 1, 0, true}},
        {9, {none, 4, -2, none, false}, {0, 4, -2, -2, true}},
        {0, {9, none, none, 4, false}, {0, 0, 1, 4, true}},
        {4, {-9, 99, 3, none, false}, {0, 99, 3, 33, true}}, // the stop isn't clamped
        {4, {0, kLeast, -1, none, false}, {0, kLeast, -1, kMost, true}}};
    for (const auto& [len, given, normalized] : slices)
    {
        SliceIndexItem item = given;
        EXPECT_TRUE(item.normalize(len, g_refusal));
        EXPECT_EQ(PrintToString(item), PrintToString(normalized));
    }
    EXPECT_FALSE((SliceIndexItem{1, 2, 1, 1, false}.normalize(-1, g_refusal)));
    EXPECT_FALSE((SliceIndexItem{1, 2, 0, 1, false}.normalize(3, g_refusal)));
    EXPECT_EQ(g_refusal.m_text, "slice step cannot be zero.");
    bool success = true;
    SliceIndexItem{0, 3, 1, 3, false}.getIntegerIndexValues(3, success, g_refusal);
    EXPECT_FALSE(success); // not normalized
}

/// Every operation on `slice`, which selects `values`; then the same for every
/// key on it, `depth` times over.
void expectSelects(const SliceIndexItem& slice, const Indices& values, int depth)
{
    bool success = false;
    const auto count = static_cast<Index>(values.size());
    ASSERT_EQ(slice.getIntegerIndexValues(0, success, g_refusal), values) << slice;
    ASSERT_TRUE(success && slice.m_isNormalized && slice.m_slice_len == count);
    for (Index position = -1; position <= count; ++position)
    {
        IntegerIndexItem item = {position, true};
        const bool isInside = position >= 0 && position < count;
        ASSERT_EQ(indexIntoSlice(slice, item, g_refusal), isInside);
        ASSERT_EQ(item.m_index, isInside ? values[static_cast<std::size_t>(position)] : position);
    }
    for (const Index len : Indices{0, 1, 2, 4, 5, kHalf, kMost})
    {
        std::optional<Index> outside;
        for (const Index value : values)
        {
            if (!outside && (value < 0 || value >= len))
                outside = value;
        }
        ASSERT_EQ(firstOutside(slice, len), outside);
    }
    for (SliceIndexItem key : depth > 0 ? slicesOf(count) : std::vector<SliceIndexItem>())
    {
        Indices selected;
        for (const Index position : rangeOf(key))
            selected.push_back(values[static_cast<std::size_t>(position)]);
        ASSERT_TRUE(composeWithSlice(slice, key, g_refusal));
        ASSERT_NO_FATAL_FAILURE(expectSelects(key, selected, depth - 1)) << slice;
    }
}

TEST(Composition, SelectsWhatTheKeySelectsOfTheSliceAndSaturates)
{
    for (Index len = 0; len <= 6; ++len)
    {
        for (SliceIndexItem slice : slicesOf(len))
        {
            const Indices values = rangeOf(slice);
            ASSERT_TRUE(slice.normalize(len, g_refusal) && slice.normalize(len, g_refusal));
            ASSERT_NO_FATAL_FAILURE(expectSelects(slice, values, len <= 3 ? 2 : 1));
        }
    }

    // slice, key, what they compose to; two keys were judged against a longer
    // dimension than what the slice selects
    const SliceIndexItem cases[][3] = {
        {{0, 10, 2, 5, true}, {1, 3, 1, 2, true}, {2, 6, 2, 2, true}},
        {{1, 4, 1, 3, true}, {2, 2, 1, 0, true}, {1, 1, 1, 0, true}},
        {{3, 3, -2, 0, true}, {0, 5, 5, 1, true}, {3, 3, -2, 0, true}},
        {{3, 5, 1, 2, true}, {1, 5, 1, 4, true}, {4, 6, 1, 2, true}},
        {{3, 5, 1, 2, true}, {4, -1, -1, 5, true}, {4, 2, -1, 2, true}},
        {{0, kMost, kHalf, 2, true}, {1, 2, kHalf, 1, true}, {kHalf, kMost, kMost, 1, true}},
        {{kHalf + 9, -1, -kHalf, 2, true}, {1, -1, -1, 2, true}, {9, kMost, kHalf, 2, true}}};
    for (const auto& [slice, key, composed] : cases)
    {
        SliceIndexItem item = key;
        EXPECT_TRUE(composeWithSlice(slice, item, g_refusal));
        EXPECT_EQ(PrintToString(item), PrintToString(composed));
    }
    expectSelects(cases[6][2], {9, kHalf + 9}, 0);
}
} // namespace
