#include "dataclient/array_factory.h"
#include "dataclient/service_table.h"
#include "scripted_service.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace vellum;
using namespace vellum::data;
using namespace vellum::data::detail;
using scripted::script;
using Complex = std::complex<double>;
using Indices = std::set<int>;

namespace
{
const char* const kMissing = "This feature requires Tide1a";
const char* const kNoMemory = "Not enough memory available to support the request.";
const char* const kRefused = "Can't convert the Array to this TypedArray";
const Indices kOptional = {110, 113, 114, 115};

void expectNothingLive()
{
    EXPECT_TRUE(script().live.empty());
    EXPECT_EQ(script().badFrees, 0);
}

/// The client's caches last as long as its process, so every test that reaches
/// the service runs in one of its own. Nothing may be left when it ends.
void inOwnProcess(const std::function<void()>& body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
    {
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

TypedArray<double> scalar()
{
    return ArrayFactory().createScalar(2.5);
}

template <class T>
void expectOneElement(const TypedArray<T>& array, T value)
{
    EXPECT_EQ(array.getDimensions(), (std::vector<std::size_t>{1, 1}));
    EXPECT_EQ(array.getNumberOfElements(), 1U);
    EXPECT_EQ(array.end() - array.begin(), 1);
    EXPECT_EQ(*array.begin(), value);
}

TypedArray<float> adopted(MemoryLayout layout = MemoryLayout::ColumnMajor)
{
    ArrayFactory factory;
    return factory.createArrayFromBuffer({2, 3}, factory.createBuffer<float>(6), layout);
}

/// What the client is used for, and the required operations that each use calls
/// where the library has none of the optional ones.
struct Road
{
    Indices m_uses;
    void (*m_walk)();
};
const Road kRoads[] = {
    {{49, 50}, [] { Array(); }},
    {{3, 14, 15, 50}, [] { scalar(); }},
    {{11, 13, 14, 15, 50}, [] { adopted(); }},
    {{3, 14, 15, 50, 53, 59}, [] { TypedArray<double>(Array(scalar())); }},
    {{3, 14, 15, 50, 51, 52, 57, 58, 64, 71}, [] { expectOneElement(scalar(), 2.5); }},
    {{3, 14, 15, 50, 55, 57, 64, 71}, [] { EXPECT_EQ(*scalar().begin(), 2.5); }},
    {{3, 14, 15, 50, 60}, [] { EXPECT_EQ(*scalar().release().get(), 2.5); }},
    {{1, 14, 15, 23, 50, 51, 52, 53, 55, 56, 57, 58, 64, 72, 94, 96},
     [] { expectOneElement(ArrayFactory().createScalar(Complex(1.5, -2)), Complex(1.5, -2)); }},
};

TEST(Gate, NamesTheReleaseOfAMissingIndex)
{
    const std::pair<int, const char*> releases[] = {
        {2, "Tide1a"},   {108, "Tide1a"}, {109, "Tide1b"}, {110, "Tide2a"}, {117, "Tide2a"},
        {118, "Tide3b"}, {122, "Tide3b"}, {123, "FUTURE"}, {200, "FUTURE"}};
    inOwnProcess([&] {
        script().hidden = kOptional;
        for (const auto& [index, label] : releases)
        {
            const std::string text = std::string("This feature requires ") + label;
            EXPECT_EQ(textOf<MissingFeature>([i = index] { resolve_required(i); }), text);
        }
    });
}

TEST(Gate, MissingIndexStopsTheRoadsThatNeedItAndNoOther)
{
    // What the library can't destroy isn't made.
    std::map<int, Indices> made = {
        {15, {14}}, {50, {1, 3, 11, 49}}, {64, {57, 58}}, {23, {56, 72}}};
    for (const int missing :
         {1, 3, 11, 13, 14, 15, 23, 49, 50, 51, 52, 53, 55, 56, 57, 58, 59, 60, 64, 71, 72, 94, 96})
    {
        inOwnProcess([&] {
            script().hidden = kOptional;
            script().hidden.insert(missing);
            for (int use = 0; use < 2; ++use)
            {
                for (const auto& [uses, walk] : kRoads)
                {
                    EXPECT_EQ(textOf<MissingFeature>(walk), uses.count(missing) ? kMissing : "");
                    expectNothingLive();
                }
            }
            for (const int maker : made[missing])
                EXPECT_EQ(script().called.count(maker), 0U) << missing << ' ' << maker;
            script().hidden = kOptional; // the gate's failure isn't remembered
            std::for_each(std::begin(kRoads), std::end(kRoads), [](auto& road) { road.m_walk(); });
        });
    }
}

TEST(Gate, OptionalIndicesAreAskedForOnceAndReplaced)
{
    for (const Indices& hidden : {Indices(), kOptional})
    {
        inOwnProcess([&] {
            script().hidden = hidden;
            for (const auto& [uses, walk] : kRoads)
            {
                script().called.clear();
                walk();
                EXPECT_TRUE(hidden.empty() || script().called == uses);
            }
            for (const auto& [index, times] : script().lookups)
                EXPECT_EQ(times, 1) << index;
            for (const int replaced : {11, 57, 58, 72, 94})
                EXPECT_EQ(script().lookups.count(replaced), hidden.empty() ? 0U : 1U);
        });
    }
}

TEST(Gate, RowMajorBuffersNeedTheirOperation)
{
    inOwnProcess([] {
        script().hidden = {50, 110}; // told before the gate is asked for anything
        EXPECT_EQ(textOf<MissingFeature>([] { adopted(MemoryLayout::RowMajor); }),
                  "Row-major buffers require Tide2a");
        expectNothingLive();
        EXPECT_EQ(script().lookups.count(50) + script().lookups.count(11), 0U);
    });
    inOwnProcess([] {
        adopted(MemoryLayout::RowMajor);
        EXPECT_EQ(script().layout, 1);
        adopted();
        EXPECT_EQ(script().layout, 0);
    });
}

template <int N>
void expectThrown(const std::vector<std::int32_t>& codes, const std::string& text)
{
    using Expected = ArrayException<Exception, N>;
    static_assert(!std::is_base_of_v<std::runtime_error, Expected>);
    for (const std::int32_t code : codes)
    {
        const auto act = [code] { throw_if_error(code, N == 28 ? "" : "the caller's"); };
        EXPECT_THROW(act(), Expected) << code;
        EXPECT_EQ(textOf<Exception>(act), text) << code;
        EXPECT_EQ(textOf<std::exception>(act), text) << code;
    }
}

TEST(Codes, HaveAClassAndATextEach)
{
    EXPECT_NO_THROW(throw_if_error(0, "the caller's"));
    expectThrown<1>({1}, "Array index is invalid.");
    expectThrown<2>({2}, "String index must be last.");
    expectThrown<3>({3}, "String index not valid for this array.");
    expectThrown<5>({5}, "Not enough indices provided.");
    expectThrown<6>({6}, "Too many indices provided.");
    expectThrown<7>({7}, "Can only provide one string index.");
    expectThrown<8>({8}, "Data type mismatch.");
    expectThrown<9>({9}, "Array type mismatch.");
    expectThrown<10>({10}, "Field does not exist in this struct.");
    expectThrown<13>({13}, "Must specify a class name.");
    expectThrown<14>({14}, "Wrong number of enums supplied.");
    expectThrown<16>({16}, "Can't create a std::string from this data.");
    expectThrown<18>({18}, "Duplicate field names not allowed.");
    expectThrown<19>({19}, kNoMemory);
    expectThrown<20>({4, 11, 12, 15, 17, 20, 22, 30, 51, INT_MAX, -1, -31, INT_MIN},
                     "System Error.");
    expectThrown<21>({21}, "Can't index into an empty array.");
    expectThrown<23>({23}, "Memory layout mismatch.");
    expectThrown<24>({24}, "Memory layout mismatch.");
    expectThrown<25>({25}, "Memory layout mismatch.");
    expectThrown<26>({26}, "Number of elements exceeds max.");
    expectThrown<27>({27}, "ObjectArray not created. Elements must belong to the same class, or to "
                           "classes that are part of a heterogeneous hierarchy.");
    expectThrown<28>({28}, "");
    expectThrown<29>({29}, "the caller's");
}

TEST(Codes, ComeOutOfEveryOperationAndLeaveNothingBehind)
{
    for (const Indices& hidden : {Indices(), kOptional})
    {
        inOwnProcess([&] {
            script().hidden = hidden;
            for (const int failing :
                 {1, 3, 11, 13, 14, 49, 53, 55, 56, 57, 58, 59, 60, 72, 94, 96, 110, 114, 115})
            {
                script().codes = {{failing, 19}};
                for (const auto& [uses, walk] : kRoads)
                {
                    script().called.clear();
                    const std::string text = textOf<OutOfMemory>(walk);
                    EXPECT_EQ(text, script().called.count(failing) ? kNoMemory : "") << failing;
                    expectNothingLive();
                }
            }
        });
    }
}

TEST(Handle, SharesMovesAndDestroysOnce)
{
    inOwnProcess([] {
        Array first = scalar();
        auto* const impl = first.getImpl();
        Array second = first;
        EXPECT_FALSE(first.isSoleOwner() || second.isSoleOwner());
        Array third = std::move(first);
        const Array& movedFrom = first; // NOLINT(bugprone-use-after-move)
        EXPECT_TRUE(movedFrom.getImpl() == nullptr && !movedFrom.isSoleOwner()); // NOLINT
        second = Array();
        EXPECT_TRUE(second.getDimensions().empty());
        third = *&third;
        third = std::move(*&third);
        EXPECT_TRUE(third.getImpl() == impl && third.isSoleOwner());
        second = std::move(third);
        EXPECT_EQ(script().live.size(), 2U); // the array and its elements
        EXPECT_TRUE(script().flags.empty()); // nothing was unshared, released or read
    });
}

TEST(Handle, IsMadePrivateBeforeAWrite)
{
    inOwnProcess([] {
        auto first = scalar();
        auto* const impl = first.getImpl();
        auto second = first;
        *first.begin() = 7;
        EXPECT_FALSE(script().flags[55]);
        EXPECT_TRUE(script().flags[114]); // writable
        EXPECT_TRUE(first.isSoleOwner() && second.isSoleOwner());
        EXPECT_EQ(second.getImpl(), impl);
        expectOneElement(second, 2.5);
        EXPECT_FALSE(script().flags[114]);
        *second.begin() = 8; // alone: no copy
        EXPECT_TRUE(script().flags[55]);
        EXPECT_EQ(second.getImpl(), impl);
        script().copiesOnUnshare = [](bool) { return true; }; // the old array goes
        *second.begin() = 9;
        EXPECT_NE(second.getImpl(), impl);
        script().copiesOnUnshare = [](bool) { return false; };
        const auto third = second;
        *second.begin() = 10;
        EXPECT_EQ(second.getImpl(), third.getImpl());
        expectOneElement(third, 10.0);
        expectOneElement(first, 7.0);
        EXPECT_EQ(script().live.size(), 4U);
    });
}

TEST(Handle, ReleasesItsStorageOnlyWhenAlone)
{
    inOwnProcess([] {
        auto first = scalar();
        auto second = first;
        const double* const elements = std::as_const(first).begin().address();
        const auto copy = second.release();
        EXPECT_FALSE(script().flags[60]);
        EXPECT_NE(copy.get(), elements);
        expectOneElement(first, 2.5);
        second = scalar();
        auto own = first.release();
        EXPECT_TRUE(script().flags[60]);
        EXPECT_EQ(own.get(), elements);
        const auto moved = std::move(own);
        EXPECT_EQ(*moved.get() + *copy.get(), 5);
    });
}

TEST(Handle, ComesBackFromARefusedConversion)
{
    inOwnProcess([] {
        Array source = scalar();
        auto* const impl = source.getImpl();
        const auto refuse = [&](auto convert) {
            EXPECT_EQ(textOf<ArrayTypeMismatch>(convert), kRefused);
            EXPECT_EQ(source.getImpl(), impl);
            EXPECT_TRUE(source.isSoleOwner());
        };
        refuse([&] { TypedArray<float>(std::move(source)); });
        refuse([&] { TypedArray<Complex>{source}; });
        refuse([&] { CharArray(std::move(source)); });
        script().convertible = false; // asked on every road of the dispatch too
        refuse([&] { apply_numeric_visitor(std::move(source), [](auto&&) { ADD_FAILURE(); }); });
        refuse([&] { apply_numeric_visitor(source, [](auto&&) { ADD_FAILURE(); }); });
    });
}

TEST(Dispatch, ReachesTheTypedFormOfEveryType)
{
    const std::tuple<ArrayType, std::size_t, const char*> rows[] = {
        {0, 1, "?"},    {1, 2, nullptr}, {3, 8, "d"},    {4, 4, "f"},   {5, 1, "b"},
        {6, 1, "B"},    {7, 2, "h"},     {8, 2, "H"},    {9, 4, "i"},   {10, 4, "I"},
        {11, 8, "q"},   {12, 8, "Q"},    {13, 16, "Zd"}, {14, 8, "Zf"}, {15, 2, "Zb"},
        {16, 2, "ZB"},  {17, 4, "Zh"},   {18, 4, "ZH"},  {19, 8, "Zi"}, {20, 8, "ZI"},
        {21, 16, "Zq"}, {22, 16, "ZQ"}};
    inOwnProcess([&] {
        using Seen = std::tuple<ArrayType, std::size_t, bool, bool>;
        const auto visitor = [](const auto& array) {
            using Typed = std::decay_t<decltype(array)>;
            return Seen(Typed::kType, sizeof(typename Typed::Element),
                        std::is_same_v<Typed, CharArray>, array.isSoleOwner());
        };
        for (const auto& [type, width, format] : rows)
        {
            EXPECT_STREQ(formatOfArrayType(type), format);
            Array array = wrapCreatedArray(scripted::makeArray(type));
            EXPECT_EQ(apply_numeric_visitor(array, visitor), Seen(type, width, type == 1, false));
            EXPECT_EQ(apply_numeric_visitor(std::move(array), visitor),
                      Seen(type, width, type == 1, true));
        }
        for (const ArrayType type : {2, 23, -1, INT_MAX})
        {
            EXPECT_EQ(formatOfArrayType(type), nullptr);
            Array array = wrapCreatedArray(scripted::makeArray(type));
            EXPECT_EQ(textOf<ArrayTypeMismatch>(
                          [&] { apply_numeric_visitor(std::move(array), visitor); }),
                      "Invalid type of array passed to apply_numeric_visitor.");
            EXPECT_TRUE(array.isSoleOwner());
        }
    });
}

TEST(Iterator, MovesWithoutTheService)
{
    inOwnProcess([] {
        const auto array = adopted();
        auto iterator = array.begin();
        const auto end = array.end();
        script().called.clear();
        const auto copy = iterator;
        EXPECT_EQ((++iterator).address(), &*copy + 1);
        EXPECT_TRUE(iterator + 5 == end);
        EXPECT_EQ(end - copy, 6);
        EXPECT_TRUE(--iterator == copy);
        EXPECT_TRUE(script().called.empty());
        EXPECT_EQ(array.getDimensions(), (std::vector<std::size_t>{2, 3}));
    });
}
} // namespace
