#include "storage/attributes.h"

#include "interpreter/containers.h"

namespace vellum
{
namespace
{
/// The dimensions left behind the integer items, the length of a final slice
/// first. False with a Python error if the items are no integers and one slice.
bool dimensionsLeft(const MDArrayView& view, std::vector<Py_ssize_t>& lengths)
{
    const auto& shape = view.m_sharedMDA->m_shape;
    std::size_t next = view.nextDimension();
    if (view.m_indices.size() > next + 1)
    {
        raise(PyExc_RuntimeError, "at most one slice expected.");
        return false;
    }
    if (view.m_indices.size() == next + 1)
    {
        try
        {
            lengths.push_back(std::get<SliceIndexItem>(view.m_indices[next]).m_slice_len.value());
        }
        catch (const std::bad_variant_access&)
        {
            raise(PyExc_RuntimeError, "slice expected in final position.");
            return false;
        }
        ++next;
    }
    for (; next < shape.size(); ++next)
    {
        lengths.push_back(shape[next]);
    }
    return true;
}
} // namespace

Py_ssize_t arrayLength(PyObject*, MDArrayView& view)
{
    return view.currentLength();
}

PyObject* arraySize(PyObject*, MDArrayView& view)
{
    std::vector<Py_ssize_t> lengths;
    if (!view.checkFits() || !dimensionsLeft(view, lengths))
    {
        return nullptr;
    }
    PyObject* tuple = tupleOfIntegers(std::move(lengths));
    return tuple != nullptr ? tuple
                            : replaceError(PyExc_RuntimeError,
                                           "unable to construct Python object from integer.");
}

PyObject* arrayItemsize(PyObject*, MDArrayView& view)
{
    PyObject* itemsize = PyLong_FromSsize_t(view.m_sharedMDA->m_elemSizeInBytes);
    return itemsize != nullptr
               ? itemsize
               : replaceError(PyExc_RuntimeError, "unable to return size of element.");
}

PyObject* arrayIsComplex(PyObject*, MDArrayView& view)
{
    return PyBool_FromLong(view.m_isComplex);
}

} // namespace vellum
