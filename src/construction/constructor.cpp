#include "construction/constructor.h"

#include "construction/buffer_input.h"
#include "construction/dimensions.h"
#include "construction/element_conversion.h"
#include "construction/new_array.h"
#include "construction/sequence_fetch.h"
#include "construction/sequence_walk.h"
#include "interpreter/guard.h"
#include "interpreter/signals.h"
#include "storage/array_object.h"

#include <cstring>
#include <utility>
#include <vector>

namespace vellum
{
namespace
{
using Entries = std::vector<std::pair<PyRef, PyRef>>;

/// What a class is called with. The parse borrows the values of a dict while it looks
/// further keys up, and a key of a class of its own can run code that changes the
/// dict: so the entries are owned beside it.
struct Call
{
    PyRef m_positional;
    PyRef m_keywords;
    Entries m_entries; ///< of the keywords; none if all keys are plain
};

/// The four arguments of a class, owned. `None` counts as absent for the first
/// three.
struct Arguments
{
    PyRef m_initializer;
    PyRef m_size;
    PyRef m_vector;
    PyRef m_isComplex;
    bool m_vectorIsKeyword = false; ///< if there is a `vector`
};

/// Taken before any code can run.
Entries entriesOf(PyObject* dict)
{
    Entries entries;
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(dict, &position, &key, &value))
    {
        entries.emplace_back(PyRef::fromBorrowed(key), PyRef::fromBorrowed(value));
    }
    return entries;
}

/// A plain dict of the entries of `dict`, whatever its class makes of its methods.
Call callWithKeywords(PyRef positional, PyObject* dict)
{
    Call call{std::move(positional), PyRef(), entriesOf(dict)};
    call.m_keywords = checked(callOut(PyDict_New));
    for (const auto& [key, value] : call.m_entries)
    {
        if (callOut(PyDict_SetItem, call.m_keywords.get(), key.get(), value.get()) < 0)
        {
            throw PythonError();
        }
    }
    return call;
}

bool hasPlainKeys(PyObject* dict)
{
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    while (PyDict_Next(dict, &position, &key, nullptr))
    {
        if (!PyUnicode_CheckExact(key))
        {
            return false;
        }
    }
    return true;
}

/// A leading dict stands for the keywords, if there are none: so a pickled array
/// comes back.
Call takeLeadingDict(PyObject* args, PyObject* kwds)
{
    if (kwds != nullptr && PyDict_GET_SIZE(kwds) > 0)
    {
        return {PyRef::fromBorrowed(args), PyRef::fromBorrowed(kwds),
                hasPlainKeys(kwds) ? Entries() : entriesOf(kwds)};
    }
    PyObject* first =
        args != nullptr && PyTuple_GET_SIZE(args) > 0 ? PyTuple_GET_ITEM(args, 0) : nullptr;
    if (first == nullptr || !PyDict_Check(first))
    {
        return {PyRef::fromBorrowed(args), PyRef(), Entries()};
    }
    return callWithKeywords(checked(callOut(PyTuple_GetSlice, args, 1, PyTuple_GET_SIZE(args))),
                            first);
}

PyRef given(PyObject* argument)
{
    return argument == Py_None ? PyRef() : PyRef::fromBorrowed(argument);
}

Arguments parseArguments(const Call& call)
{
    static const char* const names[] = {"initializer", "size", "vector", "is_complex", nullptr};
    PyObject* initializer = nullptr;
    PyObject* size = nullptr;
    PyObject* vector = nullptr;
    PyObject* isComplex = nullptr;
    if (!callOut(PyArg_ParseTupleAndKeywords, call.m_positional.get(), call.m_keywords.get(),
                 "|OOOO", const_cast<char**>(names), &initializer, &size, &vector, &isComplex))
    {
        throw PythonError();
    }
    return {given(initializer), given(size), given(vector), PyRef::fromBorrowed(isComplex),
            PyTuple_GET_SIZE(call.m_positional.get()) < 3};
}

bool parseIsComplex(PyObject* value)
{
    if (Py_TYPE(value) != &PyBool_Type)
    {
        raise(PyExc_TypeError, "value passed to 'is_complex' must be a bool.");
    }
    return value == Py_True;
}

const ElementType& chooseElementType(SupportedArrayEnum kind, const Arguments& arguments)
{
    const bool isComplex = arguments.m_isComplex && parseIsComplex(arguments.m_isComplex.get());
    if (isComplex && kindInfo(kind).m_complexType == kNoType)
    {
        raise(PyExc_TypeError, "logical arrays must not be complex.");
    }
    return elementTypeOf(kind, isComplex);
}

/// Every element zero.
data::Array createZeros(MDArrayBuilder& builder)
{
    const std::uint64_t count = builder.getNumElems();
    NewArray array(builder.m_type, count, builder.m_request);
    std::memset(array.elements(), 0, count * builder.m_type.m_width);
    return array.adopt(builder.dims());
}

/// One item of `vector` to one element; a refusal is a `ValueError` whatever
/// class the conversion names.
void convertVectorItem(PyObject* vector, Py_ssize_t position, ElementConverter convert,
                       char* element)
{
    const PyRef item = fetchItem(vector, position);
    if (!item)
    {
        replaceError(PyExc_RuntimeError,
                     "item " + std::to_string(position) + " could not be retrieved.");
    }
    if (isSequence(item.get()))
    {
        raise(PyExc_TypeError, "value of 'vector' must be an unnested sequence.");
    }
    if (Refusal refusal; !convert(readScalar(item.get()), element, refusal))
    {
        raise(PyExc_ValueError, refusal.m_message);
    }
}

/// `vector`: a flat sequence whose elements go straight into storage order.
data::Array createFromVector(MDArrayBuilder& builder, PyObject* vector)
{
    if (!PySequence_Check(vector))
    {
        raise(PyExc_ValueError, "value of 'vector' must be a sequence.");
    }
    if (PyUnicode_Check(vector))
    {
        raise(PyExc_ValueError, "value passed to 'vector' must be numeric.");
    }
    const Py_ssize_t count = sequenceLength(vector);
    if (builder.m_sizeDims.empty())
    {
        builder.m_initializerDims.push_back(1);
    }
    builder.m_initializerDims.push_back(static_cast<std::uint64_t>(count));
    checkSizeAgainstInitializer(builder);
    NewArray array(builder.m_type, static_cast<std::uint64_t>(count), builder.m_request);
    const ElementConverter convert = elementConverter(builder.m_type.m_type, true);
    char* element = array.elements();
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        convertVectorItem(vector, i, convert, element);
        element += builder.m_type.m_width;
        SignalWatch::atStep(i);
    }
    return array.adopt(builder.dims());
}

/// `initializer`: refused as text, read as a buffer, or traversed.
data::Array createFromInitializer(MDArrayBuilder& builder, PyObject* initializer)
{
    if (PyUnicode_Check(initializer))
    {
        raise(PyExc_ValueError, "value passed to initializer must be numeric.");
    }
    if (isBufferInput(initializer))
    {
        readBufferInitializer(builder, initializer);
    }
    else
    {
        walkSequence(builder, initializer, true);
    }
    finishInitializerDims(builder);
    checkSizeAgainstInitializer(builder);
    return createFromValues(builder, builder.dims());
}

void requireOneSource(const Arguments& arguments)
{
    if (arguments.m_initializer && arguments.m_vector)
    {
        raise(PyExc_TypeError,
              arguments.m_vectorIsKeyword
                  ? "initializer and 'vector' must not both be specified."
                  : "more than two positional arguments must not be specified. A third will be "
                    "treated as 'vector', which must not be specified when an initializer is "
                    "specified.");
    }
}

data::Array constructArray(MDArrayBuilder& builder, const Arguments& arguments)
{
    requireOneSource(arguments);
    if (arguments.m_size)
    {
        builder.storeSizeDims(readSizeArgument(arguments.m_size.get()));
    }
    if (arguments.m_vector)
    {
        return createFromVector(builder, arguments.m_vector.get());
    }
    if (arguments.m_initializer)
    {
        return createFromInitializer(builder, arguments.m_initializer.get());
    }
    if (!arguments.m_size)
    {
        builder.storeSizeDims({0, 0});
    }
    return createZeros(builder);
}

PyObject* construct(SupportedArrayEnum kind, PyObject* args, PyObject* kwds,
                    AllocationRequest& request)
{
    const Call call = takeLeadingDict(args, kwds);
    PyRef object = allocateArrayObject(kind);
    const Arguments arguments = parseArguments(call);
    const ElementType& type = chooseElementType(kind, arguments);
    MDArrayBuilder builder(type, request);
    auto record = std::make_shared<MDArrayWrapper>(constructArray(builder, arguments), type);
    return giveView(std::move(object), std::make_unique<MDArrayView>(std::move(record)));
}

} // namespace

PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds)
{
    const SupportedArrayEnum kind = kindOfClass(type);
    AllocationRequest request{kindInfo(kind).m_shortName};
    return guarded([&] { return construct(kind, args, kwds, request); }, &request);
}

} // namespace vellum
