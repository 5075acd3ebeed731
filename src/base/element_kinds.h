/// The one table of the element kinds. Enum, traits, class names, `array.array`
/// codes, buffer formats and the one visitor over element types come out of it.
/// Knows neither Python nor the service.
#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <type_traits>

/// ROW(kind, short name, real element type, array.array code, buffer format,
///     ArrayType when real, ArrayType when complex)
/// in the order of `SupportedArrayEnum`. A complex element is a pair of two real
/// ones, real part first; `logical` has no complex type.
#define VELLUM_ELEMENT_KINDS(ROW)                                                                  \
    ROW(Double, "double", double, 'd', 'd', 3, 13)                                                 \
    ROW(Single, "single", float, 'f', 'f', 4, 14)                                                  \
    ROW(Int8, "int8", std::int8_t, 'b', 'b', 5, 15)                                                \
    ROW(UInt8, "uint8", std::uint8_t, 'B', 'B', 6, 16)                                             \
    ROW(Int16, "int16", std::int16_t, 'h', 'h', 7, 17)                                             \
    ROW(UInt16, "uint16", std::uint16_t, 'H', 'H', 8, 18)                                          \
    ROW(Int32, "int32", std::int32_t, 'i', 'i', 9, 19)                                             \
    ROW(UInt32, "uint32", std::uint32_t, 'I', 'I', 10, 20)                                         \
    ROW(Int64, "int64", std::int64_t, 'q', 'q', 11, 21)                                            \
    ROW(UInt64, "uint64", std::uint64_t, 'Q', 'Q', 12, 22)                                         \
    ROW(Logical, "logical", bool, 'B', '?', 0, kNoType)

namespace vellum
{
/// The service's code of an array's element type.
using ArrayType = std::int32_t;

/// What stands for a type that doesn't exist.
inline constexpr ArrayType kNoType = -1;

/// The element kind: the position of its class, and of its row in the table.
enum class SupportedArrayEnum : std::uint8_t
{
#define VELLUM_ENUMERATOR(kind, name, type, code, format, realType, complexType) kind,
    VELLUM_ELEMENT_KINDS(VELLUM_ENUMERATOR)
#undef VELLUM_ENUMERATOR
};

struct KindInfo
{
    const char* m_shortName;
    const char* m_className; ///< `tp_name`
    char m_arrayCode;        ///< type code of `array.array`
    char m_format;           ///< buffer format of a real array
    ArrayType m_realType;
    ArrayType m_complexType; ///< `kNoType` for logical
    std::size_t m_realWidth; ///< bytes of one real element
};

inline constexpr KindInfo kKindTable[] = {
#define VELLUM_ROW(kind, name, type, code, format, realType, complexType)                          \
    {name, "vellum." name, code, format, realType, complexType, sizeof(type)},
    VELLUM_ELEMENT_KINDS(VELLUM_ROW)
#undef VELLUM_ROW
};

inline constexpr std::size_t kKindCount = std::size(kKindTable);

constexpr const KindInfo& kindInfo(SupportedArrayEnum kind)
{
    return kKindTable[static_cast<std::size_t>(kind)];
}

/// An element type as the record of an array knows it: the only key to typed code.
struct ElementType
{
    ArrayType m_type = kNoType;
    SupportedArrayEnum m_kind = SupportedArrayEnum::Double;
    bool m_isComplex = false;
    std::size_t m_width = 0; ///< bytes of one element, both parts of a complex one
    char m_format[3] = {};   ///< of the buffer protocol: "d", "Zd"

    constexpr const KindInfo& kind() const { return kindInfo(m_kind); }
    /// Of the kind: a complex array says "double" too.
    constexpr const char* shortName() const { return kind().m_shortName; }
};

/// Two of each kind, the real one first. That of complex logical elements has no type.
inline constexpr auto kElementTypes = [] {
    std::array<ElementType, 2 * kKindCount> types{};
    for (std::size_t k = 0; k < kKindCount; ++k)
    {
        const KindInfo& info = kKindTable[k];
        const auto kind = static_cast<SupportedArrayEnum>(k);
        types[2 * k] = {info.m_realType, kind, false, info.m_realWidth, {info.m_format, 0, 0}};
        types[2 * k + 1] = {
            info.m_complexType, kind, true, 2 * info.m_realWidth, {'Z', info.m_format, 0}};
    }
    return types;
}();

/// The element type of a kind, for the life of the process.
constexpr const ElementType& elementTypeOf(SupportedArrayEnum kind, bool isComplex)
{
    return kElementTypes[2 * static_cast<std::size_t>(kind) + (isComplex ? 1 : 0)];
}

/// The element type behind a service array's code, for the life of the process; null
/// for a code that no array class holds.
constexpr const ElementType* findElementType(ArrayType type)
{
    for (const ElementType& each : kElementTypes)
    {
        if (type != kNoType && type == each.m_type)
        {
            return &each;
        }
    }
    return nullptr;
}

/// From a C++ type to its element type. `Real` is the type of one part.
template <class T>
struct ElementTraits;

#define VELLUM_TRAITS(kind, name, type, code, format, realType, complexType)                       \
    template <>                                                                                    \
    struct ElementTraits<type>                                                                     \
    {                                                                                              \
        using Real = type;                                                                         \
        static constexpr ElementType kType = elementTypeOf(SupportedArrayEnum::kind, false);       \
    };
VELLUM_ELEMENT_KINDS(VELLUM_TRAITS)
#undef VELLUM_TRAITS

template <class RealType>
struct ElementTraits<std::complex<RealType>>
{
    using Real = RealType;
    static constexpr ElementType kType = elementTypeOf(ElementTraits<RealType>::kType.m_kind, true);
};

template <class T>
inline constexpr bool kIsComplex = ElementTraits<T>::kType.m_isComplex;

/// The one way from a type that is known at run time to typed code: calls
/// `visit(std::type_identity<T>())` for the T of the code, and returns what it
/// returns. Call it once an operation.
template <class Visit>
auto visitElementType(ArrayType type, Visit&& visit)
{
    using Result = decltype(visit(std::type_identity<double>()));
    const auto refuse = []() -> Result { throw std::runtime_error("invalid type."); };
    switch (type)
    {
#define VELLUM_CASES(kind, name, realElement, code, format, realType, complexType)                 \
    case realType:                                                                                 \
        return visit(std::type_identity<realElement>());                                           \
    case complexType:                                                                              \
        if constexpr ((complexType) == kNoType)                                                    \
        {                                                                                          \
            return refuse();                                                                       \
        }                                                                                          \
        else                                                                                       \
        {                                                                                          \
            return visit(std::type_identity<std::complex<realElement>>());                         \
        }
        VELLUM_ELEMENT_KINDS(VELLUM_CASES)
#undef VELLUM_CASES
    default:
        return refuse();
    }
}

} // namespace vellum
