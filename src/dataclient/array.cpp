#include "dataclient/array.h"

#include "dataclient/array_exception.h"
#include "dataclient/service_table.h"

#include <string>

namespace vellum::data
{
namespace
{
using detail::Access;
using detail::optional;
using detail::required;
using detail::throw_if_error;

/// A null object from an operation that gives no code: the service had no
/// memory for it.
template <class Impl>
Impl* requireObject(Impl* object)
{
    if (object == nullptr)
    {
        throw_if_error(detail::kOutOfMemoryCode, std::string());
    }
    return object;
}

/// The destroyer is an argument so that a library without it is found out
/// before the object is made; the deleter itself can't fail.
template <class Impl>
std::shared_ptr<Impl> own(Impl* object, void (*destroy)(Impl*))
{
    return std::shared_ptr<Impl>(object, destroy);
}

void* fetchComplexPointer(detail::IteratorImpl* iterator)
{
    void* element = nullptr;
    if (auto* getPointer = optional<service::iterator_get_complex_pointer>())
    {
        getPointer(iterator, &element);
        return element;
    }
    auto* destroy = required<service::reference_destroy>();
    detail::ReferenceImpl* reference = nullptr;
    required<service::iterator_get_reference>()(iterator, &reference);
    const auto owner = own(requireObject(reference), destroy);
    void* imaginary = nullptr;
    const auto code =
        required<service::reference_get_complex_parts>()(reference, &element, &imaginary);
    throw_if_error(code, std::string());
    return element;
}

template <class Optional, class Fallback>
void* fetchPosition(const Array& array, Access access, bool isComplex)
{
    auto* destroy = required<service::iterator_destroy>();
    auto* makeIterator = optional<Optional>();
    if (makeIterator == nullptr)
    {
        makeIterator = required<Fallback>();
    }
    detail::IteratorImpl* iterator = makeIterator(array.getImpl(), access == Access::Writable);
    const auto owner = own(requireObject(iterator), destroy);
    if (isComplex)
    {
        return fetchComplexPointer(iterator);
    }
    void* element = nullptr;
    required<service::iterator_get_pointer>()(iterator, &element);
    return element;
}
} // namespace

Array::Array()
{
    auto* destroy = required<service::array_destroy>();
    m_owner = own(requireObject(required<service::array_new_empty>()()), destroy);
    m_impl = m_owner.get();
}

Array::Array(impl::ArrayImpl* impl)
    : m_impl(impl), m_owner(own(impl, required<service::array_destroy>()))
{
}

ArrayType Array::getType() const
{
    ArrayType type = 0;
    throw_if_error(required<service::array_get_type>()(m_impl, &type), std::string());
    return type;
}

std::vector<std::size_t> Array::getDimensions() const
{
    std::size_t count = 0;
    const std::size_t* dims = nullptr;
    required<service::array_get_dimensions>()(m_impl, &count, &dims);
    return dims == nullptr ? std::vector<std::size_t>()
                           : std::vector<std::size_t>(dims, dims + count);
}

std::size_t Array::getNumberOfElements() const
{
    return required<service::array_get_number_of_elements>()(m_impl);
}

void Array::unshare()
{
    auto* destroy = required<service::array_destroy>();
    impl::ArrayImpl* copy = nullptr;
    if (required<service::array_unshare>()(m_impl, isSoleOwner(), &copy))
    {
        m_owner = own(requireObject(copy), destroy);
        m_impl = copy;
    }
}

namespace detail
{
Array wrapCreatedArray(impl::ArrayImpl* impl)
{
    return Array(requireObject(impl));
}

void* fetchBegin(const Array& array, Access access, bool isComplex)
{
    return fetchPosition<service::array_begin_v2, service::array_begin>(array, access, isComplex);
}

void* fetchEnd(const Array& array, bool isComplex)
{
    return fetchPosition<service::array_end_v2, service::array_end>(array, Access::ReadOnly,
                                                                    isComplex);
}

std::pair<void*, BufferDeleter> releaseBuffer(const Array& array)
{
    void* buffer = nullptr;
    BufferDeleter deleter = nullptr;
    const auto code = required<service::array_release_buffer>()(
        array.getImpl(), array.isSoleOwner(), &buffer, &deleter);
    throw_if_error(code, std::string());
    return {buffer, deleter};
}

void checkConvertible(const Array& array, ArrayType wanted)
{
    bool convertible = false;
    const auto code =
        required<service::array_type_is_convertible>()(wanted, array.getType(), &convertible);
    throw_if_error(code, std::string());
    if (!convertible)
    {
        throw ArrayTypeMismatch("Can't convert the Array to this TypedArray");
    }
}

ElementReference fetchReference(const Array& array, std::size_t elementNumber)
{
    auto* destroy = required<service::reference_destroy>();
    ReferenceImpl* reference = nullptr;
    const auto code =
        required<service::array_get_reference>()(array.getImpl(), elementNumber, &reference);
    throw_if_error(code, std::string());
    return ElementReference(own(requireObject(reference), destroy));
}

void ElementReference::setComplex(ArrayType type, const void* real, const void* imaginary)
{
    const auto code =
        required<service::reference_set_complex_value>()(m_owner.get(), type, real, imaginary);
    throw_if_error(code, std::string());
}
} // namespace detail

} // namespace vellum::data
