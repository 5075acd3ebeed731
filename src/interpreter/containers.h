/// The lists and tuples that the module makes.
#pragma once

#include "interpreter/python_ref.h"

#include <vector>

namespace vellum
{
/// Owns a new list or tuple until its items are in place. Up to then the garbage
/// collector doesn't see it, and so `gc.get_objects()` doesn't show it: whoever
/// read an item that is still null would end the process.
class UnfinishedContainer
{
public:
    /// Empty with a Python error if there is no memory for it.
    static UnfinishedContainer list(Py_ssize_t length)
    {
        return UnfinishedContainer(callOut(PyList_New, length));
    }
    static UnfinishedContainer tuple(Py_ssize_t length)
    {
        return UnfinishedContainer(callOut(PyTuple_New, length));
    }

    PyObject* get() const { return m_container.get(); }
    explicit operator bool() const { return static_cast<bool>(m_container); }

    /// A new reference to the container, whose items are all in place.
    PyObject* finish();

private:
    explicit UnfinishedContainer(PyObject* owned);

    PyRef m_container;
    bool m_isHidden; ///< false without items: an empty tuple is everybody's
};

/// A new tuple of `int`; null with a Python error if there is no memory for it.
/// By value: making the tuple can run a collection, which can run any code.
PyObject* tupleOfIntegers(std::vector<Py_ssize_t> values);

} // namespace vellum
