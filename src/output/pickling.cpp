#include "output/pickling.h"

#include "module/class_table.h"
#include "output/nested_list.h"

namespace vellum
{
PyObject* reduceArray(PyObject*, MDArrayView& view)
{
    const PyRef options(callOut(PyDict_New));
    if (!options)
    {
        return nullptr;
    }
    if (view.m_isComplex && callOut(PyDict_SetItemString, options.get(), "is_complex", Py_True) < 0)
    {
        return replaceError(PyExc_RuntimeError, "unable to insert 'is_complex' value into dict.");
    }
    if (!view.checkFits())
    {
        return nullptr;
    }
    MDArrayView integersOnly(view);
    if (integersOnly.hasFinalSlice())
    {
        integersOnly.removeFinalSlice();
    }
    const PyRef list(visitElementType(
        integersOnly.m_sharedMDA->m_arrayType,
        [&]<class T>(std::type_identity<T>) { return toNestedList<T>(integersOnly); }));
    if (!list)
    {
        return nullptr;
    }
    const PyRef arguments(callOut(PyTuple_Pack, 2, options.get(), list.get()));
    if (!arguments)
    {
        return nullptr;
    }
    auto* type = reinterpret_cast<PyObject*>(&arrayClass(integersOnly.m_supportedArrayEnum));
    return callOut(PyTuple_Pack, 2, type, arguments.get());
}

} // namespace vellum
