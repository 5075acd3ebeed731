#include "indexing/slice_key.h"

#include "interpreter/foreign_code.h"
#include "interpreter/python_error.h"

namespace vellum
{
namespace
{
constexpr const char* kZeroStep = "slice step cannot be zero.";

/// What no step becomes: the interpreter replaces it by its successor.
constexpr Py_ssize_t kStepNotRead = PY_SSIZE_T_MIN;
} // namespace

Py_ssize_t readIntegerKey(PyObject* key)
{
    const Py_ssize_t index = callOut(PyLong_AsSsize_t, key);
    if (index == -1 && PyErr_Occurred() != nullptr)
    {
        throw PythonError();
    }
    return index;
}

void requireSliceKey(PyObject* key)
{
    if (Py_TYPE(key) != &PySlice_Type)
    {
        raise(PyExc_RuntimeError, "index is not an integer or slice.");
    }
}

SliceIndexItem readSliceKey(PyObject* slice, Py_ssize_t len)
{
    Py_ssize_t start = 0;
    Py_ssize_t stop = 0;
    Py_ssize_t step = kStepNotRead;
    if (callOut(PySlice_Unpack, slice, &start, &stop, &step) < 0)
    {
        if (step == 0)
        {
            overrideError(PyExc_ValueError, kZeroStep);
        }
        if (step == kStepNotRead)
        {
            replaceError(PyExc_ValueError, kZeroStep);
        }
        throw PythonError();
    }
    const Py_ssize_t length = PySlice_AdjustIndices(len, &start, &stop, step);
    return length == 0 ? SliceIndexItem() : SliceIndexItem{start, step, length};
}

} // namespace vellum
