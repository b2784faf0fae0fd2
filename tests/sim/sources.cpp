// Statistics of the simulated sources. Seeds are fixed, so a run can't fail by chance; the bounds are five
// standard deviations, which a wrong source wouldn't keep.
#include "sim/cw.h"
#include "sim/pulsed.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numeric>

using namespace Tessel::Sim;

namespace {

std::vector<PulsedPhoton> allPhotons(const PulsedParams &params)
{
    PulsedLight light = makePulsedLight(params);
    std::vector<PulsedPhoton> all, batch;
    for (nextPhotons(light, 1000, batch); !batch.empty(); nextPhotons(light, 1000, batch))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

std::vector<Arrival> allArrivals(const CwParams &params)
{
    CwLight light = makeCwLight(params);
    std::vector<Arrival> all, batch;
    for (nextArrivals(light, 1000, batch); !batch.empty(); nextArrivals(light, 1000, batch))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

void expectPoissonian(double counted, double expected, const std::string &what)
{
    EXPECT_NEAR(counted, expected, 5 * std::sqrt(expected)) << what;
}

bool inOrder(const std::vector<PulsedPhoton> &photons)
{
    for (size_t i = 1; i < photons.size(); ++i) {
        const PulsedPhoton &a = photons[i - 1], &b = photons[i];
        if (a.Pulse > b.Pulse || (a.Pulse == b.Pulse && a.DelayPs > b.DelayPs)) return false;
    }
    return true;
}

bool inOrder(const std::vector<Arrival> &arrivals)
{
    for (size_t i = 1; i < arrivals.size(); ++i)
        if (arrivals[i - 1].TimePs > arrivals[i].TimePs) return false;
    return true;
}

// Pairs of an event on channel 0 and one on channel 1, by how much later or earlier the other came, divided by
// what independent events would give: g2 in bins of `binPs`, from 0.
std::vector<double> pairCorrelation(const std::vector<Arrival> &arrivals, double durationPs, double binPs,
                                    size_t bins)
{
    std::vector<double> pairs(bins, 0);
    double counts[2] = {0, 0};
    for (size_t i = 0; i < arrivals.size(); ++i) {
        counts[arrivals[i].Channel] += 1;
        for (size_t k = i + 1; k < arrivals.size(); ++k) {
            const auto bin =
                static_cast<size_t>(static_cast<double>(arrivals[k].TimePs - arrivals[i].TimePs) / binPs);
            if (bin >= bins) break;
            if (arrivals[i].Channel != arrivals[k].Channel) pairs[bin] += 1;
        }
    }
    for (double &count : pairs) count /= counts[0] / durationPs * counts[1] * 2 * binPs;
    return pairs;
}

} // namespace

TEST(Random, LogarithmMatchesTheOneOfTheMathematicsLibrary)
{
    Random random = makeRandom(7);
    for (int i = 0; i < 100000; ++i) {
        const double x = (uniform(random) + 0x1p-60) * std::pow(2.0, i % 120 - 60);
        EXPECT_NEAR(logOf(x), std::log(x), 2e-15 * std::max(1e-3, std::abs(std::log(x)))) << x;
    }
    EXPECT_EQ(logOf(1), 0);
}

TEST(Random, DrawsHaveTheMomentsOfTheirDistribution)
{
    Random random = makeRandom(11);
    const int draws = 400000;
    double normalSum = 0, normalSquares = 0, normalFourth = 0, exponentialSum = 0, exponentialSquares = 0;
    for (int i = 0; i < draws; ++i) {
        const double n = normal(random), e = exponential(random);
        normalSum += n, normalSquares += n * n, normalFourth += n * n * n * n;
        exponentialSum += e, exponentialSquares += e * e;
    }
    const double root = std::sqrt(draws);
    EXPECT_NEAR(normalSum / draws, 0, 5 / root);
    EXPECT_NEAR(normalSquares / draws, 1, 5 * std::sqrt(2) / root);
    EXPECT_NEAR(normalFourth / draws, 3, 5 * std::sqrt(96) / root);
    EXPECT_NEAR(exponentialSum / draws, 1, 5 / root);
    EXPECT_NEAR(exponentialSquares / draws, 2, 5 * std::sqrt(20) / root);
}

TEST(Random, AliasTableKeepsTheWeights)
{
    Random random = makeRandom(3);
    const std::vector<double> weights = {5, 0, 1, 0.001, 2, 0};
    const AliasTable table = makeAliasTable(weights);
    std::vector<double> counts(weights.size(), 0);
    const int draws = 200000;
    for (int i = 0; i < draws; ++i) counts[pick(table, random)] += 1;
    const double total = std::accumulate(weights.begin(), weights.end(), 0.0);
    for (size_t i = 0; i < weights.size(); ++i)
        if (weights[i] > 0)
            expectPoissonian(counts[i], draws * weights[i] / total, std::to_string(i));
        else
            EXPECT_EQ(counts[i], 0) << i;
}

// The photons of a seed are part of what the program promises; a change of this number breaks the promise.
TEST(PulsedLight, IsTheSameOnEveryMachine)
{
    const PulsedParams params{.PeriodPs = 12500,
                              .DelayPs = 1000,
                              .SigmaPs = 80,
                              .NumPulses = 100000,
                              .Channels = {{4e5, 1e4, 3000}, {2e5, 1e4, 900}},
                              .Seed = 42};
    uint64_t hash = 14695981039346656037u;
    for (const PulsedPhoton &photon : allPhotons(params))
        for (const uint64_t part :
             {photon.Pulse, std::bit_cast<uint64_t>(photon.DelayPs), uint64_t(photon.Channel)})
            hash = (hash ^ part) * 1099511628211u;
    EXPECT_EQ(hash, 5489241760521718429u);
}

TEST(PulsedLight, HasItsRatesAndIsInOrder)
{
    const struct
    {
        const char *Name;
        PulsedParams Params;
    } cases[] = {
        {"weak",
         {.PeriodPs = 25000,
          .DelayPs = 0,
          .SigmaPs = 50,
          .NumPulses = 40000000,
          .Channels = {{1e5, 0, 2500}, {3e4, 500, 800}, {0, 2000, 0}},
          .Seed = 1}},
        {"many per pulse",
         {.PeriodPs = 1e6,
          .DelayPs = 0,
          .SigmaPs = 50,
          .NumPulses = 50000,
          .Channels = {{5e6, 0, 2500}, {2e6, 1e6, 800}},
          .Seed = 2}},
        {"no light",
         {.PeriodPs = 25000, .DelayPs = 0, .SigmaPs = 0, .NumPulses = 1000, .Channels = {{}}, .Seed = 3}},
    };
    for (const auto &row : cases) {
        const std::vector<PulsedPhoton> photons = allPhotons(row.Params);
        EXPECT_TRUE(inOrder(photons)) << row.Name;
        const double seconds = row.Params.PeriodPs * 1e-12 * static_cast<double>(row.Params.NumPulses);
        std::vector<double> counts(row.Params.Channels.size(), 0);
        for (const PulsedPhoton &photon : photons) {
            counts[photon.Channel] += 1;
            ASSERT_LT(photon.Pulse, row.Params.NumPulses) << row.Name;
            ASSERT_TRUE(photon.DelayPs >= 0 && photon.DelayPs < row.Params.PeriodPs) << row.Name;
        }
        for (size_t i = 0; i < counts.size(); ++i)
            expectPoissonian(counts[i],
                             (row.Params.Channels[i].SignalRate + row.Params.Channels[i].BackgroundRate) *
                                 seconds,
                             row.Name);
    }
}

// A decay of 6 ns in a period of 12.5 ns: what outlasts the period adds to the same exponential, on top of the
// uniform background. Chi-square over 50 bins with 49 degrees of freedom stays below 100.
TEST(PulsedLight, FoldsTheDecayIntoThePeriod)
{
    const double period = 12500, lifetime = 6000, delay = 2000, signal = 9e5, background = 1e5;
    const std::vector<PulsedPhoton> photons = allPhotons({.PeriodPs = period,
                                                          .DelayPs = delay,
                                                          .SigmaPs = 0,
                                                          .NumPulses = 40000000,
                                                          .Channels = {{signal, background, lifetime}},
                                                          .Seed = 5});
    constexpr int bins = 50;
    std::vector<double> counts(bins, 0);
    for (const PulsedPhoton &photon : photons) counts[static_cast<size_t>(photon.DelayPs / period * bins)] += 1;
    const double width = period / bins, total = static_cast<double>(photons.size());
    double chiSquare = 0;
    for (int bin = 0; bin < bins; ++bin) {
        const double since = std::fmod(bin * width - delay + period, period);
        const double decay = (std::exp(-since / lifetime) - std::exp(-(since + width) / lifetime)) /
                             (1 - std::exp(-period / lifetime));
        const double expected = total * (0.9 * decay + 0.1 / bins);
        chiSquare += std::pow(counts[static_cast<size_t>(bin)] - expected, 2) / expected;
    }
    EXPECT_LT(chiSquare, 100);
}

TEST(PulsedLight, HasTheWidthOfItsResponse)
{
    const std::vector<PulsedPhoton> photons = allPhotons({.PeriodPs = 25000,
                                                          .DelayPs = 100,
                                                          .SigmaPs = 200,
                                                          .NumPulses = 8000000,
                                                          .Channels = {{1e6, 0, 0}},
                                                          .Seed = 6});
    double sum = 0, squares = 0;
    for (const PulsedPhoton &photon : photons) {
        const double shift = (photon.DelayPs > 12500 ? photon.DelayPs - 25000 : photon.DelayPs) - 100;
        sum += shift, squares += shift * shift;
    }
    const auto count = static_cast<double>(photons.size());
    EXPECT_NEAR(sum / count, 0, 5 * 200 / std::sqrt(count));
    EXPECT_NEAR(squares / count, 40000, 5 * 40000 * std::sqrt(2 / count));
}

TEST(CwLight, HasItsRatesAndIsInOrder)
{
    for (const CwKind kind : {CwKind::Poissonian, CwKind::Antibunched})
        for (const double sigma : {0.0, 3000.0}) {
            const CwParams params{.Kind = kind,
                                  .RecoveryPs = 4000,
                                  .SigmaPs = sigma,
                                  .DurationPs = 200000000000,
                                  .SignalRates = {1e6, 5e5, 0},
                                  .BackgroundRates = {0, 1e4, 2e4},
                                  .Seed = 9};
            const std::vector<Arrival> arrivals = allArrivals(params);
            EXPECT_TRUE(inOrder(arrivals)) << static_cast<int>(kind) << sigma;
            EXPECT_LT(arrivals.back().TimePs, params.DurationPs);
            std::vector<double> counts(3, 0);
            for (const Arrival &arrival : arrivals) counts[arrival.Channel] += 1;
            for (size_t i = 0; i < 3; ++i)
                expectPoissonian(counts[i], (params.SignalRates[i] + params.BackgroundRates[i]) * 0.2,
                                 std::to_string(i));
        }
}

// g2 of the light itself, by counting pairs: 1 - exp(-t / tr), averaged over a bin; up to saturation, where
// a = b, and 1 for Poissonian light.
TEST(CwLight, HasTheCorrelationOfItsEmitter)
{
    const double recovery = 20000, bin = 2000, duration = 4e11;
    const struct
    {
        const char *Name;
        CwKind Kind;
        double Rate;
    } cases[] = {{"weak", CwKind::Antibunched, 1e6},
                 {"strong", CwKind::Antibunched, 4e6},
                 {"saturated", CwKind::Antibunched, saturationRate(recovery) / 2},
                 {"poissonian", CwKind::Poissonian, 2e6}};
    for (const auto &row : cases) {
        const std::vector<Arrival> arrivals = allArrivals({.Kind = row.Kind,
                                                           .RecoveryPs = recovery,
                                                           .SigmaPs = 0,
                                                           .DurationPs = static_cast<uint64_t>(duration),
                                                           .SignalRates = {row.Rate, row.Rate},
                                                           .BackgroundRates = {0, 0},
                                                           .Seed = 21});
        const std::vector<double> g2 = pairCorrelation(arrivals, duration, bin, 60);
        const double perBin = row.Rate * row.Rate * 1e-24 * duration * 2 * bin; // pairs at g2 = 1
        for (size_t i = 0; i < g2.size(); ++i) {
            const double from = static_cast<double>(i) * bin / recovery, to = from + bin / recovery;
            const double dip = (std::exp(-from) - std::exp(-to)) / (to - from);
            const double expected = row.Kind == CwKind::Antibunched ? 1 - dip : 1;
            EXPECT_NEAR(g2[i], expected, 5 * std::sqrt(expected / perBin)) << row.Name << " bin " << i;
        }
    }
}
