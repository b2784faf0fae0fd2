#include "commands/fcs_curves.h"

#include "commands/several.h"
#include "program/exit_codes.h"
#include "program/units.h"
#include "tessel.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace Tessel::Cli {

namespace {

// A tenth of what will be measured, as far as that is known.
uint64_t defaultMaxLag(const Recording &recording)
{
    if (recording.RunForMs == longestRunMs) return 1'000'000'000'000;
    double ms = recording.RunForMs;
    if (!recording.isLive()) {
        const boost::json::value duration = fileReport(recording.Path, recording.Path).at("durationMs");
        if (duration.is_null())
            throw Failure(Exit::Usage, "--max-lag: needed, as the recording has no time scale");
        ms = duration.to_number<double>();
    }
    return static_cast<uint64_t>(ms * 1e9 * longestShare);
}

// The time in which pairs of this lag could be counted, in all recordings.
double overlapPs(const CountTerms &terms, double lag)
{
    double overlap = 0;
    for (const uint64_t span : terms.SpansPs) overlap += std::max(static_cast<double>(span) - lag, 0.0);
    return overlap;
}

// Pairs of uncorrelated light in bin k, whose lags take `later` and `earlier` from the two channels.
double expectedPairs(const FcsOptions &options, const Fcs &fcs, size_t later, size_t earlier, size_t k)
{
    const double from = fcs.FromPs[k], to = fcs.ToPs[k];
    const double overlap = overlapPs(fcs.Terms, (from + to) / 2);
    if (overlap <= 0) return 0;
    if (options.Norm == "mean") {
        const auto span = static_cast<double>(fcs.Terms.spanPs());
        return static_cast<double>(fcs.Terms.Events[later]) * static_cast<double>(fcs.Terms.Events[earlier]) /
               (span * span) * overlap * (to - from);
    }
    auto middle = [k](const std::vector<uint64_t> &events) {
        return (static_cast<double>(events[k]) + static_cast<double>(events[k + 1])) / 2;
    };
    return middle(fcs.Later[later]) * middle(fcs.Earlier[earlier]) / overlap * (to - from);
}

// The rows of the library that a curve adds up: row / 2 is the later channel, row % 2 the earlier one.
std::vector<size_t> rowsOf(const FcsOptions &options, size_t curve)
{
    if (curve != 1) return {curve == 0 ? size_t(0) : size_t(3)};
    if (options.Later == "both") return {1, 2};
    return {options.Later == "chan1" ? size_t(1) : size_t(2)};
}

void normalise(Fcs &fcs, const FcsOptions &options)
{
    for (size_t i = 0; i < std::size(fcs.Curves); ++i) {
        FcsCurve &curve = fcs.Curves[i];
        const std::vector<size_t> rows = rowsOf(options, i);
        for (size_t k = 0; k < curve.Pairs.size(); ++k) {
            double expected = 0;
            for (const size_t row : rows) expected += expectedPairs(options, fcs, row / 2, row % 2, k);
            const Ratio ratio = pairRatio(curve.Pairs[k], expected);
            curve.Values[k] = ratio.Value - 1;
            curve.Sigmas[k] = ratio.Sigma;
        }
    }
}

void checkSizes(const Fcs &fcs)
{
    bool areRight = fcs.LagsPs.size() == fcs.NumPoints && fcs.ToPs.size() == fcs.NumPoints;
    for (const FcsCurve &curve : fcs.Curves) areRight = areRight && curve.Pairs.size() == fcs.NumPoints;
    for (const auto *events : {&fcs.Later, &fcs.Earlier})
        for (const auto &channel : *events) areRight = areRight && channel.size() > fcs.NumPoints;
    if (!areRight) throw Failure(Exit::Failed, "the result has other lags than pairs");
}

} // namespace

void prepare(Fcs &fcs, const FcsOptions &options, const Recording &recording)
{
    checkChannels(options.Channels, recording);
    const uint64_t minLag = optionWholePs("--min-lag", options.MinLag, 1);
    if (static_cast<double>(minLag) < recording.BaseResolutionPs)
        throw Failure(Exit::Usage, fmt::format("--min-lag: at least the base resolution, {}",
                                               timeText(recording.BaseResolutionPs)));
    fcs.MaxLagPs =
        options.MaxLag.empty() ? defaultMaxLag(recording) : optionWholePs("--max-lag", options.MaxLag, 1);
    if (fcs.MaxLagPs <= minLag)
        throw Failure(Exit::Usage,
                      fmt::format("--max-lag: above --min-lag{}",
                                  options.MaxLag.empty() ? "; it is a tenth of the measured time, " +
                                                               timeText(double(fcs.MaxLagPs))
                                                         : ""));
    uint64_t numPoints = 0;
    const auto set = options.Fast ? setFFCSParams : setFCSParams;
    set(nullptr, static_cast<uint64_t>(options.Channels.First), static_cast<uint64_t>(options.Channels.Second),
        &numPoints, static_cast<double>(minLag), static_cast<double>(fcs.MaxLagPs), options.Steps);
    tessel_setCorrelationFromStart(nullptr, 1);
    fcs.NumPoints = numPoints;
    fcs.LagsPs.assign(fcs.NumPoints, 0);
    fcs.FromPs = fcs.ToPs = fcs.LagsPs;
    for (FcsCurve &curve : fcs.Curves) {
        curve.Pairs.assign(fcs.NumPoints, 0);
        curve.Values.assign(fcs.NumPoints, std::numeric_limits<double>::quiet_NaN());
        curve.Sigmas = curve.Values;
    }
}

void toPicoseconds(std::vector<double> &lags)
{
    for (double &lag : lags) lag = std::round(lag * 1e12);
}

void take(Fcs &fcs, const FcsOptions &options)
{
    const PairCounts &counts = fcs.Counts;
    if (!takePairCounts(fcs.Counts)) return;
    for (size_t k = 0; k < fcs.NumPoints; ++k) {
        fcs.FromPs[k] = static_cast<double>(counts.Edges[k]);
        fcs.ToPs[k] = static_cast<double>(counts.Edges[k + 1]);
    }
    fcs.Terms = termsOf(counts);
    fcs.Later = counts.Later;
    fcs.Earlier = counts.Earlier;
    for (size_t i = 0; i < std::size(fcs.Curves); ++i) {
        std::vector<uint64_t> &pairs = fcs.Curves[i].Pairs;
        std::ranges::fill(pairs, 0);
        for (const size_t row : rowsOf(options, i))
            for (size_t k = 0; k < pairs.size(); ++k) pairs[k] += counts.Pairs[row][k];
    }
    normalise(fcs, options);
}

void load(Fcs &fcs, const FcsOptions &options, const boost::json::object &result)
{
    fcs.NumPoints = result.at("points").to_number<size_t>();
    fcs.LagsPs.clear();
    fcs.FromPs.clear();
    for (const auto &lag : result.at("lagPs").as_array()) fcs.LagsPs.push_back(lag.to_number<double>());
    for (const auto &edge : result.at("edgesPs").as_array()) fcs.FromPs.push_back(edge.to_number<double>());
    fcs.ToPs = fcs.FromPs;
    if (!fcs.ToPs.empty()) {
        fcs.ToPs.erase(fcs.ToPs.begin());
        fcs.FromPs.pop_back();
    }
    fcs.Terms = termsIn(result);
    for (size_t channel = 0; channel < 2; ++channel) {
        fcs.Later[channel] = numbersIn(result.at("laterEvents").at(channel));
        fcs.Earlier[channel] = numbersIn(result.at("earlierEvents").at(channel));
    }
    for (FcsCurve &curve : fcs.Curves) {
        curve.Pairs = numbersIn(result.at("pairs").at(curve.Name));
        curve.Values.resize(curve.Pairs.size());
        curve.Sigmas.resize(curve.Pairs.size());
    }
    checkSizes(fcs);
    normalise(fcs, options);
}

bool isEmpty(const Fcs &fcs)
{
    return std::ranges::all_of(fcs.Curves, [](const FcsCurve &curve) {
        return std::ranges::all_of(curve.Pairs, [](uint64_t pairs) { return pairs == 0; });
    });
}

std::string faultOf(const Fcs &fcs)
{
    for (const FcsCurve &curve : fcs.Curves)
        if (std::ranges::none_of(curve.Values, [](double value) { return std::isfinite(value); }))
            return fmt::format("the curve {} has no value: a channel has no events, or none so far apart",
                               curve.Name);
    return "";
}

} // namespace Tessel::Cli
