/// A data-array service for tests of the client, in the test program itself. It
/// keeps real elements; beyond that it does what the script says, and keeps
/// account of what it was asked and of everything that it has made.
#pragma once

#include "service/service_interface.h"

#include <map>
#include <set>
#include <vector>

namespace scripted
{
struct Script
{
    std::set<int> hidden; ///< indices that the library lacks
    /// What an operation answers instead of doing its work. One without a code
    /// gives null, or leaves its out value alone.
    std::map<int, vellum::data::service::Code> codes;
    bool convertible = true; ///< the answer for equal types
    bool (*copiesOnUnshare)(bool soleOwner) = [](bool soleOwner) { return !soleOwner; };

    std::map<int, int> lookups; ///< of each index
    std::set<int> called;
    std::map<int, bool> flags;                  ///< the last flag given to an operation
    vellum::data::MemoryLayoutCode layout = -1; ///< the last one asked for
    std::set<const void*> live;                 ///< objects and buffers not yet freed
    int badFrees = 0;                           ///< of what isn't live, or no longer
};
Script& script();

/// One element, all bytes 0. `type` may be any number.
vellum::data::service::ArrayImpl* makeArray(vellum::data::ArrayTypeCode type);

} // namespace scripted
