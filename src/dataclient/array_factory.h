/// Making buffers and arrays of the service.
#pragma once

#include "dataclient/array.h"

#include <memory>
#include <vector>

namespace vellum::data
{
namespace impl
{
class ArrayFactoryImpl;
}

/// A short-lived local: whoever is about to create something makes one. Every
/// operation throws the exception of a failing service code.
class ArrayFactory
{
public:
    ArrayFactory();

    /// Memory for `count` elements, not cleared; null if the service gives none.
    Buffer createBuffer(ArrayType type, std::size_t count);

    /// Throws `MissingFeature` if the library can't make arrays from buffers: for
    /// callers that must know before they give a buffer up.
    static void requireCreationFromBuffer();

    /// An array of shape `dims` that adopts the buffer, whose elements are
    /// column-major. The service owns the buffer from its call on, also when that
    /// call fails; before it, the pair frees it.
    Array createArrayFromBuffer(ArrayType type, const std::vector<std::size_t>& dims,
                                Buffer&& buffer);

private:
    std::unique_ptr<impl::ArrayFactoryImpl, void (*)(impl::ArrayFactoryImpl*)> m_owner;
};

} // namespace vellum::data
