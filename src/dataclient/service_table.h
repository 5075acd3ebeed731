/// Resolving the operations of the service: one cache per operation, filled at
/// first use, and the gate that names the release a missing operation needs.
#pragma once

#include "service/service_interface.h"

namespace vellum::data::detail
{
/// The function behind a required index. Throws `MissingFeature`,
/// "This feature requires " and the label of the release that has it.
void* resolve_required(int index);

/// Caches are per operation. A gate that throws leaves its cache unset, so the
/// next use asks again. Initialisation is thread-safe by itself.
template <class Operation>
typename Operation::Function* required()
{
    static auto* const function =
        reinterpret_cast<typename Operation::Function*>(resolve_required(Operation::index));
    return function;
}

/// Null if the library lacks the operation; it isn't asked again.
template <class Operation>
typename Operation::Function* optional()
{
    static auto* const function =
        reinterpret_cast<typename Operation::Function*>(get_function_ptr(Operation::index));
    return function;
}

} // namespace vellum::data::detail
