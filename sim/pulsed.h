// Light that a pulsed laser excites, as photons on detector channels: pure physics, no interface, no words.
//
// The emitters are many and weakly excited, so the number of photons per pulse is Poissonian. A photon is seen
// after Delay + Gaussian response + exponential decay. A decay that outlasts the period is seen in a later
// one: since displaced points of a Poisson process are again a Poisson process, this is exactly the folding of
// the delay into one period. The light has been on for long when the recording starts. Background is uniform
// in time. There is no dead time.
#pragma once

#include "sim/random.h"

#include <cstdint>
#include <vector>

namespace Tessel::Sim {

struct PulsedChannel
{
    double SignalRate = 0;     // detected photons per second
    double BackgroundRate = 0; // counts per second
    double LifetimePs = 0;     // of the decay; 0: prompt
};

struct PulsedParams
{
    double PeriodPs = 0;    // from pulse to pulse
    double DelayPs = 0;     // from the sync to the centre of the response
    double SigmaPs = 0;     // of the Gaussian response
    uint64_t NumPulses = 0; // length of the recording
    std::vector<PulsedChannel> Channels;
    uint64_t Seed = 0;
};

struct PulsedPhoton
{
    uint64_t Pulse;  // number of the sync pulse before it, from 0
    double DelayPs;  // since that pulse, in [0, PeriodPs)
    uint8_t Channel; // input, from 0
};

struct PulsedLight
{
    PulsedParams Params;
    Random Generator;
    AliasTable Kinds;           // even: signal of channel kind / 2, odd: its background
    double PulsesPerPhoton = 0; // mean distance
    uint64_t Pulse = 0;         // of the next photon
    double PulseFraction = 0;   // rest of the continuous pulse number
};

PulsedLight makePulsedLight(const PulsedParams &params);

// Replaces `photons` with about `count` next ones, in the order of their time; none when the recording is
// over. A pulse is never split between two calls.
void nextPhotons(PulsedLight &light, size_t count, std::vector<PulsedPhoton> &photons);

} // namespace Tessel::Sim
