#pragma once

#include "platform/chi_node.h"

namespace host {

// The platform's callback table, the same for all nodes of the process.
ChiNodeInterface& PlatformInterface();

// True for the table or a copy of it.
bool IsPlatformInterface(const ChiNodeInterface& table);

} // namespace host
