#include "interpreter/signals.h"

#include "interpreter/foreign_code.h"

namespace vellum
{
bool SignalWatch::look()
{
    return callOut(PyErr_CheckSignals) == 0;
}

bool SignalWatch::lookAgain()
{
    m_steps = 0;
    return look();
}

} // namespace vellum
