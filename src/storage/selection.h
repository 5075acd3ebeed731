/// What a view selects, as a strided region of the record's block.
#pragma once

#include "storage/array_view.h"

#include <vector>

namespace vellum
{
/// A region of a block that its owner's user keeps alive: no indices and no record
/// are needed to traverse it. Without dimensions it counts as empty.
struct Selection
{
    const char* m_base = nullptr;      ///< address of the first selected element
    std::vector<Py_ssize_t> m_lengths; ///< of the dimensions left, outermost first
    std::vector<Py_ssize_t> m_strides; ///< in bytes; negative for a downward slice

    std::size_t dimensions() const { return m_lengths.size(); }
    bool isEmpty() const;
    std::size_t count() const;
};

/// The region at fixed indices of the first dimensions and a slice of the next, or
/// all of it for null. All of them are positions of the record.
Selection selectRegion(const MDArrayWrapper& record, const std::vector<Index>& integers,
                       const SliceIndexItem* slice);

/// What a view selects. Throws if the view doesn't fit its record.
Selection selectionOf(const MDArrayView& view);

/// Its lengths alone.
std::vector<Py_ssize_t> selectedLengths(const MDArrayView& view);

/// Traverses the rows of a selection, a row being the elements along its last
/// dimension; the last but one is fastest. Dimensions of length 1 cost nothing,
/// however many there are. The selection isn't empty.
class RowCursor
{
public:
    explicit RowCursor(const Selection& selection);

    /// The address of the row's first element.
    const char* row() const { return m_row; }
    Py_ssize_t length() const { return m_length; }
    Py_ssize_t stride() const { return m_stride; }

    /// False behind the last row.
    bool next()
    {
        for (std::size_t k = m_outer.size(); k-- > 0;)
        {
            Dimension& outer = m_outer[k];
            m_row += outer.m_stride;
            if (++outer.m_position < outer.m_length)
            {
                return true;
            }
            m_row -= outer.m_length * outer.m_stride;
            outer.m_position = 0;
        }
        return false;
    }

private:
    struct Dimension
    {
        Py_ssize_t m_length;
        Py_ssize_t m_stride;
        Py_ssize_t m_position;
    };

    std::vector<Dimension> m_outer; ///< those of more than one position
    Py_ssize_t m_length;
    Py_ssize_t m_stride;
    const char* m_row;
};

/// Calls `visit(address)` for every element of a selection, last dimension
/// fastest, until it returns false.
template <class Visit>
void forEachElement(const Selection& selection, Visit&& visit)
{
    if (selection.isEmpty())
    {
        return;
    }
    RowCursor cursor(selection);
    do
    {
        const char* address = cursor.row();
        for (Py_ssize_t i = 0; i < cursor.length(); ++i)
        {
            if (!visit(address))
            {
                return;
            }
            address += cursor.stride();
        }
    } while (cursor.next());
}

} // namespace vellum
