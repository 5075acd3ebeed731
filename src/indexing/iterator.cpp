#include "indexing/iterator.h"

#include "indexing/element_to_python.h"

namespace vellum
{
namespace
{
struct IteratorObject
{
    PyObject_HEAD MDArrayIterator* m_state; ///< owned
};

MDArrayIterator*& stateOf(PyObject* self)
{
    return reinterpret_cast<IteratorObject*>(self)->m_state;
}

void deallocateIterator(PyObject* self)
{
    delete stateOf(self);
    PyObject_Free(self);
}

PyObject* iteratorItself(PyObject* self)
{
    Py_INCREF(self);
    return self;
}

PyObject* nextItem(PyObject* self)
{
    return guarded([&]() -> PyObject* {
        if (self == nullptr || stateOf(self) == nullptr)
        {
            return raise(PyExc_RuntimeError, kNotInitialized);
        }
        return stateOf(self)->next();
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
    : m_view(view), m_depth(view.m_numberOfIntegerIndicesSoFar),
      m_currentIndices(firstIndices(view.m_indices, view.nextDimension() + 1)),
      m_isExhausted(!indexIsInView(m_currentIndices, view.m_sharedMDA->m_shape, view.m_indices)),
      m_yieldsArrays(view.m_sharedMDA->m_nDim - m_depth > 1)
{
}

PyObject* MDArrayIterator::next()
{
    if (m_isExhausted)
    {
        callOut(PyErr_SetNone, PyExc_StopIteration);
        return nullptr;
    }
    /// Also where no item can be made.
    struct MoveOn
    {
        MDArrayIterator& m_iterator;
        ~MoveOn() { m_iterator.moveOn(); }
    };
    const MoveOn moveOnAfterwards{*this};
    return currentItem();
}

void MDArrayIterator::moveOn() noexcept
{
    m_isExhausted =
        !advanceIndices(m_currentIndices, m_view.m_sharedMDA->m_shape, m_view.m_indices);
}

/// Whether the position is one of the record's, which only a reshape since the
/// last step can change.
bool MDArrayIterator::checkPosition() const
{
    const auto& shape = m_view.m_sharedMDA->m_shape;
    if (m_currentIndices.size() + (m_yieldsArrays ? 1 : 0) > shape.size())
    {
        raise(PyExc_RuntimeError, kTooManyIndices);
        return false;
    }
    for (std::size_t k = 0; k < m_currentIndices.size(); ++k)
    {
        if (m_currentIndices[k] < 0 || m_currentIndices[k] >= shape[k])
        {
            raise(PyExc_IndexError,
                  "index has an invalid value: " + std::to_string(m_currentIndices[k]));
            return false;
        }
    }
    return true;
}

PyObject* MDArrayIterator::currentItem() const
{
    if (!checkPosition())
    {
        return nullptr;
    }
    if (m_yieldsArrays)
    {
        return newArrayObject(std::make_unique<MDArrayView>(m_view, m_currentIndices));
    }
    const MDArrayWrapper& record = *m_view.m_sharedMDA;
    const char* address = record.elementAddress(m_currentIndices);
    if (address == nullptr)
    {
        return nullptr;
    }
    return elementOfType(record.m_arrayType, address);
}

PyObject* makeIterator(PyObject*, MDArrayView& view)
{
    if (!view.checkHasDimension())
    {
        return nullptr;
    }
    PyRef object(callOut(iteratorClass.tp_alloc, &iteratorClass, 0));
    if (!object)
    {
        return raise(PyExc_RuntimeError, kNoInstance);
    }
    stateOf(object.get()) = new MDArrayIterator(view);
    return object.release();
}

} // namespace vellum
