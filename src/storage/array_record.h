/// The shared record behind an array: the service's array, which owns the
/// values, and a private dense block with the same bytes, which Python reads
/// without the service. Every view of an array shares one record.
#pragma once

#include <Python.h>

#include "base/element_kinds.h"
#include "dataclient/typed_array.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iosfwd>
#include <memory>
#include <optional>
#include <vector>

namespace vellum
{
/// Dimensions with the byte step of each, first dimension first.
struct Layout
{
    std::vector<Py_ssize_t> m_shape;
    std::vector<Py_ssize_t> m_bytewiseStrides;
};

/// The column-major layout of a dense block; nothing if a stride can't be
/// represented.
std::optional<Layout> denseLayout(std::vector<Py_ssize_t> shape, std::size_t width);

/// Where a value is written: `m_elements` in the service's array, `m_block` in the
/// dense block. Both begin at the first element and have one order.
struct WritableElements
{
    char* m_elements;
    char* m_block;

    void store(Py_ssize_t offset, const void* element, std::size_t width) const
    {
        std::memcpy(m_elements + offset, element, width);
        std::memcpy(m_block + offset, element, width);
    }
};

/// Between two calls from Python the block holds the bytes of the service's
/// array in the same order, and the layout fits the number of elements.
class MDArrayWrapper
{
public:
    /// `type` is the array's, out of the table of types. Throws `AllocationError` if the block
    /// can't be had or its strides can't be represented, and the client's exceptions.
    MDArrayWrapper(data::Array array, const ElementType& type);
    MDArrayWrapper(const MDArrayWrapper&) = delete;
    MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
    ~MDArrayWrapper() = default;

    const ElementType& type() const { return m_type; }
    const std::vector<Py_ssize_t>& shape() const { return m_layout.m_shape; }
    const std::vector<Py_ssize_t>& strides() const { return m_layout.m_bytewiseStrides; }
    std::size_t dimensions() const { return m_layout.m_shape.size(); }
    Py_ssize_t elementCount() const { return m_numElems; }
    Py_ssize_t byteCount() const { return m_bufferSizeInBytes; }
    /// The dense block; it stays where it is for the record's life.
    const char* block() const { return m_buf.get(); }

    /// Byte offset of an element in the block, and in the service's array; missing
    /// indices count as 0. The caller has tested them.
    Py_ssize_t offsetOf(const std::vector<Py_ssize_t>& indices) const
    {
        Py_ssize_t offset = 0;
        for (std::size_t k = 0; k < indices.size(); ++k)
        {
            offset += indices[k] * m_layout.m_bytewiseStrides[k];
        }
        return offset;
    }

    /// The service's array. A reshape that failed twice can leave the record
    /// without one; it is made again from the block here.
    data::TypedArray& array();

    /// For storing at once: the service's array is unshared first, and copies of
    /// the values are out of date from now on. Throws with nothing changed.
    WritableElements writableElements();

    /// Gives the array a new layout for the same elements, which keep their
    /// position in storage order. Throws with nothing changed.
    void reshape(Layout layout);

    /// Called when a buffer export begins and ends. An export points into the
    /// layout of its day, which is kept for it.
    void addExport();
    void releaseExport();

    /// Count stores and reshapes together, and reshapes alone: copies and views
    /// remember what they have seen.
    std::uint64_t changes() const { return m_changes; }
    std::uint64_t reshapes() const { return m_reshapes; }

    /// Diagnostic text, one fact a line.
    friend std::ostream& operator<<(std::ostream& stream, const MDArrayWrapper& record);

private:
    struct Free
    {
        void operator()(char* block) const { std::free(block); }
    };

    void readArray();
    void keepLayoutForExports();
    void recoverArray() noexcept;
    data::TypedArray arrayFromBlock() const;

    data::TypedArray m_array;
    const ElementType& m_type; ///< of the table
    Layout m_layout;
    Py_ssize_t m_numElems = 0;
    Py_ssize_t m_bufferSizeInBytes = 0;
    std::unique_ptr<char, Free> m_buf; ///< from `malloc`

    std::uint64_t m_changes = 0;
    std::uint64_t m_reshapes = 0;
    std::int32_t m_exports = 0;
    bool m_isLayoutExported = false; ///< some export points into `m_layout`
    std::vector<Layout> m_retired;   ///< layouts from before, kept until the last export ends
};

} // namespace vellum
