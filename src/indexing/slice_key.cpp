#include "indexing/slice_key.h"

namespace vellum
{
namespace
{
constexpr const char* kNoFinalSlice =
    "unable to retrieve index values from slice in final position.";

bool raiseZeroStep()
{
    raise(PyExc_ValueError, "slice step cannot be zero.");
    return false;
}
} // namespace

bool raiseRefusal(const IndexRefusal& refusal)
{
    raise(refusal.m_category == IndexRefusal::Category::Value ? PyExc_ValueError
                                                              : PyExc_RuntimeError,
          refusal.m_text);
    return false;
}

bool readSliceKey(PyObject* slice, Py_ssize_t len, SliceIndexItem& item)
{
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = 0;
    const bool isUnpacked = PySlice_Unpack(slice, &start, &stop, &step) >= 0;
    if (step == 0)
    {
        return raiseZeroStep(); // also in place of the error of a step that is no integer
    }
    if (!isUnpacked)
    {
        return false;
    }
    const Py_ssize_t length = PySlice_AdjustIndices(len, &start, &stop, step);
    item = {start, stop, step, length, false};
    IndexRefusal refusal;
    if (!item.normalize(len, refusal))
    {
        raise(PyExc_ValueError, "index has an invalid value: (" + std::to_string(start) + ":" +
                                    std::to_string(stop) + ":" + std::to_string(step) + ")");
        return false;
    }
    return true;
}

bool indexIntoFinalSlice(const MDArrayView& view, IntegerIndexItem& item)
{
    IndexRefusal refusal{IndexRefusal::Category::Runtime, kNoFinalSlice};
    const SliceIndexItem* slice = view.finalSlice();
    return (slice != nullptr && indexIntoSlice(*slice, item, refusal)) || raiseRefusal(refusal);
}

bool composeWithFinalSlice(const MDArrayView& view, SliceIndexItem& item)
{
    IndexRefusal refusal{IndexRefusal::Category::Runtime, kNoFinalSlice};
    const SliceIndexItem* slice = view.finalSlice();
    return (slice != nullptr && composeWithSlice(*slice, item, refusal)) || raiseRefusal(refusal);
}

} // namespace vellum
