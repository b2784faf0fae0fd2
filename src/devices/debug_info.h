// What an instrument tells its maker: a text for the log, and files.
#pragma once

#include "devices/locked_device.h"

#include <string>
#include <string_view>

namespace Tessel {

// What the instrument says of its state; empty where it says nothing.
std::string GetDebugInfo(LockedDevice &locked);
// The instrument writes its state into files in the folder, which is in normal form.
bool hasDebugDump(const Device &device);
bool SaveDebugDump(LockedDevice &locked, std::string_view folder);

} // namespace Tessel
