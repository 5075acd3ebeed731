#include "dataclient/array_factory.h"

#include "dataclient/service_objects.h"

namespace vellum::data
{
namespace
{
using detail::optional;
using detail::required;
using detail::throw_if_error;

constexpr MemoryLayoutCode kColumnMajor = 0;

/// Which of the two creations from buffer this library has; everything that can
/// be missing is found out before a buffer leaves its pair.
struct CreationFromBuffer
{
    service::array_factory_create_from_buffer_with_layout::Function* m_withLayout;
    service::array_factory_create_from_buffer::Function* m_withoutLayout;
};

CreationFromBuffer prepareCreation()
{
    required<service::array_destroy>();
    auto* withLayout = optional<service::array_factory_create_from_buffer_with_layout>();
    return {withLayout, withLayout != nullptr
                            ? nullptr
                            : required<service::array_factory_create_from_buffer>()};
}
} // namespace

ArrayFactory::ArrayFactory() : m_owner(nullptr, required<service::array_factory_destroy>())
{
    impl::ArrayFactoryImpl* factory = nullptr;
    throw_if_error(required<service::array_factory_new>()(&factory), std::string());
    m_owner.reset(detail::requireObject(factory));
}

Buffer ArrayFactory::createBuffer(ArrayType type, std::size_t count)
{
    void* elements = nullptr;
    BufferDeleter deleter = nullptr;
    throw_if_error(required<service::array_factory_create_buffer>()(m_owner.get(), &elements,
                                                                    &deleter, type, count),
                   std::string());
    return {elements, deleter};
}

void ArrayFactory::requireCreationFromBuffer()
{
    prepareCreation();
}

Array ArrayFactory::createArrayFromBuffer(ArrayType type, const std::vector<std::size_t>& dims,
                                          Buffer&& buffer)
{
    const CreationFromBuffer creation = prepareCreation();
    const BufferDeleter deleter = buffer.getDeleter();
    void* elements = buffer.take();
    impl::ArrayImpl* array = nullptr;
    throw_if_error(creation.m_withLayout != nullptr
                       ? creation.m_withLayout(m_owner.get(), type, dims.data(), dims.size(),
                                               elements, deleter, &array, kColumnMajor)
                       : creation.m_withoutLayout(m_owner.get(), type, dims.data(), dims.size(),
                                                  elements, deleter, &array),
                   std::string());
    return Array(detail::requireObject(array));
}

} // namespace vellum::data
