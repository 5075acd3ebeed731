#include "service/element_type.h"

#include "service/failure.h"

#include <array>

namespace vellum::data::service
{
namespace
{
struct ElementType
{
    std::size_t m_width; ///< 0: no element has this type
    bool m_isComplex;
};

constexpr std::array<ElementType, 23> kElementTypes{{
    {1, false}, // logical
    {2, false}, // 16-bit character
    {0, false}, // none
    {8, false}, // double
    {4, false}, // single
    {1, false}, // int8
    {1, false}, // uint8
    {2, false}, // int16
    {2, false}, // uint16
    {4, false}, // int32
    {4, false}, // uint32
    {8, false}, // int64
    {8, false}, // uint64
    {16, true}, // complex double
    {8, true},  // complex single
    {2, true},  // complex int8
    {2, true},  // complex uint8
    {4, true},  // complex int16
    {4, true},  // complex uint16
    {8, true},  // complex int32
    {8, true},  // complex uint32
    {16, true}, // complex int64
    {16, true}, // complex uint64
}};

constexpr ElementType lookUp(ArrayTypeCode type) noexcept
{
    if (type < 0 || static_cast<std::size_t>(type) >= kElementTypes.size())
    {
        return kElementTypes[kNoElementType];
    }
    return kElementTypes[static_cast<std::size_t>(type)];
}
} // namespace

std::size_t elementWidth(ArrayTypeCode type)
{
    const std::size_t width = lookUp(type).m_width;
    require(width != 0, Status::ArrayTypeMismatch);
    return width;
}

bool isComplexType(ArrayTypeCode type) noexcept
{
    return lookUp(type).m_isComplex;
}
} // namespace vellum::data::service
