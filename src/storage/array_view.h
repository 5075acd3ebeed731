/// What a Python array object holds: which record it looks at, and through which
/// indices. Indexing copies a view, never elements.
#pragma once

#include "index/index_items.h"
#include "storage/array_record.h"

#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vellum
{
static_assert(std::is_same_v<Index, Py_ssize_t>);

/// The integers fix the first dimensions of the record, one each; a slice narrows
/// the dimension behind them, which is the one that the next index applies to.
/// Every index is a position of the record, unless the record was reshaped since
/// (`requireFit`).
class MDArrayView
{
public:
    /// A view of a whole array.
    explicit MDArrayView(std::shared_ptr<MDArrayWrapper> record);
    /// The record and the indices of `other`, with one more index in the place of
    /// its final slice. The cache starts empty.
    MDArrayView(const MDArrayView& other, Index index);
    MDArrayView(const MDArrayView& other, const SliceIndexItem& slice);
    /// The record and the indices of `other`; the cache starts empty.
    MDArrayView(const MDArrayView& other);
    MDArrayView& operator=(const MDArrayView&) = delete;

    MDArrayWrapper& record() const { return *m_sharedMDA; }
    const std::shared_ptr<MDArrayWrapper>& sharedRecord() const { return m_sharedMDA; }
    const std::vector<Index>& integers() const { return m_integers; }
    const std::optional<SliceIndexItem>& finalSlice() const { return m_finalSlice; }
    bool isWhole() const { return m_integers.empty() && !m_finalSlice; }

    /// The dimension that the next index applies to.
    std::size_t nextDimension() const { return m_integers.size(); }
    bool isAtLastDimension() const { return nextDimension() + 1 == record().dimensions(); }

    /// Throws unless every index is a position of the record, which only a reshape
    /// can change: "too many indices." or an `IndexError`. Every operation on the
    /// selected part begins with it; it costs a comparison on a record that was
    /// never reshaped under the view.
    void requireFit() const
    {
        if (!isTested())
        {
            requireFitOfReshaped();
        }
    }
    /// The same as a question.
    bool fits() const { return isTested() || (hasDimension() && !firstOutsideRecord()); }
    /// Whether the indices were tested against the shape of now.
    bool isTested() const { return m_reshapesSeen == record().reshapes(); }

    /// Throws also where the next index has no dimension to apply to: on an array
    /// without dimensions, which only native code can make.
    void requireDimension() const;

    /// Byte offset in the record's block of `index` in the next dimension, the first
    /// element there if dimensions are left behind it. The caller has tested it.
    Py_ssize_t offsetOf(Index index) const
    {
        return record().offsetOf(m_integers) + index * record().strides()[nextDimension()];
    }

    /// The length that Python sees, in elements of the next dimension.
    Py_ssize_t currentLength() const;

    /// Diagnostic text, one fact a line.
    friend std::ostream& operator<<(std::ostream& stream, const MDArrayView& view);

    /// The selected elements as an array of their own, made when first asked for;
    /// null if there is none as new as the record.
    const data::Array* indexedArray() const
    {
        return m_copySeen == record().changes() ? &m_indexedArrayAsMDA : nullptr;
    }
    /// Keeps one that was made when the record had seen so many `changes`.
    const data::Array& keepIndexedArray(data::Array array, std::uint64_t changes);
    void dropIndexedArray()
    {
        m_copySeen.reset();
        m_indexedArrayAsMDA = data::Array();
    }

private:
    bool hasDimension() const { return nextDimension() < record().dimensions(); }
    std::optional<Index> firstOutsideRecord() const;
    void requireFitOfReshaped() const;

    std::shared_ptr<MDArrayWrapper> m_sharedMDA;
    std::vector<Index> m_integers;
    std::optional<SliceIndexItem> m_finalSlice;
    std::uint64_t m_reshapesSeen; ///< the record's `reshapes` when the indices were tested
    data::Array m_indexedArrayAsMDA;
    std::optional<std::uint64_t> m_copySeen; ///< the record's `changes` when it was made
};

/// `indices` and one more.
std::vector<Index> extended(const std::vector<Index>& indices, Index index);

/// What an `IndexError` says about an index.
std::string invalidIndexText(Index index);

} // namespace vellum
