/// The table behind `get_function_ptr`: every operation of the data-array
/// service, by index, with its signature. This header is the whole of what the
/// service and its clients share. No operation throws.
///
/// Ownership. Array, factory, iterator and reference are opaque objects of the
/// service; whoever receives one frees it with the operation named beside it.
/// A buffer is a pointer with its `BufferDeleter`; whoever holds the pair and
/// does not pass it on calls the deleter. A code is 0 for success.
///
/// Shapes. Dimensions are 64-bit counts, first dimension first; elements are
/// dense and column-major (first dimension fastest); a complex element is its
/// real part followed by its imaginary part.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vellum::data::impl
{
class ArrayImpl;        ///< one array; freed by `array_destroy`
class ArrayFactoryImpl; ///< a factory; freed by `array_factory_destroy`
} // namespace vellum::data::impl

namespace vellum::data::detail
{
class IteratorImpl;  ///< a position in an array; freed by `iterator_destroy`
class ReferenceImpl; ///< one element of an array; freed by `reference_destroy`
} // namespace vellum::data::detail

namespace vellum::data
{
using BufferDeleter = void (*)(void*);

/// 0 logical, 1 16-bit character, 3 to 12 the real numeric types, 13 to 22 the
/// complex ones in the same order.
using ArrayTypeCode = std::int32_t;

/// 0 column-major, 1 row-major.
using MemoryLayoutCode = std::int32_t;
} // namespace vellum::data

namespace vellum::data::service
{
using detail::IteratorImpl;
using detail::ReferenceImpl;
using impl::ArrayFactoryImpl;
using impl::ArrayImpl;

/// One operation: its index in the table and its signature.
template <int Index, class Signature>
struct Operation
{
    static constexpr int index = Index;
    using Function = Signature;
};

using Code = std::int32_t;

// The factory. A buffer handed to one of the two creations from buffer belongs
// to the service from the call on, also when the call fails.
struct array_factory_new : Operation<14, Code(ArrayFactoryImpl** factory)>
{};
struct array_factory_destroy : Operation<15, void(ArrayFactoryImpl* factory)>
{};
struct array_factory_create_array
    : Operation<1, Code(ArrayFactoryImpl* factory, ArrayTypeCode type, const std::size_t* dims,
                        std::size_t dimCount, ArrayImpl** array)>
{};
struct array_factory_create_scalar
    : Operation<3, Code(ArrayFactoryImpl* factory, ArrayTypeCode type, const void* element,
                        ArrayImpl** array)>
{};
struct array_factory_create_buffer
    : Operation<13, Code(ArrayFactoryImpl* factory, void** buffer, BufferDeleter* deleter,
                         ArrayTypeCode type, std::size_t elementCount)>
{};
struct array_factory_create_from_buffer
    : Operation<11,
                Code(ArrayFactoryImpl* factory, ArrayTypeCode type, const std::size_t* dims,
                     std::size_t dimCount, void* buffer, BufferDeleter deleter, ArrayImpl** array)>
{};
/// Optional; without it only column-major buffers can be adopted.
struct array_factory_create_from_buffer_with_layout
    : Operation<110, Code(ArrayFactoryImpl* factory, ArrayTypeCode type, const std::size_t* dims,
                          std::size_t dimCount, void* buffer, BufferDeleter deleter,
                          ArrayImpl** array, MemoryLayoutCode layout)>
{};

// The array. Where an object is the result itself, null means that there was no
// memory for it.
struct array_new_empty : Operation<49, ArrayImpl*()>
{};
struct array_destroy : Operation<50, void(ArrayImpl* array)>
{};
/// The dimensions stay the array's own.
struct array_get_dimensions
    : Operation<51, void(ArrayImpl* array, std::size_t* dimCount, const std::size_t** dims)>
{};
struct array_get_number_of_elements : Operation<52, std::size_t(ArrayImpl* array)>
{};
struct array_get_type : Operation<53, Code(ArrayImpl* array, ArrayTypeCode* type)>
{};
struct array_type_is_convertible
    : Operation<59, Code(ArrayTypeCode wanted, ArrayTypeCode actual, bool* convertible)>
{};
/// Copy on write. True: `copy` is a private copy, and the caller goes on with
/// it; null if there was no memory for it. False: nothing changed.
struct array_unshare : Operation<55, bool(ArrayImpl* array, bool soleOwner, ArrayImpl** copy)>
{};
/// The elements as a buffer of the caller's. A sole owner's array gives up its
/// storage and is good for destruction only; otherwise the buffer is a copy.
struct array_release_buffer
    : Operation<60, Code(ArrayImpl* array, bool soleOwner, void** buffer, BufferDeleter* deleter)>
{};
struct array_get_reference
    : Operation<56, Code(ArrayImpl* array, std::size_t elementNumber, ReferenceImpl** reference)>
{};
struct array_begin : Operation<57, IteratorImpl*(ArrayImpl* array, bool writable)>
{};
/// Optional; replaced by `array_begin`.
struct array_begin_v2 : Operation<114, IteratorImpl*(ArrayImpl* array, bool writable)>
{};
struct array_end : Operation<58, IteratorImpl*(ArrayImpl* array, bool writable)>
{};
/// Optional; replaced by `array_end`.
struct array_end_v2 : Operation<115, IteratorImpl*(ArrayImpl* array, bool writable)>
{};

// The iterator and the reference. Addresses stay valid without the object they
// came from, for as long as the array lives unchanged.
struct iterator_destroy : Operation<64, void(IteratorImpl* iterator)>
{};
struct iterator_get_pointer : Operation<71, void(IteratorImpl* iterator, void** element)>
{};
/// Optional; replaced by a reference and `reference_get_complex_parts`.
struct iterator_get_complex_pointer : Operation<113, void(IteratorImpl* iterator, void** element)>
{};
struct iterator_get_reference
    : Operation<72, void(IteratorImpl* iterator, ReferenceImpl** reference)>
{};
/// The address of the real part, then that of the imaginary part.
struct reference_get_complex_parts
    : Operation<94, Code(ReferenceImpl* reference, void** real, void** imaginary)>
{};
struct reference_set_complex_value
    : Operation<96, Code(ReferenceImpl* reference, ArrayTypeCode type, const void* real,
                         const void* imaginary)>
{};
struct reference_destroy : Operation<23, void(ReferenceImpl* reference)>
{};

} // namespace vellum::data::service

/// The one symbol of the service. The function behind `index` as an untyped
/// pointer, or null if this library has no such operation.
extern "C" void* get_function_ptr(int index);
