// Loaded before the address sanitizer into everything that is run under it: the
// settings, and an operator new that throws.

#include <cstddef>
#include <cstdlib>
#include <new>

// Defaults: the sanitizers look these functions up by name, and ASAN_OPTIONS
// and UBSAN_OPTIONS in the environment come on top.
extern "C" const char* __asan_default_options()
{
    return "verify_asan_link_order=0:" // this library stands before it
           "allocator_may_return_null=1:"
           "detect_stack_use_after_return=1:"
           "detect_leaks=1";
}

extern "C" const char* __ubsan_default_options()
{
    return "print_stacktrace=1";
}

// The sanitizer's operator new ends the process where the standard one throws.
// What cannot be allocated is part of what the tests provoke, so the throwing
// forms are put back on top of its non-throwing ones: the accounting, and the
// pairing of new and delete, stay the sanitizer's. A program that only starts
// the tests is not sanitized, and its own non-throwing forms would come back
// here: that one gets its memory from malloc.
extern "C" [[gnu::weak]] void __asan_init();

namespace
{

void* orThrow(void* block)
{
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return block;
}

} // namespace

void* operator new(std::size_t size)
{
    return orThrow(__asan_init != nullptr ? operator new(size, std::nothrow)
                                          : std::malloc(size != 0 ? size : 1));
}

void* operator new[](std::size_t size)
{
    return orThrow(__asan_init != nullptr ? operator new[](size, std::nothrow)
                                          : std::malloc(size != 0 ? size : 1));
}
