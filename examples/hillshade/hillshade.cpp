// The Python module `hillshade`: shaded relief of an elevation grid, and a look
// at the service array behind any array. A native client of the array module:
// arrays come in and go out through the two functions of its capsule.

#include <Python.h>

#include "relief.h"
#include "service.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>

namespace hillshade
{
namespace
{
constexpr const char* kArrayModule = "vellummultidimarrayforpython";

/// The capsule's table. It lives as long as the process.
struct ArrayInterface
{
    /// Takes the array over, on failure too.
    PyObject* (*wrapArray)(ServiceArray* array);
    /// Lends it, until the next write to the array or its next reshape.
    ServiceArray* (*unwrapArray)(PyObject* arrayObject);
};

const ArrayInterface* arrayInterface = nullptr;

/// `unwrapArray` trusts its caller to pass an array: only an instance of one of
/// these goes there. They can't be subclassed and are never released.
PyTypeObject* arrayClasses[11];

/// A Python error is set.
struct PythonError
{};

PyObject* orThrow(PyObject* object)
{
    return object != nullptr ? object : throw PythonError();
}

[[noreturn]] void refuse(PyObject* exceptionClass, const char* text)
{
    PyErr_SetString(exceptionClass, text);
    throw PythonError();
}

/// No C++ exception may reach the interpreter.
template <class Body>
PyObject* guarded(Body&& body)
{
    try
    {
        return body();
    }
    catch (const PythonError&)
    {
    }
    catch (const std::bad_alloc&)
    {
        PyErr_NoMemory();
    }
    catch (const std::exception& error)
    {
        PyErr_SetString(PyExc_RuntimeError, error.what());
    }
    return nullptr;
}

/// Borrowed from the array object.
ServiceArray* unwrap(PyObject* object)
{
    if (std::find(std::begin(arrayClasses), std::end(arrayClasses), Py_TYPE(object)) ==
        std::end(arrayClasses))
    {
        PyErr_Format(PyExc_TypeError, "expected a vellum array, not %.100s",
                     Py_TYPE(object)->tp_name);
        throw PythonError();
    }
    ServiceArray* array = arrayInterface->unwrapArray(object);
    return array != nullptr ? array : throw PythonError();
}

PyObject* wrap(ArrayOwner array)
{
    return orThrow(arrayInterface->wrapArray(array.release()));
}

/// Owns a `y*` argument.
struct Bytes : Py_buffer
{
    Bytes() : Py_buffer() {}
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;
    ~Bytes() { PyBuffer_Release(this); }
};

std::vector<std::size_t> readDimensions(PyObject* tuple)
{
    std::vector<std::size_t> dims;
    for (Py_ssize_t k = 0; k < PyTuple_GET_SIZE(tuple); ++k)
    {
        dims.push_back(PyLong_AsSize_t(PyTuple_GET_ITEM(tuple, k)));
        if (PyErr_Occurred() != nullptr)
        {
            throw PythonError();
        }
    }
    return dims;
}

/// Nothing that fits a buffer's length is as long as the largest value.
std::size_t byteCount(TypeCode type, const std::vector<std::size_t>& dims)
{
    std::size_t count = dims.empty() ? 0 : elementWidth(type);
    for (const std::size_t dim : dims)
    {
        if (__builtin_mul_overflow(count, dim, &count))
        {
            return std::numeric_limits<std::size_t>::max();
        }
    }
    return count;
}

PyObject* shade(PyObject*, PyObject* args, PyObject* kwds)
{
    static const char* const names[] = {"elevation", "azimuth",   "altitude",
                                        "z_factor",  "cell_size", nullptr};
    return guarded([&] {
        PyObject* elevation = nullptr;
        Light light;
        if (PyArg_ParseTupleAndKeywords(args, kwds, "O|dddd:shade", const_cast<char**>(names),
                                        &elevation, &light.m_azimuth, &light.m_altitude,
                                        &light.m_zFactor, &light.m_cellSize) == 0)
        {
            throw PythonError();
        }
        if (!(light.m_cellSize > 0.0))
        {
            refuse(PyExc_ValueError, "cell_size must be positive.");
        }
        ServiceArray* grid = unwrap(elevation);
        const TypeCode type = typeOf(grid);
        const auto dims = dimensionsOf(grid);
        if (type < kFirstReal || type >= kFirstComplex)
        {
            refuse(PyExc_TypeError, "elevation must hold real numbers.");
        }
        if (dims.size() != 2)
        {
            refuse(PyExc_ValueError, "elevation must have two dimensions.");
        }
        BufferOwner shades = makeBuffer(kUint8, elementCountOf(grid));
        shadeRelief(type, elementsOf(grid), dims[0], dims[1], light,
                    static_cast<std::uint8_t*>(shades.get()));
        return wrap(makeArray(kUint8, dims, std::move(shades)));
    });
}

PyObject* serviceType(PyObject*, PyObject* array)
{
    return guarded([&] { return orThrow(PyLong_FromLong(typeOf(unwrap(array)))); });
}

PyObject* serviceDimensions(PyObject*, PyObject* array)
{
    return guarded([&] {
        const auto dims = dimensionsOf(unwrap(array));
        PyObject* tuple = orThrow(PyTuple_New(static_cast<Py_ssize_t>(dims.size())));
        for (std::size_t k = 0; k < dims.size(); ++k)
        {
            PyObject* dim = PyLong_FromSize_t(dims[k]);
            if (dim == nullptr)
            {
                Py_DECREF(tuple);
                throw PythonError();
            }
            PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(k), dim);
        }
        return tuple;
    });
}

PyObject* serviceBytes(PyObject*, PyObject* object)
{
    return guarded([&] {
        ServiceArray* array = unwrap(object);
        const BufferOwner elements = copyElements(array);
        const std::size_t count = elementCountOf(array) * elementWidth(typeOf(array));
        return orThrow(PyBytes_FromStringAndSize(static_cast<const char*>(elements.get()),
                                                 static_cast<Py_ssize_t>(count)));
    });
}

PyObject* serviceAddress(PyObject*, PyObject* array)
{
    return guarded([&] { return orThrow(PyLong_FromVoidPtr(unwrap(array))); });
}

PyObject* setElementBytes(PyObject*, PyObject* args)
{
    return guarded([&] {
        PyObject* object = nullptr;
        Py_ssize_t position = 0;
        Bytes bytes;
        if (PyArg_ParseTuple(args, "Ony*:set_element_bytes", &object, &position, &bytes) == 0)
        {
            throw PythonError();
        }
        ServiceArray* array = unwrap(object);
        const TypeCode type = typeOf(array);
        if (type >= kFirstComplex || static_cast<std::size_t>(bytes.len) != elementWidth(type))
        {
            refuse(PyExc_ValueError, "expected the bytes of one real element.");
        }
        if (position < 0 || static_cast<std::size_t>(position) >= elementCountOf(array))
        {
            refuse(PyExc_IndexError, "there is no such element.");
        }
        std::memcpy(static_cast<char*>(elementsOf(array)) + position * bytes.len, bytes.buf,
                    static_cast<std::size_t>(bytes.len));
        Py_RETURN_NONE;
    });
}

PyObject* wrapBytes(PyObject*, PyObject* args)
{
    return guarded([&] {
        int type = 0;
        PyObject* tuple = nullptr;
        Bytes bytes;
        if (PyArg_ParseTuple(args, "iO!y*:wrap", &type, &PyTuple_Type, &tuple, &bytes) == 0)
        {
            throw PythonError();
        }
        const auto dims = readDimensions(tuple);
        const auto length = static_cast<std::size_t>(bytes.len);
        if (byteCount(type, dims) != length)
        {
            refuse(PyExc_ValueError, "the bytes are not as many as type and dimensions ask for.");
        }
        if (type == kNoElements)
        {
            return wrap(makeArray(type, dims, BufferOwner(nullptr, nullptr)));
        }
        const std::size_t width = std::max<std::size_t>(elementWidth(type), 1);
        BufferOwner buffer = makeBuffer(type, length / width);
        if (length != 0)
        {
            std::memcpy(buffer.get(), bytes.buf, length);
        }
        return wrap(makeArray(type, dims, std::move(buffer)));
    });
}

PyMethodDef functions[] = {
    {"shade", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(shade)),
     METH_VARARGS | METH_KEYWORDS,
     "shade(elevation, azimuth=315.0, altitude=45.0, z_factor=1.0, cell_size=1.0)\n--\n\n"
     "The shaded relief of a grid of heights as a vellum.uint8 array of its shape. Row 0 lies in "
     "the north, column 0 in the west; the angles are degrees, the cell size is in the unit of the "
     "heights."},
    {"service_type", serviceType, METH_O, "The type code of the service array behind an array."},
    {"service_dimensions", serviceDimensions, METH_O, "Its dimensions, as a tuple."},
    {"service_bytes", serviceBytes, METH_O, "Its elements, first dimension fastest, as bytes."},
    {"service_address", serviceAddress, METH_O, "Its address, which tells it from others."},
    {"set_element_bytes", setElementBytes, METH_VARARGS,
     "set_element_bytes(array, position, bytes, /)\n--\n\n"
     "Writes one real element of the service array itself, behind the array's back."},
    {"wrap", wrapBytes, METH_VARARGS,
     "wrap(type_code, dimensions, bytes, /)\n--\n\n"
     "A new service array of that type, as an array of the class that goes with it."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef moduleDefinition = {PyModuleDef_HEAD_INIT,
                                "hillshade",
                                "Shaded relief of elevation grids.",
                                -1,
                                functions,
                                nullptr,
                                nullptr,
                                nullptr,
                                nullptr};

bool importArrayModule()
{
    static const char* const names[] = {"double", "single", "int8",  "uint8",  "int16",  "uint16",
                                        "int32",  "uint32", "int64", "uint64", "logical"};
    static_assert(std::size(names) == std::size(arrayClasses));
    const std::string capsule = std::string(kArrayModule) + "._capi";
    arrayInterface = static_cast<const ArrayInterface*>(PyCapsule_Import(capsule.c_str(), 0));
    PyObject* module = arrayInterface != nullptr ? PyImport_ImportModule(kArrayModule) : nullptr;
    bool found = module != nullptr;
    for (std::size_t k = 0; found && k < std::size(names); ++k)
    {
        PyObject* attribute = PyObject_GetAttrString(module, names[k]);
        arrayClasses[k] = reinterpret_cast<PyTypeObject*>(attribute);
        found = attribute != nullptr;
    }
    Py_XDECREF(module);
    return found;
}

} // namespace
} // namespace hillshade

// Not PyMODINIT_FUNC: in Python 3.8 it leaves the visibility as the build sets it.
extern "C" __attribute__((visibility("default"))) PyObject* PyInit_hillshade()
{
    return hillshade::importArrayModule() ? PyModule_Create(&hillshade::moduleDefinition) : nullptr;
}
