// The White Rabbit core of the ZP and CD90 families, which aligns the clocks of instruments over an optical
// link. Nothing of it is kept here: wishes go to the instrument, texts and numbers come from it.
//
// On a recorded file true, on a remote device false, without effect. What is read stays as it is unless the
// call succeeded.
#pragma once

#include "records/device.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tessel {

// Calibration of the optical transceivers; the instrument's matter.
struct SfpData
{
    std::string Text; // of at most 80 bytes
    std::array<std::array<int32_t, 4>, 3> Numbers{};
};

// "00-1a-2b-3c-4d-5e". Setting it works without hyphens too; what isn't a hexadecimal number throws
// invalid_argument.
bool WRabbitGetMAC(Device &device, std::string &mac);
bool WRabbitSetMAC(Device &device, std::string_view mac);

// What the core runs when it starts; at most 65535 bytes are read.
bool WRabbitGetInitScript(Device &device, std::string &script);
bool WRabbitSetInitScript(Device &device, const std::string &script);

bool WRabbitSetSFPData(Device &device, SfpData &data);
// Sets the data, with 0 as the fourth number of each array, and gives what the library made of it: no library
// can read them.
bool WRabbitGetSFPData(Device &device, SfpData &data);

bool WRabbitInitLink(Device &device, int32_t on);
bool WRabbitSetMode(Device &device, int32_t first, int32_t second, int32_t third);
bool WRabbitSetTime(Device &device, uint64_t seconds);
bool WRabbitGetTime(Device &device, uint64_t &seconds, uint32_t &subSecond);
bool WRabbitGetStatus(Device &device, int32_t &status);
bool WRabbitGetTermOutput(Device &device, std::string &text); // at most 65535 bytes

} // namespace Tessel
