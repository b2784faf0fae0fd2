// Makes a device of a recorded file: reads its header and sets the fields that a replay goes by. Runs on the
// caller's thread, on a device that nobody else can see yet.
#pragma once

#include "records/context.h"
#include "records/device.h"

#include <string_view>

namespace Tessel {

// False, with an error in the log, if the file can't be opened: there is no device then. A file without a
// proper header does make one, with defaults everywhere and its data at offset 0; so does one of which reading
// fails, if `makesUnread`. Sets neither IsOpen nor IsInitialized nor Index: the device isn't in a table yet.
bool readTgxFile(std::string_view path, Device &device, MeasContext &context, bool makesUnread = true);

// Longest ID of a file device with its zero, as hosts have room for it.
inline constexpr size_t idSizeLimit = 8192;

} // namespace Tessel
