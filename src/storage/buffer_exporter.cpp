#include "storage/buffer_exporter.h"

#include "interpreter/containers.h"

namespace vellum
{
namespace
{
int refuse(Py_buffer* buffer, PyObject* exceptionClass, const char* text)
{
    if (buffer != nullptr)
    {
        buffer->obj = nullptr;
    }
    raise(exceptionClass, text);
    return -1;
}

int fillBuffer(PyObject* self, Py_buffer* buffer, int flags)
{
    if (self == nullptr || viewOf(self) == nullptr)
    {
        return refuse(buffer, PyExc_RuntimeError, kNotInitialized);
    }
    if (buffer == nullptr)
    {
        return refuse(buffer, PyExc_RuntimeError, "null pointer to view object null.");
    }
    MDArrayWrapper& record = *viewOf(self)->m_sharedMDA;
    if ((flags & PyBUF_WRITABLE) == PyBUF_WRITABLE && record.m_isReadOnly != 0)
    {
        return refuse(buffer, PyExc_ValueError, "underlying buffer is not writable.");
    }
    const char* format = formatOfArrayType(record.m_arrayType);
    const bool wantsFormat = (flags & PyBUF_FORMAT) == PyBUF_FORMAT;
    if (wantsFormat && format == nullptr)
    {
        return refuse(buffer, PyExc_ValueError, "format field is null.");
    }
    // The flags decide, not the shape: an array whose two orders coincide is
    // refused like any other.
    if ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS)
    {
        return refuse(buffer, PyExc_ValueError, "underlying buffer not C-contiguous.");
    }
    // The protocol has no room for more, and consumers recurse over them.
    if (record.m_nDim > PyBUF_MAX_NDIM)
    {
        return refuse(buffer, PyExc_ValueError, "number of dimensions must not exceed 64.");
    }
    buffer->buf = record.m_buf;
    buffer->obj = self;
    buffer->len = record.m_bufferSizeInBytes;
    buffer->itemsize = record.m_elemSizeInBytes;
    buffer->readonly = record.m_isReadOnly;
    buffer->ndim = record.m_nDim;
    buffer->format = wantsFormat ? const_cast<char*>(format) : nullptr;
    buffer->shape = record.m_shape.data();
    buffer->strides = record.m_bytewiseStrides.data();
    buffer->suboffsets = nullptr;
    buffer->internal = nullptr;
    Py_INCREF(self);
    record.addExport();
    return 0;
}
} // namespace

int getBuffer(PyObject* self, Py_buffer* buffer, int flags)
{
    return guarded([=] { return fillBuffer(self, buffer, flags); });
}

void releaseBuffer(PyObject* self, Py_buffer*)
{
    guarded([=] { viewOf(self)->m_sharedMDA->releaseExport(); });
}

PyObject* bufferInfo(PyObject*, MDArrayView& view)
{
    const MDArrayWrapper& record = *view.m_sharedMDA;
    const PyRef address(
        PyLong_FromUnsignedLongLong(reinterpret_cast<std::uintptr_t>(record.m_buf)));
    const PyRef count(PyLong_FromSsize_t(record.m_numElems));
    return address && count ? callOut(PyTuple_Pack, 2, address.get(), count.get()) : nullptr;
}

PyObject* bytewiseStrides(PyObject*, MDArrayView& view)
{
    return tupleOfIntegers(view.m_sharedMDA->m_bytewiseStrides);
}

PyObject* toMemoryView(PyObject* self, MDArrayView&)
{
    return callOut(PyMemoryView_FromObject, self);
}

} // namespace vellum
