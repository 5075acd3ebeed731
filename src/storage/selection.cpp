#include "storage/selection.h"

#include <algorithm>

namespace vellum
{
bool Selection::isEmpty() const
{
    return m_lengths.empty() || std::find(m_lengths.begin(), m_lengths.end(), 0) != m_lengths.end();
}

std::size_t Selection::count() const
{
    std::size_t count = isEmpty() ? 0 : 1;
    for (const Py_ssize_t length : m_lengths)
    {
        // A part of an array that exists: its count can't overflow.
        count *= static_cast<std::size_t>(length);
    }
    return count;
}

RowCursor::RowCursor(const Selection& selection)
    : m_length(selection.m_lengths.back()), m_stride(selection.m_strides.back()),
      m_row(selection.m_base)
{
    for (std::size_t k = 0; k + 1 < selection.dimensions(); ++k)
    {
        if (selection.m_lengths[k] != 1)
        {
            m_outer.push_back({selection.m_lengths[k], selection.m_strides[k], 0});
        }
    }
}

Selection selectRegion(const MDArrayWrapper& record, const std::vector<Index>& integers,
                       const SliceIndexItem* slice)
{
    const auto& shape = record.shape();
    const auto& strides = record.strides();
    Selection selection;
    selection.m_base = record.block() + record.offsetOf(integers);
    std::size_t dimension = integers.size();
    if (slice != nullptr)
    {
        const Py_ssize_t length = slice->m_slice_len;
        const Py_ssize_t stride = strides[dimension];
        // The start and step of an empty slice name no element.
        selection.m_base += length == 0 ? 0 : slice->m_start * stride;
        selection.m_lengths.push_back(length);
        selection.m_strides.push_back(length < 2 ? 0 : slice->m_step * stride);
        ++dimension;
    }
    const auto behind = static_cast<std::ptrdiff_t>(dimension);
    selection.m_lengths.insert(selection.m_lengths.end(), shape.begin() + behind, shape.end());
    selection.m_strides.insert(selection.m_strides.end(), strides.begin() + behind, strides.end());
    return selection;
}

std::vector<Py_ssize_t> selectedLengths(const MDArrayView& view)
{
    view.requireFit();
    const auto& shape = view.record().shape();
    std::vector<Py_ssize_t> lengths(
        shape.begin() + static_cast<std::ptrdiff_t>(view.nextDimension()), shape.end());
    if (view.finalSlice())
    {
        lengths.front() = view.finalSlice()->m_slice_len;
    }
    return lengths;
}

Selection selectionOf(const MDArrayView& view)
{
    view.requireFit();
    return selectRegion(view.record(), view.integers(),
                        view.finalSlice() ? &*view.finalSlice() : nullptr);
}

} // namespace vellum
