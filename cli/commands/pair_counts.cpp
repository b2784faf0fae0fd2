#include "commands/pair_counts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace Tessel::Cli {

PairCounts::PairCounts()
{
    Told.size = sizeof Told;
}

uint64_t PairCounts::spanPs() const
{
    uint64_t first = std::min(Told.first[0], Told.first[1]);
    if (first == 0) first = std::max(Told.first[0], Told.first[1]); // of the channel that has events
    return std::max(Told.last[0], Told.last[1]) - first;
}

uint64_t CountTerms::spanPs() const
{
    return std::accumulate(SpansPs.begin(), SpansPs.end(), uint64_t(0));
}

CountTerms termsOf(const PairCounts &counts)
{
    return {.Events = {counts.Told.events[0], counts.Told.events[1]}, .SpansPs = {counts.spanPs()}};
}

CountTerms termsIn(const boost::json::object &result)
{
    CountTerms terms{.Events = {result.at("n1").to_number<uint64_t>(), result.at("n2").to_number<uint64_t>()},
                     .SpansPs = {}};
    for (const auto &file : result.at("files").as_array())
        terms.SpansPs.push_back(file.at("measuredPs").to_number<uint64_t>());
    return terms;
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

boost::json::object countKeys(const CountTerms &terms)
{
    return {{"n1", terms.Events[0]}, {"n2", terms.Events[1]}, {"measuredPs", terms.spanPs()}};
}

boost::json::object fileKeys(const CountTerms &terms)
{
    boost::json::object keys = countKeys(terms), rates;
    const double seconds = static_cast<double>(terms.spanPs()) * 1e-12;
    if (seconds > 0)
        rates = {{"chan1", static_cast<double>(terms.Events[0]) / seconds},
                 {"chan2", static_cast<double>(terms.Events[1]) / seconds}};
    keys["rates"] = std::move(rates);
    return keys;
}

void addCounts(boost::json::object &keys, const CountTerms &terms)
{
    for (auto &member : countKeys(terms)) keys.insert(member);
}

std::vector<std::string> notesOnRates(const boost::json::array &files, double level)
{
    constexpr double tolerance = 0.01;
    double n1 = 0, n2 = 0, span = 0, expected = 0;
    for (const auto &file : files) {
        const double ps = file.at("measuredPs").to_number<double>(), one = file.at("n1").to_number<double>(),
                     two = file.at("n2").to_number<double>();
        n1 += one;
        n2 += two;
        span += ps;
        if (ps > 0) expected += one * two / ps;
    }
    const double ratio = expected * span / (n1 * n2);
    if (!(std::abs(ratio - 1) > tolerance)) return {};
    return {fmt::format("the count rates differ from file to file, so light that is uncorrelated in each is at "
                        "{:.3g}, not at {}",
                        ratio - 1 + level, level)};
}

std::string countsNote(const CountTerms &terms)
{
    return fmt::format("n1 = {}, n2 = {}, T = {} ps", terms.Events[0], terms.Events[1], terms.spanPs());
}

} // namespace Tessel::Cli
