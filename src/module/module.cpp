// The entry point: readies and publishes the classes, makes the exceptions and
// publishes the capsule.

#include "indexing/iterator.h"
#include "interpreter/guard.h"
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

/// A class that can't be readied leaves its error pending, and those behind it out.
void addClasses(PyObject* module)
{
    describeArrayClasses();
    for (std::size_t k = 0; k < kKindCount; ++k)
    {
        if (callOut(PyType_Ready, &arrayClasses[k]) < 0)
        {
            writeLine("Could not initialize type.");
            return;
        }
        addClass(module, kKindTable[k].m_shortName, arrayClasses[k]);
    }
    if (callOut(PyType_Ready, &iteratorClass) < 0)
    {
        writeLine("Could not initialize VellumPyIter_Type.");
        return;
    }
    addClass(module, "VellumPyIter", iteratorClass);
}

/// The module, with an error pending where it lacks a class.
PyRef makeModule()
{
    PyRef module(callOut(PyModule_Create2, &moduleDefinition, PYTHON_API_VERSION));
    if (!module)
    {
        writeLine("Could not initialize module.");
        throw PythonError();
    }
    addClasses(module.get());
    // An error of the classes makes the import fail at its end; the exceptions
    // couldn't be made while it stands.
    const SavedError pendingOfClasses;
    makeExceptionClasses();
    addObject(module.get(), "ShapeError", shapeErrorClass());
    addObject(module.get(), "SizeError", sizeErrorClass());
    const PyRef capsule = checked(callOut(PyCapsule_New, &capsuleTable, kCapsuleName, nullptr));
    addObject(module.get(), "_capi", capsule.get());
    return module;
}

/// Without `array.array` there is no module, though all the rest is attempted:
/// the classes can be reached without it, and must be whole.
PyObject* createModule()
{
    const auto findArrayClass = [] {
        findArrayArrayClass();
        return 0;
    };
    if (guarded(findArrayClass) == 0)
    {
        return makeModule().release();
    }
    SavedError firstError;
    guarded([] { makeModule(); });
    firstError.restore();
    throw PythonError();
}
} // namespace

} // namespace vellum

// Not PyMODINIT_FUNC: in Python 3.8 it leaves the symbol hidden like all others.
extern "C" __attribute__((visibility("default"))) PyObject* PyInit_vellummultidimarrayforpython()
{
    return vellum::guarded([] { return vellum::createModule(); });
}
