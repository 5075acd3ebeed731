/// The one table of the element kinds. Enum, traits, class names, `array.array`
/// codes, buffer formats and every dispatch over element types come out of it.
/// Knows nothing of Python.
#pragma once

#include "service/service_interface.h"

#include <array>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

/// NUMERIC(ACTION, kind, short name, real element type, array.array code,
///         ArrayType when real, ArrayType when complex)
/// LOGICAL(ACTION, kind, short name, element type, array.array code, ArrayType)
/// in the order of `SupportedArrayEnum`. A complex element is a pair of two real
/// ones, real part first; `logical` has no complex form.
#define VELLUM_ELEMENT_KINDS(NUMERIC, LOGICAL, ACTION)                                             \
    NUMERIC(ACTION, Double, "double", double, 'd', 3, 13)                                          \
    NUMERIC(ACTION, Single, "single", float, 'f', 4, 14)                                           \
    NUMERIC(ACTION, Int8, "int8", std::int8_t, 'b', 5, 15)                                         \
    NUMERIC(ACTION, UInt8, "uint8", std::uint8_t, 'B', 6, 16)                                      \
    NUMERIC(ACTION, Int16, "int16", std::int16_t, 'h', 7, 17)                                      \
    NUMERIC(ACTION, UInt16, "uint16", std::uint16_t, 'H', 8, 18)                                   \
    NUMERIC(ACTION, Int32, "int32", std::int32_t, 'i', 9, 19)                                      \
    NUMERIC(ACTION, UInt32, "uint32", std::uint32_t, 'I', 10, 20)                                  \
    NUMERIC(ACTION, Int64, "int64", std::int64_t, 'q', 11, 21)                                     \
    NUMERIC(ACTION, UInt64, "uint64", std::uint64_t, 'Q', 12, 22)                                  \
    LOGICAL(ACTION, Logical, "logical", bool, 'B', 0)

/// ACTION(T) for each of the 21 element types: explicit instantiations.
#define VELLUM_FOR_EACH_ELEMENT(ACTION)                                                            \
    VELLUM_ELEMENT_KINDS(VELLUM_BOTH_ELEMENTS_, VELLUM_REAL_ELEMENT_, ACTION)
#define VELLUM_BOTH_ELEMENTS_(ACTION, kind, name, type, code, realType, complexType)               \
    ACTION(type)                                                                                   \
    ACTION(std::complex<type>)
#define VELLUM_REAL_ELEMENT_(ACTION, kind, name, type, code, realType) ACTION(type)

namespace vellum
{
using ArrayType = data::ArrayTypeCode;

/// The UTF-16 code unit: the service has arrays of it, Python never sees one.
inline constexpr ArrayType kCharacterType = 1;
/// What `KindInfo::m_complexType` holds where a kind has no complex form.
inline constexpr ArrayType kNoType = -1;

/// The element kind; the index of every table by kind.
enum class SupportedArrayEnum : std::uint8_t
{
#define VELLUM_NUMERIC_(ACTION, kind, name, type, code, realType, complexType) kind,
#define VELLUM_LOGICAL_(ACTION, kind, name, type, code, realType) kind,
    VELLUM_ELEMENT_KINDS(VELLUM_NUMERIC_, VELLUM_LOGICAL_, )
#undef VELLUM_NUMERIC_
#undef VELLUM_LOGICAL_
};

struct KindInfo
{
    const char* m_shortName;
    const char* m_className; ///< `tp_name`
    char m_arrayCode;        ///< type code of `array.array`
    ArrayType m_realType;
    ArrayType m_complexType; ///< `kNoType` for logical
    std::size_t m_realWidth; ///< bytes of one real element
    char m_realFormat[2];    ///< buffer format of a real array
    char m_complexFormat[3]; ///< buffer format of a complex array, "" for logical
};

inline constexpr KindInfo kKindTable[] = {
#define VELLUM_NUMERIC_(ACTION, kind, name, type, code, realType, complexType)                     \
    {name, "vellum." name, code, realType, complexType, sizeof(type), {code, 0}, {'Z', code, 0}},
#define VELLUM_LOGICAL_(ACTION, kind, name, type, code, realType)                                  \
    {name, "vellum." name, code, realType, kNoType, sizeof(type), {'?', 0}, {0, 0, 0}},
    VELLUM_ELEMENT_KINDS(VELLUM_NUMERIC_, VELLUM_LOGICAL_, )
#undef VELLUM_NUMERIC_
#undef VELLUM_LOGICAL_
};

inline constexpr std::size_t kKindCount = std::size(kKindTable);

constexpr const KindInfo& kindInfo(SupportedArrayEnum kind)
{
    return kKindTable[static_cast<std::size_t>(kind)];
}

/// From an element type to its place in the table. `Real` is the type of one
/// part; `kIsComplex` tells a pair from a single value.
template <class T>
struct ElementTraits;

template <class RealType, SupportedArrayEnum kind, bool isComplex, ArrayType type>
struct ElementTraitsOf
{
    using Real = RealType;
    static constexpr SupportedArrayEnum kKind = kind;
    static constexpr bool kIsComplex = isComplex;
    static constexpr ArrayType kArrayType = type;
};

#define VELLUM_NUMERIC_(ACTION, kind, name, type, code, realType, complexType)                     \
    VELLUM_LOGICAL_(ACTION, kind, name, type, code, realType)                                      \
    template <>                                                                                    \
    struct ElementTraits<std::complex<type>>                                                       \
        : ElementTraitsOf<type, SupportedArrayEnum::kind, true, complexType>                       \
    {                                                                                              \
    };
#define VELLUM_LOGICAL_(ACTION, kind, name, type, code, realType)                                  \
    template <>                                                                                    \
    struct ElementTraits<type> : ElementTraitsOf<type, SupportedArrayEnum::kind, false, realType>  \
    {                                                                                              \
    };
VELLUM_ELEMENT_KINDS(VELLUM_NUMERIC_, VELLUM_LOGICAL_, )
#undef VELLUM_NUMERIC_
#undef VELLUM_LOGICAL_

/// A type of the service that no array class holds.
template <>
struct ElementTraits<char16_t>
{
    using Real = char16_t;
    static constexpr bool kIsComplex = false;
    static constexpr ArrayType kArrayType = kCharacterType;
};

template <class T>
inline constexpr const KindInfo& kKindInfoOf = kindInfo(ElementTraits<T>::kKind);

/// The element type of a kind, real or complex.
template <SupportedArrayEnum kind>
struct KindTraits;

#define VELLUM_NUMERIC_(ACTION, kind, name, type, code, realType, complexType)                     \
    template <>                                                                                    \
    struct KindTraits<SupportedArrayEnum::kind>                                                    \
    {                                                                                              \
        using Real = type;                                                                         \
        using Complex = std::complex<type>;                                                        \
    };
#define VELLUM_LOGICAL_(ACTION, kind, name, type, code, realType)                                  \
    template <>                                                                                    \
    struct KindTraits<SupportedArrayEnum::kind>                                                    \
    {                                                                                              \
        using Real = type;                                                                         \
        using Complex = type; /* a logical view is never complex */                                \
    };
VELLUM_ELEMENT_KINDS(VELLUM_NUMERIC_, VELLUM_LOGICAL_, )
#undef VELLUM_NUMERIC_
#undef VELLUM_LOGICAL_

/// The one dispatch from a run-time type to typed code: calls
/// `visit(std::type_identity<T>())`, the character type included, or
/// `otherwise()` for a type that has no element. Call it once per operation.
template <class Visit, class Otherwise>
decltype(auto) visitArrayType(ArrayType type, Visit&& visit, Otherwise&& otherwise)
{
    switch (type)
    {
#define VELLUM_CASE_(T)                                                                            \
    case ElementTraits<T>::kArrayType:                                                             \
        return visit(std::type_identity<T>());
        VELLUM_FOR_EACH_ELEMENT(VELLUM_CASE_)
        VELLUM_CASE_(char16_t)
#undef VELLUM_CASE_
    default:
        return otherwise();
    }
}

/// The same over the 21 element types that the array classes hold.
template <class Visit>
auto visitElementType(ArrayType type, Visit&& visit)
{
    using Result = decltype(visit(std::type_identity<double>()));
    const auto refuse = []() -> Result { throw std::runtime_error("invalid type."); };
    return visitArrayType(
        type,
        [&]<class T>(std::type_identity<T> element) -> Result {
            if constexpr (std::is_same_v<T, char16_t>)
            {
                return refuse();
            }
            else
            {
                return visit(element);
            }
        },
        refuse);
}

/// Between real and complex elements of one kind.
template <SupportedArrayEnum kind, class Visit>
decltype(auto) visitComplexity(bool isComplex, Visit&& visit)
{
    return isComplex ? visit(std::type_identity<typename KindTraits<kind>::Complex>())
                     : visit(std::type_identity<typename KindTraits<kind>::Real>());
}

struct KindAndComplexity
{
    SupportedArrayEnum m_kind;
    bool m_isComplex;
};

/// Kind and complexity of a service array's type; nothing for a type that no
/// array class holds.
constexpr std::optional<KindAndComplexity> kindOfArrayType(ArrayType type)
{
    for (std::size_t k = 0; k < kKindCount; ++k)
    {
        const bool isComplex = type == kKindTable[k].m_complexType;
        if (type >= 0 && (isComplex || type == kKindTable[k].m_realType))
        {
            return KindAndComplexity{static_cast<SupportedArrayEnum>(k), isComplex};
        }
    }
    return std::nullopt;
}

/// Short name of the kind of a service array's type, for texts.
constexpr const char* shortNameOfArrayType(ArrayType type)
{
    const auto found = kindOfArrayType(type);
    return found ? kindInfo(found->m_kind).m_shortName : "unknown";
}

/// Buffer format of a service array's type; null if it has none.
constexpr const char* formatOfArrayType(ArrayType type)
{
    const auto found = kindOfArrayType(type);
    if (!found)
    {
        return nullptr;
    }
    const KindInfo& info = kindInfo(found->m_kind);
    return found->m_isComplex ? info.m_complexFormat : info.m_realFormat;
}

} // namespace vellum
