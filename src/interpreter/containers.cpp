#include "interpreter/containers.h"

namespace vellum
{
UnfinishedContainer::UnfinishedContainer(PyObject* owned)
    : m_container(owned), m_isHidden(owned != nullptr && Py_SIZE(owned) > 0)
{
    if (m_isHidden)
    {
        PyObject_GC_UnTrack(owned);
    }
}

PyObject* UnfinishedContainer::finish()
{
    if (m_isHidden)
    {
        PyObject_GC_Track(m_container.get());
    }
    return m_container.release();
}

PyObject* tupleOfIntegers(std::vector<Py_ssize_t> values)
{
    auto tuple = UnfinishedContainer::tuple(static_cast<Py_ssize_t>(values.size()));
    if (!tuple)
    {
        return nullptr;
    }
    for (std::size_t k = 0; k < values.size(); ++k)
    {
        PyObject* item = PyLong_FromSsize_t(values[k]);
        if (item == nullptr)
        {
            return nullptr;
        }
        PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(k), item);
    }
    return tuple.finish();
}

} // namespace vellum
