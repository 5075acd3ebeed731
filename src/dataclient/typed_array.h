/// An array together with its element type: what gives access to the elements.
#pragma once

#include "dataclient/array.h"

namespace vellum::data
{
/// A handle on an array and the type of its elements: before each access the
/// service is asked whether the array may be viewed so, and `ArrayTypeMismatch` is
/// thrown if not. Elements are dense and column-major. A copy is one more handle.
class TypedArray
{
public:
    TypedArray() = default;
    /// `type` is the array's.
    TypedArray(Array array, const ElementType& type) : m_array(std::move(array)), m_type(type) {}

    const Array& array() const { return m_array; }

    /// Where the elements stand, for reading: the address of the first, and that
    /// behind the last.
    std::pair<const char*, const char*> elements() const;

    /// The address of the first element, for writing: the array is made private to
    /// this handle first.
    char* writableElements();

    /// The elements as a buffer of the caller's. A sole owner gives its storage up
    /// and is good for destruction only; otherwise they are a copy.
    Buffer release();

    /// The elements as a separate copy.
    Buffer copyElements() const;

private:
    void requireConvertible() const;

    Array m_array;
    ElementType m_type;
};

} // namespace vellum::data
