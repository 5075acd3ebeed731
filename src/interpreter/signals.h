/// Long loops stay interruptible: they look at signals every 65,536 steps.
#pragma once

#include <Python.h>

namespace vellum
{
/// Counts the steps of one operation, also across nested loops, whose own indices
/// do most of the counting. Both functions throw where a signal handler has raised
/// an error, which ends the operation.
///
/// A handler is foreign code, and from CPython 3.12 on a look can run a
/// collection too.
class SignalWatch
{
public:
    /// In a loop, at its step `position`, from 0.
    static void atStep(Py_ssize_t position)
    {
        if ((position & (kInterval - 1)) == kInterval - 1)
        {
            look();
        }
    }

    /// Behind a loop of `steps`, for those that its own index hasn't shown.
    void behindLoop(Py_ssize_t steps)
    {
        m_steps += steps & (kInterval - 1);
        if (m_steps >= kInterval)
        {
            m_steps = 0;
            look();
        }
    }

private:
    static constexpr Py_ssize_t kInterval = 65536;

    [[gnu::cold, gnu::noinline]] static void look();

    Py_ssize_t m_steps = 0;
};

} // namespace vellum
