/// What a Python array object holds: which record it looks at, as what kind, and
/// through which indices. Indexing copies a view, never elements.
#pragma once

#include "base/element_kinds.h"
#include "index/index_items.h"
#include "storage/array_record.h"

#include <memory>
#include <optional>

namespace vellum
{
static_assert(std::is_same_v<Index, Py_ssize_t>);

/// `m_indices` holds integer items, then at most one slice, so item k applies to
/// dimension k and the next index to dimension `m_numberOfIntegerIndicesSoFar`,
/// which is below the record's `m_nDim` in every view that Python sees, unless
/// the record was reshaped since (`checkFits`).
class MDArrayView
{
public:
    /// A view of a whole array, on a record of its own. Throws what the record's
    /// constructor throws.
    MDArrayView(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);
    MDArrayView(const data::Array& array, SupportedArrayEnum kind, bool isComplex,
                bool columnMajor);
    /// Shares the record; the cache starts empty.
    MDArrayView(const MDArrayView& other);
    /// Shares the record of `other`, at the given indices instead of its items.
    MDArrayView(const MDArrayView& other, const std::vector<Py_ssize_t>& indices);
    MDArrayView& operator=(const MDArrayView&) = delete;
    ~MDArrayView() = default;

    /// True if every index of the view is a position of the record, which only a
    /// reshape can change. If not: "too many indices." or an `IndexError`. Every
    /// operation on the selected part begins with it; it costs a comparison on a
    /// record that was never reshaped under the view.
    bool checkFits() const
    {
        return m_reshapesSeen == m_sharedMDA->m_reshapes || checkFitsReshaped();
    }

    /// The same, and that the next index has a dimension to apply to. It lacks one
    /// on an array without dimensions, which only native code can make.
    bool checkHasDimension() const;

    /// The length that Python sees, in elements of the next dimension.
    Py_ssize_t currentLength() const;

    /// The values of the integer items. False with a Python error if one of them
    /// is a slice.
    bool integerIndices(std::vector<Py_ssize_t>& indices) const;

    const SliceIndexItem* finalSlice() const
    {
        return m_indices.empty() ? nullptr : std::get_if<SliceIndexItem>(&m_indices.back());
    }
    bool hasFinalSlice() const { return finalSlice() != nullptr; }
    void removeFinalSlice() { m_indices.pop_back(); }
    void appendIntegerItem(const IntegerIndexItem& item);
    void appendSliceItem(const SliceIndexItem& item);

    /// The dimension that the next index applies to.
    std::size_t nextDimension() const
    {
        return static_cast<std::size_t>(m_numberOfIntegerIndicesSoFar);
    }
    bool isAtLastDimension() const
    {
        return m_numberOfIntegerIndicesSoFar == m_sharedMDA->m_nDim - 1;
    }

    std::shared_ptr<MDArrayWrapper> m_sharedMDA;
    SupportedArrayEnum m_supportedArrayEnum;
    bool m_isComplex;
    std::vector<IndexItem> m_indices; ///< oldest first; empty in a whole array
    Py_ssize_t m_numberOfIntegerIndicesSoFar = 0;
    /// The selected elements as an array of their own, made when first asked
    /// for, and the record's `m_changes` at that time.
    std::optional<data::Array> m_indexedArrayAsMDA;
    std::uint64_t m_changesSeen = 0;

private:
    bool checkFitsReshaped() const;

    /// The record's `m_reshapes` when the indices were tested.
    std::uint64_t m_reshapesSeen = 0;
};

/// What a view selects, as a strided region of the record's dense block: no items,
/// no record needed to walk it. Without dimensions it counts as empty.
struct Selection
{
    const char* m_base = nullptr;      ///< address of the first selected element
    std::vector<Py_ssize_t> m_lengths; ///< of the dimensions left, outermost first
    std::vector<Py_ssize_t> m_strides; ///< in bytes; negative for a downward slice

    std::size_t dimensions() const { return m_lengths.size(); }
    bool isEmpty() const;
    std::size_t count() const;
};

/// Null with a Python error if the view doesn't fit its record.
std::optional<Selection> selectionOf(const MDArrayView& view);

/// Walks the rows of a selection, a row being the elements along its last
/// dimension; the last but one is fastest. The selection isn't empty.
class RowCursor
{
public:
    explicit RowCursor(const Selection& selection)
        : m_selection(selection), m_position(selection.dimensions() - 1, 0), m_row(selection.m_base)
    {
    }

    /// The address of the row's first element.
    const char* row() const { return m_row; }
    Py_ssize_t length() const { return m_selection.m_lengths.back(); }
    Py_ssize_t stride() const { return m_selection.m_strides.back(); }

    /// False behind the last row.
    bool next()
    {
        for (std::size_t k = m_position.size(); k-- > 0;)
        {
            m_row += m_selection.m_strides[k];
            if (++m_position[k] < m_selection.m_lengths[k])
            {
                return true;
            }
            m_row -= m_selection.m_lengths[k] * m_selection.m_strides[k];
            m_position[k] = 0;
        }
        return false;
    }

private:
    const Selection& m_selection;
    std::vector<Py_ssize_t> m_position;
    const char* m_row;
};

/// Calls `visit(address)` for every element of a selection, last dimension
/// fastest, until it returns false. False if it did.
template <class Visit>
bool forEachElement(const Selection& selection, Visit&& visit)
{
    if (selection.isEmpty())
    {
        return true;
    }
    RowCursor cursor(selection);
    do
    {
        const char* address = cursor.row();
        for (Py_ssize_t i = 0; i < cursor.length(); ++i)
        {
            if (!visit(address))
            {
                return false;
            }
            address += cursor.stride();
        }
    } while (cursor.next());
    return true;
}

/// Diagnostic text, one field a line.
std::ostream& operator<<(std::ostream& stream, const MDArrayView& view);

} // namespace vellum
