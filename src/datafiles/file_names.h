// Where the next recording goes: the folder and name that the host asked for, and the first free name after
// that one. May be called on any thread.
#pragma once

#include "log/file_handle.h"

#include <string>
#include <string_view>

namespace Tessel {

// A path without a folder keeps the folder; an empty name means default.tgx.
void setTgxFilePath(std::string_view path);

struct NewFile
{
    std::string Path; // in full, normal form
    FileHandle File;  // to write; not open: it couldn't be made, with one error in the log
};

// Makes a file that wasn't there, so no two callers get one name. Makes the folder if needed.
NewFile checkFilePath();

} // namespace Tessel
