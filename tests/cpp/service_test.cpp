#include "service/service_interface.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <numeric>
#include <tuple>
#include <vector>

using namespace vellum::data;
using namespace vellum::data::service;
using Dims = std::vector<std::size_t>;
using Values = std::vector<double>;

namespace
{
constexpr std::size_t kTooMuch = SIZE_MAX / 64 + 1; // its bytes can be counted, but not be had
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
    void SetUp() override { call<array_factory_new>(&m_factory); }
    void TearDown() override
    {
        call<array_destroy>(m_array);
        call<array_factory_destroy>(m_factory);
    }

    /// Hands over the doubles 0 to 11.
    Code adopt(ArrayTypeCode type, const Dims& dims, MemoryLayoutCode layout)
    {
        auto* const values = static_cast<double*>(std::malloc(12 * sizeof(double)));
        std::iota(values, values + 12, 0);
        g_freedBuffers = 0;
        return call<array_factory_create_from_buffer_with_layout>(
            m_factory, type, dims.data(), dims.size(), values, &countFreed, &m_array, layout);
    }
    /// The array's storage, of so many numbers.
    Values release(std::ptrdiff_t count)
    {
        EXPECT_EQ(call<array_release_buffer>(m_array, true, &m_buffer, &m_deleter), 0);
        const auto* const begin = static_cast<const double*>(m_buffer);
        Values values(begin, begin + count);
        m_deleter(m_buffer);
        return values;
    }

    ArrayFactoryImpl* m_factory = nullptr;
    ArrayImpl* m_array = nullptr;
    void* m_buffer = nullptr;
    BufferDeleter m_deleter = nullptr;
};

TEST_F(Service, RefusesWhatItCannotHoldAndFreesTheBuffer)
{
    const std::tuple<ArrayTypeCode, Dims, MemoryLayoutCode, Code> refused[] = {
        {2, {3, 4}, 0, 9},         {23, {3, 4}, 0, 9},         {3, {3, 4}, 2, 23},
        {5, {SIZE_MAX, 2}, 0, 26}, {3, {SIZE_MAX / 2}, 0, 26}, {3, {kTooMuch, 2}, 1, 19}};
    for (const auto& [type, dims, layout, code] : refused)
    {
        EXPECT_EQ(adopt(type, dims, layout), code);
        EXPECT_EQ(g_freedBuffers, 1);
    }
    EXPECT_EQ(call<array_factory_create_buffer>(m_factory, &m_buffer, &m_deleter, 3, kTooMuch), 19);
    EXPECT_EQ(call<array_factory_create_buffer>(m_factory, &m_buffer, &m_deleter, 3, SIZE_MAX), 26);
}

TEST_F(Service, SaysSoWhereThereIsNoMemoryForACopy)
{
    ASSERT_EQ(adopt(3, {kTooMuch, 1}, 0), 0); // taken at its word
    ArrayImpl* copy = m_array;
    EXPECT_TRUE(call<array_unshare>(m_array, false, &copy)); // never "go on and write"
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(call<array_release_buffer>(m_array, false, &m_buffer, &m_deleter), 19);
}

TEST_F(Service, TurnsRowMajorIntoColumnMajor)
{
    ASSERT_EQ(adopt(3, {2, 3, 2}, 1), 0);
    EXPECT_EQ(g_freedBuffers, 1); // replaced by a column-major one
    EXPECT_EQ(release(12), (Values{0, 6, 2, 8, 4, 10, 1, 7, 3, 9, 5, 11}));
}
} // namespace
