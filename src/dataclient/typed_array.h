/// Typed handles on the arrays of the service, and the dispatch that reaches
/// typed code from an array whose type is known at run time only.
#pragma once

#include "dataclient/array.h"
#include "dataclient/array_exception.h"

#include <cstddef>

namespace vellum::data
{
/// A pointer to the element at the iterator. It depends on the array's storage
/// only: no movement calls the service.
template <class T>
class TypedIterator
{
public:
    explicit TypedIterator(T* element) : m_element(element) {}

    T& operator*() const { return *m_element; }
    T* operator->() const { return m_element; }
    T* address() const { return m_element; }
    TypedIterator& operator++()
    {
        ++m_element;
        return *this;
    }
    TypedIterator& operator--()
    {
        --m_element;
        return *this;
    }
    friend TypedIterator operator+(TypedIterator iterator, std::ptrdiff_t offset)
    {
        return TypedIterator(iterator.m_element + offset);
    }
    friend std::ptrdiff_t operator-(TypedIterator end, TypedIterator begin)
    {
        return end.m_element - begin.m_element;
    }
    friend bool operator==(TypedIterator left, TypedIterator right) = default;

private:
    T* m_element;
};

/// A handle on an array of elements T. Making one checks with the service that
/// the array may be viewed as T; if it may not, the source keeps its handle.
template <class T>
class TypedArray : public Array
{
public:
    using Element = T;
    static constexpr ArrayType kType = ElementTraits<T>::kArrayType;

    explicit TypedArray(Array&& array) : Array(checked(std::move(array))) {}
    explicit TypedArray(const Array& array) : Array(checked(array)) {}
    TypedArray(const TypedArray&) = default;
    TypedArray(TypedArray&&) noexcept = default;
    TypedArray& operator=(const TypedArray&) = default;
    TypedArray& operator=(TypedArray&&) noexcept = default;
    ~TypedArray() override = default;

    /// Wraps an array that the factory has made as T.
    static TypedArray fromCreated(impl::ArrayImpl* impl)
    {
        return TypedArray(detail::wrapCreatedArray(impl), Unchecked());
    }

    /// For writing: the array is made private to this handle first.
    TypedIterator<T> begin()
    {
        unshare();
        return TypedIterator<T>(static_cast<T*>(
            detail::fetchBegin(*this, detail::Access::Writable, ElementTraits<T>::kIsComplex)));
    }
    TypedIterator<const T> begin() const
    {
        return TypedIterator<const T>(static_cast<const T*>(
            detail::fetchBegin(*this, detail::Access::ReadOnly, ElementTraits<T>::kIsComplex)));
    }
    TypedIterator<const T> end() const
    {
        return TypedIterator<const T>(
            static_cast<const T*>(detail::fetchEnd(*this, ElementTraits<T>::kIsComplex)));
    }

    /// See `array_release_buffer`: as the sole handle this gives the storage up.
    Buffer<T> release()
    {
        const auto [elements, deleter] = detail::releaseBuffer(*this);
        return Buffer<T>(deleter, static_cast<T*>(elements));
    }

    detail::ElementReference reference(std::size_t elementNumber)
    {
        unshare();
        return detail::fetchReference(*this, elementNumber);
    }

private:
    struct Unchecked
    {};
    TypedArray(Array&& array, Unchecked) : Array(std::move(array)) {}

    template <class Handle>
    static Handle&& checked(Handle&& array)
    {
        detail::checkConvertible(array, kType);
        return std::forward<Handle>(array);
    }
};

/// What a conversion to the character type yields. It never becomes a Python
/// object, but every dispatch has a row for it.
class CharArray : public TypedArray<char16_t>
{
public:
    using TypedArray<char16_t>::TypedArray;
};

template <class T>
using TypedArrayOf = std::conditional_t<std::is_same_v<T, char16_t>, CharArray, TypedArray<T>>;

/// Calls `visitor` with the typed form of `array`, made by moving or by sharing
/// the handle, and returns what it returns. Throws `ArrayTypeMismatch` for a
/// type without elements.
template <class Handle, class Visitor>
auto apply_numeric_visitor(Handle&& array, Visitor&& visitor)
{
    using Result = decltype(visitor(TypedArray<double>(std::forward<Handle>(array))));
    return visitArrayType(
        array.getType(),
        [&]<class T>(std::type_identity<T>) -> Result {
            return visitor(TypedArrayOf<T>(std::forward<Handle>(array)));
        },
        []() -> Result {
            throw detail::ArrayTypeMismatch(
                "Invalid type of array passed to apply_numeric_visitor.");
        });
}

} // namespace vellum::data
