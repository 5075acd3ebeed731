/// Fetching from foreign sequences: exact lists and tuples are read directly,
/// everything else through the sequence protocol. What comes out is the same.
#pragma once

#include "interpreter/python_ref.h"

namespace vellum
{
inline bool isSequence(PyObject* object)
{
    return !PyFloat_CheckExact(object) && !PyLong_CheckExact(object) && PySequence_Check(object);
}

/// Foreign code can say anything, and fail.
inline Py_ssize_t sequenceLength(PyObject* sequence)
{
    const Py_ssize_t length = callOut(PySequence_Size, sequence);
    if (length < 0)
    {
        throw PythonError();
    }
    return length;
}

/// Not inlined, so that the direct reads below are.
[[gnu::noinline]] inline PyRef fetchForeignItem(PyObject* sequence, Py_ssize_t position)
{
    return PyRef(callOut(PySequence_GetItem, sequence, position));
}

/// Item `position`, 0 or above; empty if it can't be fetched. A list may have
/// shrunk since its length was read. A Python error may stand or not: the caller
/// replaces it.
inline PyRef fetchItem(PyObject* sequence, Py_ssize_t position)
{
    if (PyList_CheckExact(sequence))
    {
        return position < PyList_GET_SIZE(sequence)
                   ? PyRef::fromBorrowed(PyList_GET_ITEM(sequence, position))
                   : PyRef();
    }
    if (PyTuple_CheckExact(sequence))
    {
        return position < PyTuple_GET_SIZE(sequence)
                   ? PyRef::fromBorrowed(PyTuple_GET_ITEM(sequence, position))
                   : PyRef();
    }
    return fetchForeignItem(sequence, position);
}

} // namespace vellum
