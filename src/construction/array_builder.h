/// The working record of one construction, or of the right side of an
/// assignment: dimensions, staged elements and the state of the walk. It lives
/// on the stack of one call.
#pragma once

#include "base/checked_size.h"
#include "base/element_kinds.h"
#include "interpreter/guard.h"
#include "interpreter/signals.h"

#include <cstdint>
#include <vector>

namespace vellum
{
using Dimensions = std::vector<std::uint64_t>;

/// What doesn't depend on the element type. `bool` results: false means that a
/// Python error is set.
struct BuilderDimensions
{
    Dimensions m_sizeDims;           ///< given by `size`; at least two entries, or none
    Dimensions m_initializerDims;    ///< found in the data
    bool m_isColumnMajor = false;    ///< the staged elements stand in storage order already
    std::uint64_t m_depth = 0;       ///< of the walk, 0 outside any sequence
    std::uint64_t m_scalarDepth = 0; ///< depth of the first scalar met; 0 until then
    Dimensions m_levelLengths;       ///< length of the sequence open at each level
    SignalWatch m_signals;           ///< over every loop of this construction

    /// The dimensions of the new array: those given, else those found.
    const Dimensions& dims() const { return m_sizeDims.empty() ? m_initializerDims : m_sizeDims; }

    /// The number of elements of those dimensions; `kUnrepresentable` if it
    /// doesn't fit 64 bits. No dimensions: 1.
    std::uint64_t getNumElems() const { return checkedProduct(dims()).value_or(kUnrepresentable); }
};

template <class T>
class MDArrayBuilder : public BuilderDimensions
{
public:
    /// `request` outlives the builder: it is told what memory is asked for.
    explicit MDArrayBuilder(AllocationRequest& request) : m_request(request) {}

    /// Takes the dimensions that `size` gives and reserves for them. A product
    /// that doesn't fit 64 bits is refused here as more than memory holds.
    bool storeSizeDims(const Dimensions& dims)
    {
        m_sizeDims.insert(m_sizeDims.end(), dims.begin(), dims.end());
        return reserveValues(getNumElems());
    }

    /// Makes room for the staged elements, once.
    bool reserveValues(std::uint64_t count)
    {
        if (m_isReserved)
        {
            return true;
        }
        m_request.m_count = count;
        try
        {
            m_values.reserve(count);
        }
        catch (const std::exception&)
        {
            raise(PyExc_MemoryError, m_request.failureText());
            return false;
        }
        m_isReserved = true;
        return true;
    }

    /// The staged elements in reading order; bit-packed for `logical`.
    std::vector<T> m_values;
    bool m_isReserved = false;
    AllocationRequest& m_request;
};

} // namespace vellum
