/// The functions behind the table, declared with the signatures that the
/// interface gives them. None lets an exception out. A null argument is
/// answered with a code where there is one, else it makes the operation do
/// nothing; out values are written only on success.
#pragma once

#include "service/service_interface.h"

namespace vellum::data::service::operations
{
// factory_operations.cpp
service::array_factory_new::Function array_factory_new;
service::array_factory_destroy::Function array_factory_destroy;
service::array_factory_create_array::Function array_factory_create_array;
service::array_factory_create_scalar::Function array_factory_create_scalar;
service::array_factory_create_buffer::Function array_factory_create_buffer;
service::array_factory_create_from_buffer::Function array_factory_create_from_buffer;
service::array_factory_create_from_buffer_with_layout::Function
    array_factory_create_from_buffer_with_layout;

// array_operations.cpp
service::array_new_empty::Function array_new_empty;
service::array_destroy::Function array_destroy;
service::array_get_dimensions::Function array_get_dimensions;
service::array_get_number_of_elements::Function array_get_number_of_elements;
service::array_get_type::Function array_get_type;
service::array_type_is_convertible::Function array_type_is_convertible;
service::array_unshare::Function array_unshare;
service::array_release_buffer::Function array_release_buffer;

// position_operations.cpp
service::array_get_reference::Function array_get_reference;
service::array_begin::Function array_begin;
service::array_end::Function array_end;
service::iterator_destroy::Function iterator_destroy;
service::iterator_get_pointer::Function iterator_get_pointer;
service::iterator_get_reference::Function iterator_get_reference;
service::reference_get_complex_parts::Function reference_get_complex_parts;
service::reference_set_complex_value::Function reference_set_complex_value;
service::reference_destroy::Function reference_destroy;
} // namespace vellum::data::service::operations
