/// Long loops stay interruptible: they look at signals every 65,536 steps.
#pragma once

#include <Python.h>

#include <cstdint>

namespace vellum
{
/// Counts the steps of one operation, also across nested loops, whose own indices
/// do most of the counting. Both functions are false, with the error that a
/// signal handler has raised, if the operation must end.
///
/// A handler is foreign code, and from CPython 3.12 on a look can run a
/// collection too.
class SignalWatch
{
public:
    /// In a loop, at its step `position`, from 0.
    bool atStep(Py_ssize_t position)
    {
        return static_cast<std::uint16_t>(position) != kInterval - 1 || look();
    }

    /// Behind a loop of `steps`, for those that its own index hasn't shown.
    bool behindLoop(Py_ssize_t steps)
    {
        m_steps += steps & (kInterval - 1);
        return m_steps < kInterval || lookAgain();
    }

private:
    static constexpr Py_ssize_t kInterval = 65536;

    [[gnu::cold, gnu::noinline]] static bool look();
    [[gnu::cold, gnu::noinline]] bool lookAgain();

    Py_ssize_t m_steps = 0;
};

} // namespace vellum
