#include "module/capsule.h"

#include "output/copies.h"

namespace vellum
{
namespace
{
PyObject* wrapOwned(data::impl::ArrayImpl* impl)
{
    if (impl == nullptr)
    {
        return raise(PyExc_RuntimeError, kNullData);
    }
    data::Array array(impl);
    const auto kind = kindOfArrayType(array.getType());
    if (!kind)
    {
        return raise(PyExc_RuntimeError, "invalid type.");
    }
    PyRef object = allocateArrayObject(kind->m_kind);
    if (!object)
    {
        return nullptr;
    }
    return giveView(std::move(object), std::make_unique<MDArrayView>(std::move(array), kind->m_kind,
                                                                     kind->m_isComplex, true));
}

data::impl::ArrayImpl* unwrapBorrowed(PyObject* object)
{
    if (object == nullptr || viewOf(object) == nullptr)
    {
        return raise(PyExc_RuntimeError, kNotInitialized);
    }
    MDArrayView& view = *viewOf(object);
    if (view.m_sharedMDA == nullptr)
    {
        return raise(PyExc_RuntimeError, kNullData);
    }
    if (view.m_indices.empty())
    {
        return view.m_sharedMDA->array().getImpl();
    }
    const auto selected = indexedArray(view, true);
    return selected ? selected->getImpl() : nullptr;
}

PyObject* wrapArray(data::impl::ArrayImpl* impl)
{
    return guarded([impl] { return wrapOwned(impl); });
}

data::impl::ArrayImpl* unwrapArray(PyObject* object)
{
    return guarded([object] { return unwrapBorrowed(object); });
}
} // namespace

CapsuleTable capsuleTable = {wrapArray, unwrapArray};

} // namespace vellum
