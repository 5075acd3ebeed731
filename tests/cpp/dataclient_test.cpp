#include "dataclient/array_exception.h"
#include "dataclient/array_factory.h"
#include "dataclient/service_table.h"
#include "dataclient/typed_array.h"
#include "tests/native/service_shim.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace vellum;
using namespace vellum::data;
using namespace vellum::data::detail;
using Indices = std::set<int>;

namespace
{
constexpr ElementType kDouble = ElementTraits<double>::kType;
constexpr ElementType kComplex = ElementTraits<std::complex<double>>::kType;
constexpr const char* kNoMemory = "Not enough memory available to support the request.";
const std::string kMissing = "This feature requires ";
const std::string kMissing1a = kMissing + "Tide1a";
const Indices kOptional = {110, 113, 114, 115};
const Indices kCannotFail = {15, 23, 50, 51, 52, 64, 71, 113};

Indices called()
{
    return {shim().m_trace.begin(), shim().m_trace.end()};
}

void expectNothingLive()
{
    for (const long count : shim().m_live)
        EXPECT_EQ(count, 0);
}

/// The client's caches last as long as its process, so every test that reaches
/// the service runs in one of its own. Nothing may be left when it ends.
void inOwnProcess(const Indices& hidden, const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
        shim().m_hidden = hidden;
        EXPECT_NO_THROW(body());
        expectNothingLive();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

/// The text of the `Expected` that `act` throws; any other exception goes on.
template <class Expected>
std::string textOf(const std::function<void()>& act)
{
    try
    {
        act();
    }
    catch (const Expected& exception)
    {
        return exception.what();
    }
    return "";
}

/// 1 by 2 elements of zeros.
TypedArray zeros(const ElementType& type)
{
    ArrayFactory factory;
    Buffer elements = factory.createBuffer(type.m_type, 2);
    std::memset(elements.get(), 0, 2 * type.m_width);
    return {factory.createArrayFromBuffer(type.m_type, {1, 2}, std::move(elements)), type};
}

void readZeros(const ElementType& type)
{
    const TypedArray array = zeros(type);
    EXPECT_EQ(array.array().getNumberOfElements(), 2U);
    EXPECT_EQ(array.array().getDimensions(), (std::vector<std::size_t>{1, 2}));
    const auto [begin, end] = array.elements();
    EXPECT_EQ(std::string(begin, end), std::string(2 * type.m_width, '\0'));
}

/// What the client is used for, with the required operations that each use calls
/// where the library has none of the optional ones.
struct
{
    Indices m_calls;
    void (*m_run)();
} const kUses[] = {
    {{14, 15}, [] { ArrayFactory(); }},
    {{11, 13, 14, 15, 50}, [] { zeros(kDouble); }},
    {{11, 13, 14, 15, 50, 51, 52, 53, 57, 58, 59, 64, 71}, [] { readZeros(kDouble); }},
    {{11, 13, 14, 15, 23, 50, 51, 52, 53, 57, 58, 59, 64, 72, 94}, [] { readZeros(kComplex); }},
    {{11, 13, 14, 15, 50, 53, 55, 57, 59, 64, 71}, [] { zeros(kDouble).writableElements(); }},
    {{11, 13, 14, 15, 50, 53, 59, 60}, [] { zeros(kDouble).release(); }},
    {{11, 13, 14, 15, 50, 53, 59, 60}, [] { zeros(kComplex).copyElements(); }},
};

TEST(Gate, MissingIndexStopsTheUsesThatNeedItAndNoOther)
{
    // What the library can't destroy isn't made.
    std::map<int, Indices> makers = {{15, {14}}, {50, {11}}, {64, {57, 58}}, {23, {72}}};
    for (const int missing :
         {11, 13, 14, 15, 23, 50, 51, 52, 53, 55, 57, 58, 59, 60, 64, 71, 72, 94})
    {
        inOwnProcess(kOptional, [&] {
            shim().m_hidden.insert(missing);
            const bool stopsCreation = missing == 11 || missing == 50;
            EXPECT_EQ(textOf<MissingFeature>(ArrayFactory::requireCreationFromBuffer),
                      stopsCreation ? kMissing1a : "");
            for (const auto& [calls, run] : kUses)
            {
                const std::string expected = calls.count(missing) != 0 ? kMissing1a : "";
                EXPECT_EQ(textOf<MissingFeature>(run), expected);
                expectNothingLive();
            }
            for (const int maker : makers[missing])
                EXPECT_EQ(called().count(maker), 0U) << missing << ' ' << maker;
            shim().m_hidden = kOptional; // the failure isn't remembered
            for (const auto& [calls, run] : kUses)
                run();
        });
    }
}

TEST(Gate, OptionalIndicesAreReplacedAndCodesComeOutOfEveryOperation)
{
    for (const Indices& hidden : {Indices(), kOptional})
    {
        inOwnProcess(hidden, [&] {
            for (const auto& [expectedCalls, run] : kUses)
            {
                shim().start();
                run();
                EXPECT_TRUE(hidden.empty() || called() == expectedCalls);
                const std::vector<int> calls = shim().m_trace;
                for (std::size_t k = 0; k < calls.size(); ++k)
                {
                    if (kCannotFail.count(calls[k]) != 0)
                        continue;
                    shim().start(static_cast<long>(k), 1, 19);
                    EXPECT_EQ(textOf<OutOfMemory>(run), kNoMemory) << calls[k];
                    expectNothingLive();
                }
            }
            EXPECT_EQ(shim().m_layout, hidden.empty() ? 0 : -1);
            for (const int replaced : {11, 57, 58, 72, 94})
                EXPECT_EQ(shim().m_lookups.count(replaced), hidden.empty() ? 0U : 1U);
            for (const auto& [index, times] : shim().m_lookups)
                EXPECT_EQ(times, 1) << index;
        });
    }
}

TEST(Gate, NamesTheReleaseThatHasTheOperation)
{
    shim().m_hidden = {110};
    const std::map<int, const char*> releases = {{108, "Tide1a"}, {109, "Tide1b"}, {110, "Tide2a"},
                                                 {117, "Tide2a"}, {118, "Tide3b"}, {122, "Tide3b"},
                                                 {123, "FUTURE"}};
    for (const auto& [index, label] : releases)
        EXPECT_EQ(textOf<MissingFeature>([i = index] { resolve_required(i); }), kMissing + label);
}

template <int N>
void expectThrown(std::int32_t code, const std::string& text)
{
    using Expected = ArrayException<Exception, N>;
    static_assert(!std::is_base_of_v<std::runtime_error, Expected>);
    const auto act = [code] { throw_if_error(code, "the caller's"); };
    EXPECT_THROW(act(), Expected) << code;
    EXPECT_EQ(textOf<Exception>(act), text) << code;
    EXPECT_EQ(textOf<std::exception>(act), text) << code;
}

TEST(Codes, HaveAClassAndATextEach)
{
    EXPECT_NO_THROW(throw_if_error(0, "the caller's"));
    expectThrown<9>(9, "Array type mismatch.");
    expectThrown<19>(19, kNoMemory);
    expectThrown<26>(26, "Number of elements exceeds max.");
    expectThrown<28>(28, "the caller's");
    expectThrown<29>(29, "the caller's");
    for (const int code : {4, 20, 22, 30, -1})
        expectThrown<20>(code, "System Error.");
}

TEST(Handle, IsMadePrivateBeforeAWriteAndReleasedWhenAlone)
{
    inOwnProcess({}, [] {
        const auto read = [](const TypedArray& array) { return *array.elements().first; };
        TypedArray first = zeros(kDouble);
        TypedArray second = first;
        const char* const elements = second.elements().first;
        *first.writableElements() = 7;
        EXPECT_FALSE(shim().m_flags[55]); // not alone
        EXPECT_TRUE(shim().m_flags[114]); // for writing
        EXPECT_EQ(read(first), 7);
        EXPECT_EQ(read(second), 0);
        EXPECT_FALSE(shim().m_flags[114]);
        EXPECT_EQ(second.writableElements(), elements); // alone: no copy
        EXPECT_TRUE(shim().m_flags[55]);

        *second.writableElements() = 8;
        const Buffer copy = second.copyElements();
        EXPECT_FALSE(shim().m_flags[60]);
        EXPECT_NE(copy.get(), elements);
        EXPECT_EQ(*static_cast<char*>(copy.get()), 8);
        EXPECT_TRUE(second.array().isSoleOwner());
        Buffer own;
        own = second.release();
        EXPECT_TRUE(shim().m_flags[60]);
        const Buffer moved = std::move(own);
        EXPECT_EQ(moved.get(), elements);
        EXPECT_EQ(read(first), 7);

        // Every access asks whether the elements are of this type.
        TypedArray wrong(first.array(), kComplex);
        const char* const refusal = "Can't convert the Array to this TypedArray";
        EXPECT_EQ(textOf<ArrayTypeMismatch>([&] { wrong.elements(); }), refusal);
        EXPECT_EQ(textOf<ArrayTypeMismatch>([&] { wrong.writableElements(); }), refusal);
        EXPECT_EQ(textOf<ArrayTypeMismatch>([&] { wrong.release(); }), refusal);
        EXPECT_EQ(wrong.array().getImpl(), first.array().getImpl());
        EXPECT_EQ(read(first), 7);
    });
}
} // namespace
