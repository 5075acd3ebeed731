#include "service/service_interface.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <tuple>
#include <utility>
#include <vector>

using namespace vellum::data;
using namespace vellum::data::service;
using Dims = std::vector<std::size_t>;

namespace
{
constexpr std::size_t kHuge = SIZE_MAX;
constexpr std::size_t kTooMuch = kHuge / 64 + 1; // representable in bytes, but not to be had
int g_freedBuffers = 0;

void countFreed(void* buffer)
{
    ++g_freedBuffers;
    std::free(buffer);
}

template <class Op, class... Arguments>
auto call(Arguments... arguments)
{
    return reinterpret_cast<typename Op::Function*>(get_function_ptr(Op::index))(arguments...);
}

struct Service : testing::Test
{
    void SetUp() override { ASSERT_EQ(call<array_factory_new>(&factory), 0); }
    void TearDown() override { destroy(), call<array_factory_destroy>(factory); }
    void destroy() { call<array_destroy>(std::exchange(array, nullptr)); }

    Code create(ArrayTypeCode type, const Dims& dims)
    {
        return call<array_factory_create_array>(factory, type, dims.data(), dims.size(), &array);
    }
    /// Hands over the doubles 0 to 11.
    Code adopt(ArrayTypeCode type, const Dims& dims, MemoryLayoutCode layout)
    {
        auto* const values = static_cast<double*>(adopted = std::malloc(12 * sizeof(double)));
        for (int i = 0; i < 12; ++i)
            values[i] = i;
        g_freedBuffers = 0;
        return call<array_factory_create_from_buffer_with_layout>(
            factory, type, dims.data(), dims.size(), values, &countFreed, &array, layout);
    }

    ArrayFactoryImpl* factory = nullptr;
    ArrayImpl* array = nullptr;
    void* buffer = nullptr;
    BufferDeleter deleter = nullptr;
    ArrayImpl* copy = nullptr;
    void* adopted = nullptr;
};

TEST_F(Service, knowsTheWidthOfEveryTypeAndCreatesZeroes)
{
    const std::size_t widths[] = {1, 2,  8, 4, 1, 1, 2, 2, 4, 4,  8,
                                  8, 16, 8, 2, 2, 4, 4, 8, 8, 16, 16};
    for (ArrayTypeCode type = 0; const std::size_t width : widths)
    {
        EXPECT_EQ(create(type, {kHuge / width, 1}), 19) << type;
        EXPECT_EQ(create(type, {kHuge / width / 2 + 1, 2}), 26) << type;
        type += type == 1 ? 2 : 1;
    }
    ASSERT_EQ(create(13, {3, 1, 2}), 0);
    ASSERT_EQ(call<array_release_buffer>(array, true, &buffer, &deleter), 0);
    EXPECT_EQ(std::count(static_cast<char*>(buffer), static_cast<char*>(buffer) + 96, 0), 96);
    deleter(buffer);
    destroy();
    ASSERT_EQ(create(3, {kHuge, 0, kHuge}), 0);
    EXPECT_EQ(call<array_get_number_of_elements>(array), 0U);
    ASSERT_EQ(call<array_factory_create_buffer>(factory, &buffer, &deleter, 3, std::size_t(0)), 0);
    EXPECT_NE(buffer, nullptr);
    deleter(buffer);
}

TEST_F(Service, refusesWhatItCannotHoldAndFreesTheBuffer)
{
    const std::tuple<ArrayTypeCode, Dims, Code> refused[] = {
        {2, {3, 4}, 9},         {23, {1, 1}, 9},     {-1, {1}, 9},
        {3, {kTooMuch, 2}, 19}, {5, {kHuge, 2}, 26}, {3, {kHuge, 2, 2}, 26}};
    for (const auto& [type, dims, code] : refused)
    {
        EXPECT_EQ(create(type, dims), code);
        EXPECT_EQ(adopt(type, dims, 1), code); // row-major: needs a second buffer
        EXPECT_TRUE(array == nullptr && g_freedBuffers == 1);
    }
    EXPECT_TRUE(adopt(3, {3, 4}, 2) == 23 && g_freedBuffers == 1); // no such layout
    EXPECT_EQ(call<array_factory_create_buffer>(factory, &buffer, &deleter, 3, kTooMuch), 19);

    ASSERT_EQ(adopt(3, {kTooMuch, 1}, 0), 0); // taken at its word, but no copy can be made
    EXPECT_TRUE(call<array_unshare>(array, false, &copy)); // never "go on and write"
    EXPECT_EQ(call<array_release_buffer>(array, false, &buffer, &deleter), 19);
    EXPECT_TRUE(copy == nullptr && buffer == nullptr && deleter == nullptr && g_freedBuffers == 0);
    destroy();
    EXPECT_EQ(g_freedBuffers, 1);
}

TEST_F(Service, turnsRowMajorCopiesOnWriteAndReleasesToTheSoleOwner)
{
    ASSERT_EQ(adopt(3, {2, 3, 2}, 1), 0);
    EXPECT_EQ(g_freedBuffers, 1); // replaced by a column-major one
    EXPECT_FALSE(call<array_unshare>(array, true, &copy));
    ASSERT_TRUE(call<array_unshare>(array, false, &copy));
    for (ArrayImpl* const each : {copy, array}) // the array doesn't feel what became of its copy
    {
        ASSERT_EQ(call<array_release_buffer>(each, each == copy, &buffer, &deleter), 0);
        auto* const values = static_cast<double*>(buffer);
        for (int i = 0; i < 12; ++i)
            EXPECT_EQ(std::exchange(values[i / 6 + 2 * (i / 2 % 3) + 6 * (i % 2)], -1), i);
        deleter(buffer);
    }
    call<array_destroy>(copy);
    destroy();

    ASSERT_EQ(adopt(3, {4, 3}, 0), 0);
    ASSERT_EQ(call<array_release_buffer>(array, false, &buffer, &deleter), 0);
    EXPECT_NE(buffer, adopted);
    deleter(buffer);
    ASSERT_EQ(call<array_release_buffer>(array, true, &buffer, &deleter), 0);
    EXPECT_TRUE(buffer == adopted && deleter == &countFreed);
    deleter(buffer);
    destroy(); // nothing left in it
    EXPECT_EQ(g_freedBuffers, 1);
}
} // namespace
