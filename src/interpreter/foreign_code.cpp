#include "interpreter/foreign_code.h"

#include <unistd.h>

namespace vellum
{
void parkThread() noexcept
{
    while (true)
    {
        pause();
    }
}

} // namespace vellum
