#include "dataclient/array_factory.h"
#include "dataclient/service_table.h"
#include "tests/native/service_shim.h"

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
using Complex = std::complex<double>;
using Indices = std::set<int>;

namespace
{
const std::string kMissing = "This feature requires ";
constexpr const char* kNoMemory = "Not enough memory available to support the request.";
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

const auto scalar = [] { return ArrayFactory().createScalar(2.5); };

template <class T>
void expectOneElement(const TypedArray<T>& array, T value)
{
    EXPECT_EQ(array.getDimensions(), (std::vector<std::size_t>{1, 1}));
    EXPECT_TRUE(array.getNumberOfElements() == 1 && array.end() - array.begin() == 1);
    EXPECT_EQ(*array.begin(), value);
}

TypedArray<Complex> adopted(MemoryLayout layout = MemoryLayout::ColumnMajor)
{
    ArrayFactory factory;
    return factory.createArrayFromBuffer({2, 3}, factory.createBuffer<Complex>(6), layout);
}

/// What the client is used for, and the required operations that each use calls
/// where the library has none of the optional ones.
const std::pair<Indices, void (*)()> kRoads[] = {
    {{49, 50}, [] { Array(); }},
    {{11, 13, 14, 15, 50}, [] { adopted(); }},
    {{11, 13, 14, 15, 23, 50, 57, 64, 72, 94},
     [] { static_cast<const TypedArray<Complex>&>(adopted()).begin(); }},
    {{3, 14, 15, 50, 53, 59}, [] { TypedArray<double>(Array(scalar())); }},
    {{3, 14, 15, 50, 51, 52, 57, 58, 64, 71}, [] { expectOneElement(scalar(), 2.5); }},
    {{3, 14, 15, 50, 55, 57, 64, 71}, [] { EXPECT_EQ(*scalar().begin(), 2.5); }},
    {{3, 14, 15, 50, 60}, [] { EXPECT_EQ(*scalar().release().get(), 2.5); }},
    {{1, 14, 15, 23, 50, 51, 52, 53, 55, 56, 57, 58, 64, 72, 94, 96},
     [] { expectOneElement(ArrayFactory().createScalar(Complex(1.5, -2)), Complex(1.5, -2)); }},
};

TEST(Gate, MissingIndexStopsTheRoadsThatNeedItAndNoOther)
{
    // What the library can't destroy isn't made.
    std::map<int, Indices> made = {
        {15, {14}}, {50, {1, 3, 11, 49}}, {64, {57, 58}}, {23, {56, 72}}};
    for (const int missing :
         {1, 3, 11, 13, 14, 15, 23, 49, 50, 51, 52, 53, 55, 56, 57, 58, 59, 60, 64, 71, 72, 94, 96})
    {
        inOwnProcess(kOptional, [&] {
            shim().m_hidden.insert(missing);
            for (const auto& [uses, walk] : kRoads)
            {
                for (int use = 0; use < 2; ++use)
                {
                    const std::string text = textOf<MissingFeature>(walk);
                    EXPECT_EQ(text, uses.count(missing) ? kMissing + "Tide1a" : "");
                    expectNothingLive();
                }
            }
            for (const int maker : made[missing])
                EXPECT_EQ(called().count(maker), 0U) << missing << ' ' << maker;
            shim().m_hidden = kOptional; // the gate's failure isn't remembered
            for (const auto& [uses, walk] : kRoads)
                walk();
        });
    }
}

TEST(Gate, OptionalIndicesAreReplacedAndCodesComeOutOfEveryOperation)
{
    for (const Indices& hidden : {Indices(), kOptional})
    {
        inOwnProcess(hidden, [&] {
            for (const auto& [uses, walk] : kRoads)
            {
                shim().start();
                walk();
                EXPECT_TRUE(hidden.empty() || called() == uses);
                const std::vector<int> calls = shim().m_trace;
                for (std::size_t k = 0; k < calls.size(); ++k)
                {
                    if (kCannotFail.count(calls[k]) != 0)
                        continue;
                    shim().start(static_cast<long>(k), 1, 19);
                    EXPECT_EQ(textOf<OutOfMemory>(walk), kNoMemory) << calls[k];
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

TEST(Gate, NamesTheReleaseAndKeepsRowMajorBuffersOut)
{
    inOwnProcess({50, 110}, [] {
        EXPECT_EQ(textOf<MissingFeature>([] { adopted(MemoryLayout::RowMajor); }),
                  "Row-major buffers require Tide2a");
        EXPECT_EQ(shim().m_lookups.count(50) + shim().m_lookups.count(11), 0U); // not the gate
        const std::pair<int, const char*> releases[] = {
            {50, "Tide1a"},  {108, "Tide1a"}, {109, "Tide1b"}, {110, "Tide2a"}, {117, "Tide2a"},
            {118, "Tide3b"}, {122, "Tide3b"}, {123, "FUTURE"}, {200, "FUTURE"}};
        for (const auto& [index, label] : releases)
        {
            const auto resolve = [i = index] { resolve_required(i); };
            EXPECT_EQ(textOf<MissingFeature>(resolve), kMissing + label);
        }
    });
}

template <int N>
void expectThrown(std::int32_t code, const std::string& text)
{
    using Expected = ArrayException<Exception, N>;
    static_assert(!std::is_base_of_v<std::runtime_error, Expected>);
    const auto act = [code] { throw_if_error(code, code == 29 ? "" : "the caller's"); };
    EXPECT_THROW(act(), Expected) << code;
    EXPECT_EQ(textOf<Exception>(act), text) << code;
    EXPECT_EQ(textOf<std::exception>(act), text) << code;
}

template <int... Codes>
void expectTexts(const std::vector<const char*>& texts)
{
    auto text = texts.begin();
    (expectThrown<Codes>(Codes, *text++), ...);
}

TEST(Codes, HaveAClassAndATextEach)
{
    const char* const layout = "Memory layout mismatch.";
    const char* const objects = "ObjectArray not created. Elements must belong to the same class, "
                                "or to classes that are part of a heterogeneous hierarchy.";
    EXPECT_NO_THROW(throw_if_error(0, "the caller's"));
    expectTexts<1, 2, 3, 5, 6, 7, 8, 9, 10>(
        {"Array index is invalid.", "String index must be last.",
         "String index not valid for this array.", "Not enough indices provided.",
         "Too many indices provided.", "Can only provide one string index.", "Data type mismatch.",
         "Array type mismatch.", "Field does not exist in this struct."});
    expectTexts<13, 14, 16, 18, 19, 21>(
        {"Must specify a class name.", "Wrong number of enums supplied.",
         "Can't create a std::string from this data.", "Duplicate field names not allowed.",
         kNoMemory, "Can't index into an empty array."});
    expectTexts<23, 24, 25, 26, 27, 28, 29>(
        {layout, layout, layout, "Number of elements exceeds max.", objects, "the caller's", ""});
    for (const int code : {4, 11, 12, 15, 17, 20, 22, 30, 51, INT_MAX, -1, -31, INT_MIN})
        expectThrown<20>(code, "System Error.");
}

TEST(Handle, IsMadePrivateBeforeAWriteAndReleasedWhenAlone)
{
    inOwnProcess({}, [] {
        auto first = scalar();
        auto second = first;
        auto* const impl = first.getImpl();
        EXPECT_FALSE(first.isSoleOwner() || second.isSoleOwner());
        *first.begin() = 7;
        EXPECT_TRUE(!shim().m_flags[55] && shim().m_flags[114]); // not alone, and for writing
        EXPECT_TRUE(first.isSoleOwner() && second.isSoleOwner());
        expectOneElement(second, 2.5);
        EXPECT_FALSE(shim().m_flags[114]);
        *second.begin() = 8; // alone: no copy
        EXPECT_TRUE(shim().m_flags[55]);
        EXPECT_EQ(second.getImpl(), impl);

        auto third = second;
        const double* const elements = std::as_const(second).begin().address();
        const auto copy = third.release();
        EXPECT_FALSE(shim().m_flags[60]);
        expectOneElement(second, 8.0);
        third = std::move(first);
        EXPECT_TRUE(first.getImpl() == nullptr && second.isSoleOwner()); // NOLINT
        auto own = second.release();
        const auto moved = std::move(own);
        EXPECT_TRUE(shim().m_flags[60] && moved.get() == elements && copy.get() != elements);
        EXPECT_EQ(*moved.get() + *copy.get(), 16);
        expectOneElement(third, 7.0);
    });
}

TEST(Dispatch, ReachesTheTypedFormOfEveryTypeAndRefusesTheRest)
{
    inOwnProcess({}, [] {
        Array array = scalar();
        auto* const impl = array.getImpl();
        const auto visitor = [](const auto& typed) {
            using Typed = std::decay_t<decltype(typed)>;
            EXPECT_EQ(Typed::kType, shim().m_type);
            EXPECT_EQ((std::is_same_v<Typed, CharArray>), Typed::kType == 1);
            return sizeof(typename Typed::Element);
        };
        // Refused, the handle comes back, whether it was shared or moved.
        const auto expectRefused = [&](const std::string& text, auto act) {
            EXPECT_EQ(textOf<ArrayTypeMismatch>(act), text);
            EXPECT_TRUE(array.getImpl() == impl && array.isSoleOwner());
        };
        const char* const noElements = "Invalid type of array passed to apply_numeric_visitor.";
        const char* const refusal = "Can't convert the Array to this TypedArray";
        const auto dispatch = [&] { return apply_numeric_visitor(array, visitor); };
        const auto dispatchMoved = [&] { apply_numeric_visitor(std::move(array), visitor); };
        const std::size_t widths[] = {1, 2,  0, 8, 4, 1, 1, 2, 2, 4,  4, 8,
                                      8, 16, 8, 2, 2, 4, 4, 8, 8, 16, 16};
        for (const ArrayType type : {-1, 0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,
                                     12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, INT_MAX})
        {
            shim().m_type = type;
            if (type < 0 || type == 2 || type > 22)
            {
                expectRefused(noElements, dispatchMoved);
                continue;
            }
            EXPECT_EQ(dispatch(), widths[type]);
        }
        shim().m_type = 3;
        expectRefused(refusal, [&] { TypedArray<float>(std::move(array)); });
        expectRefused(refusal, [&] { TypedArray<Complex>{array}; });
        expectRefused(refusal, [&] { CharArray(std::move(array)); });
        shim().m_isConvertible = false; // asked on every road of the dispatch too
        expectRefused(refusal, dispatch);
        expectRefused(refusal, dispatchMoved);
    });
}
} // namespace
