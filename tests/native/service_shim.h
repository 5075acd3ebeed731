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
    /// Starts a new trace. Its calls from `position` on, `times` of them, fail
    /// with `code`; those that give an object and no code give null. Operations
    /// with neither can't fail.
    void start(long position = -1, long times = 0, vellum::data::service::Code code = 0);

    std::set<int> m_hidden;       ///< indices that the library lacks
    std::map<int, int> m_lookups; ///< of each index
    std::set<int> m_found;        ///< asked for while not hidden

    std::vector<int> m_trace;                     ///< the indices called since the start
    std::map<int, bool> m_flags;                  ///< the last flag given to an operation
    vellum::data::MemoryLayoutCode m_layout = -1; ///< the last one asked for
    long m_live[5] = {}; ///< arrays, factories, iterators, references, buffers

    std::size_t m_surplus = 0; ///< elements that an array counts beyond its own

    long m_faultAt = -1;  ///< position in the trace of the first call to fail
    long m_faultEnd = -1; ///< and of the first one after it that doesn't
    vellum::data::service::Code m_faultCode = 0;
};
Shim& shim();
