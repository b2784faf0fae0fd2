// Light under continuous excitation, as arrival times on detector channels: pure physics, no interface, no
// words.
//
// Poissonian: laser or lamp light, independent on every channel. Antibunched: one two-level emitter whose
// photons a beam splitter sends to the channels. Each photon needs an excitation (rate W) and a decay (rate
// G), so the emitted photons have g2(t) = 1 - exp(-(W + G) |t|), which losses don't change. With a detected
// rate R and the recovery time tr = 1 / (W + G), the interval from one detected photon to the next is the sum
// of two exponential ones with rates a and b, where a + b = 1 / tr and a b / (a + b) = R. R can't exceed
// 1 / (4 tr): there the emitter is saturated and nothing is lost.
//
// Bunched: light that switches at random between dark and bright, both equally long, g2(t) = 1 + exp(-|t| /
// tc), as that of one mode of thermal light. The switching rate either way is 1 / (2 tc), and bright light is
// twice the mean. The interval from one photon to the next is then one of two exponential ones: a Poisson
// process that is interrupted so has their rates as the roots of x^2 - (2 R + 1 / tc) x + R / tc.
//
// Diffusing: molecules that pass a focus, see source_diffusing.h.
#pragma once

#include "sim/diffusing.h"
#include "sim/random.h"

#include <cstdint>
#include <optional>
#include <queue>
#include <vector>

namespace Tessel::Sim {

enum class CwKind { Poissonian, Antibunched, Bunched, Diffusing };

struct CwParams
{
    CwKind Kind = CwKind::Poissonian;
    double RecoveryPs = 0;               // tr; antibunched light only
    double CorrelationPs = 0;            // tc; bunched light only
    double Molecules = 0;                // in the focus, on average; diffusing light only
    double DiffusionPs = 0;              // time of diffusion; diffusing light only
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

// How an interval is drawn: one exponential part, the sum of two, or one of two.
enum class Interval { One, Sum, Either };

// One stream of arrivals: whole picoseconds and the rest of the next one, so that long times lose nothing.
struct CwStream
{
    Interval Form = Interval::One;
    double MeanPs[2] = {0, 0};       // of the exponential parts
    double FirstShare = 1;           // Either: probability of the first part
    std::optional<Molecules> Source; // instead of intervals
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

} // namespace Tessel::Sim
