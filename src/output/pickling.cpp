#include "output/pickling.h"

#include "module/class_table.h"
#include "output/nested_list.h"

namespace vellum
{
PyObject* reduceArray(PyObject*, MDArrayView& view)
{
    if (!view.checkFits())
    {
        return nullptr;
    }
    const PyRef options(PyDict_New());
    if (!options)
    {
        return nullptr;
    }
    if (view.m_isComplex && PyDict_SetItemString(options.get(), "is_complex", Py_True) < 0)
    {
        return raise(PyExc_RuntimeError, "unable to insert 'is_complex' value into dict.");
    }
    MDArrayView integersOnly(view);
    if (integersOnly.hasFinalSlice())
    {
        integersOnly.removeFinalSlice();
    }
    const PyRef list(
        visitElementType(view.m_sharedMDA->m_arrayType, [&]<class T>(std::type_identity<T>) {
            return toNestedList<T>(integersOnly);
        }));
    if (!list)
    {
        return nullptr;
    }
    const PyRef arguments(PyTuple_Pack(2, options.get(), list.get()));
    if (!arguments)
    {
        return nullptr;
    }
    auto* type = reinterpret_cast<PyObject*>(&arrayClass(view.m_supportedArrayEnum));
    return PyTuple_Pack(2, type, arguments.get());
}

} // namespace vellum
