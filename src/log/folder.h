// Making folders, for the log and for recordings.
#pragma once

#include <string_view>

namespace Tessel {

// Makes the folder and its parents, if needed; what was made and what failed is logged. Returns the system's
// error number, 0 if the folder exists.
int createFolder(std::string_view path);

} // namespace Tessel
