#include "indexing/index_items.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <tuple>

using namespace vellum;
using Indices = std::vector<Index>;
using Items = std::vector<IndexItem>;

namespace
{
constexpr Index kMost = std::numeric_limits<Index>::max();
constexpr Index kLeast = std::numeric_limits<Index>::min();
constexpr Index kHalf = kMost / 2 + 1;
constexpr std::nullopt_t none = std::nullopt;
const SliceIndexItem kEmpty = {0, 0, 1, 0, true};

template <class Item>
std::string text(const Item& item)
{
    std::ostringstream stream;
    stream << item;
    return stream.str();
}

/// What a range selects, by definition.
Indices rangeOf(Index start, Index stop, Index step)
{
    Indices values;
    for (; step > 0 ? start < stop : start > stop; start += step)
        values.push_back(start);
    return values;
}
Indices rangeOf(const SliceIndexItem& item)
{
    return rangeOf(*item.m_start, *item.m_stop, *item.m_step);
}

/// All slices of a dimension of length `len`, as Python's are once they have
/// been adjusted to it.
std::vector<SliceIndexItem> slicesOf(Index len)
{
    std::vector<SliceIndexItem> slices;
    for (const Index step : {-3, -2, -1, 1, 2, 3})
    {
        const Index first = step < 0 ? -1 : 0;
        for (Index point = 0; point < (len + 1) * (len + 1); ++point)
        {
            const Index start = first + point / (len + 1);
            const Index stop = first + point % (len + 1);
            const std::size_t count = rangeOf(start, stop, step).size();
            slices.push_back({start, stop, step, static_cast<Index>(count), false});
        }
    }
    return slices;
}

TEST(IntegerIndexItem, NormalizesLikeAPythonIndex)
{
    for (const Index len : {Index(0), Index(1), Index(3), kMost})
    {
        for (const Index index : {kLeast, -kMost, Index(-4), Index(-3), Index(-2), Index(-1),
                                  Index(0), Index(1), Index(2), Index(3), kMost - 1, kMost})
        {
            const bool isInside = index < len && index >= -len;
            IntegerIndexItem item = {index, false};
            IndexRefusal refusal;
            EXPECT_EQ(item.normalize(len, refusal), isInside) << index << ' ' << len;
            EXPECT_EQ(item.m_index, isInside && index < 0 ? index + len : index);
            EXPECT_EQ(item.m_isNormalized, isInside);
        }
    }
    const std::tuple<Index, Index, const char*> refused[] = {
        {-1, 0, "len is invalid (-1); must be nonnegative."},
        {3, 3, "index is too large: (3; maximum: 2)."},
        {0, 0, "index is too large: (0; maximum: -1)."},
        {3, -4, "index is too small: (-4; minimum: -3)."},
        {0, -1, "index is too small: (-1; minimum: -0)."}};
    for (const auto& [len, index, words] : refused)
    {
        IndexRefusal refusal;
        EXPECT_FALSE((IntegerIndexItem{index, false}.normalize(len, refusal)));
        EXPECT_EQ(refusal.m_text, words);
    }
}

TEST(SliceIndexItem, FillsAbsentMembersAndClampsTheStart)
{
    const std::tuple<Index, SliceIndexItem, SliceIndexItem> cases[] = {
        {3, {}, kEmpty},
        {3, {2, 2, -1, 4, false}, kEmpty},
        {3, {2, 1, 0, 0, false}, kEmpty},
        {4, {1, none, none, none, false}, {1, 4, 1, 3, true}},
        {9, {none, 4, -2, none, false}, {0, 4, -2, -2, true}},
        {4, {9, 0, -2, none, false}, {3, 0, -2, 1, true}},
        {0, {9, 99, none, none, false}, {0, 99, 1, 99, true}}, // the stop isn't clamped
        {4, {-1, 0, -1, none, false}, {3, 0, -1, 3, true}},
        {4, {-9, 2, 3, none, false}, {0, 2, 3, 0, true}},
        {kMost, {kLeast, kMost, 1, none, false}, {0, kMost, 1, kMost, true}},
        {4, {0, kLeast, -1, none, false}, {0, kLeast, -1, kMost, true}}};
    for (const auto& [len, given, normalized] : cases)
    {
        SliceIndexItem item = given;
        IndexRefusal refusal;
        EXPECT_TRUE(item.normalize(len, refusal));
        EXPECT_EQ(text(item), text(normalized));
    }
    EXPECT_EQ(text(SliceIndexItem{-1, none, 2, 0, false}),
              "m_start: -1\nm_stop: None\nm_step: 2\nm_slice_len: 0\nm_isNormalized: 0\n");
    EXPECT_EQ(text(IntegerIndexItem{-1, true}), "m_index: -1\nm_isNormalized: 1\n");
}

TEST(SliceIndexItem, RefusesInItsWords)
{
    IndexRefusal refusal;
    EXPECT_FALSE((SliceIndexItem{1, 2, 1, 1, false}.normalize(-1, refusal)));
    EXPECT_EQ(refusal.m_text, "");
    EXPECT_FALSE((SliceIndexItem{1, 2, 0, 1, false}.normalize(3, refusal)));
    EXPECT_EQ(refusal.m_category, IndexRefusal::Category::Value);
    EXPECT_EQ(refusal.m_text, "slice step cannot be zero.");
    bool success = true;
    EXPECT_TRUE(
        (SliceIndexItem{0, 3, 1, 3, false}.getIntegerIndexValues(-7, success, refusal).empty()));
    EXPECT_FALSE(success);
    EXPECT_EQ(refusal.m_category, IndexRefusal::Category::Runtime);
    EXPECT_EQ(refusal.m_text, "getIntegerIndexValues(-7, &success) was called before the slice "
                              "item was normalized.");
}

/// What all operations on a slice that selects `values` have to say.
void expectSelects(const SliceIndexItem& slice, const Indices& values)
{
    bool success = false;
    IndexRefusal refusal;
    ASSERT_EQ(slice.getIntegerIndexValues(0, success, refusal), values) << slice;
    const auto count = static_cast<Index>(values.size());
    ASSERT_TRUE(success && slice.m_isNormalized && slice.m_slice_len == count);
    for (Index position = -1; position <= count; ++position)
    {
        IntegerIndexItem item = {position, true};
        const bool isInside = position >= 0 && position < count;
        refusal.m_text.clear();
        ASSERT_EQ(indexIntoSlice(slice, item, refusal), isInside);
        ASSERT_EQ(item.m_index, isInside ? values[static_cast<std::size_t>(position)] : position);
        ASSERT_EQ(item.m_isNormalized, !isInside);
        ASSERT_EQ(refusal.m_text, isInside ? "" : "unable to index into slice.");
    }
    for (const Index len : {Index(0), Index(1), Index(2), Index(4), Index(5), kHalf, kMost})
    {
        const auto outside = std::find_if(values.begin(), values.end(),
                                          [=](Index value) { return value < 0 || value >= len; });
        ASSERT_EQ(firstOutside(slice, len),
                  outside == values.end() ? none : std::optional(*outside));
    }
}

/// `key` stands for `positions` in what `slice` selects, which are `values`: it
/// becomes the slice of the dimension. The result is what it selects there.
void expectComposes(const SliceIndexItem& slice, const Indices& values, SliceIndexItem& key,
                    const Indices& positions, Indices& selected)
{
    for (const Index position : positions)
        selected.push_back(values[static_cast<std::size_t>(position)]);
    IndexRefusal refusal;
    ASSERT_TRUE(composeWithSlice(slice, key, refusal));
    ASSERT_NO_FATAL_FAILURE(expectSelects(key, selected)) << slice;
}

/// Every key on what `slice` selects, then every key on what that selects.
void expectComposesWithEveryKey(const SliceIndexItem& slice, const Indices& values, int depth)
{
    const auto keys = slicesOf(static_cast<Index>(values.size()));
    for (std::size_t k = 0; depth > 0 && k < keys.size(); ++k)
    {
        Indices selected;
        SliceIndexItem key = keys[k];
        const Indices positions = rangeOf(key);
        ASSERT_NO_FATAL_FAILURE(expectComposes(slice, values, key, positions, selected));
        ASSERT_NO_FATAL_FAILURE(expectComposesWithEveryKey(key, selected, depth - 1));
    }
}

TEST(Composition, SelectsWhatTheKeySelectsOfTheSlice)
{
    for (Index len = 0; len <= 6; ++len)
    {
        for (SliceIndexItem slice : slicesOf(len))
        {
            const Indices values = rangeOf(slice);
            SliceIndexItem expected = values.empty() ? kEmpty : slice;
            expected.m_isNormalized = true;
            IndexRefusal refusal;
            ASSERT_TRUE(slice.normalize(len, refusal) && slice.normalize(len, refusal));
            ASSERT_EQ(text(slice), text(expected));
            ASSERT_NO_FATAL_FAILURE(expectSelects(slice, values));
            ASSERT_NO_FATAL_FAILURE(expectComposesWithEveryKey(slice, values, len <= 3 ? 2 : 1));
        }
    }
}

TEST(Composition, KeepsTheMembersOfExactArithmetic)
{
    // slice, key, what they compose to; the last ones have keys that were judged
    // against a longer dimension than what the slice selects
    const SliceIndexItem cases[][3] = {
        {{0, 10, 2, 5, true}, {1, 3, 1, 2, true}, {2, 6, 2, 2, true}},
        {{4, -1, -1, 5, true}, {4, -1, -1, 5, true}, {0, 5, 1, 5, true}},
        {{5, 1, -2, 2, true}, {1, 2, 1, 1, true}, {3, 1, -2, 1, true}},
        {{1, 4, 1, 3, true}, {2, 2, 1, 0, true}, {1, 1, 1, 0, true}},
        {{3, 3, -2, 0, true}, {0, 5, 5, 1, true}, {3, 3, -2, 0, true}},
        {{3, 5, 1, 2, true}, {1, 5, 1, 4, true}, {4, 6, 1, 2, true}},
        {{3, 5, 1, 2, true}, {4, -1, -1, 5, true}, {4, 2, -1, 2, true}},
        {{0, kMost, kHalf, 2, true}, {0, kMost, 2, kHalf, true}, {0, kMost, kMost, 2, true}}};
    for (const auto& [slice, key, composed] : cases)
    {
        SliceIndexItem item = key;
        IndexRefusal refusal;
        EXPECT_TRUE(composeWithSlice(slice, item, refusal));
        EXPECT_EQ(text(item), text(composed));
    }
    EXPECT_EQ(firstOutside(cases[5][2], 5), 5);
    EXPECT_EQ(firstOutside(cases[7][2], kMost), kMost);
    EXPECT_EQ(firstOutside(IntegerIndexItem{3, true}, 4), none);
    EXPECT_EQ(firstOutside(IntegerIndexItem{3, true}, 3), 3);
    EXPECT_EQ(firstOutside(IntegerIndexItem{-1, true}, 3), -1);
}

__extension__ using Wide = __int128; // in which nothing below overflows

/// Up to three indices below `bound` from `start` on, and their slice.
Indices farApart(Index start, Index step, Index bound, SliceIndexItem& slice)
{
    Indices values;
    Wide next = start;
    for (; values.size() < 3 && next >= 0 && next < bound; next += step)
        values.push_back(static_cast<Index>(next));
    const auto stop = static_cast<Index>(std::clamp<Wide>(next, kLeast, kMost));
    slice = {start, stop, step, static_cast<Index>(values.size()), true};
    return values;
}

TEST(Composition, SaturatesWithoutChangingTheSelection)
{
    Indices steps = {1, 2, kHalf - 2, kHalf - 1, kHalf, kHalf + 1, kMost - 1, kMost};
    for (std::size_t k = 0; k < 8; ++k)
        steps.push_back(-steps[k]);
    for (const Index start : {Index(0), Index(3), kHalf - 1, kHalf, kHalf + 1, kMost - 1})
    {
        // The remainders of 3 and 16 and the quotient of 48 are every combination.
        for (std::size_t k = 0; k < 3 * steps.size() * steps.size(); ++k)
        {
            SliceIndexItem slice;
            SliceIndexItem key;
            Indices selected;
            const Indices values = farApart(start, steps[k % steps.size()], kMost, slice);
            const Index first = static_cast<Index>(k) % 3 % *slice.m_slice_len;
            const Index keyStep = steps[k / 3 / steps.size()];
            const Indices positions = farApart(first, keyStep, *slice.m_slice_len, key);
            ASSERT_NO_FATAL_FAILURE(expectComposes(slice, values, key, positions, selected));
        }
    }
}

/// All index vectors with the given values in each dimension, the last fastest.
std::vector<Indices> product(const std::vector<Indices>& values)
{
    std::vector<Indices> vectors = {{}};
    for (const Indices& dimension : values)
    {
        std::vector<Indices> longer;
        for (std::size_t k = 0; k < vectors.size() * dimension.size(); ++k)
        {
            longer.push_back(vectors[k / dimension.size()]);
            longer.back().push_back(dimension[k % dimension.size()]);
        }
        vectors = longer;
    }
    return vectors;
}

TEST(Walk, VisitsTheSelectionInListOrder)
{
    const Indices shape = {3, 4, 2};
    const std::vector<Indices> all = {{0, 1, 2}, {0, 1, 2, 3}, {0, 1}};
    std::vector<Indices> values = all;
    Items items;
    const auto expectWalks = [&](const std::vector<Indices>& unitSteps) {
        const auto selection = product(values);
        std::vector<Indices> walked;
        Indices indices = firstIndices(items, shape.size());
        for (bool moved = !selection.empty(); moved && walked.size() <= selection.size();)
        {
            walked.push_back(indices);
            moved = advanceIndices(indices, shape, items);
        }
        ASSERT_EQ(walked, selection);
        const auto inView = product(unitSteps); // a step leaves nothing out here
        for (const Indices& any : product(all))
        {
            const auto times = std::count(inView.begin(), inView.end(), any);
            ASSERT_EQ(indexIsInView(any, shape, items), times != 0);
        }
    };
    for (std::size_t k = 0; k < shape.size(); ++k)
    {
        ASSERT_NO_FATAL_FAILURE(expectWalks(values));
        for (SliceIndexItem slice : slicesOf(shape[k]))
        {
            IndexRefusal refusal;
            slice.normalize(shape[k], refusal);
            items.emplace_back(slice);
            auto unitSteps = values;
            values[k] = rangeOf(slice);
            unitSteps[k] = rangeOf(*slice.m_start, *slice.m_stop, *slice.m_step < 0 ? -1 : 1);
            ASSERT_NO_FATAL_FAILURE(expectWalks(unitSteps));
            items.pop_back();
        }
        items.emplace_back(IntegerIndexItem{1, true});
        values[k] = {1};
    }
}

TEST(Walk, JudgesPositionsOutsideTheShape)
{
    const auto slice = [](Index start, Index stop, Index step) {
        return Items{SliceIndexItem{start, stop, step, 1, true}};
    };
    const std::tuple<Indices, Items, bool> cases[] = {
        {{-1, -4}, {}, true},
        {{-6}, {}, false},
        {{5}, {}, false},
        {{3}, {IntegerIndexItem{-2, false}}, true},
        {{3, 99}, slice(4, -1, -1), true}, // nothing is looked at behind such a stop
        {{3, 99}, slice(4, 0, -1), false},
        {{3}, slice(-2, -1, 1), true},
        {{2}, slice(-2, -1, 1), false},
        {{4}, slice(-2, -1, 1), false},
        {{4}, slice(-2, 0, -1), false}};
    for (const auto& [indices, items, isInView] : cases)
    {
        EXPECT_EQ(indexIsInView(indices, {5, 4}, items), isInView) << indices.front();
    }
    const std::pair<Indices, Items> over[] = {{{0, 4}, {}},
                                              {{0, -1}, {}},
                                              {{1}, slice(2, 5, 1)},
                                              {{4}, slice(3, 0, -1)},
                                              {{kHalf}, slice(kHalf, kMost, kHalf)}};
    for (const auto& [indices, items] : over)
    {
        Indices moved = indices;
        EXPECT_FALSE(advanceIndices(moved, {5, 4}, items));
        EXPECT_EQ(moved, indices);
    }
    Indices nothing;
    EXPECT_TRUE(advanceIndices(nothing, {}, {}) && indexIsInView(nothing, {5, 4}, {}));
}
} // namespace
