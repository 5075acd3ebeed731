#include "interpreter/containers.h"

#include "interpreter/signals.h"

namespace vellum
{
PyRef tupleOf(std::vector<Py_ssize_t> numbers)
{
    const auto count = static_cast<Py_ssize_t>(numbers.size());
    PyRef tuple = checked(callOut(PyTuple_New, count));
    if (count == 0)
    {
        return tuple; // one for all
    }
    PyObject_GC_UnTrack(tuple.get());
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        PyTuple_SET_ITEM(tuple.get(), i,
                         orThrow(PyLong_FromSsize_t(numbers[static_cast<std::size_t>(i)])));
        SignalWatch::atStep(i);
    }
    PyObject_GC_Track(tuple.get());
    return tuple;
}

NewList::NewList(Py_ssize_t length) : m_list(checked(callOut(PyList_New, length)))
{
    PyObject_GC_UnTrack(m_list.get());
}

PyRef NewList::finish()
{
    PyObject_GC_Track(m_list.get());
    return std::move(m_list);
}

} // namespace vellum
