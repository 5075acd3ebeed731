#include "service/array.h"
#include "service/buffer.h"
#include "service/failure.h"
#include "service/operations.h"

#include <new>

namespace vellum::data::service::operations
{
ArrayImpl* array_new_empty()
{
    return new (std::nothrow) ArrayImpl();
}

void array_destroy(ArrayImpl* array)
{
    delete array;
}

void array_get_dimensions(ArrayImpl* array, std::size_t* dimCount, const std::size_t** dims)
{
    if (array == nullptr || dimCount == nullptr || dims == nullptr)
    {
        return;
    }
    const auto& dimensions = array->shape().dimensions();
    *dimCount = dimensions.size();
    *dims = dimensions.data();
}

std::size_t array_get_number_of_elements(ArrayImpl* array)
{
    return array != nullptr ? array->shape().elementCount() : 0;
}

Code array_get_type(ArrayImpl* array, ArrayTypeCode* type)
{
    return answer([&] {
        requireArguments(array, type);
        *type = array->type();
    });
}

Code array_type_is_convertible(ArrayTypeCode wanted, ArrayTypeCode actual, bool* convertible)
{
    return answer([&] {
        requireArguments(convertible);
        *convertible = wanted == actual;
    });
}

bool array_unshare(ArrayImpl* array, bool soleOwner, ArrayImpl** copy)
{
    if (array == nullptr || copy == nullptr || soleOwner)
    {
        return false;
    }
    // Without memory the answer is still true: a caller told that nothing
    // changed would write into elements that others share.
    ArrayImpl* privateCopy = nullptr;
    answer([&] { privateCopy = array->copy().release(); });
    *copy = privateCopy;
    return true;
}

Code array_release_buffer(ArrayImpl* array, bool soleOwner, void** buffer, BufferDeleter* deleter)
{
    return answer([&] {
        requireArguments(array, buffer, deleter);
        Buffer elements = soleOwner ? array->takeElements() : array->copyElements();
        *deleter = elements.get_deleter().m_function;
        *buffer = elements.release();
    });
}
} // namespace vellum::data::service::operations
