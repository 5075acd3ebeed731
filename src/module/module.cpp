// The entry point: readies and publishes the classes, makes the exceptions and
// publishes the capsule.

#include "indexing/iterator.h"
#include "interpreter/module_state.h"
#include "module/capsule.h"
#include "module/class_table.h"

#include <cstdio>

namespace vellum
{
namespace
{
PyObject* theShapeError = nullptr;
PyObject* theSizeError = nullptr;
PyObject* theArrayArrayClass = nullptr;

PyMethodDef noFunctions[] = {{nullptr, nullptr, 0, nullptr}};

PyModuleDef moduleDefinition = {
    PyModuleDef_HEAD_INIT,
    "vellummultidimarrayforpython", // m_name
    "vellummultidimarrayforpython", // m_doc
    -1,                             // m_size: everything lives in static storage
    noFunctions,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

void writeLine(const char* text)
{
    std::fprintf(stderr, "%s\n", text);
    std::fflush(stderr);
}

/// The reference is kept for the life of the process.
void findArrayArrayClass()
{
    const PyRef module(PyImport_ImportModule("array"));
    if (!module)
    {
        raise(PyExc_RuntimeError, "unable to import array module.");
        return;
    }
    PyRef found(PyObject_GetAttrString(module.get(), "array"));
    if (!found)
    {
        raise(PyExc_RuntimeError, "unable to retrieve array.array class.");
        return;
    }
    if (!PyCallable_Check(found.get()))
    {
        raise(PyExc_RuntimeError, "array.array class is not callable.");
        return;
    }
    theArrayArrayClass = found.release();
}

/// Adds an object with a reference of the module's own. A failure isn't examined
/// here: the import ends with the error that it sets.
void addObject(PyObject* module, const char* name, PyObject* object)
{
    Py_XINCREF(object);
    if (PyModule_AddObject(module, name, object) < 0)
    {
        Py_XDECREF(object);
    }
}

void addClass(PyObject* module, const char* name, PyTypeObject& type)
{
    addObject(module, name, reinterpret_cast<PyObject*>(&type));
}

void addClasses(PyObject* module)
{
    for (std::size_t k = 0; k < kKindCount; ++k)
    {
        PyTypeObject& type = arrayClass(static_cast<SupportedArrayEnum>(k));
        type.tp_doc = kKindTable[k].m_shortName;
        type.tp_name = kKindTable[k].m_className;
        if (PyType_Ready(&type) < 0)
        {
            writeLine("Could not initialize type.");
            return;
        }
        addClass(module, kKindTable[k].m_shortName, type);
    }
    if (PyType_Ready(&iteratorClass) < 0)
    {
        writeLine("Could not initialize VellumPyIter_Type.");
        return;
    }
    addClass(module, "VellumPyIter", iteratorClass);
}

/// The module attribute holds the reference; the pointer itself holds none.
void addException(PyObject* module, const char* name, const char* dottedName, PyObject*& pointer)
{
    const PyRef exception(PyErr_NewException(dottedName, nullptr, nullptr));
    pointer = exception.get();
    addObject(module, name, exception.get());
}

PyObject* createModule()
{
    findArrayArrayClass();
    // An error of the step above makes the import fail at its end; the steps
    // below go on without it.
    const SavedError pending;
    PyRef module(PyModule_Create2(&moduleDefinition, PYTHON_API_VERSION));
    if (!module)
    {
        writeLine("Could not initialize module.");
        return nullptr;
    }
    addClasses(module.get());
    // The same for an error of the classes: the exceptions couldn't be made while
    // it stands.
    const SavedError pendingOfClasses;
    addException(module.get(), "ShapeError", "vellumexceptions.ShapeError", theShapeError);
    addException(module.get(), "SizeError", "vellumexceptions.SizeError", theSizeError);
    const PyRef capsule(PyCapsule_New(&capsuleTable, kCapsuleName, nullptr));
    if (!capsule)
    {
        return nullptr;
    }
    addObject(module.get(), "_capi", capsule.get());
    return module.release();
}
} // namespace

PyObject* shapeErrorClass()
{
    return theShapeError;
}
PyObject* sizeErrorClass()
{
    return theSizeError;
}
PyObject* arrayArrayClass()
{
    return theArrayArrayClass;
}

} // namespace vellum

// Not PyMODINIT_FUNC: in Python 3.8 it leaves the symbol hidden like all others.
extern "C" __attribute__((visibility("default"))) PyObject* PyInit_vellummultidimarrayforpython()
{
    return vellum::guarded([] { return vellum::createModule(); });
}
