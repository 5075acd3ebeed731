#include "indexing/slice_key.h"

namespace vellum
{
namespace
{
constexpr const char* kNoFinalSlice =
    "unable to retrieve index values from slice in final position.";
constexpr const char* kZeroStep = "slice step cannot be zero.";

/// What no step becomes: the interpreter replaces it by its successor.
constexpr Py_ssize_t kStepNotRead = PY_SSIZE_T_MIN;
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
    Py_ssize_t step = kStepNotRead;
    if (callOut(PySlice_Unpack, slice, &start, &stop, &step) < 0)
    {
        if (step == 0)
        {
            raise(PyExc_ValueError, kZeroStep);
        }
        else if (step == kStepNotRead)
        {
            replaceError(PyExc_ValueError, kZeroStep);
        }
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
