// The sources of events. One thread.
#include "sim/instruments/sources.h"

#include <algorithm>

namespace Tessel::Sim {

namespace {

constexpr uint64_t forEver = uint64_t(1) << 62; // ps; far more than a measurement lasts
constexpr double mostAtOnce = 4096;             // events that one refill draws

PulsedParams pulsedParams(const InstrumentDescription &instrument, uint64_t seed)
{
    const LightDescription &light = instrument.Light;
    PulsedParams params{.PeriodPs = instrument.Sync.PeriodPs,
                        .DelayPs = light.DelayPs,
                        .SigmaPs = light.ResponsePs,
                        .NumPulses =
                            static_cast<uint64_t>(static_cast<double>(forEver) / instrument.Sync.PeriodPs),
                        .Channels = {},
                        .Seed = seed};
    for (const InputDescription &input : instrument.Inputs)
        params.Channels.push_back({.SignalRate = input.RateCps, .LifetimePs = input.LifetimePs});
    return params;
}

CwParams cwParams(const InstrumentDescription &instrument, uint64_t seed)
{
    const LightDescription &light = instrument.Light;
    CwParams params;
    switch (light.Kind) {
    case LightKind::Pulsed:
    case LightKind::Poissonian: params.Kind = CwKind::Poissonian; break;
    case LightKind::Antibunched: params.Kind = CwKind::Antibunched; break;
    case LightKind::Bunched: params.Kind = CwKind::Bunched; break;
    case LightKind::Diffusing: params.Kind = CwKind::Diffusing; break;
    }
    params.RecoveryPs = light.RecoveryPs;
    params.CorrelationPs = light.CorrelationPs;
    params.Molecules = light.Molecules;
    params.DiffusionPs = light.DiffusionPs;
    params.DurationPs = forEver;
    params.Seed = seed;
    params.BackgroundRates.assign(instrument.Inputs.size(), 0);
    return params;
}

Source cwSource(const CwParams &params, double rate, Cause cause)
{
    Source source;
    source.Of = makeCwLight(params);
    source.RatePerPs = rate * 1e-12;
    source.Cause = cause;
    return source;
}

void refillPulsed(Source &source, PulsedLight &light, size_t count)
{
    nextPhotons(light, count, source.Photons);
    source.Ready.resize(source.Photons.size());
    for (size_t i = 0; i < source.Ready.size(); ++i) {
        const PulsedPhoton &photon = source.Photons[i];
        const uint64_t timePs = timeOf(source.Pulses, photon.Pulse, photon.DelayPs);
        source.Ready[i] = {timePs, photon.Channel, source.Cause};
    }
}

void refillCw(Source &source, CwLight &light, size_t count)
{
    nextArrivals(light, count, source.Arrivals);
    source.Ready.resize(source.Arrivals.size());
    for (size_t i = 0; i < source.Ready.size(); ++i) {
        const uint8_t channel = source.Channel > 0 ? source.Channel : source.Arrivals[i].Channel;
        source.Ready[i] = {source.Arrivals[i].TimePs, channel, source.Cause};
    }
}

void refillPeriodic(Source &source, PeriodicSource &signal, size_t count)
{
    for (size_t i = 0; i < count; ++i, ++signal.Next)
        source.Ready.push_back(
            {timeOf(signal.Pulses, signal.Next, 0) + signal.PhasePs, source.Channel, source.Cause});
}

// About as many as come until `endPs`, as drawing ahead of time costs time too.
void refill(Source &source, uint64_t endPs)
{
    const uint64_t sincePs = source.Ready.empty() ? 0 : source.Ready.back().TimePs;
    const double expected = source.RatePerPs * static_cast<double>(endPs - std::min(endPs, sincePs));
    const auto count = static_cast<size_t>(std::clamp(expected * 1.05, 4.0, mostAtOnce));
    source.Ready.clear();
    source.Next = 0;
    if (PulsedLight *pulsed = std::get_if<PulsedLight>(&source.Of))
        refillPulsed(source, *pulsed, count);
    else if (CwLight *cw = std::get_if<CwLight>(&source.Of))
        refillCw(source, *cw, count);
    else
        refillPeriodic(source, std::get<PeriodicSource>(source.Of), count);
}

Source periodicSource(double periodPs, double phasePs, uint8_t channel, Cause cause)
{
    Source source;
    source.Of = PeriodicSource{.Pulses = pulseTimes(periodPs), .PhasePs = static_cast<uint64_t>(phasePs)};
    source.RatePerPs = 1 / periodPs;
    source.Channel = channel;
    source.Cause = cause;
    return source;
}

void addLight(const InstrumentDescription &instrument, uint64_t seed, std::vector<Source> &sources)
{
    double rate = 0;
    for (const InputDescription &input : instrument.Inputs) rate += input.RateCps;
    if (!(rate > 0)) return;
    if (instrument.Light.Kind == LightKind::Pulsed) {
        Source source;
        source.Of = makePulsedLight(pulsedParams(instrument, seed));
        source.RatePerPs = rate * 1e-12;
        source.Pulses = pulseTimes(instrument.Sync.PeriodPs);
        sources.push_back(std::move(source));
        return;
    }
    CwParams params = cwParams(instrument, seed);
    for (const InputDescription &input : instrument.Inputs) params.SignalRates.push_back(input.RateCps);
    sources.push_back(cwSource(params, rate, Cause::Signal));
}

void addDarkCounts(const InstrumentDescription &instrument, uint64_t seed, std::vector<Source> &sources)
{
    CwParams params = cwParams(instrument, seed);
    params.Kind = CwKind::Poissonian;
    double rate = 0;
    for (const InputDescription &input : instrument.Inputs) {
        params.SignalRates.push_back(input.DarkCps);
        rate += input.DarkCps;
    }
    if (rate > 0) sources.push_back(cwSource(params, rate, Cause::Dark));
}

} // namespace

std::vector<Source> inputSources(const InstrumentDescription &instrument, uint64_t run)
{
    const uint64_t seed = instrument.Seed + run * 0x9e3779b97f4a7c15u;
    std::vector<Source> sources;
    addLight(instrument, seed, sources);
    addDarkCounts(instrument, seed ^ 0x6461726bu, sources);
    for (size_t i = 0; i < instrument.Inputs.size(); ++i) {
        const InputDescription &input = instrument.Inputs[i];
        if (input.SignalPeriodPs > 0)
            sources.push_back(periodicSource(input.SignalPeriodPs, input.SignalPhasePs, static_cast<uint8_t>(i),
                                             Cause::Periodic));
    }
    return sources;
}

Source markerSource(const MarkerDescription &marker, int number, bool isRising, uint64_t seed)
{
    const auto channel = static_cast<uint8_t>(firstMarkerChannel + number);
    if (marker.PeriodPs > 0) {
        const double phase = marker.PhasePs + (isRising ? 0 : std::fmod(marker.WidthPs, marker.PeriodPs));
        return periodicSource(marker.PeriodPs, phase, channel, Cause::Periodic);
    }
    CwParams params;
    params.SignalRates = {marker.RateCps};
    params.BackgroundRates = {0};
    params.DurationPs = forEver;
    params.Seed = seed + static_cast<uint64_t>(channel);
    Source source = cwSource(params, marker.RateCps, Cause::Signal);
    source.Channel = channel;
    return source;
}

void takeBefore(Source &source, uint64_t endPs, std::vector<Event> &events)
{
    for (;;) {
        const auto first = source.Ready.begin() + static_cast<std::ptrdiff_t>(source.Next);
        const auto last =
            std::partition_point(first, source.Ready.end(), [&](const Event &e) { return e.TimePs < endPs; });
        events.insert(events.end(), first, last);
        source.Next += static_cast<size_t>(last - first);
        if (source.Next < source.Ready.size()) return;
        refill(source, endPs);
        if (source.Ready.empty()) return;
    }
}

} // namespace Tessel::Sim
