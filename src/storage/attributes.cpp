#include "storage/attributes.h"

#include "interpreter/containers.h"
#include "storage/selection.h"

namespace vellum
{
Py_ssize_t arrayLength(PyObject*, MDArrayView& view)
{
    return view.currentLength();
}

PyObject* arraySize(PyObject*, MDArrayView& view)
{
    return tupleOf(selectedLengths(view)).release();
}

PyObject* arrayItemsize(PyObject*, MDArrayView& view)
{
    return checked(PyLong_FromSize_t(view.record().type().m_width)).release();
}

PyObject* arrayIsComplex(PyObject*, MDArrayView& view)
{
    return PyBool_FromLong(view.record().type().m_isComplex);
}

} // namespace vellum
