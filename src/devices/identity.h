// What an instrument says of itself: hardware, features, resolution, channels, modules. Each is read once, when
// the device is initialised. False, without effect, on a file.
#pragma once

#include "records/context.h"
#include "records/device.h"

#include <string>
#include <string_view>
#include <vector>

namespace Tessel {

bool GetHardwareInfo(Device &device);
bool GetFeatures(Device &device);
bool GetBaseResolution(Device &device, MeasContext &context);
bool GetResolution(Device &device); // it follows the binning
bool GetNumOfInputChannels(Device &device);
bool GetModules(Device &device);
bool GetSyncFeatures(Device &device);
bool GetInputFeatures(Device &device, ChannelRow &row);

// The version of the device's library, for the process-wide list.
bool GetLibraryVersion(Device &device);

struct LibraryVersion
{
    std::string_view Library; // "ZPlib"
    std::string Version;
};
std::vector<LibraryVersion> libraryVersions();

} // namespace Tessel
