/// What this module uses of the data-array service: a few operations, looked up
/// by their index through the one function that the library exports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

namespace hillshade
{
struct ServiceArray; ///< the service's; never looked into

/// 0 logical, 1 16-bit character, 3 to 12 double, single, int8, uint8, ... uint64,
/// 13 to 22 the same as complex pairs.
using TypeCode = std::int32_t;

inline constexpr TypeCode kNoElements = 2;
inline constexpr TypeCode kFirstReal = 3;
inline constexpr TypeCode kUint8 = 6;
inline constexpr TypeCode kFirstComplex = 13;

/// Bytes of one element; 0 for a code that has none.
std::size_t elementWidth(TypeCode type);

/// The service lacks an operation or answered with a code.
class ServiceError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

using ArrayOwner = std::unique_ptr<ServiceArray, void (*)(ServiceArray*)>;
using BufferOwner = std::unique_ptr<void, void (*)(void*)>;

TypeCode typeOf(ServiceArray* array);
std::vector<std::size_t> dimensionsOf(ServiceArray* array);
std::size_t elementCountOf(ServiceArray* array);

/// Where the elements lie, dense, first dimension fastest, for as long as the
/// array lives unchanged. Not for complex arrays.
void* elementsOf(ServiceArray* array);

/// A copy of the elements.
BufferOwner copyElements(ServiceArray* array);

/// Room for elements, not cleared.
BufferOwner makeBuffer(TypeCode type, std::size_t elementCount);

/// An array that adopts the buffer, which holds as many elements as `dims` say.
/// Without element type: an array without content, and the buffer is dropped.
ArrayOwner makeArray(TypeCode type, const std::vector<std::size_t>& dims, BufferOwner buffer);

} // namespace hillshade
