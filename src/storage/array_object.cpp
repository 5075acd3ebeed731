#include "storage/array_object.h"

namespace vellum
{
constinit PyTypeObject arrayClasses[kKindCount] = {
#define VELLUM_BLANK_CLASS(...) blankClass(),
    VELLUM_ELEMENT_KINDS(VELLUM_BLANK_CLASS)
#undef VELLUM_BLANK_CLASS
};

namespace
{
MDArrayView*& viewIn(PyObject* object)
{
    return reinterpret_cast<MDArrayObject*>(object)->m_view;
}
} // namespace

void deallocateArray(PyObject* self)
{
    delete viewIn(self);
    PyObject_Free(self);
}

MDArrayView& viewOf(PyObject* arrayObject)
{
    if (arrayObject == nullptr || viewIn(arrayObject) == nullptr)
    {
        raise(PyExc_RuntimeError, kNotInitialized);
    }
    return *viewIn(arrayObject);
}

PyRef allocateArrayObject(SupportedArrayEnum kind)
{
    PyTypeObject& type = arrayClass(kind);
    PyRef object(callOut(type.tp_alloc, &type, 0));
    if (!object)
    {
        raise(PyExc_RuntimeError, kNoInstance);
    }
    return object;
}

PyObject* giveView(PyRef object, std::unique_ptr<MDArrayView> view)
{
    viewIn(object.get()) = view.release();
    return object.release();
}

PyObject* newArrayObject(std::unique_ptr<MDArrayView> view)
{
    PyRef object = allocateArrayObject(view->record().type().m_kind);
    return giveView(std::move(object), std::move(view));
}

} // namespace vellum
