#include "interpreter/signals.h"

#include "interpreter/foreign_code.h"
#include "interpreter/python_error.h"

namespace vellum
{
void SignalWatch::look()
{
    if (callOut(PyErr_CheckSignals) != 0)
    {
        throw PythonError();
    }
}

} // namespace vellum
