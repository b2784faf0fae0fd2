// Statistics of the simulated light. Seeds are fixed, so a run can't fail by chance; the bounds are five
// standard deviations, which wrong light wouldn't keep. How the
// light correlates is measured through the program.
#include "sim/cw.h"
#include "sim/pulsed.h"
#include "sim/ziggurat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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

template <class Photon>
void expectRates(const std::vector<Photon> &photons, const std::vector<double> &expected)
{
    std::vector<double> counts(expected.size(), 0);
    for (const Photon &photon : photons) counts.at(photon.Channel) += 1;
    for (size_t i = 0; i < counts.size(); ++i)
        EXPECT_NEAR(counts[i], expected[i], 5 * std::sqrt(expected[i])) << "channel " << i;
}

} // namespace

TEST(PulsedLight, HasItsRatesAndIsInOrder)
{
    const PulsedParams cases[] = {
        {25000, 0, 50, 40000000, {{1e5, 0, 2500}, {3e4, 500, 800}, {0, 2000, 0}}, 1},
        {1e6, 0, 50, 50000, {{5e6, 0, 2500}, {2e6, 1e6, 800}}, 2}, // many photons per pulse
        {25000, 0, 0, 1000, {{}}, 3},                              // no light
    };
    for (const PulsedParams &params : cases) {
        const std::vector<PulsedPhoton> photons = allPhotons(params);
        const double seconds = params.PeriodPs * 1e-12 * static_cast<double>(params.NumPulses);
        std::vector<double> expected;
        for (const PulsedChannel &channel : params.Channels)
            expected.push_back((channel.SignalRate + channel.BackgroundRate) * seconds);
        expectRates(photons, expected);
        for (size_t i = 0; i < photons.size(); ++i) {
            const PulsedPhoton &photon = photons[i], &before = photons[i > 0 ? i - 1 : 0];
            ASSERT_LT(photon.Pulse, params.NumPulses);
            ASSERT_TRUE(photon.DelayPs >= 0 && photon.DelayPs < params.PeriodPs);
            ASSERT_LE(std::pair(before.Pulse, before.DelayPs), std::pair(photon.Pulse, photon.DelayPs));
        }
    }
}

// A decay of 6 ns in a period of 12.5 ns: what outlasts the period adds to the same exponential, on top of the
// uniform background. Chi-square over 50 bins with 49 degrees of freedom stays below 100.
TEST(PulsedLight, FoldsTheDecayIntoThePeriod)
{
    const double period = 12500, lifetime = 6000, delay = 2000, bins = 50, width = period / bins;
    const auto photons = allPhotons({period, delay, 0, 40000000, {{9e5, 1e5, lifetime}}, 5});
    std::vector<double> counts(50, 0);
    for (const PulsedPhoton &photon : photons) counts[static_cast<size_t>(photon.DelayPs / width)] += 1;
    double chiSquare = 0;
    for (size_t bin = 0; bin < counts.size(); ++bin) {
        const double since = std::fmod(static_cast<double>(bin) * width - delay + period, period);
        const double decay = (std::exp(-since / lifetime) - std::exp(-(since + width) / lifetime)) /
                             (1 - std::exp(-period / lifetime));
        const double expected = static_cast<double>(photons.size()) * (0.9 * decay + 0.1 / bins);
        chiSquare += std::pow(counts[bin] - expected, 2) / expected;
    }
    EXPECT_LT(chiSquare, 100);
}

// By the distribution function, which makes each uniform, in bins of which the last ones are the tails:
// chi-square with 999 degrees of freedom stays below 999 + 5 standard deviations of 44.7.
TEST(Draws, HaveTheirDistributions)
{
    const auto chiSquare = [](auto draw, auto probabilityBelow) {
        Random random = makeRandom(8);
        std::vector<double> counts(1000, 0);
        for (int i = 0; i < 4000000; ++i)
            counts.at(static_cast<size_t>(probabilityBelow(draw(random)) * 1000)) += 1;
        double sum = 0;
        for (const double count : counts) sum += std::pow(count - 4000, 2) / 4000;
        return sum;
    };
    EXPECT_NEAR(chiSquare(exponential, [](double x) { return -std::expm1(-x); }), 999, 223);
    EXPECT_NEAR(chiSquare(normal, [](double x) { return std::erfc(-x / std::sqrt(2)) / 2; }), 999, 223);
    Random random = makeRandom(9); // beyond the lowest layer; five standard deviations
    double tails = 0, beyond = 0;
    for (int i = 0; i < 4000000; ++i) {
        const double x = exponential(random);
        tails += x > 7.7;
        beyond += x > 7.7 ? x - 7.7 : 0;
    }
    EXPECT_NEAR(tails, 4e6 * std::exp(-7.7), 5 * std::sqrt(4e6 * std::exp(-7.7)));
    EXPECT_NEAR(beyond / tails, 1, 5 / std::sqrt(tails));
}

TEST(CwLight, HasItsRatesAndIsInOrder)
{
    for (const CwKind kind : {CwKind::Poissonian, CwKind::Antibunched})
        for (const double sigma : {0.0, 3000.0}) {
            const auto arrivals =
                allArrivals({kind, 4000, 0, 0, 0, sigma, 200000000000, {1e6, 5e5, 0}, {0, 1e4, 2e4}, 9});
            expectRates(arrivals, {200000, 102000, 4000});
            EXPECT_TRUE(std::ranges::is_sorted(arrivals, {}, &Arrival::TimePs));
            EXPECT_LT(arrivals.back().TimePs, 200000000000u);
        }
}
