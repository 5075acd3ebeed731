#include "output/array_output.h"

#include "indexing/iterator.h"
#include "interpreter/module_state.h"

namespace vellum
{
namespace
{
void printPendingError()
{
    if (PyErr_Occurred() != nullptr)
    {
        callOut(PyErr_Print);
        PyErr_Clear();
    }
}
} // namespace

PyObject* toArrayArray(PyObject* self, MDArrayView& view)
{
    const PyRef iterator(makeIterator(self, view));
    if (!iterator)
    {
        return nullptr;
    }
    const int code = kindInfo(view.m_supportedArrayEnum).m_arrayCode;
    const auto& record = *view.m_sharedMDA;
    const bool isVector = record.m_nDim - view.m_numberOfIntegerIndicesSoFar == 1;
    const PyRef arguments(callOut(Py_BuildValue, "CO", code, iterator.get()));
    if (!arguments)
    {
        printPendingError();
        return raise(PyExc_RuntimeError, "unable to set arg tuple.");
    }
    if (arrayArrayClass() == nullptr)
    {
        return raise(PyExc_RuntimeError, kNoArrayArrayClass);
    }
    PyRef result(callOut(PyObject_CallObject, arrayArrayClass(), arguments.get()));
    if (!result)
    {
        printPendingError();
        return raise(PyExc_RuntimeError,
                     isVector ? "toarray() failed."
                              : "toarray() can be called only on a one-dimensional sequence.");
    }
    return result.release();
}

} // namespace vellum
