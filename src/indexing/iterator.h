/// Iteration: the class `VellumPyIter` and its state.
#pragma once

#include "module/array_object.h"

namespace vellum
{
/// The state of one iteration over the next dimension of a view. It shares the
/// record, so it outlives the array object and sees every write. A reshape takes
/// effect at the next step.
class MDArrayIterator
{
public:
    explicit MDArrayIterator(const MDArrayView& view);

    /// The next item, or null with `StopIteration` or another error set. Moves on
    /// in either case.
    PyObject* next();

private:
    PyObject* currentItem() const;
    void moveOn() noexcept;
    bool checkPosition() const;

    MDArrayView m_view;
    Py_ssize_t m_depth;                       ///< the dimension that is walked
    std::vector<Py_ssize_t> m_currentIndices; ///< what the next step yields
    bool m_isExhausted;
    bool m_yieldsArrays; ///< partial arrays, not scalars
};

extern PyTypeObject iteratorClass;

/// `tp_iter` of the array classes: a new `VellumPyIter` at the view's start.
/// "too many indices." if there is no dimension to walk.
PyObject* makeIterator(PyObject* self, MDArrayView& view);

} // namespace vellum
