/// Element order. Arrays are column-major; other orders are turned into it.
#pragma once

#include "service/buffer.h"
#include "service/shape.h"

#include <cstddef>

namespace vellum::data::service
{
/// The same elements with the first dimension fastest instead of the last. The
/// buffer itself is returned where the two orders agree.
Buffer rowToColumnMajor(const Shape& shape, std::size_t width, Buffer rowMajor);
} // namespace vellum::data::service
