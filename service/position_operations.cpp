#include "service/array.h"
#include "service/element_type.h"
#include "service/failure.h"
#include "service/operations.h"
#include "service/position.h"

#include <cstring>
#include <new>

namespace vellum::data::service::operations
{
namespace
{
struct ComplexParts
{
    std::byte* m_real;
    std::byte* m_imaginary;
    std::size_t m_width; ///< of one part
};

ComplexParts complexParts(const Position& position)
{
    require(isComplexType(position.m_type), Status::DataTypeMismatch);
    const std::size_t width = elementWidth(position.m_type) / 2;
    return {position.m_address, position.m_address + width, width};
}
} // namespace

Code array_get_reference(ArrayImpl* array, std::size_t elementNumber, ReferenceImpl** reference)
{
    return answer([&] {
        requireArguments(array, reference);
        require(elementNumber < array->shape().elementCount(), Status::InvalidIndex);
        *reference = new ReferenceImpl(Position(*array, elementNumber));
    });
}

// Whoever wants to write has unshared the array before, so the two kinds of
// iterator are the same here.
IteratorImpl* array_begin(ArrayImpl* array, bool /*writable*/)
{
    return array != nullptr ? new (std::nothrow) IteratorImpl(Position(*array, 0)) : nullptr;
}

IteratorImpl* array_end(ArrayImpl* array, bool /*writable*/)
{
    return array != nullptr ? new (std::nothrow)
                                  IteratorImpl(Position(*array, array->shape().elementCount()))
                            : nullptr;
}

void iterator_destroy(IteratorImpl* iterator)
{
    delete iterator;
}

void iterator_get_pointer(IteratorImpl* iterator, void** element)
{
    if (iterator != nullptr && element != nullptr)
    {
        *element = iterator->position().m_address;
    }
}

// Behind the last element too: its address is asked for through a reference.
void iterator_get_reference(IteratorImpl* iterator, ReferenceImpl** reference)
{
    answer([&] {
        requireArguments(iterator, reference);
        *reference = new ReferenceImpl(iterator->position());
    });
}

Code reference_get_complex_parts(ReferenceImpl* reference, void** real, void** imaginary)
{
    return answer([&] {
        requireArguments(reference, real, imaginary);
        const ComplexParts parts = complexParts(reference->position());
        *real = parts.m_real;
        *imaginary = parts.m_imaginary;
    });
}

Code reference_set_complex_value(ReferenceImpl* reference, ArrayTypeCode type, const void* real,
                                 const void* imaginary)
{
    return answer([&] {
        requireArguments(reference, real, imaginary);
        const Position& position = reference->position();
        require(type == position.m_type, Status::DataTypeMismatch);
        require(position.m_hasElement, Status::InvalidIndex);
        const ComplexParts parts = complexParts(position);
        std::memcpy(parts.m_real, real, parts.m_width);
        std::memcpy(parts.m_imaginary, imaginary, parts.m_width);
    });
}

void reference_destroy(ReferenceImpl* reference)
{
    delete reference;
}
} // namespace vellum::data::service::operations
