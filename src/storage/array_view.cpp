#include "storage/array_view.h"

#include "interpreter/python_error.h"

#include <string>

namespace vellum
{
std::vector<Index> extended(const std::vector<Index>& indices, Index index)
{
    std::vector<Index> longer;
    longer.reserve(indices.size() + 1);
    longer = indices;
    longer.push_back(index);
    return longer;
}

MDArrayView::MDArrayView(std::shared_ptr<MDArrayWrapper> record)
    : m_sharedMDA(std::move(record)), m_reshapesSeen(m_sharedMDA->reshapes())
{
}

MDArrayView::MDArrayView(const MDArrayView& other, Index index)
    : m_sharedMDA(other.m_sharedMDA), m_integers(extended(other.m_integers, index)),
      m_reshapesSeen(other.m_reshapesSeen)
{
}

MDArrayView::MDArrayView(const MDArrayView& other, const SliceIndexItem& slice)
    : m_sharedMDA(other.m_sharedMDA), m_integers(other.m_integers), m_finalSlice(slice),
      m_reshapesSeen(other.m_reshapesSeen)
{
}

MDArrayView::MDArrayView(const MDArrayView& other)
    : m_sharedMDA(other.m_sharedMDA), m_integers(other.m_integers),
      m_finalSlice(other.m_finalSlice), m_reshapesSeen(other.m_reshapesSeen)
{
}

std::optional<Index> MDArrayView::firstOutsideRecord() const
{
    const auto& shape = record().shape();
    for (std::size_t k = 0; k < m_integers.size(); ++k)
    {
        if (const auto outside = firstOutside(m_integers[k], shape[k]))
        {
            return outside;
        }
    }
    return m_finalSlice ? firstOutside(*m_finalSlice, shape[nextDimension()]) : std::nullopt;
}

void MDArrayView::requireFitOfReshaped() const
{
    if (!hasDimension())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
    }
    if (const auto outside = firstOutsideRecord())
    {
        raise(PyExc_IndexError, invalidIndexText(*outside));
    }
}

void MDArrayView::requireDimension() const
{
    requireFit();
    if (!hasDimension())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
    }
}

Py_ssize_t MDArrayView::currentLength() const
{
    requireDimension();
    return m_finalSlice ? m_finalSlice->m_slice_len : record().shape()[nextDimension()];
}

const data::Array& MDArrayView::keepIndexedArray(data::Array array, std::uint64_t changes)
{
    m_indexedArrayAsMDA = std::move(array);
    m_copySeen = changes;
    return m_indexedArrayAsMDA;
}

std::string invalidIndexText(Index index)
{
    return "index has an invalid value: " + std::to_string(index);
}

} // namespace vellum
