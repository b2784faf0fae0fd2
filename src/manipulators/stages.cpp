// How the arguments of a host become those of a stage.
#include "manipulators/stages.h"

namespace Tessel {

std::vector<uint8_t> channelBytes(std::span<const int32_t> channels)
{
    std::vector<uint8_t> bytes;
    for (int32_t channel : channels) bytes.push_back(static_cast<uint8_t>(channel));
    return bytes;
}

} // namespace Tessel
