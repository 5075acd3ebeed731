/// What a type code says about one element.
#pragma once

#include "service/service_interface.h"

#include <cstddef>

namespace vellum::data::service
{
/// The type of an array without content; no element has it.
inline constexpr ArrayTypeCode kNoElementType = 2;

/// Bytes of one element, both parts of a complex one. A type that no element
/// can have is an array type mismatch.
std::size_t elementWidth(ArrayTypeCode type);

bool isComplexType(ArrayTypeCode type) noexcept;
} // namespace vellum::data::service
