// A batch of photons at a time, with the syncs of T2 between them. The physics is in source_*.
#include "sim/simulated_records.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/interrupt.h"
#include "sim/source_cw.h"
#include "sim/source_pulsed.h"

#include <fmt/format.h>

#include <cmath>

namespace Tessel::Cli {

namespace {

constexpr size_t photonsPerBatch = 1 << 16;

// False once the simulation is to stop. `fraction`: of the recorded time.
bool handOver(Sink &sink, double fraction)
{
    if (!tessel_recordingWrite(sink.File, sink.Words.Words.data(), sink.Words.Words.size()))
        throw Failure(Exit::Failed, fmt::format("{}: the recording can't be written", visibleText(sink.Path)));
    sink.NumWords += sink.Words.Words.size();
    sink.Words.Words.clear();
    showProgress(sink.Shown, fraction, sink.NumWords);
    return interruptSignal() == 0;
}

PulsedParams pulsedParams(const Simulation &wanted)
{
    PulsedParams params;
    params.PeriodPs = 1e12 / wanted.SyncRate;
    params.DelayPs = wanted.DelayPs;
    params.SigmaPs = wanted.SigmaPs;
    params.NumPulses = static_cast<uint64_t>(wanted.DurationPs / params.PeriodPs);
    params.Seed = wanted.Seed;
    for (size_t i = 0; i < wanted.Rates.size(); ++i)
        params.Channels.push_back({wanted.Rates[i], wanted.Background[i], wanted.LifetimesPs[i]});
    return params;
}

void simulateT3(const Simulation &wanted, Sink &sink)
{
    PulsedLight light = makePulsedLight(pulsedParams(wanted));
    std::vector<PulsedPhoton> photons;
    sink.Words = makeT3Words();
    const auto numPulses = static_cast<double>(light.Params.NumPulses);
    for (;;) {
        nextPhotons(light, photonsPerBatch, photons);
        if (photons.empty()) break;
        for (const PulsedPhoton &photon : photons)
            addT3Photon(sink.Words, photon.Channel, photon.Pulse,
                        static_cast<uint32_t>(photon.DelayPs / wanted.ResolutionPs));
        if (!handOver(sink, static_cast<double>(photons.back().Pulse) / numPulses)) return;
    }
    tellOverflows(sink.Words, light.Params.NumPulses); // time passes up to the end
    handOver(sink, 1);
}

// Pulse n is n periods after the start. The whole picoseconds of the period are multiplied as integers, so
// that a long recording keeps its precision.
struct PulseTimes
{
    uint64_t WholePs;
    double RestPs;
};

PulseTimes pulseTimes(double syncRate)
{
    const double period = 1e12 / syncRate;
    return {static_cast<uint64_t>(period), period - std::floor(period)};
}

uint64_t timeOf(const PulseTimes &pulses, uint64_t pulse, double delayPs)
{
    return pulse * pulses.WholePs + static_cast<uint64_t>(static_cast<double>(pulse) * pulses.RestPs + delayPs);
}

// The sync events of a T2 recording, up to `timePs`.
struct SyncEvents
{
    bool On = false;
    PulseTimes Pulses{};
    uint64_t Next = 0; // pulse
};

void addSyncs(SyncEvents &syncs, WordWriter &words, uint64_t timePs, uint64_t resolutionPs)
{
    if (!syncs.On) return;
    for (uint64_t at; (at = timeOf(syncs.Pulses, syncs.Next, 0)) <= timePs; ++syncs.Next)
        addT2Sync(words, at / resolutionPs);
}

// Arrivals of either kind of light, a batch at a time; empty at the end.
struct ArrivalSource
{
    CwLight Cw;
    PulsedLight Pulsed;
    PulseTimes Pulses{};
    std::vector<PulsedPhoton> Photons;
    bool IsPulsed = false;
};

ArrivalSource arrivalSource(const Simulation &wanted)
{
    ArrivalSource source;
    source.IsPulsed = wanted.Source == Light::Pulsed;
    if (source.IsPulsed) {
        source.Pulsed = makePulsedLight(pulsedParams(wanted));
        source.Pulses = pulseTimes(wanted.SyncRate);
        return source;
    }
    CwParams params;
    params.Kind = wanted.Source == Light::Antibunched ? CwKind::Antibunched
                  : wanted.Source == Light::Bunched   ? CwKind::Bunched
                  : wanted.Source == Light::Diffusing ? CwKind::Diffusing
                                                      : CwKind::Poissonian;
    params.RecoveryPs = wanted.RecoveryPs;
    params.CorrelationPs = wanted.CorrelationPs;
    params.DiffusionPs = wanted.DiffusionPs;
    params.Molecules = wanted.Molecules;
    params.SigmaPs = wanted.SigmaPs;
    params.DurationPs = static_cast<uint64_t>(wanted.DurationPs);
    params.SignalRates = wanted.Rates;
    params.BackgroundRates = wanted.Background;
    params.Seed = wanted.Seed;
    source.Cw = makeCwLight(params);
    return source;
}

void nextBatch(ArrivalSource &source, std::vector<Arrival> &arrivals)
{
    if (!source.IsPulsed) return nextArrivals(source.Cw, photonsPerBatch, arrivals);
    nextPhotons(source.Pulsed, photonsPerBatch, source.Photons);
    arrivals.clear();
    for (const PulsedPhoton &photon : source.Photons)
        arrivals.push_back({timeOf(source.Pulses, photon.Pulse, photon.DelayPs), photon.Channel});
}

void simulateT2(const Simulation &wanted, Sink &sink)
{
    ArrivalSource source = arrivalSource(wanted);
    const auto resolution = static_cast<uint64_t>(wanted.ResolutionPs),
               end = static_cast<uint64_t>(wanted.DurationPs);
    SyncEvents syncs{.On = wanted.SyncRate > 0};
    if (syncs.On) syncs.Pulses = pulseTimes(wanted.SyncRate);
    std::vector<Arrival> arrivals;
    sink.Words = makeT2Words();
    for (;;) {
        nextBatch(source, arrivals);
        if (arrivals.empty()) break;
        for (const Arrival &arrival : arrivals) {
            addSyncs(syncs, sink.Words, arrival.TimePs, resolution);
            addT2Photon(sink.Words, arrival.Channel, arrival.TimePs / resolution);
        }
        if (!handOver(sink, static_cast<double>(arrivals.back().TimePs) / wanted.DurationPs)) return;
    }
    addSyncs(syncs, sink.Words, end - 1, resolution);
    tellOverflows(sink.Words, end / resolution);
    handOver(sink, 1);
}

} // namespace

void writeRecords(const Simulation &wanted, Sink &sink)
{
    wanted.MeasMode == 3 ? simulateT3(wanted, sink) : simulateT2(wanted, sink);
}

} // namespace Tessel::Cli
