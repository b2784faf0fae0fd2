// The stages that a host can add, one function for each kind, and the rates of a CountRate. An adder returns
// the stage's first output channel, or -1, with an error in the log, if the stream has no room for more
// channels.
#pragma once

#include "records/refs.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Tessel {

// The low byte of each element, as channel numbers are kept.
std::vector<uint8_t> channelBytes(std::span<const int32_t> channels);

struct CoincidenceRequest
{
    std::span<const int32_t> Channels;
    double WindowPs = 0; // rounded to whole picoseconds
    uint32_t CoincMode = 0, TimeMode = 0;
    bool Keep = false;
};
int32_t addCoincidence(const DeviceRef &target, const CoincidenceRequest &request);

int32_t addMerge(const DeviceRef &target, std::span<const int32_t> channels, bool keep);

int32_t addDelay(const DeviceRef &target, uint8_t channel, double delayPs, bool keep);

struct HeraldRequest
{
    uint8_t Herald = 0;
    std::span<const int32_t> Gated;
    int32_t DelayPs = 0, WindowPs = 0;
    bool Inverted = false, Keep = false;
};
int32_t addHerald(const DeviceRef &target, const HeraldRequest &request);

struct ImportRequest
{
    std::string SourceId;
    bool Start = false;                // a measurement of this device starts one of the source
    std::span<const int32_t> Channels; // of the source; none: channel 1
    int32_t OffsetPs = 0;
    const DeviceLookUp *Devices = nullptr;
};
int32_t addImportStream(const DeviceRef &target, const ImportRequest &request);

void addSubStream(const DeviceRef &target, uint64_t from, uint64_t to);

// False, with an error in the log: refused.
bool addSort(const DeviceRef &target, uint64_t windowPs);

// Returns the position of the stage in the chain.
int32_t addCountRate(const DeviceRef &target, double windowPs);

// The rates of the stage at `index`, one for each row of a result; 0 for a channel that the stage doesn't see.
// False: no such stage, or it hasn't entered a run yet.
bool countRates(const DeviceRef &target, int32_t index, uint32_t *rates);

} // namespace Tessel
