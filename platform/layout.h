#pragma once

#include <cstddef>
#include <type_traits>

// Pins of a record that another library reads or writes: its kind, then each field's place.
#define PIN_BINARY_RECORD(type)                                                                    \
    static_assert(std::is_standard_layout_v<type>, #type " crosses a library border");             \
    static_assert(std::is_trivially_copyable_v<type>, #type " crosses a library border")
#define PIN_SIZE(type, bytes) static_assert(sizeof(type) == (bytes), #type " has another size")
#define PIN_OFFSET(type, field, bytes)                                                             \
    static_assert(offsetof(type, field) == (bytes), #type "::" #field " stands elsewhere")
