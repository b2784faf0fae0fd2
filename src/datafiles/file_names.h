// Where the next recording goes: the folder and name that the host asked for, and the first free name after
// that one. May be called on any thread.
#pragma once

#include <string>
#include <string_view>

namespace Tessel {

// A path without a folder keeps the folder; an empty name means default.tgx.
void setTgxFilePath(std::string_view path);

// Full path, in normal form, of a file that doesn't exist yet. Makes the folder if needed.
std::string checkFilePath();

} // namespace Tessel
