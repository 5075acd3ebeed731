#include "service/array.h"
#include "service/buffer.h"
#include "service/element_type.h"
#include "service/failure.h"
#include "service/layout.h"
#include "service/operations.h"
#include "service/shape.h"

#include <array>
#include <cstring>
#include <utility>

namespace vellum::data::impl
{
/// Creation needs no state; callers still hold a factory, as the table asks.
class ArrayFactoryImpl
{};
} // namespace vellum::data::impl

namespace vellum::data::service::operations
{
namespace
{
constexpr MemoryLayoutCode kColumnMajorLayout = 0;
constexpr MemoryLayoutCode kRowMajorLayout = 1;
} // namespace

Code array_factory_new(ArrayFactoryImpl** factory)
{
    return answer([&] {
        requireArguments(factory);
        *factory = new ArrayFactoryImpl();
    });
}

void array_factory_destroy(ArrayFactoryImpl* factory)
{
    delete factory;
}

Code array_factory_create_array(ArrayFactoryImpl* factory, ArrayTypeCode type,
                                const std::size_t* dims, std::size_t dimCount, ArrayImpl** array)
{
    return answer([&] {
        requireArguments(factory, array);
        const std::size_t width = elementWidth(type);
        Shape shape(dims, dimCount);
        Buffer zeros = allocateZeroedBuffer(byteCount(shape.elementCount(), width));
        *array = new ArrayImpl(type, std::move(shape), std::move(zeros));
    });
}

Code array_factory_create_scalar(ArrayFactoryImpl* factory, ArrayTypeCode type, const void* element,
                                 ArrayImpl** array)
{
    return answer([&] {
        requireArguments(factory, element, array);
        constexpr std::array<std::size_t, 2> dims{1, 1};
        const std::size_t width = elementWidth(type);
        Buffer elements = allocateBuffer(width);
        std::memcpy(elements.get(), element, width);
        *array = new ArrayImpl(type, Shape(dims.data(), dims.size()), std::move(elements));
    });
}

Code array_factory_create_buffer(ArrayFactoryImpl* factory, void** buffer, BufferDeleter* deleter,
                                 ArrayTypeCode type, std::size_t elementCount)
{
    return answer([&] {
        requireArguments(factory, buffer, deleter);
        Buffer elements = allocateBuffer(byteCount(elementCount, elementWidth(type)));
        *deleter = elements.get_deleter().m_function;
        *buffer = elements.release();
    });
}

Code array_factory_create_from_buffer(ArrayFactoryImpl* factory, ArrayTypeCode type,
                                      const std::size_t* dims, std::size_t dimCount, void* buffer,
                                      BufferDeleter deleter, ArrayImpl** array)
{
    return array_factory_create_from_buffer_with_layout(factory, type, dims, dimCount, buffer,
                                                        deleter, array, kColumnMajorLayout);
}

Code array_factory_create_from_buffer_with_layout(ArrayFactoryImpl* factory, ArrayTypeCode type,
                                                  const std::size_t* dims, std::size_t dimCount,
                                                  void* buffer, BufferDeleter deleter,
                                                  ArrayImpl** array, MemoryLayoutCode layout)
{
    // Owned before anything can fail: the caller has let go of it.
    Buffer elements = adoptBuffer(buffer, deleter);
    return answer([&] {
        requireArguments(factory, buffer, array);
        require(layout == kColumnMajorLayout || layout == kRowMajorLayout, Status::LayoutMismatch);
        const std::size_t width = elementWidth(type);
        Shape shape(dims, dimCount);
        byteCount(shape.elementCount(), width); // refuses what no buffer can hold
        if (layout == kRowMajorLayout)
        {
            elements = rowToColumnMajor(shape, width, std::move(elements));
        }
        *array = new ArrayImpl(type, std::move(shape), std::move(elements));
    });
}
} // namespace vellum::data::service::operations
