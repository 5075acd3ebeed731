// A service that stands before the real one: preloaded into the interpreter, its
// `get_function_ptr` is the one that the module finds. Every operation goes on
// to the real library; on the way it is counted and can be told to fail, and the
// objects of the service that live are counted. Told through the functions at
// the end, which the tests call with ctypes.

#include "service/service_interface.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <iterator>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace
{
using namespace vellum::data;
using namespace vellum::data::service;

constexpr int kIndexCount = 128;
constexpr Code kNullResult = -1000; ///< as a fault: success, but nothing is given

enum Kind
{
    kArrays,
    kFactories,
    kIterators,
    kReferences,
    kBuffers,
    kKindCount
};

struct State
{
    long m_live[kKindCount] = {};
    bool m_isHidden[kIndexCount] = {};
    bool m_isResolved[kIndexCount] = {};
    std::vector<int> m_trace; ///< the indices called, since it was last cleared
    long m_faultAt = -1;      ///< position in the trace of the first call to fail
    long m_faultEnd = -1;     ///< and of the first one after it that doesn't
    Code m_faultCode = 0;
    std::unordered_map<void*, BufferDeleter> m_deleters; ///< of the live buffers
};

/// Never destroyed: arrays can outlive static destruction.
State& state()
{
    static auto* const only = new State();
    return *only;
}

/// The library is a dependency of the module, in no scope that a preloaded
/// library would search.
void* findReal(int index)
{
    static auto* const real = [] {
        void* library = dlopen("libVellumDataArray.so", RTLD_LAZY | RTLD_NOLOAD);
        void* function = library != nullptr ? dlsym(library, "get_function_ptr") : nullptr;
        if (function == nullptr)
        {
            std::abort();
        }
        return reinterpret_cast<void* (*)(int)>(function);
    }();
    return real(index);
}

void count(Kind kind, long change)
{
    state().m_live[kind] += change;
}

void deleteBuffer(void* buffer)
{
    const auto found = state().m_deleters.find(buffer);
    if (found == state().m_deleters.end())
    {
        std::abort(); // freed twice, or never given out
    }
    const BufferDeleter deleter = found->second;
    state().m_deleters.erase(found);
    count(kBuffers, -1);
    deleter(buffer);
}

/// A buffer leaves the service: it is freed through this library from now on.
void watchBuffer(Code code, void* buffer, BufferDeleter* deleter)
{
    if (code == 0 && buffer != nullptr && *deleter != deleteBuffer)
    {
        state().m_deleters.emplace(buffer, *deleter);
        *deleter = deleteBuffer;
        count(kBuffers, 1);
    }
}

// What a call that succeeded or failed means for the objects that live.
template <class Operation, class... Rest>
void account(Operation, const Rest&...)
{
}
template <class... Rest>
void account(array_factory_new, Code code, const Rest&...)
{
    count(kFactories, code == 0 ? 1 : 0);
}
template <class... Rest>
void account(array_factory_create_array, Code code, const Rest&...)
{
    count(kArrays, code == 0 ? 1 : 0);
}
template <class... Rest>
void account(array_factory_create_scalar, Code code, const Rest&...)
{
    count(kArrays, code == 0 ? 1 : 0);
}
template <class... Rest>
void account(array_factory_create_from_buffer, Code code, const Rest&...)
{
    count(kArrays, code == 0 ? 1 : 0);
}
template <class... Rest>
void account(array_factory_create_from_buffer_with_layout, Code code, const Rest&...)
{
    count(kArrays, code == 0 ? 1 : 0);
}
void account(array_factory_create_buffer, Code code, ArrayFactoryImpl*, void** buffer,
             BufferDeleter* deleter, ArrayTypeCode, std::size_t)
{
    watchBuffer(code, *buffer, deleter);
}
void account(array_release_buffer, Code code, ArrayImpl*, bool, void** buffer,
             BufferDeleter* deleter)
{
    watchBuffer(code, *buffer, deleter);
}
void account(array_new_empty, ArrayImpl* array)
{
    count(kArrays, array != nullptr ? 1 : 0);
}
void account(array_unshare, bool isCopied, ArrayImpl*, bool, ArrayImpl** copy)
{
    count(kArrays, isCopied && *copy != nullptr ? 1 : 0);
}
void account(array_get_reference, Code code, ArrayImpl*, std::size_t, ReferenceImpl**)
{
    count(kReferences, code == 0 ? 1 : 0);
}

/// A destroyer or a maker of objects that are told apart by nothing else.
template <class Operation, Kind kind, int change>
struct Counted : Operation
{
};
template <class Operation, Kind kind, int change, class... Rest>
void account(Counted<Operation, kind, change>, const Rest&...)
{
    count(kind, change);
}

/// A failing call of an operation, in place of the real one. A buffer that was
/// handed over is the service's to free even so.
template <class Function>
struct Fail;
template <class... Args>
struct Fail<Code(Args...)>
{
    static Code call(Code code, Args...) { return code == kNullResult ? 0 : code; }
};
template <class Result, class... Args>
struct Fail<Result*(Args...)>
{
    static Result* call(Code, Args...) { return nullptr; }
};
template <>
struct Fail<array_unshare::Function>
{
    static bool call(Code, ArrayImpl*, bool, ArrayImpl** copy)
    {
        *copy = nullptr;
        return true;
    }
};
template <>
struct Fail<array_factory_create_from_buffer::Function>
{
    static Code call(Code code, ArrayFactoryImpl*, ArrayTypeCode, const std::size_t*, std::size_t,
                     void* buffer, BufferDeleter deleter, ArrayImpl**)
    {
        deleter(buffer);
        return code == kNullResult ? 0 : code;
    }
};
template <>
struct Fail<array_factory_create_from_buffer_with_layout::Function>
{
    static Code call(Code code, ArrayFactoryImpl*, ArrayTypeCode, const std::size_t*, std::size_t,
                     void* buffer, BufferDeleter deleter, ArrayImpl**, MemoryLayoutCode)
    {
        deleter(buffer);
        return code == kNullResult ? 0 : code;
    }
};

/// Whether an operation can succeed and yet give nothing.
template <class Operation>
inline constexpr bool kCanGiveNothing =
    std::is_same_v<Operation, array_factory_create_buffer> ||
    std::is_same_v<Operation, array_factory_create_from_buffer> ||
    std::is_same_v<Operation, array_factory_create_from_buffer_with_layout>;

/// Whether this call, the next in the trace, is one that has to fail.
bool recordCall(int index)
{
    State& now = state();
    const auto position = static_cast<long>(now.m_trace.size());
    now.m_trace.push_back(index);
    return position >= now.m_faultAt && position < now.m_faultEnd;
}

template <class Operation, class Function = typename Operation::Function>
struct Forward;
template <class Operation, class Result, class... Args>
struct Forward<Operation, Result(Args...)>
{
    static Result call(Args... args)
    {
        const bool mustFail = recordCall(Operation::index);
        if constexpr (!std::is_void_v<Result> && !std::is_same_v<Result, std::size_t>)
        {
            const bool hasCode = std::is_same_v<Result, Code> && !kCanGiveNothing<Operation>;
            if (mustFail && !(hasCode && state().m_faultCode == kNullResult))
            {
                return Fail<Result(Args...)>::call(state().m_faultCode, args...);
            }
        }
        auto* real = reinterpret_cast<Result (*)(Args...)>(findReal(Operation::index));
        if constexpr (std::is_void_v<Result>)
        {
            real(args...);
            account(Operation(), args...);
        }
        else
        {
            const Result result = real(args...);
            account(Operation(), result, args...);
            return result;
        }
    }
};

struct Row
{
    int m_index;
    void* m_function;
};
template <class Operation>
Row row()
{
    return {Operation::index,
            reinterpret_cast<void*>(&Forward<Operation, typename Operation::Function>::call)};
}

void* findFunction(int index)
{
    static const Row table[] = {
        row<array_factory_new>(),
        row<Counted<array_factory_destroy, kFactories, -1>>(),
        row<array_factory_create_array>(),
        row<array_factory_create_scalar>(),
        row<array_factory_create_buffer>(),
        row<array_factory_create_from_buffer>(),
        row<array_factory_create_from_buffer_with_layout>(),
        row<array_new_empty>(),
        row<Counted<array_destroy, kArrays, -1>>(),
        row<array_get_dimensions>(),
        row<array_get_number_of_elements>(),
        row<array_get_type>(),
        row<array_type_is_convertible>(),
        row<array_unshare>(),
        row<array_release_buffer>(),
        row<array_get_reference>(),
        row<Counted<array_begin, kIterators, 1>>(),
        row<Counted<array_begin_v2, kIterators, 1>>(),
        row<Counted<array_end, kIterators, 1>>(),
        row<Counted<array_end_v2, kIterators, 1>>(),
        row<Counted<iterator_destroy, kIterators, -1>>(),
        row<iterator_get_pointer>(),
        row<iterator_get_complex_pointer>(),
        row<Counted<iterator_get_reference, kReferences, 1>>(),
        row<reference_get_complex_parts>(),
        row<reference_set_complex_value>(),
        row<Counted<reference_destroy, kReferences, -1>>(),
    };
    for (const Row& entry : table)
    {
        if (entry.m_index == index)
        {
            return entry.m_function;
        }
    }
    return nullptr;
}
} // namespace

#define SHIM_EXPORT extern "C" __attribute__((visibility("default")))

SHIM_EXPORT void* get_function_ptr(int index)
{
    if (index < 0 || index >= kIndexCount || state().m_isHidden[index])
    {
        return nullptr;
    }
    state().m_isResolved[index] = true;
    return findFunction(index);
}

/// Hides an index, or shows it again. Whoever has resolved it keeps it.
SHIM_EXPORT void shim_hide(int index, int isHidden)
{
    state().m_isHidden[index] = isHidden != 0;
}
SHIM_EXPORT int shim_is_resolved(int index)
{
    return state().m_isResolved[index] ? 1 : 0;
}

/// Starts a new trace. Its calls from `position` on, `times` of them, fail with
/// `code`, or give nothing where the code is that of the null result; a position
/// below 0 lets none fail. Operations without a code or an object can't fail.
SHIM_EXPORT void shim_start(long position, long times, int code)
{
    State& now = state();
    now.m_trace.clear();
    now.m_faultAt = position;
    now.m_faultEnd = position < 0 ? position : position + times;
    now.m_faultCode = code;
}

/// The number of calls since the start; the indices of the first `capacity`.
SHIM_EXPORT long shim_trace(int* indices, long capacity)
{
    const auto& trace = state().m_trace;
    for (long k = 0; k < capacity && k < static_cast<long>(trace.size()); ++k)
    {
        indices[k] = trace[static_cast<std::size_t>(k)];
    }
    return static_cast<long>(trace.size());
}

/// Live arrays, factories, iterators, references and buffers: five numbers.
SHIM_EXPORT void shim_live(long* counts)
{
    std::copy(std::begin(state().m_live), std::end(state().m_live), counts);
}
