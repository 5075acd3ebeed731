#include "module/capsule.h"

#include "interpreter/guard.h"
#include "output/copies.h"

namespace vellum
{
namespace
{
PyObject* wrapOwned(data::impl::ArrayImpl* impl)
{
    if (impl == nullptr)
    {
        raise(PyExc_RuntimeError, kNullData);
    }
    data::Array array(impl);
    const ElementType* type = findElementType(array.getType());
    if (type == nullptr)
    {
        raise(PyExc_RuntimeError, "invalid type.");
    }
    PyRef object = allocateArrayObject(type->m_kind);
    auto record = std::make_shared<MDArrayWrapper>(std::move(array), *type);
    return giveView(std::move(object), std::make_unique<MDArrayView>(std::move(record)));
}

data::impl::ArrayImpl* unwrapBorrowed(PyObject* object)
{
    MDArrayView& view = viewOf(object);
    return view.isWhole() ? view.record().array().array().getImpl()
                          : indexedArray(view, true).getImpl();
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
