#include "base/element_width.h"
#include "dataclient/array_factory.h"
#include "interpreter/guard.h"
#include "storage/array_view.h"

#include <gtest/gtest.h>
#include <numeric>
#include <sstream>
#include <utility>

using namespace vellum;

namespace
{
/// Of `count` numbers, real ones or parts, from -2 on.
std::shared_ptr<MDArrayWrapper> makeRecord(const ElementType& type,
                                           const std::vector<std::size_t>& dims, int count)
{
    data::ArrayFactory factory;
    const auto bytes = static_cast<std::size_t>(count);
    data::Buffer elements = factory.createBuffer(type.m_type, bytes / type.m_width);
    auto* const numbers = static_cast<std::int8_t*>(elements.get());
    std::iota(numbers, numbers + count, std::int8_t(-2));
    return std::make_shared<MDArrayWrapper>(
        factory.createArrayFromBuffer(type.m_type, dims, std::move(elements)), type);
}

TEST(Diagnostics, TellARecordAndAView)
{
    const auto record = makeRecord(ElementTraits<std::complex<std::int8_t>>::kType, {2, 3}, 12);
    MDArrayView view(MDArrayView(MDArrayView(record), 1), SliceIndexItem{2, -1, 3});
    record->addExport();
    *record->writableElements().m_elements = 99; // not in the block
    view.keepIndexedArray(data::Array(), record->changes());

    std::ostringstream text;
    text << view;
    EXPECT_EQ(text.str(), "m_array: (99,-1) (0,1) (2,3) (4,5) (6,7) (8,9) \n"
                          "m_shape: 2 3 \n"
                          "m_bytewiseStrides: 2 4 \n"
                          "m_exports: 1\n"
                          "m_numElems: 6\n"
                          "m_bufferSizeInBytes: 12\n"
                          "m_buf: (-2,-1) (0,1) (2,3) (4,5) (6,7) (8,9) \n"
                          "vellum.int8, complex\n"
                          "m_integers: 1 \n"
                          "m_finalSlice: 2 -1 3\n"
                          "m_indexedArrayAsMDA: kept\n");

    std::ostringstream ofReals;
    ofReals << *makeRecord(ElementTraits<std::int8_t>::kType, {1, 2}, 2);
    EXPECT_EQ(ofReals.str().substr(0, 15), "m_array: -2 -1 ");
}

TEST(Guard, TurnsWhatIsNoExceptionIntoAnError)
{
    Py_Initialize();
    EXPECT_EQ(guarded([]() -> int { throw 5; }), -1);
    EXPECT_NE(PyErr_ExceptionMatches(PyExc_RuntimeError), 0);
    PyErr_Clear();
}

TEST(Visitors, RefuseWhatIsNoElement)
{
    const auto visit = [](auto) {};
    EXPECT_THROW(visitElementType(kNoType, visit), std::runtime_error);
    EXPECT_THROW(visitElementType(1000, visit), std::runtime_error);
    EXPECT_THROW(visitElementWidth(3, visit), std::runtime_error);
}
} // namespace
