// Preloaded into the interpreter, it stands before the heap: the n-th request for
// memory that is made while it is armed fails. The interpreter's own requests are
// let through: they have a hook of their own.

#include <cstddef>
#include <dlfcn.h>
#include <new>

namespace
{
long firstFault = 0; ///< counted from 1; 0 is not armed
long endOfFaults = 0;
long requests = 0;          ///< since the last start
thread_local int depth = 0; ///< a request that another one is made of isn't counted

struct Nested
{
    Nested() { ++depth; }
    ~Nested() { --depth; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;
};

const void* libraryOf(const void* address)
{
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

/// The interpreter, or the library that watches the service.
bool isLetThrough(const void* caller)
{
    static const void* const interpreter = libraryOf(dlsym(RTLD_DEFAULT, "Py_IsInitialized"));
    static const void* const watcher = libraryOf(dlsym(RTLD_DEFAULT, "shim_live"));
    const void* library = libraryOf(caller);
    return library == interpreter || library == watcher;
}

bool mustFail(const void* caller)
{
    if (firstFault == 0 || depth != 0 || isLetThrough(caller))
    {
        return false;
    }
    ++requests;
    return requests >= firstFault && requests < endOfFaults;
}

/// Calls the function that this library stands before.
template <class... Arguments>
auto* callNext(void*& known, const char* name, Arguments... arguments)
{
    const Nested nested;
    known = known != nullptr ? known : dlsym(RTLD_NEXT, name);
    return reinterpret_cast<void* (*)(Arguments...)>(known)(arguments...);
}
} // namespace

#define SHIM_EXPORT __attribute__((visibility("default")))
/// The body of a function that gives memory.
#define FAIL_OR_FORWARD(name, failure, ...)                                                        \
    {                                                                                              \
        static void* known = nullptr;                                                              \
        if (mustFail(__builtin_return_address(0)))                                                 \
        {                                                                                          \
            failure;                                                                               \
        }                                                                                          \
        return callNext(known, name, __VA_ARGS__);                                                 \
    }

extern "C" {
SHIM_EXPORT void heap_start(long first, long times)
{
    requests = 0;
    endOfFaults = first + times;
    firstFault = first;
}

/// The number of requests since the start.
SHIM_EXPORT long heap_stop()
{
    firstFault = 0;
    return requests;
}

#ifndef __SANITIZE_ADDRESS__ // a sanitizer needs these before it can be asked for them
SHIM_EXPORT void* malloc(std::size_t n) FAIL_OR_FORWARD("malloc", return nullptr, n) SHIM_EXPORT
    void* calloc(std::size_t n, std::size_t width)
        FAIL_OR_FORWARD("calloc", return nullptr, n, width) SHIM_EXPORT
    void* realloc(void* block, std::size_t n)
        FAIL_OR_FORWARD("realloc", return nullptr, block, n) SHIM_EXPORT
    void* aligned_alloc(std::size_t alignment, std::size_t n)
        FAIL_OR_FORWARD("aligned_alloc", return nullptr, alignment, n)
#endif
}

// What was got is given back to the library itself.
// NOLINTBEGIN(misc-new-delete-overloads)
SHIM_EXPORT void* operator new(std::size_t n) FAIL_OR_FORWARD("_Znwm", throw std::bad_alloc(),
                                                              n) SHIM_EXPORT void*
operator new[](std::size_t n) FAIL_OR_FORWARD("_Znam", throw std::bad_alloc(), n) SHIM_EXPORT void*
operator new(std::size_t n, std::align_val_t alignment)
    FAIL_OR_FORWARD("_ZnwmSt11align_val_t", throw std::bad_alloc(), n, alignment) SHIM_EXPORT void*
    operator new[](std::size_t n, std::align_val_t alignment)
        FAIL_OR_FORWARD("_ZnamSt11align_val_t", throw std::bad_alloc(), n, alignment)
    // NOLINTEND(misc-new-delete-overloads)
