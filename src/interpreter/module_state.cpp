#include "interpreter/module_state.h"

#include "interpreter/python_ref.h"

namespace vellum
{
namespace
{
constexpr const char* kNoArrayArrayClass = "unable to retrieve array.array class.";

// Owned. Never released: there is no point in shutdown behind the last use.
PyObject* theShapeError = nullptr;
PyObject* theSizeError = nullptr;
PyObject* theArrayArrayClass = nullptr;

void makeException(PyObject*& exceptionClass, const char* dottedName)
{
    if (exceptionClass == nullptr)
    {
        exceptionClass =
            checked(callOut(PyErr_NewException, dottedName, nullptr, nullptr)).release();
    }
}
} // namespace

void makeExceptionClasses()
{
    makeException(theShapeError, "vellumexceptions.ShapeError");
    makeException(theSizeError, "vellumexceptions.SizeError");
}

void findArrayArrayClass()
{
    if (theArrayArrayClass != nullptr)
    {
        return;
    }
    const PyRef module(callOut(PyImport_ImportModule, "array"));
    if (!module)
    {
        replaceError(PyExc_RuntimeError, "unable to import array module.");
    }
    PyRef found(callOut(PyObject_GetAttrString, module.get(), "array"));
    if (!found)
    {
        replaceError(PyExc_RuntimeError, kNoArrayArrayClass);
    }
    if (!PyCallable_Check(found.get()))
    {
        raise(PyExc_RuntimeError, "array.array class is not callable.");
    }
    theArrayArrayClass = found.release();
}

PyObject* shapeErrorClass()
{
    return theShapeError != nullptr ? theShapeError : PyExc_RuntimeError;
}

PyObject* sizeErrorClass()
{
    return theSizeError != nullptr ? theSizeError : PyExc_RuntimeError;
}

PyObject* arrayArrayClass()
{
    if (theArrayArrayClass == nullptr)
    {
        raise(PyExc_RuntimeError, kNoArrayArrayClass);
    }
    return theArrayArrayClass;
}

} // namespace vellum
