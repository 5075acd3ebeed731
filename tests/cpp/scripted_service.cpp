#include "scripted_service.h"

#include <dlfcn.h>
#include <tuple>
#include <type_traits>

using namespace vellum::data;
using namespace vellum::data::service;

Script& script()
{
    static Script theScript;
    return theScript;
}

namespace
{
/// The library's own function behind an index.
void* real(int index)
{
    static void* const library = dlopen(VELLUM_SERVICE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    static void* const lookUp = dlsym(library, "get_function_ptr");
    return reinterpret_cast<decltype(&get_function_ptr)>(lookUp)(index);
}

/// Whether `object` may be freed now.
bool dies(const void* object)
{
    const bool isLive = script().live.erase(object) != 0;
    script().badFrees += isLive ? 0 : 1;
    return isLive;
}

std::map<void*, BufferDeleter> deleters; // the library's own, of each buffer given out

void freeBuffer(void* buffer)
{
    if (dies(buffer))
        deleters[buffer](buffer);
}

void noteBuffer(void* buffer, BufferDeleter& deleter)
{
    script().live.insert(buffer);
    if (deleter != freeBuffer)
        deleters[buffer] = deleter;
    deleter = freeBuffer;
}

/// `out` may be where an operation has put an object of the service.
template <class Out>
void noteObject(Out out)
{
    using Object = std::remove_pointer_t<std::remove_pointer_t<Out>>;
    if constexpr (std::is_class_v<Object> && std::is_same_v<Out, Object**>)
    {
        if (*out != nullptr)
            script().live.insert(*out);
    }
}

/// What stands in the table for an operation of the library.
template <class Operation, class Function = typename Operation::Function>
struct Scripted;
template <class Operation, class Result, class... Arguments>
struct Scripted<Operation, Result(Arguments...)>
{
    template <class... Others>
    static constexpr bool is = (std::is_same_v<Operation, Others> || ...);

    static Result call(Arguments... arguments)
    {
        [[maybe_unused]] const auto all = std::tie(arguments...);
        script().called.insert(Operation::index);
        if constexpr (is<array_unshare, array_release_buffer, array_begin_v2>)
            script().flags[Operation::index] = std::get<1>(all);
        if constexpr (is<array_factory_create_from_buffer_with_layout>)
            script().layout = std::get<7>(all);
        if (const Code code = script().codes[Operation::index]; code != 0)
        {
            if constexpr (is<array_factory_create_from_buffer,
                             array_factory_create_from_buffer_with_layout>)
            {
                std::get<5>(all)(std::get<4>(all)); // the service's own from the call on
            }
            if constexpr (std::is_pointer_v<Result>)
            {
                return nullptr;
            }
            else
            {
                return static_cast<Result>(code); // a copy was due: true without one
            }
        }
        auto* const work = reinterpret_cast<Result (*)(Arguments...)>(real(Operation::index));
        if constexpr (is<array_factory_destroy, array_destroy, iterator_destroy, reference_destroy>)
        {
            if (dies(arguments...))
                work(arguments...);
        }
        else if constexpr (std::is_void_v<Result>)
        {
            work(arguments...);
            (noteObject(arguments), ...);
        }
        else
        {
            Result result = work(arguments...);
            (noteObject(&result), ..., noteObject(arguments));
            if constexpr (is<array_factory_create_buffer>)
                noteBuffer(*std::get<1>(all), *std::get<2>(all));
            if constexpr (is<array_release_buffer>)
                noteBuffer(*std::get<2>(all), *std::get<3>(all));
            if constexpr (is<array_get_type>)
                *std::get<1>(all) = script().type.value_or(*std::get<1>(all));
            if constexpr (is<array_type_is_convertible>)
                *std::get<2>(all) = *std::get<2>(all) && script().convertible;
            return result;
        }
    }
};

template <class... Operations>
std::map<int, void*> makeTable()
{
    return {{Operations::index, reinterpret_cast<void*>(&Scripted<Operations>::call)}...};
}
const std::map<int, void*> table =
    makeTable<array_factory_new, array_factory_destroy, array_factory_create_array,
              array_factory_create_scalar, array_factory_create_buffer,
              array_factory_create_from_buffer, array_factory_create_from_buffer_with_layout,
              array_new_empty, array_destroy, array_get_dimensions, array_get_number_of_elements,
              array_get_type, array_type_is_convertible, array_unshare, array_release_buffer,
              array_get_reference, array_begin, array_begin_v2, array_end, array_end_v2,
              iterator_destroy, iterator_get_pointer, iterator_get_complex_pointer,
              iterator_get_reference, reference_get_complex_parts, reference_set_complex_value,
              reference_destroy>();
} // namespace

extern "C" void* get_function_ptr(int index)
{
    ++script().lookups[index];
    const auto found = table.find(index);
    const bool isHidden = script().hidden.count(index) != 0;
    return isHidden || found == table.end() ? nullptr : found->second;
}
