#include "service/service_interface.h"

#include <complex>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

using namespace vellum::data;
using namespace vellum::data::service;

namespace
{
int g_allocationsLeft = -1; // below 0: without limit
int g_freedBuffers = 0;
} // namespace

// The library's objects come from here too, so that each of their allocations
// can be made to fail.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    if (g_allocationsLeft == 0)
        return nullptr;
    --g_allocationsLeft; // without limit it stays below 0
    return std::malloc(size);
}
[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* const block = operator new(size, std::nothrow);
    return block != nullptr ? block : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept
{
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

namespace
{
using Dims = std::vector<std::size_t>;
constexpr std::size_t huge = SIZE_MAX;

template <class Op, class... Arguments>
auto call(Arguments... arguments)
{
    return reinterpret_cast<typename Op::Function*>(get_function_ptr(Op::index))(arguments...);
}

void countFreed(void* buffer)
{
    ++g_freedBuffers;
    std::free(buffer);
}

class Service : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(call<array_factory_new>(&factory), 0); }
    void TearDown() override
    {
        call<array_destroy>(array);
        call<array_factory_destroy>(factory);
    }

    Code create(ArrayTypeCode type, const Dims& dims)
    {
        call<array_destroy>(std::exchange(array, nullptr));
        return call<array_factory_create_array>(factory, type, dims.data(), dims.size(), &array);
    }
    /// Hands over the doubles 0 to 11.
    Code adopt(const Dims& dims, ArrayTypeCode type, MemoryLayoutCode layout, int allocations = -1)
    {
        call<array_destroy>(std::exchange(array, nullptr));
        auto* const values = static_cast<double*>(std::malloc(12 * sizeof(double)));
        for (int i = 0; i < 12; ++i)
            values[i] = i;
        g_freedBuffers = 0;
        g_allocationsLeft = allocations;
        const Code code = call<array_factory_create_from_buffer_with_layout>(
            factory, type, dims.data(), dims.size(), values, &countFreed, &array, layout);
        g_allocationsLeft = -1;
        return code;
    }
    template <class Element, class Position>
    static Element* address(ArrayImpl* of)
    {
        IteratorImpl* const iterator = call<Position>(of, true);
        void* element = nullptr;
        call<iterator_get_pointer>(iterator, &element);
        call<iterator_destroy>(iterator);
        return static_cast<Element*>(element);
    }

    ArrayFactoryImpl* factory = nullptr;
    ArrayImpl* array = nullptr;
    void* buffer = nullptr;
    BufferDeleter deleter = nullptr;
    ReferenceImpl* reference = nullptr;
};

TEST_F(Service, createsZeroedArraysOfEveryType)
{
    const int widths[] = {1, 2, 0, 8, 4, 1, 1, 2, 2, 4, 4, 8, 8, 16, 8, 2, 2, 4, 4, 8, 8, 16, 16};
    for (ArrayTypeCode type = 0, reported = -1; type < 23; ++type)
    {
        ASSERT_EQ(create(type, {3, 1, 2}), type == 2 ? 9 : 0);
        if (type == 2)
            continue;
        EXPECT_EQ(call<array_get_type>(array, &reported), 0);
        EXPECT_EQ(reported, type);
        const char* const first = address<char, array_begin>(array);
        const char* const last = address<char, array_end_v2>(array);
        ASSERT_EQ(last - first, 6 * widths[type]) << type;
        EXPECT_EQ(std::set<char>(first, last), std::set<char>{0});
    }
}

TEST_F(Service, refusesWhatItCannotHold)
{
    using Case = std::tuple<ArrayTypeCode, Dims, Code>;
    const Case refused[] = {{23, {1, 1}, 9},       {-1, {1}, 9},          {5, {huge, 2}, 26},
                            {3, {huge, 2, 2}, 26}, {13, {huge / 15}, 26}, {13, {huge / 16}, 19}};
    for (const auto& [type, dims, code] : refused)
    {
        EXPECT_EQ(create(type, dims), code);
        EXPECT_EQ(array, nullptr);
    }
    EXPECT_EQ(create(3, {huge, 0, huge}), 0);
    EXPECT_EQ(call<array_get_number_of_elements>(array), 0u);
    EXPECT_EQ(call<array_factory_create_buffer>(factory, &buffer, &deleter, 3, std::size_t{0}), 0);
    ASSERT_NE(buffer, nullptr);
    deleter(buffer);
}

TEST_F(Service, freesAnAdoptedBufferOnceOnEveryRoad)
{
    const std::tuple<Dims, ArrayTypeCode, MemoryLayoutCode, Code> refused[] = {
        {{3, 4}, 2, 0, 9}, {{3, 4}, 3, 2, 23}, {{huge, 2}, 3, 0, 26}, {{huge / 4, 1}, 3, 1, 26}};
    for (const auto& [dims, type, layout, code] : refused)
    {
        EXPECT_EQ(adopt(dims, type, layout), code);
        EXPECT_EQ(g_freedBuffers, 1) << code;
    }
    for (const MemoryLayoutCode layout : {0, 1})
    {
        int allocations = 0;
        for (; adopt({3, 4}, 3, layout, allocations) == 19; ++allocations)
            EXPECT_EQ(g_freedBuffers, 1);
        EXPECT_GE(allocations, 2);         // the shape and the array at least
        EXPECT_EQ(g_freedBuffers, layout); // a row-major buffer has been replaced
        call<array_destroy>(std::exchange(array, nullptr));
        EXPECT_EQ(g_freedBuffers, 1);
    }
}

TEST_F(Service, turnsRowMajorIntoColumnMajor)
{
    ASSERT_EQ(adopt({2, 3, 2}, 3, 1), 0);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ((address<double, array_begin>(array)[i / 6 + 2 * (i / 2 % 3) + 6 * (i % 2)]), i);
}

TEST_F(Service, copiesOnWriteAndReleasesWithoutACopyToTheSoleOwner)
{
    ASSERT_EQ(adopt({4, 3}, 3, 0), 0);
    double* const elements = address<double, array_begin>(array);
    ArrayImpl* copy = nullptr;
    EXPECT_FALSE(call<array_unshare>(array, true, &copy));
    g_allocationsLeft = 0;
    const bool unshared = call<array_unshare>(array, false, &copy);
    IteratorImpl* const iterator = call<array_end>(array, false);
    g_allocationsLeft = -1;
    EXPECT_TRUE(unshared); // never "go on and write what others share"
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(iterator, nullptr);
    ASSERT_TRUE(call<array_unshare>(array, false, &copy));
    *address<double, array_begin>(copy) = -1;
    call<array_destroy>(copy);

    ASSERT_EQ(call<array_release_buffer>(array, false, &buffer, &deleter), 0);
    ASSERT_NE(buffer, elements);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(static_cast<double*>(buffer)[i], i);
    deleter(buffer);
    ASSERT_EQ(call<array_release_buffer>(array, true, &buffer, &deleter), 0);
    EXPECT_EQ(buffer, elements);
    EXPECT_EQ(deleter, &countFreed);
    deleter(buffer);
    ASSERT_EQ(call<array_release_buffer>(array, true, &buffer, &deleter), 0); // nothing left
    deleter(buffer);
    EXPECT_EQ(g_freedBuffers, 1);
}

TEST_F(Service, reachesComplexElementsThroughReferences)
{
    using Complex = std::complex<float>;
    ASSERT_EQ(create(14, {2, 1}), 0);
    auto* const values = address<Complex, array_begin>(array);
    const float re = 1.5F, im = -2.5F;
    EXPECT_EQ(call<array_get_reference>(array, std::size_t{2}, &reference), 1);
    ASSERT_EQ(call<array_get_reference>(array, std::size_t{1}, &reference), 0);
    EXPECT_EQ(call<reference_set_complex_value>(reference, 13, &re, &im), 8);
    EXPECT_EQ(call<reference_set_complex_value>(reference, 14, &re, &im), 0);
    call<reference_destroy>(reference);
    EXPECT_EQ(values[0], Complex());
    EXPECT_EQ(values[1], Complex(re, im));
}
} // namespace
