#include "dataclient/array.h"

#include "dataclient/array_exception.h"
#include "dataclient/service_objects.h"

namespace vellum::data
{
using detail::required;
using detail::throw_if_error;

static_assert(std::is_same_v<ArrayType, ArrayTypeCode>);

Array::Array(impl::ArrayImpl* impl) : m_owner(impl, required<service::array_destroy>()) {}

ArrayType Array::getType() const
{
    ArrayType type = kNoType;
    throw_if_error(required<service::array_get_type>()(getImpl(), &type), std::string());
    return type;
}

std::vector<std::size_t> Array::getDimensions() const
{
    std::size_t count = 0;
    const std::size_t* dims = nullptr;
    required<service::array_get_dimensions>()(getImpl(), &count, &dims);
    return dims == nullptr ? std::vector<std::size_t>()
                           : std::vector<std::size_t>(dims, dims + count);
}

std::size_t Array::getNumberOfElements() const
{
    return required<service::array_get_number_of_elements>()(getImpl());
}

void Array::unshare()
{
    auto* destroy = required<service::array_destroy>();
    impl::ArrayImpl* copy = nullptr;
    if (required<service::array_unshare>()(getImpl(), isSoleOwner(), &copy))
    {
        m_owner.reset(detail::requireObject(copy), destroy);
    }
}

} // namespace vellum::data
