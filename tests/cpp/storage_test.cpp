#include "dataclient/array_factory.h"
#include "interpreter/guard.h"
#include "storage/array_view.h"

#include <gtest/gtest.h>
#include <numeric>
#include <sstream>

using namespace vellum;

namespace
{
TEST(Diagnostics, TellARecordAndAView)
{
    const ElementType& type = ElementTraits<std::complex<std::int8_t>>::kType;
    data::ArrayFactory factory;
    data::Buffer elements = factory.createBuffer(type.m_type, 4);
    auto* const numbers = static_cast<std::int8_t*>(elements.get());
    std::iota(numbers, numbers + 8, std::int8_t(-2));
    const auto record = std::make_shared<MDArrayWrapper>(
        factory.createArrayFromBuffer(type.m_type, {2, 2}, std::move(elements)), type);
    MDArrayView view(MDArrayView(MDArrayView(record), 1), SliceIndexItem{2, -1, 3});
    record->addExport();
    *record->writableElements().m_elements = 99; // not in the block
    view.keepIndexedArray(data::Array(), record->changes());

    std::ostringstream text;
    text << view;
    EXPECT_EQ(text.str(), "m_array: (99,-1) (0,1) (2,3) (4,5) \n"
                          "m_shape: 2 2 \n"
                          "m_bytewiseStrides: 2 4 \n"
                          "m_exports: 1\n"
                          "m_numElems: 4\n"
                          "m_bufferSizeInBytes: 8\n"
                          "m_buf: (-2,-1) (0,1) (2,3) (4,5) \n"
                          "vellum.int8, complex\n"
                          "m_integers: 1 \n"
                          "m_finalSlice: 2 -1 3\n"
                          "m_indexedArrayAsMDA: kept\n");
}

TEST(Guard, TurnsWhatIsNoExceptionIntoAnError)
{
    Py_Initialize();
    EXPECT_EQ(guarded([]() -> int { throw 5; }), -1);
    EXPECT_NE(PyErr_ExceptionMatches(PyExc_RuntimeError), 0);
    PyErr_Clear();
}

} // namespace
