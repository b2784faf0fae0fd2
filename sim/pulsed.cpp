// Generator of pulsed light. One thread.
#include "sim/pulsed.h"

#include "sim/ziggurat.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

// A Poisson process in the continuous pulse number; only its whole part is used.
void advance(PulsedLight &light)
{
    light.PulseFraction += exponential(light.Generator) * light.PulsesPerPhoton;
    const uint64_t left = light.Params.NumPulses - light.Pulse;
    const auto whole =
        static_cast<int64_t>(std::min(light.PulseFraction, 0x1p62)); // floor, as it isn't negative
    light.PulseFraction -= static_cast<double>(whole);
    light.Pulse += std::min(left, static_cast<uint64_t>(whole));
}

double drawDelay(PulsedLight &light, const PulsedChannel &channel, bool background)
{
    const double period = light.Params.PeriodPs;
    if (background) return uniform(light.Generator) * period;
    double delay = light.Params.DelayPs;
    if (light.Params.SigmaPs > 0) delay += light.Params.SigmaPs * normal(light.Generator);
    if (channel.LifetimePs > 0) delay += channel.LifetimePs * exponential(light.Generator);
    if (delay < 0 || delay >= period) delay -= std::floor(delay / period) * period;
    return delay >= 0 && delay < period ? delay : 0; // rounding can reach either end
}

// Photons of one pulse are drawn in any order and seen in the order of their delay.
void insertOrdered(std::vector<PulsedPhoton> &photons, const PulsedPhoton &photon)
{
    photons.push_back(photon);
    for (size_t i = photons.size() - 1; i > 0; --i) {
        PulsedPhoton &before = photons[i - 1];
        if (before.Pulse != photon.Pulse || before.DelayPs <= photon.DelayPs) return;
        std::swap(before, photons[i]);
    }
}

void drawPhotons(PulsedLight &light, size_t count, std::vector<PulsedPhoton> &photons)
{
    while (light.Pulse < light.Params.NumPulses) {
        if (photons.size() >= count && photons.back().Pulse != light.Pulse) return;
        const uint32_t kind = pick(light.Kinds, light.Generator);
        const auto channel = static_cast<uint8_t>(kind / 2);
        const double delay = drawDelay(light, light.Params.Channels[channel], kind % 2 == 1);
        insertOrdered(photons, {light.Pulse, delay, channel});
        advance(light);
    }
}

} // namespace

PulsedLight makePulsedLight(const PulsedParams &params)
{
    PulsedLight light;
    light.Params = params;
    light.Generator = makeRandom(params.Seed);
    std::vector<double> rates;
    double total = 0;
    for (const PulsedChannel &channel : params.Channels)
        for (const double rate : {channel.SignalRate, channel.BackgroundRate}) {
            rates.push_back(rate);
            total += rate;
        }
    if (total > 0) {
        light.PulsesPerPhoton = 1e12 / (total * params.PeriodPs);
        light.Kinds = makeAliasTable(rates);
        advance(light);
    } else {
        light.Pulse = params.NumPulses;
    }
    return light;
}

void nextPhotons(PulsedLight &light, size_t count, std::vector<PulsedPhoton> &photons)
{
    photons.clear();
    drawPhotons(light, count, photons);
}

} // namespace Tessel::Sim
