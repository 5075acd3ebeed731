/// The one way out of the module into code that isn't its own.
///
/// A call of Python's API that can run Python code (a fetch, a length, a buffer
/// request, the release of a reference, up to CPython 3.11 the making of a tracked
/// object, which can run a collection) can also meet the interpreter's end: up to
/// CPython 3.13 a daemon thread that asks for the lock back then is ended by
/// unwinding its stack. Owners on that stack would run without the lock, and a
/// destructor that the unwinding passes ends the process. So it is caught where it
/// comes in, and the thread is parked for good, as later versions do themselves.
#pragma once

#include <cxxabi.h>

namespace vellum
{
/// Never returns. The thread doesn't hold the interpreter's lock any more.
[[noreturn]] void parkThread() noexcept;

/// `function(arguments...)`, from which no unwinding comes back. There is no object
/// behind the reference that is caught, which a sanitizer would take for a fault.
template <class Function, class... Arguments>
__attribute__((no_sanitize("undefined"))) auto callOut(Function function, Arguments... arguments)
{
    try
    {
        return function(arguments...);
    }
    catch (const abi::__forced_unwind&)
    {
        parkThread();
    }
}

} // namespace vellum
