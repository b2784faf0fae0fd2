#include "commands/pair_counts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessel::Cli {

PairCounts::PairCounts()
{
    Told.size = sizeof Told;
}

double PairCounts::spanPs() const
{
    uint64_t first = std::min(Told.first[0], Told.first[1]);
    if (first == 0) first = std::max(Told.first[0], Told.first[1]); // of the channel that has events
    return static_cast<double>(std::max(Told.last[0], Told.last[1]) - first);
}

bool takePairCounts(PairCounts &counts)
{
    tessel_correlation_counts &told = counts.Told;
    told.capacity = 0;
    if (!tessel_getCorrelationCounts(nullptr, &told)) return false;
    told.capacity = told.bins + 1;
    auto room = [&](std::vector<uint64_t> &values, uint64_t *&place) {
        values.resize(told.capacity);
        place = values.data();
    };
    for (size_t row = 0; row < counts.Pairs.size(); ++row) room(counts.Pairs[row], told.pairs[row]);
    for (size_t channel = 0; channel < 2; ++channel) {
        room(counts.Later[channel], told.laterEvents[channel]);
        room(counts.Earlier[channel], told.earlierEvents[channel]);
    }
    room(counts.Edges, told.edges);
    return tessel_getCorrelationCounts(nullptr, &told);
}

Ratio pairRatio(uint64_t pairs, double expected)
{
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    if (!(expected > 0)) return {none, none};
    return {static_cast<double>(pairs) / expected,
            std::sqrt(static_cast<double>(std::max<uint64_t>(pairs, 1))) / expected};
}

void addCounts(boost::json::object &keys, const PairCounts &counts)
{
    keys["n1"] = counts.Told.events[0];
    keys["n2"] = counts.Told.events[1];
    keys["measuredPs"] = counts.spanPs();
}

std::string countsNote(const PairCounts &counts)
{
    return fmt::format("n1 = {}, n2 = {}, T = {} ps", counts.Told.events[0], counts.Told.events[1],
                       counts.spanPs());
}

} // namespace Tessel::Cli
