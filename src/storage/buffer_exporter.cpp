#include "storage/buffer_exporter.h"

#include "interpreter/containers.h"
#include "interpreter/guard.h"

namespace vellum
{
namespace
{
/// Why a request can't be met; null if it can. Consumers ask for what they would
/// like best first, so a refusal is part of normal use and isn't thrown.
const char* refusal(const MDArrayWrapper& record, int flags)
{
    if ((flags & PyBUF_WRITABLE) == PyBUF_WRITABLE)
    {
        return "underlying buffer is not writable.";
    }
    // The flags decide, not the shape: an array whose two orders coincide is
    // refused like any other.
    if ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS)
    {
        return "underlying buffer not C-contiguous.";
    }
    // The protocol allows no more, and consumers recurse over them.
    if (record.dimensions() > PyBUF_MAX_NDIM)
    {
        return "number of dimensions must not exceed 64.";
    }
    return nullptr;
}

int fillBuffer(PyObject* self, Py_buffer* buffer, int flags)
{
    if (buffer != nullptr)
    {
        buffer->obj = nullptr;
    }
    MDArrayWrapper& record = viewOf(self).record();
    if (buffer == nullptr)
    {
        raise(PyExc_RuntimeError, "null pointer to view object null.");
    }
    if (const char* text = refusal(record, flags))
    {
        setError(PyExc_ValueError, text);
        return -1;
    }
    const bool wantsFormat = (flags & PyBUF_FORMAT) == PyBUF_FORMAT;
    buffer->buf = const_cast<char*>(record.block());
    buffer->len = record.byteCount();
    buffer->itemsize = static_cast<Py_ssize_t>(record.type().m_width);
    buffer->readonly = 1;
    buffer->ndim = static_cast<int>(record.dimensions());
    buffer->format = wantsFormat ? const_cast<char*>(record.type().m_format) : nullptr;
    buffer->shape = const_cast<Py_ssize_t*>(record.shape().data());
    buffer->strides = const_cast<Py_ssize_t*>(record.strides().data());
    buffer->suboffsets = nullptr;
    buffer->internal = nullptr;
    Py_INCREF(self);
    buffer->obj = self;
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
    guarded([=] { viewOf(self).record().releaseExport(); });
}

PyObject* bufferInfo(PyObject*, MDArrayView& view)
{
    const MDArrayWrapper& record = view.record();
    const PyRef address =
        checked(PyLong_FromUnsignedLongLong(reinterpret_cast<std::uintptr_t>(record.block())));
    const PyRef count = checked(PyLong_FromSsize_t(record.elementCount()));
    return checked(callOut(PyTuple_Pack, 2, address.get(), count.get())).release();
}

PyObject* bytewiseStrides(PyObject*, MDArrayView& view)
{
    return tupleOf(view.record().strides()).release();
}

PyObject* toMemoryView(PyObject* self, MDArrayView&)
{
    return checked(callOut(PyMemoryView_FromObject, self)).release();
}

} // namespace vellum
