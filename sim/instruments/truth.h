// What really happened in a measurement: events by channel and cause, and where those went that became no
// record.
#pragma once

#include "sim/instruments/event.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Sim {

enum class Loss : uint8_t { Detector, Level, Disabled, DeadTime, Outside, Filter, FilterTest, Fifo };
constexpr int numLosses = 8;
constexpr const char *lossNames[] = {"detectorDeadTime", "level",       "disabled",   "deadTime",
                                     "outside",          "eventFilter", "filterTest", "fifo"};

// I1: the sum of Made is Recorded and the sum of Lost, once the events that are still on their way are taken
// off (settled, measurement.h).
struct ChannelTruth
{
    uint64_t Made[numCauses] = {};
    uint64_t Lost[numLosses] = {};
    uint64_t Recorded = 0; // words in the FIFO, or counts in the histogram
};

struct Truth
{
    ChannelTruth Inputs[64];
    uint64_t Syncs = 0, Markers[4] = {}; // recorded ones
    uint64_t LostWords = 0;              // that the FIFO didn't take, of any kind
    uint64_t WordsWritten = 0, WordsRead = 0;
};

inline void lose(Truth &truth, const Event &event, Loss loss)
{
    if (event.Channel < syncChannel) ++truth.Inputs[event.Channel].Lost[static_cast<int>(loss)];
}

struct TruthReport
{
    std::string Path, Serial;
    uint64_t Seed = 0, NumInputs = 0, Run = 0;
    int Mode = 0;
    uint64_t SimulatedPs = 0, OverflowWords = 0, WordsLeft = 0;
    bool HasOverflowed = false;
};

// Replaces the file; nothing without a path. False: it can't be written.
bool writeTruth(const Truth &truth, const TruthReport &report);

} // namespace Tessel::Sim
