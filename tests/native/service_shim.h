/// A service that stands before the real one: linked into a test program or
/// preloaded into the interpreter, its `get_function_ptr` is the one that the
/// client finds. Every operation goes on to the real library; on the way it is
/// noted and can be told to fail, and what the service gives out is counted.
#pragma once

#include "service/service_interface.h"

#include <map>
#include <set>
#include <vector>

struct Shim
{
    std::set<int> m_hidden;      ///< indices that the library lacks
    std::map<int, int> m_found;  ///< how often each was looked up while not hidden
    std::vector<int> m_trace;    ///< the indices called since the start
    std::map<int, bool> m_flags; ///< the last flag given to an operation
    long m_live[5] = {};         ///< arrays, factories, iterators, references, buffers
    std::map<void*, vellum::data::BufferDeleter> m_deleters; ///< of the live buffers

    std::size_t m_surplus = 0; ///< elements that an array counts beyond its own

    long m_faultAt = -1;  ///< position in the trace of the first call to fail
    long m_faultEnd = -1; ///< and of the first one after it that doesn't
    vellum::data::service::Code m_faultCode = 0;
};

/// Never destroyed: arrays can outlive static destruction.
inline Shim& shim()
{
    static Shim& only = *new Shim();
    return only;
}
