// What a run asks of its device: start, stop, records, histograms, flags. Every operation looks at
// `DeviceType` first; a recorded file answers without effect. `trace`: write a line for it, if the log has
// them.
#pragma once

#include "devices/locked_device.h"
#include "records/context.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tessel {

inline bool isFile(const Device &device)
{
    return device.DeviceType == DeviceType::File;
}

inline bool isInstrument(const Device &device)
{
    return device.DeviceType == DeviceType::Instrument;
}

inline bool isRemote(const Device &device)
{
    return device.DeviceType == DeviceType::Remote;
}

// A remote device is ready for a run as long as its server is there.
inline bool isReady(const Device &device)
{
    return !isRemote(device) || (device.Remote.IsConnected && device.Remote.IsConnected());
}

// On a remote device a command to its server, of which nobody knows what becomes: true.
bool StartMeasure(Device &device, int32_t acqTimeMs, bool trace);
bool StopMeasure(Device &device, bool trace);

// Records to the front of `room`, which takes what one read gives (families.h). Instruments alone.
bool readFifo(Device &device, uint32_t *room, uint64_t &count);
// A row of NumBins counts for each input, behind the row of the sync, which stays. Instruments alone.
bool getHistograms(Device &device, std::span<uint32_t> rows, bool clear, bool traceClear);
// In histogramming only.
bool clearHistMem(Device &device, bool trace);

// Bits that the device reports of its run.
namespace Flag {
inline constexpr int32_t CountReached = 1, FifoFull = 2, SyncLost = 4, RefLost = 8, SystemError = 16;
inline constexpr int32_t StillActive = 32; // of the CD family
inline constexpr int32_t CountsDropped = 64;
} // namespace Flag
bool getFlags(Device &device, int32_t &flags, bool trace);
// 1 once the acquisition timer has run out. `status`: in, the one before. A file has no timer: always 0.
bool getCtcStatus(Device &device, int32_t &status, bool trace);
// Into the description, with a line in the log if there are any.
bool GetWarnings(Device &device, MeasContext &context);

} // namespace Tessel
