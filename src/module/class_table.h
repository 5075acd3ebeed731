/// The eleven array classes, in the order of `SupportedArrayEnum`: static class
/// records whose slots reach one generic body each.
#pragma once

#include "module/array_object.h"

namespace vellum
{
/// The class of a kind. Its `tp_name` and `tp_doc` are set at start-up.
PyTypeObject& arrayClass(SupportedArrayEnum kind);

} // namespace vellum
