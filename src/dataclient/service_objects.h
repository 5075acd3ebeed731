/// What every use of the service's own objects needs. Inside the client only.
#pragma once

#include "dataclient/array_exception.h"
#include "dataclient/service_table.h"

#include <memory>
#include <string>

namespace vellum::data::detail
{
/// A null object from an operation that gives no code: the service had no
/// memory for it.
template <class Impl>
Impl* requireObject(Impl* object)
{
    throw_if_error(object != nullptr ? 0 : kOutOfMemoryCode, std::string());
    return object;
}

/// Owns an object that nobody else holds. The destroyer was looked up before the
/// object was made.
template <class Impl>
using Owner = std::unique_ptr<Impl, void (*)(Impl*)>;

} // namespace vellum::data::detail
