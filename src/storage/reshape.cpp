#include "storage/reshape.h"

#include "base/checked_size.h"
#include "interpreter/module_state.h"
#include "interpreter/signals.h"

#include <limits>
#include <string>

namespace vellum
{
namespace
{
using Shape = std::vector<Py_ssize_t>;

constexpr const char* kBadDimensions =
    "reshape() must be passed a nonempty sequence of nonnegative integers.";

Py_ssize_t readDimension(PyObject* dimensions, Py_ssize_t position)
{
    const PyRef item(callOut(PySequence_GetItem, dimensions, position));
    if (!item)
    {
        replaceError(PyExc_RuntimeError,
                     "Item " + std::to_string(position) +
                         " could not be retrieved from the value passed to reshape().");
    }
    const Py_ssize_t dim = PyLong_Check(item.get()) ? callOut(PyLong_AsSsize_t, item.get()) : -1;
    if (dim < 0)
    {
        overrideError(PyExc_ValueError, kBadDimensions);
    }
    return dim;
}

Shape parseReshapeDimensions(PyObject* value)
{
    const Py_ssize_t count =
        value != Py_None && PySequence_Check(value) ? callOut(PySequence_Size, value) : 0;
    if (count < 2)
    {
        replaceError(PyExc_ValueError, kBadDimensions);
    }
    if (count > std::numeric_limits<int>::max())
    {
        raise(PyExc_ValueError, kTooManyDimensions);
    }
    Shape shape;
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        shape.push_back(readDimension(value, i));
        SignalWatch::atStep(i);
    }
    while (shape.size() > 2 && shape.back() == 1)
    {
        shape.pop_back();
    }
    return shape;
}

/// From the arguments of the call: one sequence, or the dimensions themselves.
Shape readDimensions(PyObject* args)
{
    return parseReshapeDimensions(PyTuple_GET_SIZE(args) == 1 ? PyTuple_GET_ITEM(args, 0) : args);
}

void checkCount(const Shape& shape, Py_ssize_t current)
{
    // What doesn't fit 64 bits differs from every number of elements.
    const std::uint64_t count = checkedProduct(shape).value_or(kUnrepresentable);
    if (std::cmp_not_equal(count, current))
    {
        raise(shapeErrorClass(), "number of elements specified by arguments to reshape() (" +
                                     std::to_string(count) + ") does not match current number (" +
                                     std::to_string(current) + ").");
    }
}
} // namespace

PyObject* reshapeArray(PyObject* self, MDArrayView& view, PyObject* args, PyObject* kwds)
{
    if (!view.integers().empty())
    {
        raise(PyExc_RuntimeError, "reshape() not supported for a partial array.");
    }
    Shape shape = readDimensions(args);
    MDArrayWrapper& record = view.record();
    checkCount(shape, record.elementCount());
    if (kwds != nullptr && PyDict_GET_SIZE(kwds) != 0)
    {
        raise(PyExc_ValueError, "reshape() does not accept keyword arguments.");
    }
    auto layout = denseLayout(std::move(shape), record.type().m_width);
    if (!layout)
    {
        raise(shapeErrorClass(), "strides of the requested dimensions cannot be represented.");
    }
    record.reshape(std::move(*layout));
    Py_INCREF(self);
    return self;
}

} // namespace vellum
