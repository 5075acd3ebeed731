/// Making buffers and arrays of the service.
#pragma once

#include "dataclient/typed_array.h"

#include <complex>
#include <vector>

namespace vellum::data
{
enum class MemoryLayout : MemoryLayoutCode
{
    ColumnMajor = 0,
    RowMajor = 1,
};

/// A short-lived local: whoever is about to create something makes one. Every
/// operation throws the exception of a failing service code.
class ArrayFactory
{
public:
    ArrayFactory();
    ArrayFactory(const ArrayFactory&) = delete;
    ArrayFactory& operator=(const ArrayFactory&) = delete;
    ~ArrayFactory() = default;

    /// Room for `count` elements, not cleared.
    template <class T>
    Buffer<T> createBuffer(std::size_t count)
    {
        const auto [elements, deleter] = createRawBuffer(ElementTraits<T>::kArrayType, count);
        return Buffer<T>(deleter, static_cast<T*>(elements));
    }

    /// Throws `MissingFeature` if the library can't make an array from a buffer
    /// of that layout: for callers that must know before they give a buffer up.
    static void requireCreationFromBuffer(MemoryLayout layout)
    {
        prepareCreationFromBuffer(layout);
    }

    /// An array of shape `dims` that adopts the buffer. The service owns the
    /// buffer from its call on, also when that call fails; before it, the pair
    /// frees it.
    template <class T>
    TypedArray<T> createArrayFromBuffer(const std::vector<std::size_t>& dims, Buffer<T>&& buffer,
                                        MemoryLayout layout)
    {
        const auto prepared = prepareCreationFromBuffer(layout);
        const BufferDeleter deleter = buffer.getDeleter();
        return TypedArray<T>::fromCreated(adoptBuffer(prepared, ElementTraits<T>::kArrayType, dims,
                                                      buffer.take(), deleter, layout));
    }

    /// Complex types only; the elements are whatever the service puts there.
    template <class T>
    TypedArray<T> createArray(const std::vector<std::size_t>& dims)
    {
        static_assert(ElementTraits<T>::kIsComplex);
        return TypedArray<T>::fromCreated(createRawArray(ElementTraits<T>::kArrayType, dims));
    }

    /// A 1-by-1 array that holds `value`.
    template <class T>
    TypedArray<T> createScalar(T value)
    {
        if constexpr (ElementTraits<T>::kIsComplex)
        {
            TypedArray<T> array = createArray<T>({1, 1});
            const auto real = value.real();
            const auto imaginary = value.imag();
            array.reference(0).setComplex(array.getType(), &real, &imaginary);
            return array;
        }
        else
        {
            return TypedArray<T>::fromCreated(
                createRawScalar(ElementTraits<T>::kArrayType, &value));
        }
    }

private:
    /// Which of the two creations from buffer this library has; everything that
    /// can be missing is found out before the buffer leaves its pair.
    struct CreationFromBuffer
    {
        service::array_factory_create_from_buffer_with_layout::Function* m_withLayout;
        service::array_factory_create_from_buffer::Function* m_columnMajor;
    };
    static CreationFromBuffer prepareCreationFromBuffer(MemoryLayout layout);

    std::pair<void*, BufferDeleter> createRawBuffer(ArrayType type, std::size_t count);
    impl::ArrayImpl* adoptBuffer(const CreationFromBuffer& creation, ArrayType type,
                                 const std::vector<std::size_t>& dims, void* buffer,
                                 BufferDeleter deleter, MemoryLayout layout);
    impl::ArrayImpl* createRawArray(ArrayType type, const std::vector<std::size_t>& dims);
    impl::ArrayImpl* createRawScalar(ArrayType type, const void* element);

    impl::ArrayFactoryImpl* m_impl = nullptr;
    std::shared_ptr<impl::ArrayFactoryImpl> m_owner;
};

} // namespace vellum::data
