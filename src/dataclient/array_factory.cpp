#include "dataclient/array_factory.h"

#include "dataclient/service_table.h"

#include <string>

namespace vellum::data
{
using detail::optional;
using detail::required;
using detail::throw_if_error;

ArrayFactory::ArrayFactory()
{
    auto* destroy = required<service::array_factory_destroy>();
    throw_if_error(required<service::array_factory_new>()(&m_impl), std::string());
    throw_if_error(m_impl == nullptr ? detail::kOutOfMemoryCode : 0, std::string());
    m_owner = std::shared_ptr<impl::ArrayFactoryImpl>(m_impl, destroy);
}

std::pair<void*, BufferDeleter> ArrayFactory::createRawBuffer(ArrayType type, std::size_t count)
{
    void* elements = nullptr;
    BufferDeleter deleter = nullptr;
    const auto code =
        required<service::array_factory_create_buffer>()(m_impl, &elements, &deleter, type, count);
    throw_if_error(code, std::string());
    return {elements, deleter};
}

ArrayFactory::CreationFromBuffer ArrayFactory::prepareCreationFromBuffer(MemoryLayout layout)
{
    auto* withLayout = optional<service::array_factory_create_from_buffer_with_layout>();
    if (withLayout == nullptr && layout == MemoryLayout::RowMajor)
    {
        throw detail::MissingFeature("Row-major buffers require Tide2a");
    }
    required<service::array_destroy>();
    return {withLayout, withLayout != nullptr
                            ? nullptr
                            : required<service::array_factory_create_from_buffer>()};
}

impl::ArrayImpl* ArrayFactory::adoptBuffer(const CreationFromBuffer& creation, ArrayType type,
                                           const std::vector<std::size_t>& dims, void* buffer,
                                           BufferDeleter deleter, MemoryLayout layout)
{
    impl::ArrayImpl* array = nullptr;
    const auto code =
        creation.m_withLayout != nullptr
            ? creation.m_withLayout(m_impl, type, dims.data(), dims.size(), buffer, deleter, &array,
                                    static_cast<MemoryLayoutCode>(layout))
            : creation.m_columnMajor(m_impl, type, dims.data(), dims.size(), buffer, deleter,
                                     &array);
    throw_if_error(code, std::string());
    return array;
}

impl::ArrayImpl* ArrayFactory::createRawArray(ArrayType type, const std::vector<std::size_t>& dims)
{
    required<service::array_destroy>();
    impl::ArrayImpl* array = nullptr;
    const auto code = required<service::array_factory_create_array>()(m_impl, type, dims.data(),
                                                                      dims.size(), &array);
    throw_if_error(code, std::string());
    return array;
}

impl::ArrayImpl* ArrayFactory::createRawScalar(ArrayType type, const void* element)
{
    required<service::array_destroy>();
    impl::ArrayImpl* array = nullptr;
    const auto code =
        required<service::array_factory_create_scalar>()(m_impl, type, element, &array);
    throw_if_error(code, std::string());
    return array;
}

} // namespace vellum::data
