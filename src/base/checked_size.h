/// Arithmetic on sizes that can't overflow unseen, and the one place where the
/// service's unsigned sizes become Python's signed ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace vellum
{
/// What stands for a number of elements that doesn't fit 64 bits.
inline constexpr std::uint64_t kUnrepresentable = std::numeric_limits<std::uint64_t>::max();

inline std::optional<std::uint64_t> checkedMultiply(std::uint64_t left, std::uint64_t right)
{
    std::uint64_t product = 0;
    if (__builtin_mul_overflow(left, right, &product))
    {
        return std::nullopt;
    }
    return product;
}

/// The product of the dimensions; 1 for none, 0 if one of them is 0, nothing if
/// it doesn't fit 64 bits.
template <class Integer>
std::optional<std::uint64_t> checkedProduct(const std::vector<Integer>& dims)
{
    std::optional<std::uint64_t> product = 1;
    for (const Integer dim : dims)
    {
        if (dim == 0)
        {
            return 0;
        }
        product = product ? checkedMultiply(*product, static_cast<std::uint64_t>(dim)) : product;
    }
    return product;
}

/// The signed form of a size; nothing if it has none.
inline std::optional<std::ptrdiff_t> toSigned(std::uint64_t size)
{
    if (size > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()))
    {
        return std::nullopt;
    }
    return static_cast<std::ptrdiff_t>(size);
}

} // namespace vellum
