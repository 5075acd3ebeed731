#include "construction/dimensions.h"

#include "construction/sequence_fetch.h"
#include "interpreter/module_state.h"
#include "interpreter/signals.h"

#include <limits>

namespace vellum
{
namespace
{
[[noreturn]] void raiseMismatch(PyObject* exceptionClass, const MDArrayBuilder& builder)
{
    raise(exceptionClass, "dimensions of initializer (" + dimsToText(builder.m_initializerDims) +
                              ") do not match dimensions specified by 'size' (" +
                              dimsToText(builder.m_sizeDims) + ").");
}

std::uint64_t readDimension(PyObject* size, Py_ssize_t position)
{
    const PyRef item = fetchItem(size, position);
    if (!item)
    {
        replaceError(PyExc_RuntimeError, "Item " + std::to_string(position) +
                                             " could not be retrieved from the value associated "
                                             "with the 'size' keyword.");
    }
    if (!PyLong_Check(item.get()))
    {
        raise(PyExc_TypeError, "dimensions must be nonnegative integers.");
    }
    const Py_ssize_t dim = callOut(PyLong_AsSsize_t, item.get());
    if (dim < 0)
    {
        overrideError(PyExc_ValueError, "size cannot contain negative dimensions. Use "
                                        "nonnegative integers for dimensions.");
    }
    return static_cast<std::uint64_t>(dim);
}
} // namespace

Dimensions readSizeArgument(PyObject* size)
{
    if (!PySequence_Check(size))
    {
        raise(PyExc_TypeError, "value of 'size' must be a sequence.");
    }
    const Py_ssize_t count = sequenceLength(size);
    if (count == 0)
    {
        raise(PyExc_ValueError, "sequence passed to 'size' must not be empty.");
    }
    if (count > std::numeric_limits<int>::max())
    {
        raise(PyExc_ValueError, kTooManyDimensions);
    }
    Dimensions dims;
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        dims.push_back(readDimension(size, i));
        SignalWatch::atStep(i);
    }
    if (dims.size() == 1)
    {
        dims.insert(dims.begin(), 1);
    }
    trimDimensions(dims);
    return dims;
}

void trimDimensions(Dimensions& dims)
{
    while (dims.size() > 2 && dims.back() == 1)
    {
        dims.pop_back();
    }
}

void finishInitializerDims(MDArrayBuilder& builder)
{
    Dimensions& found = builder.m_initializerDims;
    if (found.size() == 1 && builder.m_sizeDims.empty())
    {
        found.insert(found.begin(), found.front() == 0 ? 0 : 1);
    }
    trimDimensions(found);
}

void checkSizeAgainstInitializer(MDArrayBuilder& builder)
{
    const Dimensions& given = builder.m_sizeDims;
    const Dimensions& found = builder.m_initializerDims;
    if (given.empty() || given == found)
    {
        return;
    }
    const auto foundCount = checkedProduct(found);
    if (foundCount != checkedProduct(given))
    {
        raiseMismatch(shapeErrorClass(), builder);
    }
    const bool isFlat = found.size() == 1;
    if (isFlat && found.front() > 1)
    {
        builder.m_isColumnMajor = true; // flat data pours in column by column
        return;
    }
    // One element or none has no order.
    const bool fitsRow = isFlat && given.size() == 2 && given.front() == 1;
    if (!fitsRow && foundCount != std::uint64_t(0))
    {
        raiseMismatch(sizeErrorClass(), builder);
    }
}

std::string dimsToText(const Dimensions& dims)
{
    std::string text;
    for (const std::uint64_t dim : dims)
    {
        text += (text.empty() ? "" : ", ") + std::to_string(static_cast<std::int64_t>(dim));
    }
    return text;
}

} // namespace vellum
