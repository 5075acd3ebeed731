#include "service.h"

#include <iterator>
#include <new>
#include <string>

extern "C" void* get_function_ptr(int index);

namespace hillshade
{
namespace
{
struct Factory;
struct Iterator;
using Deleter = void (*)(void*);

constexpr std::int32_t kOutOfMemory = 19;

/// One operation of the service by its index.
template <class Signature>
Signature* operation(int index)
{
    void* function = get_function_ptr(index);
    if (function == nullptr)
    {
        throw ServiceError("the data-array service has no operation " + std::to_string(index) +
                           ".");
    }
    return reinterpret_cast<Signature*>(function);
}

void check(std::int32_t code)
{
    if (code == kOutOfMemory)
    {
        throw std::bad_alloc();
    }
    if (code != 0)
    {
        throw ServiceError("the data-array service answered with code " + std::to_string(code) +
                           ".");
    }
}

/// A null buffer is a failed allocation too.
BufferOwner ownBuffer(void* elements, Deleter deleter)
{
    if (elements == nullptr)
    {
        throw std::bad_alloc();
    }
    return {elements, deleter};
}

/// The factory lives for one creation.
auto makeFactory()
{
    auto* destroy = operation<void(Factory*)>(15);
    Factory* factory = nullptr;
    check(operation<std::int32_t(Factory**)>(14)(&factory));
    return std::unique_ptr<Factory, void (*)(Factory*)>(factory, destroy);
}
} // namespace

std::size_t elementWidth(TypeCode type)
{
    static constexpr std::size_t widths[] = {1, 2,  0, 8, 4, 1, 1, 2, 2, 4,  4, 8,
                                             8, 16, 8, 2, 2, 4, 4, 8, 8, 16, 16};
    return type >= 0 && static_cast<std::size_t>(type) < std::size(widths)
               ? widths[static_cast<std::size_t>(type)]
               : 0;
}

TypeCode typeOf(ServiceArray* array)
{
    TypeCode type = kNoElements;
    check(operation<std::int32_t(ServiceArray*, TypeCode*)>(53)(array, &type));
    return type;
}

std::vector<std::size_t> dimensionsOf(ServiceArray* array)
{
    std::size_t count = 0;
    const std::size_t* dims = nullptr;
    operation<void(ServiceArray*, std::size_t*, const std::size_t**)>(51)(array, &count, &dims);
    return count == 0 ? std::vector<std::size_t>() : std::vector<std::size_t>(dims, dims + count);
}

std::size_t elementCountOf(ServiceArray* array)
{
    return operation<std::size_t(ServiceArray*)>(52)(array);
}

void* elementsOf(ServiceArray* array)
{
    auto* destroy = operation<void(Iterator*)>(64);
    auto* getPointer = operation<void(Iterator*, void**)>(71);
    Iterator* iterator = operation<Iterator*(ServiceArray*, bool)>(57)(array, false);
    if (iterator == nullptr)
    {
        throw std::bad_alloc();
    }
    void* elements = nullptr;
    getPointer(iterator, &elements);
    destroy(iterator);
    return elements;
}

BufferOwner copyElements(ServiceArray* array)
{
    void* elements = nullptr;
    Deleter deleter = nullptr;
    // Not the sole owner: the array keeps what it has.
    check(operation<std::int32_t(ServiceArray*, bool, void**, Deleter*)>(60)(array, false,
                                                                             &elements, &deleter));
    return ownBuffer(elements, deleter);
}

BufferOwner makeBuffer(TypeCode type, std::size_t elementCount)
{
    const auto factory = makeFactory();
    void* elements = nullptr;
    Deleter deleter = nullptr;
    check(operation<std::int32_t(Factory*, void**, Deleter*, TypeCode, std::size_t)>(13)(
        factory.get(), &elements, &deleter, type, elementCount));
    return ownBuffer(elements, deleter);
}

ArrayOwner makeArray(TypeCode type, const std::vector<std::size_t>& dims, BufferOwner buffer)
{
    auto* destroy = operation<void(ServiceArray*)>(50);
    if (type == kNoElements)
    {
        return {operation<ServiceArray*()>(49)(), destroy};
    }
    auto* create = operation<std::int32_t(Factory*, TypeCode, const std::size_t*, std::size_t,
                                          void*, Deleter, ServiceArray**)>(11);
    const auto factory = makeFactory();
    ServiceArray* array = nullptr;
    const Deleter deleter = buffer.get_deleter();
    // From this call on the buffer is the service's, also if the call fails.
    check(create(factory.get(), type, dims.data(), dims.size(), buffer.release(), deleter, &array));
    return {array, destroy};
}

} // namespace hillshade
