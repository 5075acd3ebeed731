#include "dataclient/service_table.h"

#include "dataclient/array_exception.h"

#include <iterator>
#include <string>

namespace vellum::data::detail
{
namespace
{
struct Release
{
    int m_firstIndex;
    const char* m_label;
};

/// Ascending; each row holds up to the first index of the next.
constexpr Release kReleaseTable[] = {
    {0, "Tide1a"}, {109, "Tide1b"}, {110, "Tide2a"}, {118, "Tide3b"}, {123, "FUTURE"},
};
} // namespace

void* resolve_required(int index)
{
    if (void* function = get_function_ptr(index))
    {
        return function;
    }
    const Release* release = std::end(kReleaseTable) - 1;
    while (release != kReleaseTable && release->m_firstIndex > index)
    {
        --release;
    }
    throw MissingFeature(std::string("This feature requires ") + release->m_label);
}

} // namespace vellum::data::detail
