#include "module/class_table.h"

#include "construction/constructor.h"
#include "indexing/assignment.h"
#include "indexing/iterator.h"
#include "indexing/reading.h"
#include "module/slots.h"
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

PySequenceMethods arraySequence = {slot<arrayLength>, nullptr, nullptr, slot<readItem>, nullptr,
                                   nullptr,           nullptr, nullptr, nullptr,        nullptr};

PyMappingMethods arrayMapping = {slot<arrayLength>, slot<readSubscript>, slot<assignSubscript>};
} // namespace

void describeArrayClasses()
{
    for (std::size_t k = 0; k < kKindCount; ++k)
    {
        PyTypeObject& type = arrayClasses[k];
        if (type.tp_name != nullptr)
        {
            return; // by an earlier module out of the same file
        }
        type.tp_name = kKindTable[k].m_className;
        type.tp_doc = kKindTable[k].m_shortName;
        type.tp_basicsize = sizeof(MDArrayObject);
        type.tp_dealloc = deallocateArray;
        type.tp_repr = slot<arrayRepr>;
        type.tp_as_sequence = &arraySequence;
        type.tp_as_mapping = &arrayMapping;
        type.tp_str = slot<arrayStr>;
        type.tp_as_buffer = &arrayBuffer;
        type.tp_flags = Py_TPFLAGS_DEFAULT;
        type.tp_richcompare = slot<compareArrays>;
        type.tp_iter = slot<makeIterator>;
        type.tp_methods = arrayMethods;
        type.tp_getset = arrayAttributes;
        type.tp_new = newArray;
    }
}

} // namespace vellum
