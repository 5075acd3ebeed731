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

/// The range of one position of a walk. A step of 0 stands for a fixed index.
struct WalkRange
{
    Index m_first;
    Index m_bound;
    Index m_step;
};

WalkRange walkRange(std::size_t position, const std::vector<Index>& shape,
                    const std::vector<IndexItem>& items)
{
    if (position >= items.size())
    {
        return {0, position < shape.size() ? shape[position] : 0, 1};
    }
    if (const auto* integer = std::get_if<IntegerIndexItem>(&items[position]))
    {
        return {integer->m_index, saturatedAdd(integer->m_index, 1), 0};
    }
    const auto& slice = std::get<SliceIndexItem>(items[position]);
    return {slice.m_start.value_or(0), slice.m_stop.value_or(0), slice.m_step.value_or(1)};
}

void makeEmpty(SliceIndexItem& item)
{
    item = {0, 0, 1, 0, true};
}

void writeOptional(std::ostream& stream, const char* label, const std::optional<Index>& value)
{
    stream << label << ": ";
    if (value)
    {
        stream << *value << '\n';
    }
    else
    {
        stream << "None\n";
    }
}
} // namespace

bool IntegerIndexItem::normalize(Index len, IndexRefusal& refusal)
{
    if (len < 0)
    {
        refusal.m_text = "len is invalid (" + std::to_string(len) + "); must be nonnegative.";
        return false;
    }
    if (m_index >= len)
    {
        refusal.m_text = "index is too large: (" + std::to_string(m_index) +
                         "; maximum: " + std::to_string(len - 1) + ").";
        return false;
    }
    if (m_index < 0 && m_index + len < 0)
    {
        refusal.m_text = "index is too small: (" + std::to_string(m_index) + "; minimum: -" +
                         std::to_string(len) + ").";
        return false;
    }
    if (m_index < 0)
    {
        m_index += len;
    }
    m_isNormalized = true;
    return true;
}

bool SliceIndexItem::normalize(Index len, IndexRefusal& refusal)
{
    if (len < 0)
    {
        return false;
    }
    if (m_start == m_stop || m_slice_len == Index(0))
    {
        makeEmpty(*this);
        return true;
    }
    Index start = std::min(m_start.value_or(0), len - 1);
    if (start < 0)
    {
        start = std::max<Index>(saturatedAdd(start, len), 0);
    }
    m_start = start;
    m_stop = m_stop.value_or(len);
    m_step = m_step.value_or(1);
    if (*m_step == 0)
    {
        refusal = {IndexRefusal::Category::Value, "slice step cannot be zero."};
        return false;
    }
    if (!m_slice_len)
    {
        const Index distance = saturatedAdd(*m_stop, -start);
        // The least of all distances has no negative.
        m_slice_len = *m_step == -1 ? saturatedMultiply(distance, -1) : distance / *m_step;
    }
    m_isNormalized = true;
    return true;
}

std::vector<Index> SliceIndexItem::getIntegerIndexValues(Index len, bool& success,
                                                         IndexRefusal& refusal) const
{
    success = m_isNormalized;
    std::vector<Index> values;
    if (!success)
    {
        refusal = {IndexRefusal::Category::Runtime,
                   "getIntegerIndexValues(" + std::to_string(len) +
                       ", &success) was called before the slice item was normalized."};
        return values;
    }
    const Index stop = m_stop.value_or(0);
    const Index step = m_step.value_or(1);
    for (Index value = m_start.value_or(0); step >= 1 ? value < stop : value > stop;)
    {
        values.push_back(value);
        if (__builtin_add_overflow(value, step, &value))
        {
            break;
        }
    }
    return values;
}

Index SliceIndexItem::valueAt(Index position) const
{
    return saturatedAdd(m_start.value_or(0), saturatedMultiply(position, m_step.value_or(1)));
}

bool indexIntoSlice(const SliceIndexItem& slice, IntegerIndexItem& item, IndexRefusal& refusal)
{
    if (item.m_index < 0 || item.m_index >= slice.m_slice_len.value_or(0))
    {
        refusal = {IndexRefusal::Category::Runtime, "unable to index into slice."};
        return false;
    }
    item = {slice.valueAt(item.m_index), false};
    return true;
}

bool composeWithSlice(const SliceIndexItem& slice, SliceIndexItem& item, IndexRefusal& refusal)
{
    const Index selected = slice.m_slice_len.value_or(0);
    if (!item.normalize(selected, refusal))
    {
        return false;
    }
    if (selected == 0)
    {
        item = slice;
        return true;
    }
    const Index step = saturatedMultiply(*item.m_step, slice.m_step.value_or(1));
    const Index start = slice.valueAt(*item.m_start);
    const Index length = std::min(*item.m_slice_len, selected);
    item = {start, saturatedAdd(saturatedMultiply(length, step), start), step, length, true};
    return true;
}

std::optional<Index> firstOutside(const IndexItem& item, Index len)
{
    const auto outside = [len](Index index) { return index < 0 || index >= len; };
    if (const auto* integer = std::get_if<IntegerIndexItem>(&item))
    {
        return outside(integer->m_index) ? std::optional(integer->m_index) : std::nullopt;
    }
    const auto& slice = std::get<SliceIndexItem>(item);
    const Index count = slice.m_slice_len.value_or(0);
    if (count == 0 || (!outside(slice.valueAt(0)) && !outside(slice.valueAt(count - 1))))
    {
        return std::nullopt;
    }
    if (outside(slice.valueAt(0)))
    {
        return slice.valueAt(0);
    }
    // The first is a position and the last isn't: the walk leaves the dimension
    // once, at the first multiple of the step behind its edge.
    const Index step = slice.m_step.value_or(1);
    const Index room = step > 0 ? len - 1 - slice.valueAt(0) : slice.valueAt(0);
    const Index stride = step > 0 ? step : (step == kLeast ? kMost : -step);
    return slice.valueAt(room / stride + 1);
}

std::vector<Index> firstIndices(const std::vector<IndexItem>& items, std::size_t count)
{
    std::vector<Index> indices(count, 0);
    const std::vector<Index> noShape;
    for (std::size_t k = 0; k < count && k < items.size(); ++k)
    {
        indices[k] = walkRange(k, noShape, items).m_first;
    }
    return indices;
}

bool indexIsInView(const std::vector<Index>& indices, const std::vector<Index>& shape,
                   const std::vector<IndexItem>& items)
{
    for (std::size_t k = 0; k < indices.size(); ++k)
    {
        const auto range = walkRange(k, shape, items);
        const Index length = k < shape.size() ? shape[k] : 0;
        const Index index = indices[k] < 0 ? indices[k] + length : indices[k];
        const Index first = range.m_first < 0 ? range.m_first + length : range.m_first;
        if (range.m_step < 0)
        {
            if (index > first)
            {
                return false;
            }
            if (range.m_bound < 0)
            {
                return true;
            }
            if (index <= range.m_bound)
            {
                return false;
            }
            continue;
        }
        const Index bound = range.m_bound < 0 ? range.m_bound + length : range.m_bound;
        if (index < first || index >= bound)
        {
            return false;
        }
    }
    return true;
}

bool advanceIndices(std::vector<Index>& indices, const std::vector<Index>& shape,
                    const std::vector<IndexItem>& items)
{
    for (std::size_t position = indices.size(); position-- > 0;)
    {
        const auto range = walkRange(position, shape, items);
        const Index current = indices[position];
        const bool isDown = range.m_step < 0;
        if (isDown ? (current > range.m_first || current <= range.m_bound)
                   : (current < range.m_first || current >= range.m_bound))
        {
            return false;
        }
        const Index next = saturatedAdd(current, range.m_step);
        if (isDown ? next > range.m_bound : (range.m_step > 0 && next < range.m_bound))
        {
            indices[position] = next;
            for (std::size_t behind = position + 1; behind < indices.size(); ++behind)
            {
                indices[behind] = walkRange(behind, shape, items).m_first;
            }
            return true;
        }
        if (position == 0 || range.m_step == 0)
        {
            return false;
        }
    }
    return true; // no dimensions: nothing to move, nothing used up
}

std::ostream& operator<<(std::ostream& stream, const IntegerIndexItem& item)
{
    return stream << "m_index: " << item.m_index << "\nm_isNormalized: " << item.m_isNormalized
                  << '\n';
}

std::ostream& operator<<(std::ostream& stream, const SliceIndexItem& item)
{
    writeOptional(stream, "m_start", item.m_start);
    writeOptional(stream, "m_stop", item.m_stop);
    writeOptional(stream, "m_step", item.m_step);
    writeOptional(stream, "m_slice_len", item.m_slice_len);
    return stream << "m_isNormalized: " << item.m_isNormalized << '\n';
}

} // namespace vellum
