/// The data-array service with a script in between: the test program answers
/// for the library, passes on what the script lets through, and keeps account
/// of what was asked and of everything that was made.
#pragma once

#include "service/service_interface.h"

#include <map>
#include <optional>
#include <set>

struct Script
{
    std::set<int> hidden; ///< indices that the library lacks
    /// What an operation answers instead of doing its work. One without a code
    /// gives null, or leaves its out value alone.
    std::map<int, vellum::data::service::Code> codes;
    std::optional<vellum::data::ArrayTypeCode> type; ///< that every array reports
    bool convertible = true;                         ///< the answer for equal types

    std::map<int, int> lookups; ///< of each index
    std::set<int> called;
    std::map<int, bool> flags;                  ///< the last flag given to an operation
    vellum::data::MemoryLayoutCode layout = -1; ///< the last one asked for
    std::set<const void*> live;                 ///< objects and buffers not yet freed
    int badFrees = 0;                           ///< of what isn't live, or no longer
};
Script& script();
