#include "service_shim.h"

#include <dlfcn.h>
#include <tuple>
#include <type_traits>

using namespace vellum::data;
using namespace vellum::data::service;

namespace
{
constexpr Code kNullResult = -1000; ///< as a fault: success, but nothing is given

template <class Object> // in the order of the numbers of live ones
constexpr int kKind = std::is_same_v<Object, ArrayImpl>          ? 0
                      : std::is_same_v<Object, ArrayFactoryImpl> ? 1
                      : std::is_same_v<Object, IteratorImpl>     ? 2
                                                                 : 3;
constexpr int kBuffers = 4;

/// The library is loaded already, as a dependency of its client, but not always
/// in a scope that is searched from here: so it is asked for by name.
void* findReal(int index)
{
    static void* const library = dlopen("libVellumDataArray.so", RTLD_LAZY | RTLD_NOLOAD);
    static auto* const real = reinterpret_cast<void* (*)(int)>(dlsym(library, "get_function_ptr"));
    return real(index);
}

/// Ends the process if the buffer was freed before, or never given out.
void deleteBuffer(void* buffer) noexcept
{
    const BufferDeleter deleter = shim().m_deleters.at(buffer);
    shim().m_deleters.erase(buffer);
    --shim().m_live[kBuffers];
    deleter(buffer);
}

/// A buffer leaves the service: it is freed through this library from now on.
void watchBuffer(void* buffer, BufferDeleter& deleter)
{
    if (buffer != nullptr && deleter != deleteBuffer)
    {
        shim().m_deleters.emplace(buffer, deleter);
        deleter = deleteBuffer;
        ++shim().m_live[kBuffers];
    }
}

/// `holder` may be where an object of the service stands, which comes or goes.
template <class Holder>
void count([[maybe_unused]] Holder holder, [[maybe_unused]] int change)
{
    using Object = std::remove_pointer_t<std::remove_pointer_t<Holder>>;
    if constexpr (std::is_class_v<Object> && std::is_same_v<Holder, Object**>)
        shim().m_live[kKind<Object>] += *holder != nullptr ? change : 0;
}

/// What stands in the table for an operation of the library.
template <class Operation, class Function = typename Operation::Function>
struct Forward;
template <class Operation, class Result, class... Args>
struct Forward<Operation, Result(Args...)>
{
    template <class Wanted>
    static constexpr bool kTakes = (std::is_same_v<Wanted, Args> || ...);

    static constexpr bool kGivesCode = std::is_same_v<Result, Code>;
    static constexpr bool kGivesObject =
        std::is_pointer_v<Result> || std::is_same_v<Result, bool> || kTakes<ReferenceImpl**>;
    static constexpr bool kCanGiveNothing =
        kGivesObject || kTakes<BufferDeleter> ||
        std::is_same_v<Operation, array_factory_create_buffer> ||
        std::is_same_v<Operation, array_release_buffer>;

    /// In place of the real one. A buffer that is handed over is the service's to
    /// free even so.
    static Result fail([[maybe_unused]] const std::tuple<Args...>& all)
    {
        if constexpr (kTakes<BufferDeleter>)
        {
            if (std::get<BufferDeleter>(all) != nullptr)
                std::get<BufferDeleter>(all)(std::get<void*>(all));
        }
        if constexpr (kGivesCode)
        {
            return shim().m_faultCode == kNullResult ? 0 : shim().m_faultCode;
        }
        else if constexpr (std::is_same_v<Result, bool>)
        {
            return true; // a private copy was due; none is given
        }
        else
        {
            return Result();
        }
    }

    static Result call(Args... args)
    {
        [[maybe_unused]] const std::tuple<Args...> all(args...);
        Shim& now = shim();
        const auto position = static_cast<long>(now.m_trace.size());
        now.m_trace.push_back(Operation::index);
        if constexpr (kTakes<bool>)
            now.m_flags[Operation::index] = std::get<bool>(all);
        if constexpr (kGivesCode || kGivesObject)
        {
            const bool mustFail = position >= now.m_faultAt && position < now.m_faultEnd;
            if (mustFail && (kCanGiveNothing || now.m_faultCode != kNullResult))
                return fail(all);
        }
        auto* const real = reinterpret_cast<Result (*)(Args...)>(findReal(Operation::index));
        if constexpr (std::is_void_v<Result>)
        {
            if constexpr (sizeof...(Args) == 1) // it destroys
                (count(&args, -1), ...);
            real(args...);
            (count(args, 1), ...);
        }
        else
        {
            Result result = real(args...);
            if constexpr (std::is_same_v<Operation, array_get_number_of_elements>)
                result += now.m_surplus;
            count(&result, 1);
            (count(args, 1), ...);
            if constexpr (kTakes<BufferDeleter*>)
                watchBuffer(*std::get<void**>(all), *std::get<BufferDeleter*>(all));
            return result;
        }
    }
};

template <class... Operations>
std::map<int, void*> makeTable()
{
    return {{Operations::index, reinterpret_cast<void*>(&Forward<Operations>::call)}...};
}
} // namespace

#define SHIM_EXPORT extern "C" __attribute__((visibility("default")))

SHIM_EXPORT void* get_function_ptr(int index)
{
    static const auto table =
        makeTable<array_factory_new, array_factory_destroy, array_factory_create_buffer,
                  array_factory_create_from_buffer, array_factory_create_from_buffer_with_layout,
                  array_new_empty, array_destroy, array_get_dimensions,
                  array_get_number_of_elements, array_get_type, array_type_is_convertible,
                  array_unshare, array_release_buffer, array_begin, array_begin_v2, array_end,
                  array_end_v2, iterator_destroy, iterator_get_pointer,
                  iterator_get_complex_pointer, iterator_get_reference, reference_get_complex_parts,
                  reference_destroy>();
    const auto found = table.find(index);
    if (found == table.end() || shim().m_hidden.count(index) != 0)
        return nullptr;
    ++shim().m_found[index];
    return found->second;
}

// What a test in Python calls through ctypes.

/// Hides an index, or shows it again. Whoever has found it before keeps it: then
/// the result is 1, else 0.
SHIM_EXPORT int shim_hide(int index, int isHidden)
{
    shim().m_hidden.erase(index);
    if (isHidden != 0)
        shim().m_hidden.insert(index);
    return shim().m_found.count(index) != 0 ? 1 : 0;
}

/// Starts a new trace. Its calls from `position` on, `times` of them, fail with
/// `code`; those that give an object and no code give null. Operations with
/// neither can't fail.
SHIM_EXPORT void shim_start(long position, long times, int code)
{
    shim().m_trace.clear();
    shim().m_faultAt = position;
    shim().m_faultEnd = position + times;
    shim().m_faultCode = code;
}

SHIM_EXPORT void shim_miscount(int surplus)
{
    shim().m_surplus = static_cast<std::size_t>(surplus);
}

/// They stay until the next call.
SHIM_EXPORT const int* shim_trace(long* count)
{
    *count = static_cast<long>(shim().m_trace.size());
    return shim().m_trace.data();
}

SHIM_EXPORT const long* shim_live()
{
    return shim().m_live;
}
