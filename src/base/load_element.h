/// Reading an element from a block of bytes.
#pragma once

#include <cstring>
#include <type_traits>

namespace vellum
{
/// The element at `address`, whatever its alignment. A logical element is true if
/// its byte isn't 0.
template <class T>
T loadElement(const void* address)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        return *static_cast<const unsigned char*>(address) != 0;
    }
    else
    {
        T value;
        std::memcpy(&value, address, sizeof(T));
        return value;
    }
}

} // namespace vellum
