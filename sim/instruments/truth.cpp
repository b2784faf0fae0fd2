// The truth of a measurement as a JSON file.
#include "sim/instruments/truth.h"

#include <boost/json.hpp>

#include <cstdio>
#include <fstream>

namespace Tessel::Sim {

namespace {

boost::json::object inputJson(const ChannelTruth &input, uint64_t channel)
{
    boost::json::object made, lost;
    for (int i = 0; i < numCauses; ++i) made[causeNames[i]] = input.Made[i];
    for (int i = 0; i < numLosses; ++i) lost[lossNames[i]] = input.Lost[i];
    return {{"channel", channel + 1}, {"events", made}, {"lost", lost}, {"recorded", input.Recorded}};
}

boost::json::object truthJson(const Truth &truth, const TruthReport &report)
{
    boost::json::array inputs, markers;
    for (uint64_t i = 0; i < report.NumInputs; ++i) inputs.push_back(inputJson(truth.Inputs[i], i));
    for (const uint64_t count : truth.Markers) markers.push_back(count);
    return {{"serial", report.Serial},
            {"seed", report.Seed},
            {"measurement", report.Run},
            {"mode", report.Mode},
            {"simulatedPs", report.SimulatedPs},
            {"inputs", inputs},
            {"syncRecords", truth.Syncs},
            {"markerRecords", markers},
            {"words",
             {{"written", truth.WordsWritten},
              {"overflows", report.OverflowWords},
              {"read", truth.WordsRead},
              {"left", report.WordsLeft},
              {"lost", truth.LostWords}}},
            {"fifoOverflowed", report.HasOverflowed}};
}

} // namespace

bool writeTruth(const Truth &truth, const TruthReport &report)
{
    if (report.Path.empty()) return true;
    const std::string unfinished = report.Path + ".new";
    std::ofstream file(unfinished);
    file << boost::json::serialize(truthJson(truth, report)) << '\n';
    file.close();
    return file && std::rename(unfinished.c_str(), report.Path.c_str()) == 0;
}

} // namespace Tessel::Sim
