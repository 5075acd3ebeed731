#include "construction/dimensions.h"

#include "construction/element_conversion.h"
#include "construction/sequence_fetch.h"
#include "interpreter/module_state.h"

#include <limits>

namespace vellum
{
namespace
{
bool raiseMismatch(PyObject* exceptionClass, const BuilderDimensions& builder)
{
    raise(exceptionClass, "dimensions of initializer (" + dimsToText(builder.m_initializerDims) +
                              ") do not match dimensions specified by 'size' (" +
                              dimsToText(builder.m_sizeDims) + ").");
    return false;
}

/// One item of `size`. Nothing with a Python error if the item is no dimension.
std::optional<std::uint64_t> readDimension(PyObject* size, Py_ssize_t position)
{
    const PyRef item = fetchItem(size, position);
    if (!item)
    {
        replaceError(PyExc_RuntimeError,
                     "Item " + std::to_string(position) +
                         " could not be retrieved from the value associated with the 'size' "
                         "keyword.");
        return std::nullopt;
    }
    const PythonIntReading dim = readPythonInt(item.get());
    if (dim.m_hasValue && dim.m_value >= 0)
    {
        return static_cast<std::uint64_t>(dim.m_value);
    }
    if (dim.m_hasValue || dim.m_isTooLarge)
    {
        raise(PyExc_ValueError, "size cannot contain negative dimensions. Use nonnegative "
                                "integers for dimensions.");
    }
    else
    {
        raise(PyExc_TypeError, "dimensions must be nonnegative integers.");
    }
    return std::nullopt;
}

} // namespace

std::optional<Dimensions> readSizeArgument(PyObject* size)
{
    if (!PySequence_Check(size))
    {
        raise(PyExc_TypeError, "value of 'size' must be a sequence.");
        return std::nullopt;
    }
    const Py_ssize_t count = callOut(PySequence_Size, size);
    if (count < 0)
    {
        return std::nullopt;
    }
    if (count == 0)
    {
        raise(PyExc_ValueError, "sequence passed to 'size' must not be empty.");
        return std::nullopt;
    }
    if (count > std::numeric_limits<int>::max())
    {
        raise(PyExc_ValueError, kTooManyDimensions); // the record counts them in an `int`
        return std::nullopt;
    }
    Dimensions dims;
    SignalWatch signals;
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        const auto dim = readDimension(size, i);
        if (!dim || !signals.atStep(i))
        {
            return std::nullopt;
        }
        dims.push_back(*dim);
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

bool finishInitializerDims(BuilderDimensions& builder, std::uint64_t stagedCount)
{
    Dimensions& found = builder.m_initializerDims;
    if (found.size() != 1)
    {
        return true;
    }
    if (builder.m_sizeDims.empty())
    {
        found.insert(found.begin(), found.front() == 0 ? 0 : 1);
        return true;
    }
    return stagedCount == builder.getNumElems() || raiseMismatch(shapeErrorClass(), builder);
}

void trimInitializerDims(BuilderDimensions& builder)
{
    trimDimensions(builder.m_initializerDims);
}

bool checkSizeAgainstInitializer(BuilderDimensions& builder)
{
    const Dimensions& given = builder.m_sizeDims;
    const Dimensions& found = builder.m_initializerDims;
    if (given.empty() || given == found)
    {
        return true;
    }
    const auto foundCount = checkedProduct(found);
    if (foundCount != checkedProduct(given))
    {
        return raiseMismatch(shapeErrorClass(), builder);
    }
    if (found.size() == 1)
    {
        // One element or none has no order. More of them pour column by column.
        builder.m_isColumnMajor = builder.m_isColumnMajor || found.front() > 1;
        if (found.front() > 1 || (given.size() == 2 && given.front() == 1))
        {
            return true;
        }
    }
    return foundCount == std::uint64_t(0) || raiseMismatch(sizeErrorClass(), builder);
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
