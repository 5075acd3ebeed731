#include "storage/array_view.h"

#include <algorithm>

namespace vellum
{
MDArrayView::MDArrayView(data::Array&& array, SupportedArrayEnum kind, bool isComplex,
                         bool columnMajor)
    : m_sharedMDA(std::make_shared<MDArrayWrapper>(std::move(array), columnMajor ? 'F' : 'C')),
      m_supportedArrayEnum(kind), m_isComplex(isComplex)
{
}

MDArrayView::MDArrayView(const data::Array& array, SupportedArrayEnum kind, bool isComplex,
                         bool columnMajor)
    : m_sharedMDA(std::make_shared<MDArrayWrapper>(array, columnMajor ? 'F' : 'C')),
      m_supportedArrayEnum(kind), m_isComplex(isComplex)
{
}

MDArrayView::MDArrayView(const MDArrayView& other)
    : m_sharedMDA(other.m_sharedMDA), m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex), m_indices(other.m_indices),
      m_numberOfIntegerIndicesSoFar(other.m_numberOfIntegerIndicesSoFar),
      m_reshapesSeen(other.m_reshapesSeen)
{
}

MDArrayView::MDArrayView(const MDArrayView& other, const std::vector<Py_ssize_t>& indices)
    : m_sharedMDA(other.m_sharedMDA), m_supportedArrayEnum(other.m_supportedArrayEnum),
      m_isComplex(other.m_isComplex), m_reshapesSeen(other.m_reshapesSeen)
{
    m_indices.reserve(indices.size());
    for (const Py_ssize_t index : indices)
    {
        appendIntegerItem({index, false});
    }
}

bool MDArrayView::checkFitsReshaped() const
{
    const auto& shape = m_sharedMDA->m_shape;
    if (nextDimension() >= shape.size())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
        return false;
    }
    for (std::size_t k = 0; k < m_indices.size(); ++k)
    {
        if (const auto outside = firstOutside(m_indices[k], shape[k]))
        {
            raise(PyExc_IndexError, "index has an invalid value: " + std::to_string(*outside));
            return false;
        }
    }
    return true;
}

bool MDArrayView::checkHasDimension() const
{
    if (!checkFits())
    {
        return false;
    }
    if (nextDimension() >= m_sharedMDA->m_shape.size())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
        return false;
    }
    return true;
}

Py_ssize_t MDArrayView::currentLength() const
{
    if (!checkHasDimension())
    {
        return -1;
    }
    const SliceIndexItem* slice = finalSlice();
    return slice != nullptr ? slice->m_slice_len.value_or(0)
                            : m_sharedMDA->m_shape[nextDimension()];
}

bool MDArrayView::integerIndices(std::vector<Py_ssize_t>& indices) const
{
    for (std::size_t k = 0; k < nextDimension(); ++k)
    {
        const auto* item = std::get_if<IntegerIndexItem>(&m_indices[k]);
        if (item == nullptr)
        {
            raise(PyExc_RuntimeError, "slice index unexpectedly found.");
            return false;
        }
        indices.push_back(item->m_index);
    }
    return true;
}

void MDArrayView::appendIntegerItem(const IntegerIndexItem& item)
{
    m_indices.emplace_back(item);
    ++m_numberOfIntegerIndicesSoFar;
}

void MDArrayView::appendSliceItem(const SliceIndexItem& item)
{
    m_indices.emplace_back(item);
}

bool Selection::isEmpty() const
{
    return m_lengths.empty() || std::find(m_lengths.begin(), m_lengths.end(), 0) != m_lengths.end();
}

std::size_t Selection::count() const
{
    std::size_t count = 1;
    for (const Py_ssize_t length : m_lengths)
    {
        // A part of an array that exists: its count can't overflow.
        count *= static_cast<std::size_t>(length);
    }
    return isEmpty() ? 0 : count;
}

std::optional<Selection> selectionOf(const MDArrayView& view)
{
    if (!view.checkFits())
    {
        return std::nullopt;
    }
    const MDArrayWrapper& record = *view.m_sharedMDA;
    std::vector<Py_ssize_t> indices;
    if (!view.integerIndices(indices))
    {
        return std::nullopt;
    }
    Selection selection;
    std::size_t dimension = indices.size();
    if (const SliceIndexItem* slice = view.finalSlice())
    {
        const Py_ssize_t length = slice->m_slice_len.value_or(0);
        // The start and step of an empty slice name no element.
        indices.push_back(length == 0 ? 0 : slice->valueAt(0));
        selection.m_lengths.push_back(length);
        selection.m_strides.push_back(
            length < 2 ? 0 : slice->m_step.value_or(1) * record.m_bytewiseStrides[dimension]);
        ++dimension;
    }
    selection.m_base = record.elementAddress(indices);
    if (selection.m_base == nullptr)
    {
        return std::nullopt;
    }
    for (; dimension < record.m_shape.size(); ++dimension)
    {
        selection.m_lengths.push_back(record.m_shape[dimension]);
        selection.m_strides.push_back(record.m_bytewiseStrides[dimension]);
    }
    return selection;
}

} // namespace vellum
