#include "construction/constructor.h"

#include "construction/buffer_input.h"
#include "construction/dimensions.h"
#include "construction/element_conversion.h"
#include "construction/sequence_fetch.h"
#include "construction/sequence_walk.h"
#include "construction/staged_array.h"

#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

namespace vellum
{
namespace
{
/// The four arguments of a class. Owned, whatever foreign code makes of the dict
/// they came from. `None` counts as absent for the first three.
struct Arguments
{
    PyRef m_initializer;
    PyRef m_size;
    PyRef m_vector;
    PyRef m_isComplex;
    bool m_vectorIsKeyword = false; ///< if there is a `vector`
};

PyRef given(PyObject* argument)
{
    return argument == Py_None ? PyRef() : PyRef::fromBorrowed(argument);
}

bool parseArguments(PyObject* args, PyObject* kwds, Arguments& arguments)
{
    static const char* const names[] = {"initializer", "size", "vector", "is_complex", nullptr};
    PyObject* initializer = nullptr;
    PyObject* size = nullptr;
    PyObject* vector = nullptr;
    PyObject* isComplex = nullptr;
    if (!callOut(PyArg_ParseTupleAndKeywords, args, kwds, "|OOOO", const_cast<char**>(names),
                 &initializer, &size, &vector, &isComplex))
    {
        return false;
    }
    arguments.m_initializer = given(initializer);
    arguments.m_size = given(size);
    arguments.m_vector = given(vector);
    arguments.m_isComplex = PyRef::fromBorrowed(isComplex);
    arguments.m_vectorIsKeyword = PyTuple_GET_SIZE(args) < 3;
    return true;
}

bool parseIsComplex(PyObject* value, const std::string& name, bool& ok)
{
    ok = value != nullptr && Py_TYPE(value) == &PyBool_Type;
    if (!ok)
    {
        raise(PyExc_TypeError,
              "value passed to '" + name + (value == nullptr ? "' is null." : "' must be a bool."));
    }
    return value == Py_True;
}

/// Every element zero.
template <class T>
data::Array createZeros(MDArrayBuilder<T>& builder)
{
    const std::uint64_t count = builder.getNumElems();
    auto buffer = createElementBuffer<T>(count, builder.m_request);
    std::memset(static_cast<void*>(buffer.get()), 0, count * sizeof(T));
    return adoptElementBuffer<T>(builder.dims(), std::move(buffer));
}

/// One item of `vector` to one element; a refusal is a `ValueError` whatever
/// class the conversion names.
template <class T>
bool convertVectorItem(PyObject* vector, Py_ssize_t position, T& element)
{
    const PyRef item = fetchItem(vector, position);
    if (!item)
    {
        replaceError(PyExc_RuntimeError,
                     "item " + std::to_string(position) + " could not be retrieved.");
        return false;
    }
    if (isSequence(item.get()))
    {
        raise(PyExc_TypeError, "value of 'vector' must be an unnested sequence.");
        return false;
    }
    try
    {
        const auto converted = convertScalar<T>(item.get(), true);
        if (!converted.m_hasValue)
        {
            raise(PyExc_ValueError, converted.m_message);
            return false;
        }
        element = converted.m_value;
    }
    catch (const std::runtime_error& error)
    {
        raise(PyExc_RuntimeError, error.what());
        return false;
    }
    return PyErr_Occurred() == nullptr;
}

/// `vector`: a flat sequence whose elements go straight into storage order.
template <class T>
std::optional<data::Array> createFromVector(MDArrayBuilder<T>& builder, PyObject* vector)
{
    if (!PySequence_Check(vector))
    {
        raise(PyExc_ValueError, "value of 'vector' must be a sequence.");
        return std::nullopt;
    }
    if (PyUnicode_Check(vector))
    {
        raise(PyExc_ValueError, "value passed to 'vector' must be numeric.");
        return std::nullopt;
    }
    const Py_ssize_t count = callOut(PySequence_Size, vector);
    if (count < 0)
    {
        return std::nullopt;
    }
    if (builder.m_sizeDims.empty())
    {
        builder.m_initializerDims.push_back(1);
    }
    builder.m_initializerDims.push_back(static_cast<std::uint64_t>(count));
    if (!checkSizeAgainstInitializer(builder))
    {
        return std::nullopt;
    }
    auto buffer = createElementBuffer<T>(static_cast<std::uint64_t>(count), builder.m_request);
    for (Py_ssize_t i = 0; i < count; ++i)
    {
        if (!convertVectorItem<T>(vector, i, buffer.get()[i]) || !builder.m_signals.atStep(i))
        {
            return std::nullopt;
        }
    }
    return adoptElementBuffer<T>(builder.dims(), std::move(buffer));
}

/// `initializer`: refused as text, read as a buffer, or walked.
template <class T>
std::optional<data::Array> createFromInitializer(MDArrayBuilder<T>& builder, PyObject* initializer)
{
    if (PyUnicode_Check(initializer))
    {
        raise(PyExc_ValueError, "value passed to initializer must be numeric.");
        return std::nullopt;
    }
    const bool isStaged = takesBufferRoad(initializer) ? readBufferInitializer(builder, initializer)
                                                       : walkSequence(builder, initializer, true);
    if (!isStaged || !finishInitializerDims(builder, builder.m_values.size()))
    {
        return std::nullopt;
    }
    trimInitializerDims(builder);
    if (!checkSizeAgainstInitializer(builder))
    {
        return std::nullopt;
    }
    return createFromStaged(builder, builder.dims());
}

bool checkInitializerOrVector(const Arguments& arguments)
{
    if (!arguments.m_initializer || !arguments.m_vector)
    {
        return true;
    }
    raise(PyExc_TypeError,
          arguments.m_vectorIsKeyword
              ? "initializer and 'vector' must not both be specified."
              : "more than two positional arguments must not be specified. A third will be treated "
                "as 'vector', which must not be specified when an initializer is specified.");
    return false;
}

/// The body of all constructors. Nothing with a Python error on failure.
template <class T>
std::optional<data::Array> constructTypedArray(const Arguments& arguments,
                                               AllocationRequest& request)
{
    MDArrayBuilder<T> builder(request);
    if (!checkInitializerOrVector(arguments))
    {
        return std::nullopt;
    }
    if (arguments.m_size)
    {
        const auto dims = readSizeArgument(arguments.m_size.get());
        if (!dims || !builder.storeSizeDims(*dims))
        {
            return std::nullopt;
        }
    }
    if (arguments.m_vector)
    {
        return createFromVector(builder, arguments.m_vector.get());
    }
    if (arguments.m_initializer)
    {
        return createFromInitializer(builder, arguments.m_initializer.get());
    }
    if (!arguments.m_size && !builder.storeSizeDims({0, 0}))
    {
        return std::nullopt;
    }
    return createZeros(builder);
}

/// A leading dict stands for the keywords, if there are none: so a pickled array
/// comes back.
bool hasLeadingDict(PyObject* args, PyObject* kwds)
{
    const bool hasKeywords = kwds != nullptr && PyDict_GET_SIZE(kwds) > 0;
    return !hasKeywords && args != nullptr && PyTuple_GET_SIZE(args) > 0 &&
           PyDict_Check(PyTuple_GET_ITEM(args, 0));
}

/// A plain dict of the entries of `dict`, whatever its class makes of its methods.
/// The parse borrows the values while it looks keys up, and a key's hash and
/// comparison can change `dict`: so all entries are owned before the first of these
/// runs.
PyRef copyEntries(PyObject* dict)
{
    std::vector<std::pair<PyRef, PyRef>> entries;
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(dict, &position, &key, &value))
    {
        entries.emplace_back(PyRef::fromBorrowed(key), PyRef::fromBorrowed(value));
    }
    PyRef copy(callOut(PyDict_New));
    for (const auto& entry : entries)
    {
        if (!copy || callOut(PyDict_SetItem, copy.get(), entry.first.get(), entry.second.get()) < 0)
        {
            return PyRef();
        }
    }
    return copy;
}

template <SupportedArrayEnum kind>
PyObject* construct(PyObject* args, PyObject* kwds, AllocationRequest& request)
{
    PyRef positional = PyRef::fromBorrowed(args);
    PyRef keywords = PyRef::fromBorrowed(kwds);
    if (hasLeadingDict(args, kwds))
    {
        keywords = copyEntries(PyTuple_GET_ITEM(args, 0));
        positional =
            keywords ? PyRef(callOut(PyTuple_GetSlice, args, 1, PyTuple_GET_SIZE(args))) : PyRef();
        if (!positional)
        {
            return nullptr;
        }
    }
    PyRef object = allocateArrayObject(kind);
    Arguments arguments;
    if (!object || !parseArguments(positional.get(), keywords.get(), arguments))
    {
        return nullptr;
    }
    bool isComplex = false;
    if (arguments.m_isComplex)
    {
        bool ok = false;
        isComplex = parseIsComplex(arguments.m_isComplex.get(), "is_complex", ok);
        if (!ok)
        {
            return nullptr;
        }
    }
    if (isComplex && kindInfo(kind).m_complexType == kNoType)
    {
        return raise(PyExc_TypeError, "logical arrays must not be complex.");
    }
    auto array = visitComplexity<kind>(isComplex, [&]<class T>(std::type_identity<T>) {
        return constructTypedArray<T>(arguments, request);
    });
    if (!array)
    {
        return nullptr;
    }
    return giveView(std::move(object),
                    std::make_unique<MDArrayView>(std::move(*array), kind, isComplex, true));
}

} // namespace

template <SupportedArrayEnum kind>
PyObject* newArray(PyTypeObject*, PyObject* args, PyObject* kwds)
{
    AllocationRequest request{kindInfo(kind).m_shortName};
    return guarded([&] { return construct<kind>(args, kwds, request); }, &request);
}

#define VELLUM_INSTANTIATE(ACTION, kind, ...)                                                      \
    template PyObject* newArray<SupportedArrayEnum::kind>(PyTypeObject*, PyObject*, PyObject*);
VELLUM_ELEMENT_KINDS(VELLUM_INSTANTIATE, VELLUM_INSTANTIATE, )
#undef VELLUM_INSTANTIATE

} // namespace vellum
