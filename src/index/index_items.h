/// Index arithmetic: indices and slices of one dimension, made canonical and
/// composed. All numbers are positions or lengths, in elements.
#pragma once

#include <cstddef>
#include <optional>

namespace vellum
{
/// The same type as Python's `Py_ssize_t`.
using Index = std::ptrdiff_t;

/// A range of indices: `m_start`, then on by `m_step`, `m_slice_len` of them.
struct SliceIndexItem
{
    Index m_start = 0;
    Index m_step = 1; ///< never 0
    Index m_slice_len = 0;

    /// The selected index at `position`, 0 to `m_slice_len` - 1; saturates where
    /// exact arithmetic leaves the type.
    Index valueAt(Index position) const;
};

/// A possibly negative index as a position, 0 to `len` - 1; nothing if it names
/// none.
std::optional<Index> normalizeIndex(Index index, Index len);

/// The index of the dimension that stands at `position` of what `slice` selects;
/// nothing if it selects fewer.
std::optional<Index> indexIntoSlice(const SliceIndexItem& slice, Index position);

/// The slice of the dimension that stands for `slice` and then `item` of what it
/// selects. An `item` that was read against a longer dimension can reach beyond
/// `slice`. Members that don't fit saturate without changing what is selected.
SliceIndexItem composeWithSlice(const SliceIndexItem& slice, const SliceIndexItem& item);

/// The first selected index that is no position in a dimension of length `len`;
/// nothing if all fit.
std::optional<Index> firstOutside(const SliceIndexItem& slice, Index len);
std::optional<Index> firstOutside(Index index, Index len);

} // namespace vellum
