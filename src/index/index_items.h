/// Index arithmetic: the records that stand for one index of a view, made
/// canonical, expanded, composed and walked. No Python, no storage, no elements.
///
/// All numbers are positions or lengths in one dimension, in elements. A failure
/// is told as data (`IndexRefusal`); the caller raises it.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace vellum
{
/// The same type as Python's `Py_ssize_t`.
using Index = std::ptrdiff_t;

struct IndexRefusal
{
    enum class Category
    {
        Runtime,
        Value,
    };
    Category m_category = Category::Runtime;
    std::string m_text;
};

/// One fixed index.
struct IntegerIndexItem
{
    Index m_index = 0; ///< 0 or above once normalized
    bool m_isNormalized = false;

    /// Brings a possibly negative index into 0 to `len` - 1.
    bool normalize(Index len, IndexRefusal& refusal);
};

/// A range of indices. An item in a view is normalized and has all members: it
/// selects those of `range(m_start, m_stop, m_step)`, `m_slice_len` of them.
struct SliceIndexItem
{
    std::optional<Index> m_start;
    std::optional<Index> m_stop; ///< with a negative step, -1 or below means below index 0
    std::optional<Index> m_step; ///< never 0 once normalized
    std::optional<Index> m_slice_len;
    bool m_isNormalized = false;

    /// Fills absent members and clamps the start. Safe to run twice. Without a
    /// text in `refusal` it refuses a negative `len` and nothing else.
    bool normalize(Index len, IndexRefusal& refusal);

    /// The selected indices in order. `len` is used in the refusal alone.
    std::vector<Index> getIntegerIndexValues(Index len, bool& success, IndexRefusal& refusal) const;

    /// The selected index at `position`, 0 to `m_slice_len` - 1, without
    /// expanding the item; saturates where exact arithmetic leaves the type.
    Index valueAt(Index position) const;
};

using IndexItem = std::variant<IntegerIndexItem, SliceIndexItem>;

/// `item` indexes what `slice` selects: it becomes the index in the dimension.
bool indexIntoSlice(const SliceIndexItem& slice, IntegerIndexItem& item, IndexRefusal& refusal);

/// `item` slices what `slice` selects: it becomes the slice of the dimension
/// that stands for both. Members that don't fit saturate without changing what
/// is selected.
bool composeWithSlice(const SliceIndexItem& slice, SliceIndexItem& item, IndexRefusal& refusal);

/// The first selected index that is no position in a dimension of length `len`;
/// nothing if all fit.
std::optional<Index> firstOutside(const IndexItem& item, Index len);

/// The index vector at which a walk over `count` dimensions starts.
std::vector<Index> firstIndices(const std::vector<IndexItem>& items, std::size_t count);

/// Whether `indices` lies inside what `items` select of `shape`.
bool indexIsInView(const std::vector<Index>& indices, const std::vector<Index>& shape,
                   const std::vector<IndexItem>& items);

/// One step of a walk over what `items` select of `shape`, last dimension
/// fastest. True if `indices` moved on; false if the walk is over.
bool advanceIndices(std::vector<Index>& indices, const std::vector<Index>& shape,
                    const std::vector<IndexItem>& items);

/// Diagnostic text, one field a line.
std::ostream& operator<<(std::ostream& stream, const IntegerIndexItem& item);
std::ostream& operator<<(std::ostream& stream, const SliceIndexItem& item);

} // namespace vellum
