#include "module/class_table.h"

#include "construction/constructor.h"
#include "indexing/assignment.h"
#include "indexing/iterator.h"
#include "indexing/reading.h"
#include "output/array_output.h"
#include "output/comparison.h"
#include "output/copies.h"
#include "output/pickling.h"
#include "output/text_form.h"
#include "storage/attributes.h"
#include "storage/buffer_exporter.h"
#include "storage/reshape.h"

namespace vellum
{
namespace
{
// Shared by all classes.

PyMethodDef arrayMethods[] = {
    {"reshape", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(slot<reshapeArray>)),
     METH_VARARGS | METH_KEYWORDS,
     "reshape changes the dimensions of an N-dimensional array while preserving the values"},
    {"buffer_info", method<bufferInfo>, METH_NOARGS,
     "buffer_info returns a two-element tuple containing the address of the buffer and the number "
     "of elements"},
    {"get_bytewise_strides", method<bytewiseStrides>, METH_NOARGS,
     "get_bytewise_strides returns a tuple containing the bytewise strides"},
    {"clone", method<cloneArray>, METH_NOARGS,
     "clone returns an independent copy of the input object"},
    {"real", method<realPart>, METH_NOARGS,
     "real returns the real part of the input object as a 1-by-N array"},
    {"imag", method<imaginaryPart>, METH_NOARGS,
     "imag returns the imaginary part of the input object as a 1-by-N array"},
    {"noncomplex", method<noncomplexElements>, METH_NOARGS,
     "noncomplex returns the the input object (which must be noncomplex) as a 1-by-N array"},
    {"toarray", method<toArrayArray>, METH_NOARGS,
     "toarray returns an array.array initialized from the input object"},
    {"tomemoryview", method<toMemoryView>, METH_NOARGS,
     "tomemoryview returns a memoryview initialized from the input object"},
    {"__reduce__", method<reduceArray>, METH_NOARGS, "__reduce__ pickles the input object"},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef arrayAttributes[] = {
    {"size", getter<arraySize>, nullptr, "dimensions", nullptr},
    {"_size", getter<arraySize>, nullptr, "dimensions", nullptr},
    {"itemsize", getter<arrayItemsize>, nullptr, "size of an element in bytes", nullptr},
    {"_real", getter<realPart>, nullptr, "real part of elements; equivalent to real()", nullptr},
    {"_imag", getter<imaginaryPart>, nullptr, "imaginary part of elements; equivalent to imag()",
     nullptr},
    {"_data", getter<noncomplexElements>, nullptr,
     "elements in storage order; equivalent to noncomplex()", nullptr},
    {"_is_complex", getter<arrayIsComplex>, nullptr, "whether array is complex", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyBufferProcs arrayBuffer = {getBuffer, releaseBuffer};

constexpr PySequenceMethods describeSequence(ssizeargfunc item)
{
    PySequenceMethods methods{};
    methods.sq_length = slot<arrayLength>;
    methods.sq_item = item;
    return methods;
}

template <SupportedArrayEnum kind>
constinit PySequenceMethods arraySequence = describeSequence(slot<readItem<kind>>);

template <SupportedArrayEnum kind>
constinit PyMappingMethods arrayMapping = {slot<arrayLength>, slot<readSubscript<kind>>,
                                           slot<assignSubscript<kind>>};

// What nothing but a constant evaluation names, clang 14 doesn't instantiate: the
// slots without a kind are named here.
constexpr richcmpfunc compareSlot = slot<compareArrays>;
constexpr getiterfunc iterateSlot = slot<makeIterator>;

template <SupportedArrayEnum kind>
constexpr PyTypeObject describeArrayClass()
{
    PyTypeObject type = blankClass();
    type.tp_basicsize = sizeof(MDArrayObject);
    type.tp_dealloc = deallocateArray;
    type.tp_repr = slot<arrayRepr<kind>>;
    type.tp_as_sequence = &arraySequence<kind>;
    type.tp_as_mapping = &arrayMapping<kind>;
    type.tp_str = slot<arrayStr<kind>>;
    type.tp_as_buffer = &arrayBuffer;
    type.tp_flags = Py_TPFLAGS_DEFAULT;
    type.tp_richcompare = compareSlot;
    type.tp_iter = iterateSlot;
    type.tp_methods = arrayMethods;
    type.tp_getset = arrayAttributes;
    type.tp_new = newArray<kind>;
    return type;
}

constinit PyTypeObject arrayClasses[] = {
#define VELLUM_CLASS_(ACTION, kind, ...) describeArrayClass<SupportedArrayEnum::kind>(),
    VELLUM_ELEMENT_KINDS(VELLUM_CLASS_, VELLUM_CLASS_, )
#undef VELLUM_CLASS_
};
} // namespace

PyTypeObject& arrayClass(SupportedArrayEnum kind)
{
    return arrayClasses[static_cast<std::size_t>(kind)];
}

void deallocateArray(PyObject* self)
{
    delete viewOf(self);
    PyObject_Free(self);
}

PyRef allocateArrayObject(SupportedArrayEnum kind)
{
    PyTypeObject& type = arrayClass(kind);
    PyRef object(type.tp_alloc(&type, 0));
    if (!object)
    {
        raise(PyExc_RuntimeError, kNoInstance);
    }
    return object;
}

PyObject* newArrayObject(std::unique_ptr<MDArrayView> view)
{
    PyRef object = allocateArrayObject(view->m_supportedArrayEnum);
    return object ? giveView(std::move(object), std::move(view)) : nullptr;
}

} // namespace vellum
