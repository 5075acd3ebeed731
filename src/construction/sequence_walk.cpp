#include "construction/sequence_walk.h"

#include "construction/element_conversion.h"
#include "construction/sequence_fetch.h"
#include "module/array_object.h"

#include <stdexcept>

namespace vellum
{
namespace
{
constexpr const char* kNotRectangular = "arrays must be rectangular.";
constexpr const char* kWalking = " while walking a nested sequence";

bool fail(PyObject* exceptionClass, const char* text)
{
    raise(exceptionClass, text);
    return false;
}

bool failFetch()
{
    replaceError(PyExc_RuntimeError, kNullData);
    return false;
}

using ElementReader = ScalarReading (*)(const void* address);

/// How the elements of an array are read, whatever kind is made of them.
ElementReader elementReader(ArrayType type)
{
    return visitElementType(type, []<class T>(std::type_identity<T>) -> ElementReader {
        return [](const void* address) { return readElement(loadElement<T>(address)); };
    });
}

/// The length of a child that is none.
constexpr Py_ssize_t kNoSequence = -1;

/// What a shallow look at the children of a sequence tells.
struct Probe
{
    bool m_isValid = false; ///< false: a Python error is set
    bool m_isAlike = true;  ///< all children are no sequences, or all of one length
    Py_ssize_t m_length = 1;
    Py_ssize_t m_childLength = kNoSequence; ///< that of the first child
};

/// Holds a child against the first. A length is asked only where it decides: not
/// behind a first child that is no sequence. False with a Python error if the child
/// can't be fetched or asked.
bool probeChild(PyObject* sequence, Py_ssize_t position, Probe& probe)
{
    const PyRef child = fetchItem(sequence, position);
    if (!child)
    {
        return failFetch();
    }
    const bool knowsLength = probe.m_childLength != kNoSequence;
    if (!isSequence(child.get()))
    {
        probe.m_isAlike = !knowsLength;
        return true;
    }
    if (!knowsLength && position > 0)
    {
        probe.m_isAlike = false;
        return true;
    }
    const Py_ssize_t length = callOut(PySequence_Size, child.get());
    probe.m_isAlike = !knowsLength || length == probe.m_childLength;
    probe.m_childLength = knowsLength ? probe.m_childLength : length;
    return length >= 0;
}

Probe probeSequence(PyObject* sequence, SignalWatch& signals)
{
    Probe probe;
    probe.m_length = callOut(PySequence_Size, sequence);
    if (probe.m_length < 2)
    {
        probe.m_isValid = probe.m_length >= 0;
        return probe;
    }
    for (Py_ssize_t i = 0; i < probe.m_length && probe.m_isAlike; ++i)
    {
        if (!probeChild(sequence, i, probe) || !signals.atStep(i))
        {
            return probe;
        }
    }
    probe.m_isValid = signals.behindLoop(probe.m_length);
    return probe;
}

template <class T>
bool walk(MDArrayBuilder<T>& builder, PyObject* value, bool isConstructor);

/// Opens a nesting level for a sequence of `length` elements.
template <class T>
void enterLevel(MDArrayBuilder<T>& builder, Py_ssize_t length)
{
    ++builder.m_depth;
    if (builder.m_initializerDims.size() < builder.m_depth)
    {
        builder.m_initializerDims.push_back(0);
    }
    if (builder.m_levelLengths.size() < builder.m_depth)
    {
        builder.m_levelLengths.push_back(0);
    }
    builder.m_levelLengths[builder.m_depth - 1] = static_cast<std::uint64_t>(length);
}

/// Closes it: its length must be that of every level at this depth.
template <class T>
bool leaveLevel(MDArrayBuilder<T>& builder, Py_ssize_t length)
{
    std::uint64_t& recorded = builder.m_initializerDims[builder.m_depth - 1];
    if (recorded == 0)
    {
        recorded = static_cast<std::uint64_t>(length);
    }
    else if (recorded != static_cast<std::uint64_t>(length))
    {
        return fail(PyExc_ValueError, kNotRectangular);
    }
    builder.m_levelLengths[builder.m_depth - 1] = 0;
    --builder.m_depth;
    return true;
}

template <class T>
bool walkChildren(MDArrayBuilder<T>& builder, PyObject* sequence, bool isConstructor)
{
    if (PyUnicode_Check(sequence))
    {
        return fail(PyExc_ValueError, "value passed to initializer must be numeric.");
    }
    const RecursionLevel level(kWalking);
    if (!level.entered())
    {
        return false;
    }
    const Probe probe = probeSequence(sequence, builder.m_signals);
    if (!probe.m_isValid)
    {
        return false;
    }
    if (!probe.m_isAlike)
    {
        return fail(PyExc_ValueError, "elements of array are of different lengths or types.");
    }
    enterLevel(builder, probe.m_length);
    for (Py_ssize_t i = 0; i < probe.m_length; ++i)
    {
        const PyRef child = fetchItem(sequence, i);
        if (!walk(builder, child.get(), isConstructor) || !builder.m_signals.atStep(i))
        {
            return false;
        }
    }
    return builder.m_signals.behindLoop(probe.m_length) && leaveLevel(builder, probe.m_length);
}

/// The first element tells how deep all stand, and how many there will be.
template <class T>
bool beginElements(MDArrayBuilder<T>& builder)
{
    builder.m_scalarDepth = builder.m_depth;
    if (builder.m_initializerDims.empty())
    {
        builder.m_initializerDims = {1, 1};
    }
    return builder.reserveValues(checkedProduct(builder.m_levelLengths).value_or(kUnrepresentable));
}

template <class T>
bool stageElement(MDArrayBuilder<T>& builder, T element)
{
    if (builder.m_scalarDepth == 0 && !beginElements(builder))
    {
        return false;
    }
    if (builder.m_scalarDepth != builder.m_depth)
    {
        return fail(PyExc_ValueError, kNotRectangular);
    }
    builder.m_values.push_back(element);
    return true;
}

template <class T>
bool stageReading(MDArrayBuilder<T>& builder, const ScalarReading& reading, bool isConstructor)
{
    try
    {
        const auto converted = judgeScalar<T>(reading, isConstructor);
        return converted.m_hasValue ? stageElement(builder, converted.m_value)
                                    : fail(converted.m_exceptionClass, converted.m_message.c_str());
    }
    catch (const std::runtime_error& error)
    {
        return fail(PyExc_RuntimeError, error.what());
    }
}

/// An array of this module gives what its sequence interface would, read from its
/// dense block: alike at every level, and no foreign code can run in between.
template <class T>
bool walkSelection(MDArrayBuilder<T>& builder, const Selection& selection, std::size_t depth,
                   const char* address, ElementReader read, bool isConstructor)
{
    const RecursionLevel level(kWalking);
    if (!level.entered())
    {
        return false;
    }
    const Py_ssize_t length = selection.m_lengths[depth];
    const bool isLast = depth + 1 == selection.dimensions();
    const std::size_t stagedBefore = builder.m_values.size();
    enterLevel(builder, length);
    for (Py_ssize_t i = 0; i < length; ++i)
    {
        if (isLast ? !stageReading(builder, read(address), isConstructor)
                   : !walkSelection(builder, selection, depth + 1, address, read, isConstructor))
        {
            return false;
        }
        if (builder.m_values.size() == stagedBefore)
        {
            break; // without elements the other rows, however many, tell nothing new
        }
        address += selection.m_strides[depth];
    }
    return leaveLevel(builder, length);
}

template <class T>
bool walkArray(MDArrayBuilder<T>& builder, const MDArrayView& view, bool isConstructor)
{
    const auto selection = view.checkHasDimension() ? selectionOf(view) : std::nullopt;
    return selection && walkSelection(builder, *selection, 0, selection->m_base,
                                      elementReader(view.m_sharedMDA->m_arrayType), isConstructor);
}

template <class T>
bool walk(MDArrayBuilder<T>& builder, PyObject* value, bool isConstructor)
{
    if (value == nullptr)
    {
        return failFetch();
    }
    if (isArrayObject(value))
    {
        const MDArrayView* view = viewOf(value);
        return view != nullptr ? walkArray(builder, *view, isConstructor)
                               : fail(PyExc_RuntimeError, kNotInitialized);
    }
    return isSequence(value) ? walkChildren(builder, value, isConstructor)
                             : stageReading(builder, readScalar(value), isConstructor);
}

} // namespace

template <class T>
bool walkSequence(MDArrayBuilder<T>& builder, PyObject* value, bool isConstructor)
{
    if (!walk(builder, value, isConstructor))
    {
        return false;
    }
    // A level of length 0 counts as not recorded, and a foreign sequence can
    // change its mind: what was staged has the last word.
    return checkedProduct(builder.m_initializerDims) == std::uint64_t(builder.m_values.size()) ||
           fail(PyExc_ValueError, kNotRectangular);
}

#define VELLUM_INSTANTIATE(T) template bool walkSequence<T>(MDArrayBuilder<T>&, PyObject*, bool);
VELLUM_FOR_EACH_ELEMENT(VELLUM_INSTANTIATE)
#undef VELLUM_INSTANTIATE

} // namespace vellum
