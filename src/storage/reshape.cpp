#include "storage/reshape.h"

#include "base/checked_size.h"
#include "dataclient/array_factory.h"
#include "interpreter/module_state.h"
#include "interpreter/signals.h"

#include <limits>

namespace vellum
{
namespace
{
constexpr const char* kBadDimensions =
    "reshape() must be passed a nonempty sequence of nonnegative integers.";

using Shape = std::vector<Py_ssize_t>;

// What reads dimensions gives none, with a Python error, on failure.

/// Also where foreign code has failed.
Shape refuseDimensions()
{
    replaceError(PyExc_ValueError, kBadDimensions);
    return {};
}

Shape refuseItem(Py_ssize_t position)
{
    replaceError(PyExc_RuntimeError, "Item " + std::to_string(position) +
                                         " could not be retrieved from the value passed to "
                                         "reshape().");
    return {};
}

/// Negative, without a Python error, if it is none.
Py_ssize_t readDimension(PyObject* item)
{
    const Py_ssize_t dim = PyLong_Check(item) ? callOut(PyLong_AsSsize_t, item) : -1;
    if (dim < 0)
    {
        callOut(PyErr_Clear); // an integer too large is no failure of foreign code
    }
    return dim;
}

Shape parseReshapeDimensions(PyObject* value)
{
    const Py_ssize_t count =
        value != Py_None && PySequence_Check(value) ? callOut(PySequence_Size, value) : 0;
    if (count < 2)
    {
        return refuseDimensions();
    }
    if (count > std::numeric_limits<int>::max())
    {
        raise(PyExc_ValueError, kTooManyDimensions);
        return {};
    }
    SignalWatch signals;
    Shape shape;
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        const PyRef item(callOut(PySequence_GetItem, value, i));
        if (!item)
        {
            return refuseItem(i);
        }
        const Py_ssize_t dim = readDimension(item.get());
        if (dim < 0)
        {
            return refuseDimensions();
        }
        shape.push_back(dim);
        if (!signals.atStep(i))
        {
            return {};
        }
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
    if (args == nullptr || args == Py_None)
    {
        return refuseDimensions();
    }
    const Py_ssize_t count = callOut(PySequence_Size, args);
    if (count < 1)
    {
        return refuseDimensions();
    }
    if (count > 1)
    {
        return parseReshapeDimensions(args);
    }
    const PyRef item(callOut(PySequence_GetItem, args, 0));
    return item ? parseReshapeDimensions(item.get()) : refuseDimensions();
}
} // namespace

PyObject* reshapeArray(PyObject* self, MDArrayView& view, PyObject* args, PyObject* kwds)
{
    if (view.m_numberOfIntegerIndicesSoFar > 0)
    {
        return raise(PyExc_RuntimeError, "reshape() not supported for a partial array.");
    }
    Shape shape = readDimensions(args);
    if (shape.empty())
    {
        return nullptr;
    }
    MDArrayWrapper& record = *view.m_sharedMDA;
    // What doesn't fit 64 bits differs from every number of elements.
    const std::uint64_t count = checkedProduct(shape).value_or(kUnrepresentable);
    if (std::cmp_not_equal(count, record.m_numElems))
    {
        return raise(shapeErrorClass(), "number of elements specified by arguments to reshape() (" +
                                            std::to_string(count) +
                                            ") does not match current number (" +
                                            std::to_string(record.m_numElems) + ").");
    }
    if (kwds != nullptr && PyDict_Size(kwds) != 0)
    {
        return raise(PyExc_ValueError, "reshape() does not accept keyword arguments.");
    }
    auto strides = contiguousStrides(shape, record.m_elemSizeInBytes, 'F');
    if (!strides)
    {
        return raise(shapeErrorClass(),
                     "strides of the requested dimensions cannot be represented.");
    }
    record.reshape(std::move(shape), std::move(*strides));
    Py_INCREF(self);
    return self;
}

namespace
{
/// The record's array with new dimensions, made of the same storage. `lost` is
/// set if the storage was handed over and didn't come back.
template <class T>
data::Array rebuild(data::TypedArray<T>& typed, const std::vector<std::size_t>& dims,
                    data::ArrayFactory& factory, bool& lost)
{
    const bool wasSole = typed.isSoleOwner();
    auto elements = typed.release();
    lost = wasSole;
    data::Array array = factory.createArrayFromBuffer<T>(dims, std::move(elements),
                                                         data::MemoryLayout::ColumnMajor);
    lost = false;
    return array;
}
} // namespace

void MDArrayWrapper::reshape(Shape shape, std::vector<Py_ssize_t> strides)
{
    // Everything that can fail before the storage is handed over.
    if (m_isShapeLent && m_retired.capacity() - m_retired.size() < 2)
    {
        m_retired.reserve(2 * m_retired.size() + 2);
    }
    std::vector<std::size_t> dims(shape.begin(), shape.end());
    data::ArrayFactory factory;
    data::ArrayFactory::requireCreationFromBuffer(data::MemoryLayout::ColumnMajor);

    visitElementType(m_arrayType, [&]<class T>(std::type_identity<T>) {
        data::TypedArray<T> typed(std::move(array()));
        bool lost = false;
        try
        {
            m_array = rebuild(typed, dims, factory, lost);
        }
        catch (...)
        {
            restoreArray(std::move(typed), lost);
            throw;
        }
    });
    if (std::exchange(m_isShapeLent, false))
    {
        m_retired.push_back(std::move(m_shape));
        m_retired.push_back(std::move(m_bytewiseStrides));
    }
    m_shape = std::move(shape);
    m_bytewiseStrides = std::move(strides);
    m_nDim = static_cast<int>(m_shape.size());
    m_order = 'F';
    ++m_reshapes;
    ++m_changes;
}

void MDArrayWrapper::restoreArray(data::Array&& array, bool lost)
{
    if (!lost)
    {
        m_array = std::move(array);
        return;
    }
    try
    {
        m_array = arrayFromBuffer();
    }
    catch (...)
    {
        // The record is without an array now. `m_buf` holds every value, and the
        // next operation that needs the service's array makes it again.
    }
}

} // namespace vellum
