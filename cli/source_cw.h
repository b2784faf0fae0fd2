// Light under continuous excitation, as arrival times on detector channels: pure physics, no interface, no
// words.
//
// Poissonian: laser or lamp light, independent on every channel. Antibunched: one two-level emitter whose
// photons a beam splitter sends to the channels. Each photon needs an excitation (rate W) and a decay (rate
// G), so the emitted photons have g2(t) = 1 - exp(-(W + G) |t|), which losses don't change. With a detected
// rate R and the recovery time tr = 1 / (W + G), the interval from one detected photon to the next is the sum
// of two exponential ones with rates a and b, where a + b = 1 / tr and a b / (a + b) = R. R can't exceed
// 1 / (4 tr): there the emitter is saturated and nothing is lost.
#pragma once

#include "source_random.h"

#include <cstdint>
#include <queue>
#include <vector>

namespace Tessel::Cli {

struct CwParams
{
    bool Antibunched = false;
    double RecoveryPs = 0;               // tr; antibunched light only
    double SigmaPs = 0;                  // Gaussian jitter of a detection
    uint64_t DurationPs = 0;             // length of the recording
    std::vector<double> SignalRates;     // detected photons per second, by channel
    std::vector<double> BackgroundRates; // Poissonian counts per second, by channel
    uint64_t Seed = 0;
};

struct Arrival
{
    uint64_t TimePs;
    uint8_t Channel; // input, from 0
};

// One stream of arrivals: whole picoseconds and the rest of the next one, so that long times lose nothing.
struct CwStream
{
    double MeanPs[2] = {0, 0}; // of the exponential parts of an interval; the second may be 0
    AliasTable Channels;
    uint64_t NextPs = UINT64_MAX;
    double NextRest = 0;
    Random Generator;
};

struct LaterArrival
{
    bool operator()(const Arrival &a, const Arrival &b) const { return a.TimePs > b.TimePs; }
};

struct CwLight
{
    CwParams Params;
    CwStream Signal, Background;
    Random Jitter;
    std::priority_queue<Arrival, std::vector<Arrival>, LaterArrival> Pending; // jittered, not yet in order
};

// The largest rate at which antibunched light can be detected, per second.
double saturationRate(double recoveryPs);

// Antibunched light needs a sum of signal rates of at most saturationRate().
CwLight makeCwLight(const CwParams &params);

// Replaces `arrivals` with the next ones, at most `count`, in the order of their time; none when the
// recording is over.
void nextArrivals(CwLight &light, size_t count, std::vector<Arrival> &arrivals);

} // namespace Tessel::Cli
