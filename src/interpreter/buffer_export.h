/// The owner of what another object exports through the buffer protocol.
#pragma once

#include <Python.h>

#include "interpreter/foreign_code.h"
#include "interpreter/python_error.h"
#include "interpreter/python_ref.h"

namespace vellum
{
/// Holds an export of `exporter` from its request to its release. Both can be
/// foreign code, and nothing that the exporter says of its memory is checked.
class BufferExport
{
public:
    /// `isHeld()` false: the exporter has refused. What it raised stands, if it
    /// raised at all.
    BufferExport(PyObject* exporter, int flags)
        : m_exporter(PyRef::fromBorrowed(exporter)),
          m_isHeld(callOut(PyObject_GetBuffer, exporter, &m_buffer, flags) == 0)
    {
    }
    BufferExport(const BufferExport&) = delete;
    BufferExport& operator=(const BufferExport&) = delete;
    /// A release can't fail: an error that it leaves goes to `sys.unraisablehook`,
    /// and one that stands already is kept from it.
    ~BufferExport()
    {
        if (!m_isHeld)
        {
            return;
        }
        const SavedError saved;
        callOut(PyBuffer_Release, &m_buffer);
        if (PyErr_Occurred() != nullptr)
        {
            callOut(PyErr_WriteUnraisable, m_exporter.get());
        }
    }

    bool isHeld() const { return m_isHeld; }
    const Py_buffer& get() const { return m_buffer; }

private:
    PyRef m_exporter;
    Py_buffer m_buffer{};
    bool m_isHeld;
};

} // namespace vellum
