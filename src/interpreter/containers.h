/// Tuples and lists in the making. Up to CPython 3.11 making a tracked object can
/// run a collection, and what that runs can find every container that the
/// collector knows: one whose items are still null ends the process. So they are
/// hidden from it until they are filled.
#pragma once

#include "interpreter/python_ref.h"

#include <vector>

namespace vellum
{
/// A new tuple of `int`. The numbers are the tuple's own copy: making it can run
/// code that changes where they came from.
PyRef tupleOf(std::vector<Py_ssize_t> numbers);

/// A list that is being filled.
class NewList
{
public:
    explicit NewList(Py_ssize_t length);

    /// Takes over `item`. Each position is set once.
    void set(Py_ssize_t position, PyObject* item) { PyList_SET_ITEM(m_list.get(), position, item); }

    /// The list, with all its items set, as everybody may see it.
    PyRef finish();

private:
    PyRef m_list;
};

} // namespace vellum
