// The versions of the instrument libraries in use, as a recording names them. Process-wide.
#pragma once

#include "records/device.h"

#include <string>
#include <vector>

namespace Tessel {

// Reads the version of the device's library for the list.
bool GetLibraryVersion(Device &device);

struct LibraryVersion
{
    std::string Name, Version; // "ZPlib"
};
std::vector<LibraryVersion> libraryVersions();

} // namespace Tessel
