#include "dataclient/typed_array.h"

#include "dataclient/service_objects.h"

namespace vellum::data
{
namespace
{
using detail::optional;
using detail::required;
using detail::requireObject;
using detail::throw_if_error;

void* complexElement(service::IteratorImpl* iterator)
{
    void* element = nullptr;
    if (auto* getPointer = optional<service::iterator_get_complex_pointer>())
    {
        getPointer(iterator, &element);
        return element;
    }
    auto* destroy = required<service::reference_destroy>();
    service::ReferenceImpl* reference = nullptr;
    required<service::iterator_get_reference>()(iterator, &reference);
    const detail::Owner<service::ReferenceImpl> owner(requireObject(reference), destroy);
    void* imaginary = nullptr;
    throw_if_error(
        required<service::reference_get_complex_parts>()(reference, &element, &imaginary),
        std::string());
    return element;
}

/// The address at one end of an array. The service's iterator lives only while
/// the address is fetched.
template <class Operation, class Fallback>
void* fetchPosition(const Array& array, bool isWritable, bool isComplex)
{
    auto* destroy = required<service::iterator_destroy>();
    auto* makeIterator = optional<Operation>();
    if (makeIterator == nullptr)
    {
        makeIterator = required<Fallback>();
    }
    service::IteratorImpl* iterator = makeIterator(array.getImpl(), isWritable);
    const detail::Owner<service::IteratorImpl> owner(requireObject(iterator), destroy);
    if (isComplex)
    {
        return complexElement(iterator);
    }
    void* element = nullptr;
    required<service::iterator_get_pointer>()(iterator, &element);
    return element;
}
} // namespace

void TypedArray::requireConvertible() const
{
    bool convertible = false;
    throw_if_error(required<service::array_type_is_convertible>()(m_type.m_type, m_array.getType(),
                                                                  &convertible),
                   std::string());
    if (!convertible)
    {
        throw detail::ArrayTypeMismatch("Can't convert the Array to this TypedArray");
    }
}

std::pair<const char*, const char*> TypedArray::elements() const
{
    requireConvertible();
    const void* begin = fetchPosition<service::array_begin_v2, service::array_begin>(
        m_array, false, m_type.m_isComplex);
    const void* end = fetchPosition<service::array_end_v2, service::array_end>(m_array, false,
                                                                               m_type.m_isComplex);
    return {static_cast<const char*>(begin), static_cast<const char*>(end)};
}

char* TypedArray::writableElements()
{
    requireConvertible();
    m_array.unshare();
    return static_cast<char*>(fetchPosition<service::array_begin_v2, service::array_begin>(
        m_array, true, m_type.m_isComplex));
}

Buffer TypedArray::release()
{
    requireConvertible();
    void* elements = nullptr;
    BufferDeleter deleter = nullptr;
    throw_if_error(required<service::array_release_buffer>()(
                       m_array.getImpl(), m_array.isSoleOwner(), &elements, &deleter),
                   std::string());
    return {elements, deleter};
}

Buffer TypedArray::copyElements() const
{
    // With a second handle the service hears that this one isn't alone.
    TypedArray second = *this;
    return second.release();
}

} // namespace vellum::data
