#include "dataclient/array_exception.h"
#include "dataclient/array_factory.h"
#include "dataclient/service_table.h"
#include "dataclient/typed_array.h"
#include "tests/native/service_shim.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>

using namespace vellum;
using namespace vellum::data;

namespace
{
constexpr ElementType kDouble = ElementTraits<double>::kType;
constexpr ElementType kComplex = ElementTraits<std::complex<double>>::kType;

/// The text of the exception that `act` throws.
std::string textOf(const std::function<void()>& act)
try
{
    act();
    return "";
}
catch (const Exception& exception)
{
    return exception.what();
}

/// 1 by 2 elements of zeros.
TypedArray zeros(const ElementType& type)
{
    ArrayFactory factory;
    Buffer elements = factory.createBuffer(type.m_type, 2);
    std::memset(elements.get(), 0, 2 * type.m_width);
    return {factory.createArrayFromBuffer(type.m_type, {1, 2}, std::move(elements)), type};
}

TEST(Client, LooksUpOnceWhatItNeedsAndNothingElse)
{
    for (const ElementType& type : {kDouble, kComplex, kDouble, kComplex})
        EXPECT_NE(zeros(type).elements().first, nullptr);
    for (const auto& [index, times] : shim().m_found)
        EXPECT_EQ(times, 1) << index;
    for (const int replaced : {11, 57, 58, 72, 94})
        EXPECT_EQ(shim().m_found.count(replaced), 0U) << replaced;
}

TEST(Client, TellsFailuresInWords)
{
    EXPECT_EQ(textOf([] { detail::resolve_required(109); }), "This feature requires Tide1b");
    EXPECT_EQ(textOf([] { detail::resolve_required(117); }), "This feature requires Tide2a");
    EXPECT_EQ(textOf([] { detail::throw_if_error(9, "given"); }), "Array type mismatch.");
    EXPECT_EQ(textOf([] { detail::throw_if_error(29, "given"); }), "given");
    EXPECT_EQ(textOf([] { detail::throw_if_error(30, "given"); }), "System Error.");
}

TEST(Client, MakesAnArrayPrivateBeforeAWriteAndReleasesItWhenAlone)
{
    TypedArray first = zeros(kDouble);
    TypedArray second = first;
    const char* const elements = second.elements().first;
    *first.writableElements() = 7;
    EXPECT_FALSE(shim().m_flags[55]); // not alone
    EXPECT_TRUE(shim().m_flags[114]); // for writing
    EXPECT_EQ(*second.elements().first, 0);
    EXPECT_FALSE(shim().m_flags[114]);
    EXPECT_EQ(second.writableElements(), elements); // alone: no copy
    EXPECT_TRUE(shim().m_flags[55]);

    EXPECT_NE(second.copyElements().get(), elements);
    EXPECT_FALSE(shim().m_flags[60]);
    EXPECT_EQ(second.release().get(), elements);
    EXPECT_TRUE(shim().m_flags[60]);
}

} // namespace
