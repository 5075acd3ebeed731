// A target of libFuzzer: every input is a program for programs.py, in one
// interpreter that lives as long as the process.

#include <Python.h>

#include <cstddef>
#include <cstdlib>

static PyObject* runProgram = nullptr;

static PyObject* orAbort(PyObject* object)
{
    if (object == nullptr)
    {
        PyErr_Print();
        std::abort();
    }
    return object;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    Py_InitializeEx(0); // signals are the fuzzer's
    runProgram = orAbort(PyObject_GetAttrString(orAbort(PyImport_ImportModule("programs")), "run"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const char* data, std::size_t size)
{
    PyObject* program = orAbort(PyBytes_FromStringAndSize(data, static_cast<Py_ssize_t>(size)));
    Py_DECREF(orAbort(PyObject_CallFunctionObjArgs(runProgram, program, nullptr)));
    Py_DECREF(program);
    return 0;
}
