// By what a recording is known again, without reading all of it.
#pragma once

#include <cstdint>
#include <string>

namespace Tessel::Cli {

constexpr uint64_t markedEnd = 65536; // bytes

struct FileMark
{
    uint64_t Bytes = 0;
    uint32_t Crc32 = 0; // of the first and the last `markedEnd` bytes, of a short file of all of it; as in ZIP
    int64_t ChangedNs = 0; // time of the last change, since 1970
};

// Throws Failure NoDevice.
FileMark markOf(const std::string &path);

} // namespace Tessel::Cli
