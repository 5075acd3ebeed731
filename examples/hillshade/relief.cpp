#include "relief.h"

#include <cmath>

namespace hillshade
{
namespace
{
constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180.0;

struct Vector
{
    double m_east;
    double m_north;
    double m_up;
};

Vector directionOf(const Light& light)
{
    const double azimuth = light.m_azimuth * kRadiansPerDegree;
    const double altitude = light.m_altitude * kRadiansPerDegree;
    return {std::sin(azimuth) * std::cos(altitude), std::cos(azimuth) * std::cos(altitude),
            std::sin(altitude)};
}

std::uint8_t brightness(double slopeEast, double slopeNorth, const Vector& light)
{
    // The surface normal is (-slopeEast, -slopeNorth, 1), not of unit length.
    const double cosine = (light.m_up - slopeEast * light.m_east - slopeNorth * light.m_north) /
                          std::sqrt(1.0 + slopeEast * slopeEast + slopeNorth * slopeNorth);
    return cosine > 0.0 ? static_cast<std::uint8_t>(std::lround(255.0 * std::fmin(cosine, 1.0)))
                        : std::uint8_t(0);
}

/// Horn's third-order finite differences; the border repeats its own cells.
template <class T>
void shadeGrid(const T* heights, std::size_t rows, std::size_t columns, const Light& light,
               std::uint8_t* shades)
{
    const Vector direction = directionOf(light);
    const double scale = light.m_zFactor / (8.0 * light.m_cellSize);
    const auto height = [&](std::size_t row, std::size_t column) {
        return static_cast<double>(heights[row + column * rows]);
    };
    for (std::size_t column = 0; column < columns; ++column)
    {
        const std::size_t west = column == 0 ? 0 : column - 1;
        const std::size_t east = column + 1 == columns ? column : column + 1;
        for (std::size_t row = 0; row < rows; ++row)
        {
            const std::size_t north = row == 0 ? 0 : row - 1;
            const std::size_t south = row + 1 == rows ? row : row + 1;
            const double slopeEast =
                scale * (height(north, east) + 2.0 * height(row, east) + height(south, east) -
                         height(north, west) - 2.0 * height(row, west) - height(south, west));
            const double slopeNorth =
                scale * (height(north, west) + 2.0 * height(north, column) + height(north, east) -
                         height(south, west) - 2.0 * height(south, column) - height(south, east));
            *shades++ = brightness(slopeEast, slopeNorth, direction);
        }
    }
}
} // namespace

void shadeRelief(TypeCode type, const void* heights, std::size_t rows, std::size_t columns,
                 const Light& light, std::uint8_t* shades)
{
    const auto shade = [&]<class T>(const T* typed) {
        shadeGrid(typed, rows, columns, light, shades);
    };
    switch (type - kFirstReal)
    {
    case 0:
        return shade(static_cast<const double*>(heights));
    case 1:
        return shade(static_cast<const float*>(heights));
    case 2:
        return shade(static_cast<const std::int8_t*>(heights));
    case 3:
        return shade(static_cast<const std::uint8_t*>(heights));
    case 4:
        return shade(static_cast<const std::int16_t*>(heights));
    case 5:
        return shade(static_cast<const std::uint16_t*>(heights));
    case 6:
        return shade(static_cast<const std::int32_t*>(heights));
    case 7:
        return shade(static_cast<const std::uint32_t*>(heights));
    case 8:
        return shade(static_cast<const std::int64_t*>(heights));
    case 9:
        return shade(static_cast<const std::uint64_t*>(heights));
    default:
        throw ServiceError("an elevation grid has elements of a real type.");
    }
}

} // namespace hillshade
