/// The untyped handle on an array of the service.
#pragma once

#include "base/element_kinds.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace vellum::data
{
/// A value-type handle. Copies share the service's array by a reference count,
/// and the last one destroys it; the count is also what the service is told when
/// a write or a release has to know whether it is alone. A moved-from handle is
/// empty and good for destruction and assignment only.
///
/// Every operation throws the exception of a failing service code, and
/// `MissingFeature` where the library lacks an operation.
class Array
{
public:
    /// An array without content: type 2, no dimensions, no elements.
    Array();
    /// Takes over `impl`, which isn't null; it is destroyed on failure too, unless
    /// the library lacks the operation that destroys arrays.
    explicit Array(impl::ArrayImpl* impl);
    Array(const Array&) = default;
    Array(Array&& other) noexcept
        : m_impl(std::exchange(other.m_impl, nullptr)), m_owner(std::move(other.m_owner))
    {
    }
    Array& operator=(const Array& other)
    {
        *this = Array(other);
        return *this;
    }
    Array& operator=(Array&& other) noexcept
    {
        // The old array goes when `taken` does, after both fields stand.
        Array taken(std::move(other));
        std::swap(m_impl, taken.m_impl);
        std::swap(m_owner, taken.m_owner);
        return *this;
    }
    virtual ~Array() = default;

    ArrayType getType() const;
    std::vector<std::size_t> getDimensions() const;
    std::size_t getNumberOfElements() const;

    /// Borrowed; null in a moved-from handle.
    impl::ArrayImpl* getImpl() const { return m_impl; }
    bool isSoleOwner() const { return m_owner != nullptr && m_owner.use_count() == 1; }

protected:
    /// Makes the array private to this handle before a write, if others hold it.
    void unshare();

private:
    impl::ArrayImpl* m_impl = nullptr;
    std::shared_ptr<impl::ArrayImpl> m_owner;
};

/// Buffer pair: elements with the deleter that frees them. Move-only; whoever
/// takes the pointer out owns the elements.
template <class T>
class Buffer
{
public:
    Buffer() = default;
    Buffer(BufferDeleter deleter, T* pointer) : m_deleter(deleter), m_pointer(pointer) {}
    Buffer(Buffer&& other) noexcept
        : m_deleter(other.m_deleter), m_pointer(std::exchange(other.m_pointer, nullptr))
    {
    }
    Buffer& operator=(Buffer&& other) noexcept
    {
        std::swap(m_deleter, other.m_deleter);
        std::swap(m_pointer, other.m_pointer);
        return *this;
    }
    ~Buffer()
    {
        if (m_pointer != nullptr && m_deleter != nullptr)
        {
            m_deleter(m_pointer);
        }
    }

    T* get() const { return m_pointer; }
    BufferDeleter getDeleter() const { return m_deleter; }
    T* take() { return std::exchange(m_pointer, nullptr); }

private:
    BufferDeleter m_deleter = nullptr;
    T* m_pointer = nullptr;
};

namespace detail
{
enum class Access : bool
{
    ReadOnly = false,
    Writable = true,
};

/// Wraps an array that a service operation made; throws if it is null.
Array wrapCreatedArray(impl::ArrayImpl* impl);

/// Address of the first element, or of the position behind the last. The
/// service's iterator lives only while the address is fetched.
void* fetchBegin(const Array& array, Access access, bool isComplex);
void* fetchEnd(const Array& array, bool isComplex);

/// The elements as a buffer of the caller's own. Sole owner: the array gives up
/// its storage and is good for destruction only; otherwise they are a copy.
std::pair<void*, BufferDeleter> releaseBuffer(const Array& array);

/// Throws `ArrayTypeMismatch` unless `array` may be viewed as `wanted`.
void checkConvertible(const Array& array, ArrayType wanted);

/// A reference to one element; it lives as long as the wrapper.
class ElementReference
{
public:
    explicit ElementReference(std::shared_ptr<ReferenceImpl> owner) : m_owner(std::move(owner)) {}
    void setComplex(ArrayType type, const void* real, const void* imaginary);

private:
    std::shared_ptr<ReferenceImpl> m_owner;
};

/// `array` is private to its handle already.
ElementReference fetchReference(const Array& array, std::size_t elementNumber);
} // namespace detail

} // namespace vellum::data
