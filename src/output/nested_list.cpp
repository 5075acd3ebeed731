#include "output/nested_list.h"

#include "indexing/element_to_python.h"

namespace vellum
{
namespace
{
PyObject* failList()
{
    // Too deep a nesting keeps its own error.
    if (PyErr_Occurred() == nullptr || !PyErr_ExceptionMatches(PyExc_RecursionError))
    {
        raise(PyExc_RuntimeError, "unable to set list item.");
    }
    return nullptr;
}

template <class T>
PyObject* buildLevel(const Selection& selection, std::size_t depth, const char* address)
{
    if (depth >= selection.dimensions())
    {
        return PyList_New(0);
    }
    const RecursionLevel level(" while building a nested list");
    PyRef list(level.entered() ? PyList_New(selection.m_lengths[depth]) : nullptr);
    if (!list)
    {
        return failList();
    }
    const bool isLast = depth + 1 == selection.dimensions();
    for (Py_ssize_t i = 0; i < selection.m_lengths[depth]; ++i)
    {
        PyObject* item =
            isLast ? elementToPython<T>(address) : buildLevel<T>(selection, depth + 1, address);
        if (item == nullptr)
        {
            return failList();
        }
        PyList_SET_ITEM(list.get(), i, item);
        address += selection.m_strides[depth];
    }
    return list.release();
}
} // namespace

template <class T>
PyObject* buildList(const Selection& selection)
{
    return buildLevel<T>(selection, 0, selection.m_base);
}

template <class T>
PyObject* toNestedList(const MDArrayView& view)
{
    const auto selection = selectionOf(view);
    return selection ? buildList<T>(*selection) : nullptr;
}

#define VELLUM_INSTANTIATE(T)                                                                      \
    template PyObject* buildList<T>(const Selection&);                                             \
    template PyObject* toNestedList<T>(const MDArrayView&);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
