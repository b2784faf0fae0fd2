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
    uint64_t spanPs() const;
};

// What a correlation is normalised by: the events of each channel, and the time measured of each recording.
struct CountTerms
{
    std::array<uint64_t, 2> Events = {};
    std::vector<uint64_t> SpansPs;

    uint64_t spanPs() const; // of all
};
CountTerms termsOf(const PairCounts &counts);
CountTerms termsIn(const boost::json::object &result);

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
boost::json::object countKeys(const CountTerms &terms);
boost::json::object fileKeys(const CountTerms &terms); // and the rates of the two channels
void addCounts(boost::json::object &keys, const CountTerms &terms);

// Of results that were added up: what light that is uncorrelated in each comes to, if not to 1. `level`: where
// the curve has it.
std::vector<std::string> notesOnRates(const boost::json::array &files, double level);

// "n1 = 5, n2 = 7, T = 1000 ps".
std::string countsNote(const CountTerms &terms);

} // namespace Tessel::Cli
