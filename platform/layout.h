#pragma once

#include <cstddef>
#include <type_traits>

// Pins of a record that another library reads or writes: its kind, its size, then each field's byte
// offset. They stand right under the record and hold whichever headers declare it.
#define PIN_BINARY_RECORD(type)                                                                    \
    static_assert(std::is_standard_layout_v<type>, #type " crosses a library boundary");           \
    static_assert(std::is_trivially_copyable_v<type>, #type " crosses a library boundary")
#define PIN_SIZE(type, bytes) static_assert(sizeof(type) == (bytes), #type " has another size")
#define PIN_OFFSET(type, field, bytes)                                                             \
    static_assert(offsetof(type, field) == (bytes), #type "::" #field " stands elsewhere")
