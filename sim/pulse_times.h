// When the pulses of a laser come: pulse n comes n periods after the start. The whole picoseconds of the
// period are multiplied as integers, so that a long stream keeps its precision.
#pragma once

#include <cmath>
#include <cstdint>

namespace Tessel::Sim {

struct PulseTimes
{
    uint64_t WholePs = 0;
    double RestPs = 0;
};

inline PulseTimes pulseTimes(double periodPs)
{
    return {static_cast<uint64_t>(periodPs), periodPs - std::floor(periodPs)};
}

// `delayPs` after a pulse.
inline uint64_t timeOf(const PulseTimes &pulses, uint64_t pulse, double delayPs)
{
    return pulse * pulses.WholePs + static_cast<uint64_t>(static_cast<double>(pulse) * pulses.RestPs + delayPs);
}

} // namespace Tessel::Sim
