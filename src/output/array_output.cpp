#include "output/array_output.h"

#include "interpreter/module_state.h"

namespace vellum
{
namespace
{
/// What went wrong inside goes to the standard error stream; the caller hears the
/// text alone.
[[noreturn]] void printAndRaise(const char* text)
{
    if (PyErr_Occurred() != nullptr)
    {
        callOut(PyErr_Print);
    }
    raise(PyExc_RuntimeError, text);
}
} // namespace

PyObject* toArrayArray(PyObject* self, MDArrayView& view)
{
    const bool isVector = view.isAtLastDimension();
    const int code = view.record().type().kind().m_arrayCode;
    const PyRef iterator = checked(callOut(PyObject_GetIter, self));
    const PyRef arguments(callOut(Py_BuildValue, "CO", code, iterator.get()));
    if (!arguments)
    {
        printAndRaise("unable to set arg tuple.");
    }
    PyRef result(callOut(PyObject_CallObject, arrayArrayClass(), arguments.get()));
    if (!result)
    {
        printAndRaise(isVector ? "toarray() failed."
                               : "toarray() can be called only on a one-dimensional sequence.");
    }
    return result.release();
}

} // namespace vellum
