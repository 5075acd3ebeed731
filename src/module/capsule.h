/// The interface for native modules: service arrays in, Python array objects out,
/// and the reverse. Its table of two functions is the payload of the capsule
/// `vellummultidimarrayforpython._capi`. The caller holds the interpreter's lock.
#pragma once

#include <Python.h>

#include "dataclient/array.h"

namespace vellum
{
struct CapsuleTable
{
    /// Takes over `impl`, on failure too, unless it is null. A new reference to
    /// an array of the class and complexity of its type, or null with a
    /// `RuntimeError` or `MemoryError`.
    PyObject* (*wrapArray)(data::impl::ArrayImpl* impl);

    /// The service's array behind an array object, borrowed: it lives no longer
    /// than the object, and no longer than until the next write to the array,
    /// the next reshape or the next call. A partial array gives a copy of what it
    /// selects. Null with a Python error on failure.
    data::impl::ArrayImpl* (*unwrapArray)(PyObject* arrayObject);
};

inline constexpr const char* kCapsuleName = "vellummultidimarrayforpython._capi";

/// Lives as long as the process.
extern CapsuleTable capsuleTable;

} // namespace vellum
