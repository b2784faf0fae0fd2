// From options with units to numbers that the sources take; everything that can't be simulated is refused here.
#include "commands/simulation.h"

#include "program/exit_codes.h"
#include "program/options.h"
#include "program/units.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>

namespace Tessel::Cli {

namespace {

constexpr double highestRate = 2e9;                     // per second: what a header can hold
constexpr double longestTimePs = 3.6e15;                // 1 h
constexpr double fwhmPerSigma = 2.35482004503094938202; // sqrt(8 ln 2)

[[noreturn]] void refuse(const std::string &text)
{
    throw Failure(Exit::Usage, text);
}

// One value for all channels, or one for each.
void spread(std::vector<double> &values, size_t numChannels, const char *option)
{
    if (values.size() == 1) values.resize(numChannels, values.front());
    if (values.size() != numChannels)
        refuse(fmt::format("{} has {} values for {} channels", option, values.size(), numChannels));
}

double time(const char *option, const std::string &text, const char *unit)
{
    return optionValue(option, [&] { return parseTimePs(text, unit); });
}

double rate(const char *option, const std::string &text)
{
    return optionValue(option, [&] { return parseRateHz(text, "Hz"); });
}

void readChannels(const SimulateOptions &options, Simulation &wanted)
{
    wanted.Rates = optionValues("--rate", [&] { return parseRatesHz(options.Rates, "cps"); });
    wanted.Background = optionValues("--background", [&] { return parseRatesHz(options.Background, "cps"); });
    wanted.LifetimesPs = optionValues("--lifetime", [&] { return parseTimesPs(options.Lifetimes, "ns"); });
    const size_t listed = std::max({wanted.Rates.size(), wanted.Background.size(), wanted.LifetimesPs.size()});
    const size_t numChannels = options.Channels > 0 ? static_cast<size_t>(options.Channels)
                               : listed > 1         ? listed
                                                    : 2;
    if (numChannels > 64) refuse(fmt::format("{} channels; an instrument has at most 64", numChannels));
    spread(wanted.Rates, numChannels, "--rate");
    spread(wanted.Background, numChannels, "--background");
    spread(wanted.LifetimesPs, numChannels, "--lifetime");
    for (size_t i = 0; i < numChannels; ++i)
        if (wanted.Rates[i] + wanted.Background[i] > highestRate)
            refuse("--rate and --background: at most 2 Gcps on a channel");
}

Light lightNamed(const std::string &name)
{
    if (name == "pulsed") return Light::Pulsed;
    if (name == "antibunched") return Light::Antibunched;
    if (name == "bunched") return Light::Bunched;
    return name == "diffusing" ? Light::Diffusing : Light::Poisson;
}

void readLight(const SimulateOptions &options, Simulation &wanted)
{
    const bool isT3 = options.Mode == "t3";
    wanted.MeasMode = isT3 ? 3 : 2;
    const std::string light = !options.Light.empty() ? options.Light : isT3 ? "pulsed" : "poisson";
    wanted.Source = lightNamed(light);
    if (isT3 && wanted.Source != Light::Pulsed)
        refuse(fmt::format("--light {} is for T2; a T3 recording is of pulsed light", light));
    wanted.SyncRate = !options.SyncRate.empty()        ? rate("--sync-rate", options.SyncRate)
                      : wanted.Source == Light::Pulsed ? 40e6
                                                       : 0;
    if (wanted.Source == Light::Pulsed && !(wanted.SyncRate > 0))
        refuse("--sync-rate 0: pulsed light needs pulses");
    if (wanted.SyncRate > highestRate) refuse("--sync-rate: at most 2 GHz");
    // The rate is whole hertz in a file; the source keeps to what a replay will read.
    if (wanted.SyncRate != std::floor(wanted.SyncRate)) refuse("--sync-rate: a whole number of hertz");
}

void readTimes(const SimulateOptions &options, Simulation &wanted)
{
    wanted.DurationPs = std::floor(time("--duration", options.Duration, "s"));
    wanted.SigmaPs = time("--irf", options.Response, "ps") / fwhmPerSigma;
    wanted.DelayPs = time("--delay", options.Delay, "ps");
    wanted.RecoveryPs = time("--recovery", options.Recovery, "ns");
    const std::string resolution = !options.Resolution.empty() ? options.Resolution
                                   : wanted.MeasMode == 3      ? "25ps"
                                                               : "5ps";
    wanted.ResolutionPs = time("--resolution", resolution, "ps");
    if (wanted.ResolutionPs < 1 || wanted.ResolutionPs != std::floor(wanted.ResolutionPs) ||
        wanted.ResolutionPs > 1e9)
        refuse("--resolution: whole picoseconds, from 1ps to 1ms");
    if (wanted.DurationPs < 1 || wanted.DurationPs > 1e9 * INT32_MAX) refuse("--duration: from 1ps to 24 days");
    if (wanted.MeasMode == 3 && 1e12 / wanted.SyncRate > 32768 * wanted.ResolutionPs)
        refuse(fmt::format("a sync period of {} has more than 32768 dtimes of {}; take a coarser --resolution",
                           timeText(1e12 / wanted.SyncRate), timeText(wanted.ResolutionPs)));
    wanted.CorrelationPs = time("--correlation-time", options.CorrelationTime, "ns");
    wanted.DiffusionPs = time("--diffusion-time", options.DiffusionTime, "us");
    wanted.Molecules = options.Molecules;
    if (wanted.CorrelationPs < 1 || wanted.CorrelationPs > longestTimePs)
        refuse("--correlation-time: from 1ps to 1h");
    if (wanted.DiffusionPs < 1000 || wanted.DiffusionPs > longestTimePs)
        refuse("--diffusion-time: from 1ns to 1h");
    if (!(wanted.Molecules >= 0.01 && wanted.Molecules <= 1000)) refuse("--molecules: from 0.01 to 1000");
    const double total = std::accumulate(wanted.Rates.begin(), wanted.Rates.end(), 0.0);
    if (wanted.Source == Light::Antibunched && total > 0 &&
        (!(wanted.RecoveryPs > 0) || total > Sim::saturationRate(wanted.RecoveryPs)))
        refuse(fmt::format("--rate: one emitter with a recovery time of {} emits at most {} in all",
                           timeText(wanted.RecoveryPs), rateText(Sim::saturationRate(wanted.RecoveryPs))));
}

Sim::PulsedParams pulsedParams(const Simulation &wanted)
{
    Sim::PulsedParams params;
    params.PeriodPs = 1e12 / wanted.SyncRate;
    params.DelayPs = wanted.DelayPs;
    params.SigmaPs = wanted.SigmaPs;
    params.NumPulses = static_cast<uint64_t>(wanted.DurationPs / params.PeriodPs);
    params.Seed = wanted.Seed;
    for (size_t i = 0; i < wanted.Rates.size(); ++i)
        params.Channels.push_back({wanted.Rates[i], wanted.Background[i], wanted.LifetimesPs[i]});
    return params;
}

Sim::CwKind cwKind(Light light)
{
    switch (light) {
    case Light::Antibunched: return Sim::CwKind::Antibunched;
    case Light::Bunched: return Sim::CwKind::Bunched;
    case Light::Diffusing: return Sim::CwKind::Diffusing;
    default: return Sim::CwKind::Poissonian;
    }
}

Sim::CwParams cwParams(const Simulation &wanted)
{
    return {.Kind = cwKind(wanted.Source),
            .RecoveryPs = wanted.RecoveryPs,
            .CorrelationPs = wanted.CorrelationPs,
            .Molecules = wanted.Molecules,
            .DiffusionPs = wanted.DiffusionPs,
            .SigmaPs = wanted.SigmaPs,
            .DurationPs = static_cast<uint64_t>(wanted.DurationPs),
            .SignalRates = wanted.Rates,
            .BackgroundRates = wanted.Background,
            .Seed = wanted.Seed};
}

} // namespace

Simulation understood(const SimulateOptions &options)
{
    static constexpr const char *families[] = {"ZP", "CD", "SV40", "LM70", "CD90"};
    Simulation wanted;
    wanted.Seed = options.Seed;
    wanted.Family =
        static_cast<int>(std::find(std::begin(families), std::end(families), options.Family) - families);
    readLight(options, wanted);
    readChannels(options, wanted);
    readTimes(options, wanted);
    return wanted;
}

Sim::StreamParams streamParams(const Simulation &wanted)
{
    Sim::StreamParams params;
    params.MeasMode = wanted.MeasMode;
    if (wanted.Source == Light::Pulsed)
        params.Light = pulsedParams(wanted);
    else
        params.Light = cwParams(wanted);
    if (wanted.SyncRate > 0) params.SyncPeriodPs = 1e12 / wanted.SyncRate;
    params.ResolutionPs = wanted.ResolutionPs;
    params.DurationPs = static_cast<uint64_t>(wanted.DurationPs);
    return params;
}

} // namespace Tessel::Cli
