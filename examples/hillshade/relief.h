/// Shaded relief: how bright each cell of a terrain is under a distant light.
#pragma once

#include "service.h"

#include <cstdint>

namespace hillshade
{
struct Light
{
    double m_azimuth = 315.0; ///< degrees clockwise from north
    double m_altitude = 45.0; ///< degrees above the horizon
    double m_zFactor = 1.0;   ///< heights are multiplied by it
    double m_cellSize = 1.0;  ///< side of a cell, in the unit of the heights
};

/// `heights` are `rows` by `columns` elements of `type`, a real type; row 0 lies
/// in the north, column 0 in the west, and columns are stored one after the
/// other, as those of `shades` will be. 0 is shadow and the shade of what has no
/// height (NaN), 255 faces the light.
void shadeRelief(TypeCode type, const void* heights, std::size_t rows, std::size_t columns,
                 const Light& light, std::uint8_t* shades);

} // namespace hillshade
