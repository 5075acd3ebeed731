#include "indexing/reading.h"

#include "indexing/slice_key.h"
#include "storage/element_to_python.h"

namespace vellum
{
PyObject* readItem(PyObject*, MDArrayView& view, Py_ssize_t index)
{
    const auto position = normalizeIndex(index, view.currentLength());
    if (!position)
    {
        setError(PyExc_IndexError, invalidIndexText(index));
        return nullptr;
    }
    const Index selected = view.finalSlice() ? view.finalSlice()->valueAt(*position) : *position;
    if (!view.isAtLastDimension())
    {
        return newArrayObject(std::make_unique<MDArrayView>(view, selected));
    }
    const MDArrayWrapper& record = view.record();
    return elementToPython(record.type().m_type)(record.block() + view.offsetOf(selected));
}

PyObject* readSubscript(PyObject* self, MDArrayView& view, PyObject* key)
{
    if (isIntegerKey(key))
    {
        return readItem(self, view, readIntegerKey(key));
    }
    requireSliceKey(key);
    const SliceIndexItem item = readSliceKey(key, view.currentLength());
    return newArrayObject(std::make_unique<MDArrayView>(
        view, view.finalSlice() ? composeWithSlice(*view.finalSlice(), item) : item));
}

} // namespace vellum
