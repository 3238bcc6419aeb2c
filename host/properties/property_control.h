#pragma once

#include "platform/properties.h"

// Control of the property stand-in (libcutils.so). The store starts empty and is the process's own.

// As `setprop`: sets the property, or unsets it where `value` is empty. Returns 0, or -1 where the
// key is empty or the value exceeds kPropertyValueMax - 1 characters; then nothing changes.
// Thread-safe.
extern "C" int property_set(const char* key, const char* value);

namespace host {

// Unsets all properties. Thread-safe.
void ClearProperties();

} // namespace host
