#include "interpreter/python_ref.h"

namespace vellum
{
void PyRef::dropLastReference(PyObject* object) noexcept
{
    const auto drop = [object] { Py_DECREF(object); };
    if (PyErr_Occurred() == nullptr)
    {
        callOut(drop);
        return;
    }
    SavedError error;
    callOut(drop);
    error.restore();
}

} // namespace vellum
