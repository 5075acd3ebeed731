/// The shared record behind an array: the service's array, which owns the
/// values, and a private dense copy of them that Python reads without the
/// service. Every view of an array shares one record.
#pragma once

#include "dataclient/typed_array.h"
#include "interpreter/python_ref.h"

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <vector>

namespace vellum
{
/// Between two calls from Python: `m_shape` and `m_bytewiseStrides` have `m_nDim`
/// entries, `m_bufferSizeInBytes` is `m_elemSizeInBytes` times `m_numElems`, and
/// `m_buf` holds the bytes of `m_array` in the same order. Whoever changes a
/// value changes both (`ElementWriter`).
class MDArrayWrapper
{
public:
    /// `order` is 'F' for column-major strides, 'C' for row-major ones. Throws
    /// `AllocationError` if the dense copy can't be had or its strides can't be
    /// represented, and the client's exceptions.
    MDArrayWrapper(data::Array&& array, char order);
    MDArrayWrapper(const data::Array& array, char order);
    MDArrayWrapper(const MDArrayWrapper&) = delete;
    MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
    ~MDArrayWrapper();

    /// Brings every field below `m_exports` into line with `m_array`; changes
    /// nothing if it fails.
    void refreshFromArray();

    /// Copies the values of `m_array` into a block of `byteCount` bytes.
    void copyArrayToBuffer(void* destination, std::size_t byteCount) const;

    /// The address of an element in `m_buf`; missing indices count as 0. The
    /// caller has tested them. Null with a Python error if there is no `m_buf`.
    const char* elementAddress(const std::vector<Py_ssize_t>& indices) const;

    /// The element's position in storage order, in `m_array` and `m_buf` alike;
    /// -1 if there are more indices than dimensions.
    Py_ssize_t linearIndex(const std::vector<Py_ssize_t>& indices) const;

    /// The service's array. A reshape that failed twice can leave the record
    /// without one; it is made again from `m_buf` here.
    data::Array& array();

    /// Gives the array new dimensions with the same number of elements. Values
    /// keep their position in storage order. `strides` are those of `shape`, column
    /// by column. Throws with nothing changed.
    void reshape(std::vector<Py_ssize_t> shape, std::vector<Py_ssize_t> strides);

    /// Called when a buffer export begins and ends.
    void addExport();
    void releaseExport();

    data::Array m_array;
    std::vector<Py_ssize_t> m_shape;           ///< first dimension first
    std::vector<Py_ssize_t> m_bytewiseStrides; ///< byte step per dimension in `m_buf`
    char m_order;
    int m_isReadOnly = 1; ///< exports never write: both sides stay together
    std::int32_t m_exports = 0;
    int m_nDim = 0;
    Py_ssize_t m_numElems = 0;
    Py_ssize_t m_bufferSizeInBytes = 0;
    Py_ssize_t m_elemSizeInBytes = 0; ///< a complex element is one element
    void* m_buf = nullptr;            ///< from `malloc`, owned by the record

    ArrayType m_arrayType = 0;    ///< of `m_array`; never changes
    std::uint64_t m_changes = 0;  ///< counts stores and reshapes: copies remember it
    std::uint64_t m_reshapes = 0; ///< counts reshapes: views remember it

private:
    /// An array of the values in `m_buf`, with the dimensions of `m_shape`.
    data::Array arrayFromBuffer() const;

    /// Gives the record its array back after a reshape that failed: `array`, or
    /// one made from `m_buf` if its storage is lost.
    void restoreArray(data::Array&& array, bool lost);

    /// Shapes and strides from before a reshape, kept for the exports that point
    /// into them until the last export is released.
    std::vector<std::vector<Py_ssize_t>> m_retired;
    bool m_isShapeLent = false; ///< an export may point into the present ones
};

/// Strides of a dense block, with overflow checked. Nothing if one of them can't
/// be represented.
std::optional<std::vector<Py_ssize_t>> contiguousStrides(const std::vector<Py_ssize_t>& shape,
                                                         Py_ssize_t elemSize, char order);

/// Writes elements of a record: the service's array first, unshared if others
/// hold it, and `m_buf` second, in one call. T is the record's element type.
template <class T>
class ElementWriter
{
public:
    explicit ElementWriter(MDArrayWrapper& record)
        : m_record(record), m_typed(std::move(record.array())), m_giveBack{*this},
          m_elements(m_typed.begin())
    {
    }

    /// `position` is in storage order, 0 to `m_numElems` - 1.
    void store(Py_ssize_t position, T value)
    {
        *(m_elements + position) = value;
        std::memcpy(static_cast<char*>(m_record.m_buf) + position * m_record.m_elemSizeInBytes,
                    &value, sizeof(T));
        ++m_record.m_changes;
    }

private:
    /// The handle goes back to the record also where `begin` throws.
    struct GiveBack
    {
        ElementWriter& m_writer;
        ~GiveBack() { m_writer.m_record.m_array = std::move(m_writer.m_typed); }
    };

    MDArrayWrapper& m_record;
    data::TypedArray<T> m_typed;
    GiveBack m_giveBack;
    data::TypedIterator<T> m_elements;
};

/// Writes one element. False with a Python error, and nothing changed, if the
/// indices name no element.
template <class T>
bool setElement(MDArrayWrapper& record, const std::vector<Py_ssize_t>& indices, T value)
{
    const Py_ssize_t position = record.linearIndex(indices);
    if (position < 0 || position >= record.m_numElems)
    {
        raise(PyExc_RuntimeError, kUnableToSet);
        return false;
    }
    ElementWriter<T>(record).store(position, value);
    return true;
}

/// Reads one element from a dense block, whatever its alignment. A logical
/// element is true if its byte isn't 0.
template <class T>
T loadElement(const void* address)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return *static_cast<const unsigned char*>(address) != 0;
    }
    else
    {
        T value;
        std::memcpy(&value, address, sizeof(T));
        return value;
    }
}

/// Diagnostic text, one field a line.
std::ostream& operator<<(std::ostream& stream, const MDArrayWrapper& record);

} // namespace vellum
