#include "service/operations.h"
#include "service/service_interface.h"

namespace vellum::data::service
{
namespace
{
struct Row
{
    int m_index;
    void* m_function;
};

template <class Operation>
Row row(typename Operation::Function* function) noexcept
{
    return {Operation::index, reinterpret_cast<void*>(function)};
}

void* findFunction(int index) noexcept
{
    // Built at first use: clients may ask before this file's globals exist.
    static const Row table[] = {
        row<array_factory_create_array>(operations::array_factory_create_array),
        row<array_factory_create_scalar>(operations::array_factory_create_scalar),
        row<array_factory_create_from_buffer>(operations::array_factory_create_from_buffer),
        row<array_factory_create_buffer>(operations::array_factory_create_buffer),
        row<array_factory_new>(operations::array_factory_new),
        row<array_factory_destroy>(operations::array_factory_destroy),
        row<reference_destroy>(operations::reference_destroy),
        row<array_new_empty>(operations::array_new_empty),
        row<array_destroy>(operations::array_destroy),
        row<array_get_dimensions>(operations::array_get_dimensions),
        row<array_get_number_of_elements>(operations::array_get_number_of_elements),
        row<array_get_type>(operations::array_get_type),
        row<array_unshare>(operations::array_unshare),
        row<array_get_reference>(operations::array_get_reference),
        row<array_begin>(operations::array_begin),
        row<array_end>(operations::array_end),
        row<array_type_is_convertible>(operations::array_type_is_convertible),
        row<array_release_buffer>(operations::array_release_buffer),
        row<iterator_destroy>(operations::iterator_destroy),
        row<iterator_get_pointer>(operations::iterator_get_pointer),
        row<iterator_get_reference>(operations::iterator_get_reference),
        row<reference_get_complex_parts>(operations::reference_get_complex_parts),
        row<reference_set_complex_value>(operations::reference_set_complex_value),
        row<array_factory_create_from_buffer_with_layout>(
            operations::array_factory_create_from_buffer_with_layout),
        // An element's address is the same for every type, and an iterator's
        // second version does what the first does.
        row<iterator_get_complex_pointer>(operations::iterator_get_pointer),
        row<array_begin_v2>(operations::array_begin),
        row<array_end_v2>(operations::array_end),
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
} // namespace vellum::data::service

extern "C" __attribute__((visibility("default"))) void* get_function_ptr(int index)
{
    return vellum::data::service::findFunction(index);
}
