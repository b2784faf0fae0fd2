// A header tag of the caller's own, as it waits for the next recording.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel {

struct CustomTag
{
    uint32_t Type = 0; // tag type code
    std::string Name;  // cut to 31 bytes on writing
    uint32_t Idx = 0xFFFFFFFF;
    uint64_t Value = 0; // Int8: the value; Float8: the double's bits; Bool8: 0 or 1; BinaryBlob: bytes to write
    std::string AnsiValue;
    std::u16string WideValue;
    std::vector<uint64_t> BlobValue;
    std::vector<double> ArrayValue;
};

} // namespace Tessel
