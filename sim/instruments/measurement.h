// One measurement of an instrument, from StartMeas to the next one: time passes in windows of a fixed length,
// each of which carries its events from the sources to the recorder. So the records of a seed don't depend on
// when and how often somebody asks; only what a full FIFO loses does.
#pragma once

#include "sim/instruments/description.h"
#include "sim/instruments/detection.h"
#include "sim/instruments/event_filter.h"
#include "sim/instruments/recorder.h"
#include "sim/instruments/settings.h"
#include "sim/instruments/sources.h"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <vector>

namespace Tessel::Sim {

struct MarkerInput
{
    bool IsEnabled = true;
    uint64_t HoldoffPs = 0, FreePs = 0; // no marker before FreePs
    Sim::Source Source;
};

struct Measurement
{
    uint64_t Number = 0; // of the instrument's measurements, from 0
    double DuePs = 0;    // the time by the instrument's clock; negative: it waits for the control signal
    double WorkS = 0;    // that the last look at the clock led to
    std::chrono::steady_clock::time_point LookedAt; // end of that work
    uint64_t WindowPs = 0;
    uint64_t DonePs = 0;  // everything before is recorded
    uint64_t KnownPs = 0; // everything before has left Counted
    uint64_t EndPs = UINT64_MAX;
    uint64_t GateFromPs = UINT64_MAX, GateToPs = UINT64_MAX; // external gate; from the maximum: none
    bool IsOver = false;                                     // stopped, or its time is over
    bool FilterTests = false;                                // nothing goes to the FIFO
    std::vector<Source> Sources;
    std::vector<MarkerInput> Markers;
    Sim::Detection Detection;
    Sim::EventFilter Filter;
    Sim::Recorder Recorder;
    Sim::Truth Truth;
    std::ofstream WordsFile;                // what is read, if that is wished
    uint64_t NextSync = 0, SyncDivider = 1; // T2: number of the next sync record
    Reorder Arrivals, Counted;
    std::vector<Event> Passed, Taken, Mixed, Work; // of one window
    uint64_t RatesSincePs = 0;
    int32_t RowRates[maxChannels] = {}, MainRates[maxChannels] = {}; // of the last tenth of a second
};

// The sync pulses that the settings let through, as one clock.
SyncClock syncClock(const InstrumentDescription &instrument, const Settings &settings);

Measurement startMeasurement(const InstrumentDescription &instrument, const Settings &settings, int mode,
                             uint64_t acqTimeMs, uint64_t number);

// Settings that hold at once: levels, dead times, offsets, enables, filter.
void applySettings(Measurement &measurement, const InstrumentDescription &instrument, const Settings &settings);

// Lets time pass up to `timePs`, in whole windows; at most until about `mostWords` wait in the FIFO, and at
// most `windows`.
void advanceTo(Measurement &measurement, uint64_t timePs, size_t mostWords, int windows);

// The truth without the events that were still on their way at the end.
Truth settled(const Measurement &measurement);

} // namespace Tessel::Sim
