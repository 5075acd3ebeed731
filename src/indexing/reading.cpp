#include "indexing/reading.h"

#include "indexing/element_to_python.h"
#include "indexing/slice_key.h"

namespace vellum
{
namespace
{
/// A partial array: `view` with one more item, in place of its final slice.
template <class Append>
PyObject* makePartialArray(const MDArrayView& view, Append&& append)
{
    auto partial = std::make_unique<MDArrayView>(view);
    if (partial->hasFinalSlice())
    {
        partial->removeFinalSlice();
    }
    append(*partial);
    return newArrayObject(std::move(partial));
}

/// The element at the integer items of `view` and `lastIndex`.
template <SupportedArrayEnum kind>
PyObject* readElement(const MDArrayView& view, Py_ssize_t lastIndex)
{
    std::vector<Py_ssize_t> indices;
    if (!view.integerIndices(indices))
    {
        return nullptr;
    }
    indices.push_back(lastIndex);
    const char* address = view.m_sharedMDA->elementAddress(indices);
    if (address == nullptr)
    {
        return nullptr;
    }
    return visitComplexity<kind>(view.m_isComplex, [&]<class T>(std::type_identity<T>) {
        return elementToPython<T>(address);
    });
}
} // namespace

template <SupportedArrayEnum kind>
PyObject* readItem(PyObject*, MDArrayView& view, Py_ssize_t index)
{
    const Py_ssize_t length = view.currentLength();
    if (length < 0)
    {
        return nullptr;
    }
    IntegerIndexItem item{index, false};
    if (IndexRefusal refusal; !item.normalize(length, refusal))
    {
        return raise(PyExc_IndexError, "index has an invalid value: " + std::to_string(index));
    }
    if (view.hasFinalSlice() && !indexIntoFinalSlice(view, item))
    {
        return nullptr;
    }
    if (view.isAtLastDimension())
    {
        return readElement<kind>(view, item.m_index);
    }
    return makePartialArray(view, [&](MDArrayView& partial) { partial.appendIntegerItem(item); });
}

template <SupportedArrayEnum kind>
PyObject* readSubscript(PyObject* self, MDArrayView& view, PyObject* key)
{
    if (PyLong_Check(key))
    {
        const Py_ssize_t index = callOut(PyLong_AsSsize_t, key);
        if (index == -1 && PyErr_Occurred() != nullptr)
        {
            return nullptr;
        }
        return readItem<kind>(self, view, index);
    }
    if (Py_TYPE(key) != &PySlice_Type)
    {
        return raise(PyExc_RuntimeError, "index is not an integer or slice.");
    }
    const Py_ssize_t length = view.currentLength();
    SliceIndexItem item;
    if (length < 0 || !readSliceKey(key, length, item))
    {
        return nullptr;
    }
    if (view.hasFinalSlice() && !composeWithFinalSlice(view, item))
    {
        return nullptr;
    }
    return makePartialArray(view, [&](MDArrayView& partial) { partial.appendSliceItem(item); });
}

#define VELLUM_INSTANTIATE(ACTION, kind, ...)                                                      \
    template PyObject* readItem<SupportedArrayEnum::kind>(PyObject*, MDArrayView&, Py_ssize_t);    \
    template PyObject* readSubscript<SupportedArrayEnum::kind>(PyObject*, MDArrayView&, PyObject*);
VELLUM_ELEMENT_KINDS(VELLUM_INSTANTIATE, VELLUM_INSTANTIATE, )
#undef VELLUM_INSTANTIATE

} // namespace vellum
