// What an instrument sends of a light source: record words, a batch of photons at a time. T2 has sync events
// between the photons, and overflow words go on to the end, so that time passes without light too. There is no
// clock: the words come as fast as they are asked for.
#pragma once

#include "sim/cw.h"
#include "sim/pulse_times.h"
#include "sim/pulsed.h"
#include "sim/words.h"

#include <cstdint>
#include <variant>
#include <vector>

namespace Tessel::Sim {

using LightParams = std::variant<PulsedParams, CwParams>;

struct StreamParams
{
    int MeasMode = 3;        // 2 T2, 3 T3
    LightParams Light;       // T3: pulsed
    double SyncPeriodPs = 0; // 0: no sync, T2 only; that of pulsed light
    double ResolutionPs = 1; // of a dtime (T3) or a time tag (T2); whole
    uint64_t DurationPs = 0; // that of the light
};

struct WordStream
{
    StreamParams Params;
    std::variant<PulsedLight, CwLight> Light;
    PulseTimes Pulses;
    uint64_t NextSync = 0; // T2: number of the next sync event
    WordWriter Writer;     // its words are those of the last batch
    double Fraction = 0;   // of the duration that has passed
    bool IsOver = false;
    std::vector<PulsedPhoton> Photons;
    std::vector<Arrival> Arrivals;
};

WordStream makeWordStream(const StreamParams &params);

// Replaces the words with those of the next batch; false: the stream is over.
bool nextWords(WordStream &stream);

} // namespace Tessel::Sim
