/// What the eleven array classes are to Python: one description for all.
#pragma once

#include <Python.h>

namespace vellum
{
/// Describes the blank class records, so that they can be readied.
void describeArrayClasses();

} // namespace vellum
