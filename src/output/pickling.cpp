#include "output/pickling.h"

#include "output/nested_list.h"

namespace vellum
{
PyObject* reduceArray(PyObject*, MDArrayView& view)
{
    const ElementType& type = view.record().type();
    const PyRef options = checked(callOut(PyDict_New));
    if (type.m_isComplex && callOut(PyDict_SetItemString, options.get(), "is_complex", Py_True) < 0)
    {
        throw PythonError();
    }
    view.requireFit();
    const PyRef list =
        buildList(view.sharedRecord(), selectRegion(view.record(), view.integers(), nullptr));
    const PyRef arguments = checked(callOut(PyTuple_Pack, 2, options.get(), list.get()));
    return checked(callOut(PyTuple_Pack, 2, &arrayClass(type.m_kind), arguments.get())).release();
}

} // namespace vellum
