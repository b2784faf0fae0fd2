// Events on their way from the light to the record words.
#pragma once

#include <cstdint>

namespace Tessel::Sim {

enum class Cause : uint8_t { Signal, Dark, Periodic, Afterpulse, Crosstalk };
constexpr int numCauses = 5;
constexpr const char *causeNames[] = {"signal", "dark", "periodic", "afterpulse", "crosstalk"};

// Channels from here on aren't inputs.
constexpr uint8_t syncChannel = 64, firstMarkerChannel = 65;
constexpr int maxChannels = 69;

struct Event
{
    uint64_t TimePs = 0; // since the start of the measurement
    uint8_t Channel = 0; // input, from 0
    Sim::Cause Cause = Cause::Signal;
};

inline bool isEarlier(const Event &a, const Event &b)
{
    return a.TimePs < b.TimePs;
}

} // namespace Tessel::Sim
