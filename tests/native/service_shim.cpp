// A service that stands before the real one: preloaded into the interpreter, its
// `get_function_ptr` is the one that the module finds. Every operation goes on
// to the real library; on the way it is counted and can be told to fail, and the
// objects of the service that live are counted. Told through the functions at
// the end, which the tests call with ctypes.

#include "service/service_interface.h"

#include <cstdlib>
#include <dlfcn.h>
#include <map>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{
using namespace vellum::data;
using namespace vellum::data::service;

constexpr Code kNullResult = -1000; ///< as a fault: success, but nothing is given

enum Kind
{
    kArrays,
    kFactories,
    kIterators,
    kReferences,
    kBuffers,
    kUncounted
};

struct State
{
    long m_live[kUncounted + 1] = {}; ///< the last one is of no meaning
    std::map<int, bool> m_isHidden;
    std::map<int, bool> m_isFound; ///< asked for while not hidden
    std::vector<int> m_trace;      ///< the indices called, since it was last cleared
    long m_faultAt = -1;           ///< position in the trace of the first call to fail
    long m_faultEnd = -1;          ///< and of the first one after it that doesn't
    Code m_faultCode = 0;
    std::map<void*, BufferDeleter> m_deleters; ///< of the live buffers
};

/// Never destroyed: arrays can outlive static destruction.
State& state()
{
    static State& only = *new State();
    return only;
}

/// The library is loaded, as a dependency of the module: in no scope that a
/// preloaded library would search.
void* findReal(int index)
{
    static void* const library = dlopen("libVellumDataArray.so", RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr)
    {
        std::abort();
    }
    static auto* const real = reinterpret_cast<void* (*)(int)>(dlsym(library, "get_function_ptr"));
    return real(index);
}

/// Ends the process if the buffer was freed before, or never given out.
void deleteBuffer(void* buffer) noexcept
{
    const BufferDeleter deleter = state().m_deleters.at(buffer);
    state().m_deleters.erase(buffer);
    --state().m_live[kBuffers];
    deleter(buffer);
}

template <class Wanted, class... Args>
inline constexpr bool kTakes = (std::is_same_v<Wanted, Args> || ...);

/// A buffer leaves the service: it is freed through this library from now on.
void watchBuffer(void* buffer, BufferDeleter& deleter)
{
    if (buffer != nullptr && deleter != deleteBuffer)
    {
        state().m_deleters.emplace(buffer, deleter);
        deleter = deleteBuffer;
        ++state().m_live[kBuffers];
    }
}

/// A failing call, in place of the real one. A buffer that is handed over is the
/// service's to free even so.
template <class Result, class... Args>
Result fail([[maybe_unused]] const std::tuple<Args...>& args)
{
    if constexpr (kTakes<BufferDeleter, Args...>)
    {
        std::get<BufferDeleter>(args)(std::get<void*>(args));
    }
    if constexpr (std::is_same_v<Result, bool>) // a private copy was due
    {
        *std::get<ArrayImpl**>(args) = nullptr;
        return true;
    }
    else if constexpr (std::is_pointer_v<Result>)
    {
        return nullptr;
    }
    else
    {
        return state().m_faultCode == kNullResult ? 0 : state().m_faultCode;
    }
}

/// Whether this call, the next in the trace, is one that has to fail.
bool recordCall(int index)
{
    State& now = state();
    const auto position = static_cast<long>(now.m_trace.size());
    now.m_trace.push_back(index);
    return position >= now.m_faultAt && position < now.m_faultEnd;
}

/// `change` is what a call that succeeds means for the live objects of `kind`.
template <class Operation, Kind kind, int change, class Function = typename Operation::Function>
struct Forward;
template <class Operation, Kind kind, int change, class Result, class... Args>
struct Forward<Operation, kind, change, Result(Args...)>
{
    static constexpr bool kGivesCode = std::is_same_v<Result, Code>;
    static constexpr bool kGivesObject = std::is_pointer_v<Result> || std::is_same_v<Result, bool>;
    static constexpr bool kCanGiveNothing = kGivesObject || kTakes<BufferDeleter, Args...> ||
                                            Operation::index == array_factory_create_buffer::index;

    static Result call(Args... args)
    {
        auto* real = reinterpret_cast<Result (*)(Args...)>(findReal(Operation::index));
        const bool mustFail = recordCall(Operation::index);
        if constexpr (kGivesCode || kGivesObject)
        {
            const std::tuple<Args...> all(args...);
            if (mustFail && (kCanGiveNothing || state().m_faultCode != kNullResult))
            {
                return fail<Result>(all);
            }
            const Result result = real(args...);
            const bool isSuccess = (result == Result()) == kGivesCode;
            state().m_live[kind] += isSuccess ? change : 0;
            if constexpr (kTakes<BufferDeleter*, Args...>)
            {
                watchBuffer(isSuccess ? *std::get<void**>(all) : nullptr,
                            *std::get<BufferDeleter*>(all));
            }
            return result;
        }
        else
        {
            state().m_live[kind] += change;
            return real(args...);
        }
    }
};

template <class Operation, Kind kind = kUncounted, int change = 0>
std::pair<const int, void*> row()
{
    auto* call = &Forward<Operation, kind, change>::call;
    return {Operation::index, reinterpret_cast<void*>(call)};
}

const std::map<int, void*>& table()
{
    static const std::map<int, void*> rows = {
        row<array_factory_new, kFactories, 1>(),
        row<array_factory_destroy, kFactories, -1>(),
        row<array_factory_create_array, kArrays, 1>(),
        row<array_factory_create_scalar, kArrays, 1>(),
        row<array_factory_create_buffer>(),
        row<array_factory_create_from_buffer, kArrays, 1>(),
        row<array_factory_create_from_buffer_with_layout, kArrays, 1>(),
        row<array_new_empty, kArrays, 1>(),
        row<array_destroy, kArrays, -1>(),
        row<array_get_dimensions>(),
        row<array_get_number_of_elements>(),
        row<array_get_type>(),
        row<array_type_is_convertible>(),
        row<array_unshare, kArrays, 1>(),
        row<array_release_buffer>(),
        row<array_get_reference, kReferences, 1>(),
        row<array_begin, kIterators, 1>(),
        row<array_begin_v2, kIterators, 1>(),
        row<array_end, kIterators, 1>(),
        row<array_end_v2, kIterators, 1>(),
        row<iterator_destroy, kIterators, -1>(),
        row<iterator_get_pointer>(),
        row<iterator_get_complex_pointer>(),
        row<iterator_get_reference, kReferences, 1>(),
        row<reference_get_complex_parts>(),
        row<reference_set_complex_value>(),
        row<reference_destroy, kReferences, -1>(),
    };
    return rows;
}
} // namespace

#define SHIM_EXPORT extern "C" __attribute__((visibility("default")))

SHIM_EXPORT void* get_function_ptr(int index)
{
    const auto found = table().find(index);
    if (found == table().end() || state().m_isHidden[index])
    {
        return nullptr;
    }
    state().m_isFound[index] = true;
    return found->second;
}

/// Hides an index, or shows it again. Whoever has found it before keeps it: then
/// the result is 1, else 0.
SHIM_EXPORT int shim_hide(int index, int isHidden)
{
    state().m_isHidden[index] = isHidden != 0;
    return state().m_isFound[index] ? 1 : 0;
}

/// Starts a new trace. Its calls from `position` on, `times` of them, fail with
/// `code`, or give nothing where the code is that of the null result. Operations
/// without a code or an object can't fail.
SHIM_EXPORT void shim_start(long position, long times, int code)
{
    state().m_trace.clear();
    state().m_faultAt = position;
    state().m_faultEnd = position + times;
    state().m_faultCode = code;
}

/// The indices called since the start; they stay until the next call.
SHIM_EXPORT const int* shim_trace(long* count)
{
    *count = static_cast<long>(state().m_trace.size());
    return state().m_trace.data();
}

/// Live arrays, factories, iterators, references and buffers: five numbers.
SHIM_EXPORT const long* shim_live()
{
    return state().m_live;
}
