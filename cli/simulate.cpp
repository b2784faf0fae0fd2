// `tessel simulate`: from light to words to a file. The physics is in source_*, the options in simulation.
#include "commands.h"
#include "console.h"
#include "exit_codes.h"
#include "interrupt.h"
#include "progress.h"
#include "simulation.h"
#include "source_cw.h"
#include "source_pulsed.h"
#include "source_words.h"
#include "tessel.h"
#include "units.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numeric>

namespace Tessel::Cli {

namespace {

constexpr size_t photonsPerBatch = 1 << 16;

// The file in work. Words are handed over in large pieces.
struct Sink
{
    std::string Path;
    tessel_recording *File = nullptr;
    WordWriter Words;
    Progress Shown{"simulate"};
    uint64_t NumWords = 0;
};

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

tessel_recording *create(const SimulateOptions &options, const Simulation &wanted)
{
    std::vector<double> rates = wanted.Rates;
    for (size_t i = 0; i < rates.size(); ++i) rates[i] += wanted.Background[i];
    const bool isT3 = wanted.MeasMode == 3;
    tessel_recording_params params = {};
    params.size = sizeof params;
    params.measMode = wanted.MeasMode;
    params.family = wanted.Family;
    params.numChannels = static_cast<int32_t>(rates.size());
    params.baseResolution = isT3 ? 1 : wanted.ResolutionPs;
    params.resolution = wanted.ResolutionPs;
    params.syncRate = wanted.SyncRate;
    params.acqTime = static_cast<int32_t>(wanted.DurationPs / 1e9);
    params.inputRates = rates.data();
    params.serial = "simulated";
    params.comment = options.Comment.c_str();
    tessel_recording *file = tessel_recordingCreate(options.Path.c_str(), &params);
    if (!file)
        throw Failure(Exit::Failed,
                      fmt::format("{}: can't be created (--verbose shows why)", visibleText(options.Path)));
    return file;
}

void tellResult(const Sink &sink)
{
    const double seconds = secondsSince(sink.Shown.Start);
    note(fmt::format("{}: {} records ({} of them overflows) in {:.2f} s, {} records/s", visibleText(sink.Path),
                     sink.NumWords, sink.Words.NumOverflows, seconds,
                     countText(static_cast<double>(sink.NumWords) / std::max(seconds, 1e-9))));
}

// A file that couldn't be written to its end is removed; one that Ctrl-C ended early is sealed and kept.
int runSimulate(const SimulateOptions &options, const HostOptions &host)
{
    const Simulation wanted = understood(options);
    const Session session(host);
    const InterruptWatch watch;
    Sink sink;
    sink.Path = options.Path;
    sink.File = create(options, wanted);
    try {
        wanted.MeasMode == 3 ? simulateT3(wanted, sink) : simulateT2(wanted, sink);
    } catch (...) {
        tessel_recordingClose(sink.File);
        std::remove(options.Path.c_str());
        throw;
    }
    if (!tessel_recordingClose(sink.File))
        throw Failure(Exit::Failed,
                      fmt::format("{}: the recording can't be completed", visibleText(sink.Path)));
    hideProgress(sink.Shown);
    tellResult(sink);
    if (interruptSignal() == 0) return 0;
    note("stopped early; the recording is shorter than asked for");
    return exitCodeOfSignal(interruptSignal());
}

constexpr const char *simulateFooter =
    R"(Lists (--rate, --background, --lifetime) take one value for all channels or one for each,
with commas: 200kcps,50kcps.

T3, and T2 with --light pulsed: many emitters, weakly excited by each pulse. A photon is
seen after the delay, a Gaussian response and an exponential decay; what outlasts the sync
period is seen in a later one. T2 with --light poisson: constant light, independent on every
channel. T2 with --light antibunched: one two-level emitter under constant excitation, split
onto the channels, g2(t) = 1 - exp(-|t| / recovery). T2 with --light bunched: light that
switches at random between bright and dark, split onto the channels, g2(t) = 1 + exp(-|t| /
correlation time), as one mode of thermal light. T2 with --light diffusing: --molecules of them
in a Gaussian focus, diffusing in a plane, split onto the channels, G(t) = 1 / molecules /
(1 + t / diffusion time). Background is Poissonian and takes (signal / (signal + background))^2
of what g2 - 1 and G are. There is no dead time. The same seed gives the same records on every
machine.

A T2 recording has sync events if --sync-rate is given or the light is pulsed.

Examples:
  tessel simulate decay.tgx --rate 500kcps --lifetime 0.8ns,1.6ns,2.9ns,4.1ns --duration 30s
  tessel simulate emitter.tgx --mode t2 --light antibunched --rate 200kcps --recovery 8ns
  tessel simulate cells.tgx --mode t2 --light diffusing --molecules 3 --diffusion-time 200us
  tessel simulate lamp.tgx --mode t2 --channels 4 --rate 1Mcps --sync-rate 100kHz)";

} // namespace

Command addSimulate(CLI::App &program)
{
    const auto options = std::make_shared<SimulateOptions>();
    CLI::App *command = program.add_subcommand("simulate", "Write a recording of a simulated light source");
    const auto text = [&](const char *name, std::string &value, const char *help, const char *type) {
        return command->add_option(name, value, help)->type_name(type)->capture_default_str();
    };
    text("OUT", options->Path, "The recording to write (.tgx); an existing file is replaced", "")->required();
    const auto name = [&](const char *option, std::string &value, const char *help,
                          const std::vector<std::string> &names) {
        asOneOf(command->add_option(option, value, help), names)->capture_default_str();
    };
    name("--mode", options->Mode, "Record form", {"t2", "t3"});
    name("--light", options->Light, "Kind of light (T3: pulsed; T2: poisson unless told)",
         {"pulsed", "poisson", "antibunched", "bunched", "diffusing"});
    asNumber(command->add_option("--channels", options->Channels,
                                 "Input channels (2, or as many as the longest list has)"),
             1, 64);
    text("--rate", options->Rates, "Signal of each channel, bare in cps", "RATES");
    text("--background", options->Background, "Background of each channel, bare in cps", "RATES");
    text("--sync-rate", options->SyncRate, "Pulses, bare in Hz (pulsed light: 40MHz unless told)", "RATE");
    text("--duration", options->Duration, "Length of the recording, bare in s", "TIME");
    text("--lifetime", options->Lifetimes, "Decay of each channel, bare in ns; 0 is prompt", "TIMES");
    text("--irf", options->Response,
         "Full width at half maximum of the response, or of the jitter in T2, bare in ps", "TIME");
    text("--delay", options->Delay, "Centre of the response behind the sync, bare in ps", "TIME");
    text("--recovery", options->Recovery, "Recovery time of the antibunched emitter, bare in ns", "TIME");
    text("--correlation-time", options->CorrelationTime, "Correlation time of bunched light, bare in ns",
         "TIME");
    command
        ->add_option("--molecules", options->Molecules,
                     "Diffusing: mean number in the focus, from 0.01 to 1000")
        ->capture_default_str();
    text("--diffusion-time", options->DiffusionTime, "Time of diffusion through the focus, bare in us", "TIME");
    text("--resolution", options->Resolution, "Unit of a dtime (T3: 25ps) or a time tag (T2: 5ps), bare in ps",
         "TIME");
    name("--family", options->Family, "Instrument family", {"ZP", "CD", "SV40", "LM70", "CD90"});
    command->add_option("--seed", options->Seed, "Seed of the random numbers")->capture_default_str();
    text("--comment", options->Comment, "Comment for the file's header", "TEXT");
    command->footer(simulateFooter);
    return {command, [options](const HostOptions &host) { return runSimulate(*options, host); }};
}

} // namespace Tessel::Cli
