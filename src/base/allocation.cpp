#include "base/allocation.h"

namespace vellum
{
std::string AllocationRequest::failureText() const
{
    return "unable to allocate memory for array with number of elements = " +
           std::to_string(m_count) + "; type = " + m_shortName;
}

} // namespace vellum
