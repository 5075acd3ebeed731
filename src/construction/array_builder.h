/// The working record of one construction, or of the right side of an
/// assignment: what is known of the dimensions, and the elements read so far. It
/// lives on the stack of one call.
#pragma once

#include "base/allocation.h"
#include "base/checked_size.h"
#include "base/element_kinds.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace vellum
{
using Dimensions = std::vector<std::uint64_t>;

/// Elements of one width, one behind the other. The memory isn't touched before
/// an element is put there.
class ElementBuffer
{
public:
    explicit ElementBuffer(std::size_t width) : m_width(width) {}

    /// Memory for `count` elements in all. False if there is none.
    bool reserve(std::uint64_t count);

    /// Memory for `count` more elements. False if there is none.
    bool ensure(std::size_t count) { return count <= m_capacity - m_count || grow(count); }

    /// `count` more elements, which the caller fills; there is memory for them.
    char* append(std::size_t count)
    {
        char* first = m_elements.get() + m_count * m_width;
        m_count += count;
        return first;
    }

    const char* data() const { return m_elements.get(); }
    std::size_t count() const { return m_count; }
    std::size_t width() const { return m_width; }

private:
    bool grow(std::size_t count);

    struct Free
    {
        void operator()(char* block) const { std::free(block); }
    };

    std::unique_ptr<char, Free> m_elements;
    std::size_t m_count = 0;
    std::size_t m_capacity = 0;
    std::size_t m_width;
};

class MDArrayBuilder
{
public:
    /// `request` outlives the builder: it is told what memory is asked for.
    MDArrayBuilder(const ElementType& type, AllocationRequest& request)
        : m_type(type), m_values(type.m_width), m_request(request)
    {
    }

    /// Takes the dimensions that `size` gives and reserves for them. A product
    /// that doesn't fit 64 bits is refused here as more than memory holds.
    void storeSizeDims(Dimensions dims);

    /// Reserves memory for the elements, once. Throws `AllocationError`.
    void reserveValues(std::uint64_t count);

    /// `count` more elements, which the caller fills. Throws `AllocationError`.
    char* appendElements(std::size_t count)
    {
        if (!m_values.ensure(count))
        {
            throw AllocationError(m_request);
        }
        return m_values.append(count);
    }

    /// The dimensions of the new array: those given, else those found.
    const Dimensions& dims() const { return m_sizeDims.empty() ? m_initializerDims : m_sizeDims; }

    /// The number of elements of those dimensions; `kUnrepresentable` if it
    /// doesn't fit 64 bits. No dimensions: 1.
    std::uint64_t getNumElems() const { return checkedProduct(dims()).value_or(kUnrepresentable); }

    const ElementType& m_type;
    Dimensions m_sizeDims;        ///< given by `size`; at least two entries, or none
    Dimensions m_initializerDims; ///< found in the data
    ElementBuffer m_values;       ///< the elements in the order in which they were read
    bool m_isColumnMajor = false; ///< which is storage order already
    AllocationRequest& m_request;

private:
    bool m_isReserved = false;
};

} // namespace vellum
