#pragma once

// Android system properties, as the node uses them. Implemented by the platform's libcutils.

// Room that property_get needs at `value`, terminator included.
constexpr int kPropertyValueMax = 92;

// Copies the property's text, or `default_value` where it is unset, into `value` (at least
// kPropertyValueMax bytes), with its terminator. All three are zero-terminated and not null.
// Returns the text's length. Thread-safe.
extern "C" int property_get(const char* key, char* value, const char* default_value);
