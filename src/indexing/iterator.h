/// Iteration: the class `VellumPyIter` and its state.
#pragma once

#include "storage/array_object.h"
#include "storage/element_to_python.h"

namespace vellum
{
/// The state of one iteration over the next dimension of a view. It shares the
/// record, so it outlives the array object and sees every write. A reshape takes
/// effect at the next step.
class MDArrayIterator
{
public:
    /// The view has a next dimension.
    explicit MDArrayIterator(const MDArrayView& view);

    /// The next item. At the end it returns null with `StopIteration` set, without a
    /// throw. It has moved on also where no item can be made.
    PyObject* next();

private:
    Index lengthNow() const;
    void requirePosition(Index position) const;
    PyObject* itemAt(Index position) const;

    MDArrayView m_view;
    Index m_step = 0; ///< how many steps have been made
    bool m_isExhausted;
    bool m_yieldsArrays; ///< partial arrays, not scalars
    ElementToPython m_toPython;
};

extern PyTypeObject iteratorClass;

/// `tp_iter` of the array classes: a new `VellumPyIter` at the view's start.
/// "too many indices." if there is no dimension to iterate over.
PyObject* makeIterator(PyObject* self, MDArrayView& view);

} // namespace vellum
