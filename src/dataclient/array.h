/// The untyped handle on an array of the service, and the buffers that arrays are
/// made of.
#pragma once

#include "base/element_kinds.h"

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace vellum::data
{
namespace impl
{
class ArrayImpl;
}

using BufferDeleter = void (*)(void*);

/// Elements with the deleter that frees them. Move-only; whoever takes the
/// pointer out owns the elements.
class Buffer
{
public:
    Buffer() = default;
    Buffer(void* elements, BufferDeleter deleter) : m_elements(elements), m_deleter(deleter) {}
    Buffer(Buffer&& other) noexcept
        : m_elements(std::exchange(other.m_elements, nullptr)), m_deleter(other.m_deleter)
    {
    }
    Buffer& operator=(Buffer&& other) noexcept
    {
        std::swap(m_elements, other.m_elements);
        std::swap(m_deleter, other.m_deleter);
        return *this;
    }
    ~Buffer()
    {
        if (m_elements != nullptr && m_deleter != nullptr)
        {
            m_deleter(m_elements);
        }
    }

    void* get() const { return m_elements; }
    BufferDeleter getDeleter() const { return m_deleter; }
    void* take() { return std::exchange(m_elements, nullptr); }

private:
    void* m_elements = nullptr;
    BufferDeleter m_deleter = nullptr;
};

/// A value. Copies share the service's array by a reference count, and the last
/// one destroys it; the count is also what the service is told when a write or a
/// release has to know whether it is alone. A handle that was moved from is empty.
///
/// Every operation needs a handle that isn't empty. It throws the exception of a
/// failing service code, and `MissingFeature` where the library lacks it.
class Array
{
public:
    Array() = default;
    /// Takes over `impl`, which isn't null; it is destroyed on failure too, unless
    /// the library lacks the operation that destroys arrays.
    explicit Array(impl::ArrayImpl* impl);

    ArrayType getType() const;
    std::vector<std::size_t> getDimensions() const;
    std::size_t getNumberOfElements() const;

    bool isEmpty() const { return m_owner == nullptr; }
    bool isSoleOwner() const { return m_owner.use_count() == 1; }
    /// Borrowed; null in an empty handle.
    impl::ArrayImpl* getImpl() const { return m_owner.get(); }

    /// Makes the array private to this handle before a write, if others hold it.
    void unshare();

private:
    std::shared_ptr<impl::ArrayImpl> m_owner;
};

} // namespace vellum::data
