// The curves of an FCS: their bins, pairs and normalisation.
#pragma once

#include "commands/measure.h"
#include "commands/pair_counts.h"

#include <boost/json/object.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Tessel::Cli {

struct FcsOptions
{
    MeasureOptions Measure;
    ChannelPair Channels;
    std::string MinLag = "1us", MaxLag; // empty: a tenth of the measured time
    uint64_t Steps = 100;
    bool Fast = false;
    std::string Norm = "symmetric", Later = "both";
};

// A curve with its pairs; [points].
struct FcsCurve
{
    const char *Name;
    std::vector<double> Values{}, Sigmas{};
    std::vector<uint64_t> Pairs{};
};

struct Fcs
{
    size_t NumPoints = 0;
    uint64_t MaxLagPs = 0;
    std::vector<double> LagsPs, FromPs, ToPs;
    FcsCurve Curves[3] = {{.Name = "auto1"}, {.Name = "cross"}, {.Name = "auto2"}};
    CountTerms Terms;
    std::array<std::vector<uint64_t>, 2> Later, Earlier; // events that could be it, at each edge
    PairCounts Counts;
};

constexpr double longestShare = 0.1; // of the measured time, for a lag

// Sets the parameters, and makes room. Throws Failure.
void prepare(Fcs &fcs, const FcsOptions &options, const Recording &recording);

// The library returns seconds, which are whole picoseconds.
void toPicoseconds(std::vector<double> &lags);

// What the run has counted by now.
void take(Fcs &fcs, const FcsOptions &options);

// What a result has. Throws Failure.
void load(Fcs &fcs, const FcsOptions &options, const boost::json::object &result);

bool isEmpty(const Fcs &fcs);

// Which curve has no value at all, as a channel has no events; empty: none.
std::string faultOf(const Fcs &fcs);

} // namespace Tessel::Cli
