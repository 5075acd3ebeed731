/// From an element's width to code that is compiled for it: for what moves
/// elements and doesn't look at them.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <type_traits>

namespace vellum
{
/// Calls `visit` with the width as a constant; 1, 2, 4, 8 or 16 bytes.
template <class Visit>
void visitElementWidth(std::size_t width, Visit&& visit)
{
    switch (width)
    {
    case 1:
        return visit(std::integral_constant<std::size_t, 1>());
    case 2:
        return visit(std::integral_constant<std::size_t, 2>());
    case 4:
        return visit(std::integral_constant<std::size_t, 4>());
    case 8:
        return visit(std::integral_constant<std::size_t, 8>());
    case 16:
        return visit(std::integral_constant<std::size_t, 16>());
    default:
        throw std::runtime_error("invalid element width.");
    }
}

} // namespace vellum
