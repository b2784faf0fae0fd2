// What reaches the detectors and the inputs of an instrument: light, dark counts, periodic signals, markers,
// each a source of events in the order of their time. A source draws its events in their order, so they don't
// depend on the steps in which they are taken.
#pragma once

#include "sim/cw.h"
#include "sim/instruments/description.h"
#include "sim/instruments/event.h"
#include "sim/pulse_times.h"
#include "sim/pulsed.h"

#include <cstdint>
#include <variant>
#include <vector>

namespace Tessel::Sim {

// Pulses in equal distances, or edges of a square wave: `Second` after each pulse comes another.
struct PeriodicSource
{
    PulseTimes Pulses;
    uint64_t PhasePs = 0;
    uint64_t Next = 0; // number of the pulse
};

struct Source
{
    std::variant<PulsedLight, CwLight, PeriodicSource> Of;
    double RatePerPs = 0;
    uint8_t Channel = 0; // of a periodic source
    Sim::Cause Cause = Cause::Signal;
    PulseTimes Pulses; // of pulsed light
    // Those that are drawn and not taken: Ready[Next..]
    std::vector<Event> Ready;
    size_t Next = 0;
    std::vector<PulsedPhoton> Photons;
    std::vector<Arrival> Arrivals;
};

// The sources of all inputs; `run` counts the measurements, each of which sees other events of the same seed.
std::vector<Source> inputSources(const InstrumentDescription &instrument, uint64_t run);

// A marker's signal: the channel is that of the marker. `isRising`: the edge that counts.
Source markerSource(const MarkerDescription &marker, int number, bool isRising, uint64_t seed);

// Appends the events before `endPs`.
void takeBefore(Source &source, uint64_t endPs, std::vector<Event> &events);

} // namespace Tessel::Sim
