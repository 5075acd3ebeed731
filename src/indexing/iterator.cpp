#include "indexing/iterator.h"

#include "interpreter/guard.h"

namespace vellum
{
namespace
{
struct IteratorObject
{
    PyObject_HEAD MDArrayIterator* m_state; ///< owned
};

MDArrayIterator*& stateIn(PyObject* self)
{
    return reinterpret_cast<IteratorObject*>(self)->m_state;
}

void deallocateIterator(PyObject* self)
{
    delete stateIn(self);
    PyObject_Free(self);
}

PyObject* iteratorItself(PyObject* self)
{
    Py_INCREF(self);
    return self;
}

PyObject* nextItem(PyObject* self)
{
    return guarded([&] {
        if (self == nullptr || stateIn(self) == nullptr)
        {
            raise(PyExc_RuntimeError, kNotInitialized);
        }
        return stateIn(self)->next();
    });
}

constexpr PyTypeObject describeIteratorClass()
{
    PyTypeObject type = blankClass();
    type.tp_name = "VellumPyIter";
    type.tp_doc = "Internal iterator object";
    type.tp_basicsize = sizeof(IteratorObject);
    type.tp_dealloc = deallocateIterator;
    type.tp_flags = Py_TPFLAGS_DEFAULT;
    type.tp_iter = iteratorItself;
    type.tp_iternext = nextItem;
    return type;
}
} // namespace

constinit PyTypeObject iteratorClass = describeIteratorClass();

MDArrayIterator::MDArrayIterator(const MDArrayView& view)
    : m_view(view), m_isExhausted(lengthNow() == 0), m_yieldsArrays(!view.isAtLastDimension()),
      m_toPython(elementToPython(view.record().type().m_type))
{
}

/// As the record is now.
Index MDArrayIterator::lengthNow() const
{
    if (m_view.finalSlice())
    {
        return m_view.finalSlice()->m_slice_len;
    }
    const auto& shape = m_view.record().shape();
    return m_view.nextDimension() < shape.size() ? shape[m_view.nextDimension()] : 0;
}

PyObject* MDArrayIterator::next()
{
    if (m_isExhausted)
    {
        callOut(PyErr_SetNone, PyExc_StopIteration);
        return nullptr;
    }
    const Index position = m_view.finalSlice() ? m_view.finalSlice()->valueAt(m_step) : m_step;
    ++m_step;
    m_isExhausted = m_step >= lengthNow();
    return itemAt(position);
}

/// Throws unless the position is one of the record's, which only a reshape can
/// change.
void MDArrayIterator::requirePosition(Index position) const
{
    const auto& shape = m_view.record().shape();
    const auto& integers = m_view.integers();
    if (integers.size() + (m_yieldsArrays ? 1 : 0) >= shape.size())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
    }
    for (std::size_t k = 0; k <= integers.size(); ++k)
    {
        const Index index = k < integers.size() ? integers[k] : position;
        if (firstOutside(index, shape[k]))
        {
            raise(PyExc_IndexError, invalidIndexText(index));
        }
    }
}

PyObject* MDArrayIterator::itemAt(Index position) const
{
    const MDArrayWrapper& record = m_view.record();
    if (!m_view.isTested())
    {
        requirePosition(position);
    }
    if (m_yieldsArrays)
    {
        return newArrayObject(std::make_unique<MDArrayView>(m_view, position));
    }
    return m_toPython(record.block() + m_view.offsetOf(position));
}

PyObject* makeIterator(PyObject*, MDArrayView& view)
{
    view.requireDimension();
    PyRef object(callOut(iteratorClass.tp_alloc, &iteratorClass, 0));
    if (!object)
    {
        raise(PyExc_RuntimeError, kNoInstance);
    }
    stateIn(object.get()) = new MDArrayIterator(view);
    return object.release();
}

} // namespace vellum
