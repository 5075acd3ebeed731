#include "interpreter/module_state.h"

#include "interpreter/python_ref.h"

namespace vellum
{
namespace
{
// Owned. Never released: there is no point in shutdown behind the last use.
PyObject* theShapeError = nullptr;
PyObject* theSizeError = nullptr;
PyObject* theArrayArrayClass = nullptr;

bool makeException(PyObject*& exceptionClass, const char* dottedName)
{
    if (exceptionClass == nullptr)
    {
        exceptionClass = callOut(PyErr_NewException, dottedName, nullptr, nullptr);
    }
    return exceptionClass != nullptr;
}
} // namespace

bool makeExceptionClasses()
{
    return makeException(theShapeError, "vellumexceptions.ShapeError") &&
           makeException(theSizeError, "vellumexceptions.SizeError");
}

bool findArrayArrayClass()
{
    if (theArrayArrayClass != nullptr)
    {
        return true;
    }
    const PyRef module(callOut(PyImport_ImportModule, "array"));
    if (!module)
    {
        replaceError(PyExc_RuntimeError, "unable to import array module.");
        return false;
    }
    PyRef found(callOut(PyObject_GetAttrString, module.get(), "array"));
    if (!found)
    {
        replaceError(PyExc_RuntimeError, kNoArrayArrayClass);
        return false;
    }
    if (!PyCallable_Check(found.get()))
    {
        raise(PyExc_RuntimeError, "array.array class is not callable.");
        return false;
    }
    theArrayArrayClass = found.release();
    return true;
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
    return theArrayArrayClass;
}

} // namespace vellum
