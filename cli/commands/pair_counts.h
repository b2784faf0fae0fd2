// What a correlation has counted, and its normalisation by the program.
#pragma once

#include "commands/measure.h"
#include "tessel.h"

#include <boost/json/object.hpp>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace Tessel::Cli {

// As tessel_correlation_counts says, which points into it.
struct PairCounts
{
    PairCounts();
    PairCounts(const PairCounts &) = delete;
    PairCounts &operator=(const PairCounts &) = delete;

    tessel_correlation_counts Told{};
    std::array<std::vector<uint64_t>, 4> Pairs;
    std::vector<uint64_t> Edges; // ps
    std::array<std::vector<uint64_t>, 2> Later, Earlier;

    // From the first event of the two channels to the last, in ps.
    double spanPs() const;
};

// Of the current device, now. False: its run hasn't begun to count.
bool takePairCounts(PairCounts &counts);

// Pairs by how many there would be of uncorrelated light; the standard deviation is that of the pairs, and of
// no pairs that of one. Without expected pairs neither is a number.
struct Ratio
{
    double Value, Sigma;
};
Ratio pairRatio(uint64_t pairs, double expected);

// n1, n2, measuredPs.
void addCounts(boost::json::object &keys, const PairCounts &counts);

// "n1 = 5, n2 = 7, T = 1000 ps".
std::string countsNote(const PairCounts &counts);

} // namespace Tessel::Cli
