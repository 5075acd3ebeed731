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

/// Adds an object with a reference of the module's own. A failure isn't examined
/// here: the import ends with the error that it sets.
void addObject(PyObject* module, const char* name, PyObject* object)
{
    PyRef reference = PyRef::fromBorrowed(object);
    if (callOut(PyModule_AddObject, module, name, object) == 0)
    {
        reference.release(); // the module has it now
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
        if (callOut(PyType_Ready, &type) < 0)
        {
            writeLine("Could not initialize type.");
            return;
        }
        addClass(module, kKindTable[k].m_shortName, type);
    }
    if (callOut(PyType_Ready, &iteratorClass) < 0)
    {
        writeLine("Could not initialize VellumPyIter_Type.");
        return;
    }
    addClass(module, "VellumPyIter", iteratorClass);
}

/// Null with a Python error, or the module: with an error pending too, where it
/// lacks a class.
PyObject* makeModule()
{
    PyRef module(callOut(PyModule_Create2, &moduleDefinition, PYTHON_API_VERSION));
    if (!module)
    {
        writeLine("Could not initialize module.");
        return nullptr;
    }
    addClasses(module.get());
    // An error of the classes makes the import fail at its end; the exceptions
    // couldn't be made while it stands.
    const SavedError pendingOfClasses;
    if (!makeExceptionClasses())
    {
        return nullptr;
    }
    addObject(module.get(), "ShapeError", shapeErrorClass());
    addObject(module.get(), "SizeError", sizeErrorClass());
    const PyRef capsule(PyCapsule_New(&capsuleTable, kCapsuleName, nullptr));
    if (!capsule)
    {
        return nullptr;
    }
    addObject(module.get(), "_capi", capsule.get());
    return module.release();
}

/// Without `array.array` there is no module, though all the rest is attempted:
/// the classes can be reached without it, and must be whole.
PyObject* createModule()
{
    if (findArrayArrayClass())
    {
        return makeModule();
    }
    SavedError firstError;
    {
        const PyRef unusable(makeModule());
    }
    firstError.restore();
    return nullptr;
}
} // namespace

} // namespace vellum

// Not PyMODINIT_FUNC: in Python 3.8 it leaves the symbol hidden like all others.
extern "C" __attribute__((visibility("default"))) PyObject* PyInit_vellummultidimarrayforpython()
{
    return vellum::guarded([] { return vellum::createModule(); });
}
