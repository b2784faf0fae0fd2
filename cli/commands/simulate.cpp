// `tessel simulate`: a recording of a simulated light source. What the options mean is in simulation.h; the
// light and its record words come from sim/.
#include "commands/commands.h"
#include "commands/simulation.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/files.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/output_file.h"
#include "program/progress.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>

namespace Tessel::Cli {

namespace {

constexpr double psPerMs = 1e9;

// Where the recording goes, through links. Another's file is replaced only if that is wished.
struct Place
{
    std::string Path;
    bool IsNew = false;
};

Place claimedPlace(const SimulateOptions &options)
{
    const auto fail = [&](Exit code, std::string_view why) {
        throw Failure(code, fmt::format("{}: {}", visibleText(options.Path), why));
    };
    Place place{behindLinks(options.Path)};
    const Descriptor made(open(place.Path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    place.IsNew = made.Number >= 0;
    if (!place.IsNew && errno != EEXIST)
        fail(Exit::Failed, fmt::format("can't be created: {}", std::strerror(errno)));
    if (!place.IsNew && !options.Force && std::filesystem::is_regular_file(place.Path))
        fail(Exit::Usage, "is there already; --force replaces it");
    return place;
}

tessel_recording *create(const SimulateOptions &options, const Simulation &wanted, const Place &place,
                         const LibraryPath &known)
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
    params.acqTime = static_cast<int32_t>(wanted.DurationPs / psPerMs);
    params.inputRates = rates.data();
    params.serial = "simulated";
    params.comment = options.Comment.c_str();
    tessel_recording *file = tessel_recordingCreate(known.Text.c_str(), &params);
    if (file) return file;
    const std::string why = libraryError();
    if (place.IsNew) std::remove(place.Path.c_str());
    throw Failure(Exit::Failed,
                  fmt::format("{}: can't be created: {}", visibleText(options.Path), visibleText(why)));
}

struct Written
{
    uint64_t NumRecords = 0, NumOverflows = 0;
    double Seconds = 0;
    int32_t DurationMs = 0; // of the light
};

// Ends early on Ctrl-C. Throws Failure if the file takes no more.
Written writeRecords(const std::string &path, tessel_recording *file, const Simulation &wanted)
{
    Sim::WordStream stream = Sim::makeWordStream(streamParams(wanted));
    const std::vector<uint32_t> &words = stream.Writer.Words;
    Progress progress("simulate");
    Written written;
    while (interruptSignal() == 0 && Sim::nextWords(stream)) {
        if (!tessel_recordingWrite(file, words.data(), words.size()))
            throw Failure(Exit::Failed, fmt::format("{}: the recording can't be written", visibleText(path)));
        written.NumRecords += words.size();
        showProgress(progress, stream.Fraction, written.NumRecords);
    }
    written.NumOverflows = stream.Writer.NumOverflows;
    written.DurationMs = static_cast<int32_t>(stream.Fraction * wanted.DurationPs / psPerMs);
    if (!stream.IsOver) tessel_recordingSetDuration(file, written.DurationMs);
    written.Seconds = secondsSince(progress.Start);
    return written;
}

void noteResult(const std::string &path, const Written &written)
{
    note(fmt::format("{}: {} ({} of them overflows) in {:.2f} s, {} records/s", visibleText(path),
                     counted(written.NumRecords, "record"), written.NumOverflows, written.Seconds,
                     countText(static_cast<double>(written.NumRecords) / std::max(written.Seconds, 1e-9))));
}

// Options that another kind of light takes.
void warnOfIdleOptions(const CLI::App &command, Light light)
{
    static constexpr struct
    {
        const char *Name;
        Light Takes;
    } options[] = {{"--lifetime", Light::Pulsed},      {"--delay", Light::Pulsed},
                   {"--recovery", Light::Antibunched}, {"--correlation-time", Light::Bunched},
                   {"--molecules", Light::Diffusing},  {"--diffusion-time", Light::Diffusing}};
    for (const auto &option : options)
        if (option.Takes != light && command.count(option.Name) > 0)
            warn(fmt::format("{} has no effect on this kind of light", option.Name));
}

// A file that couldn't be written to its end is removed; one that Ctrl-C ended early is sealed and kept.
int runSimulate(const SimulateOptions &options, const HostOptions &host, const CLI::App &command)
{
    const Simulation wanted = understood(options);
    warnOfIdleOptions(command, wanted.Source);
    const Session session(host);
    checkOutputs({host.IniPath}, {{"OUT", options.Path}}, true);
    const InterruptWatch watch;
    const Place place = claimedPlace(options);
    const LibraryPath known(place.Path); // which the library also needs to seal the file
    tessel_recording *file = create(options, wanted, place, known);
    Written written;
    try {
        written = writeRecords(options.Path, file, wanted);
    } catch (...) {
        tessel_recordingClose(file);
        std::remove(place.Path.c_str());
        throw;
    }
    if (!tessel_recordingClose(file))
        throw Failure(Exit::Failed,
                      fmt::format("{}: the recording can't be completed", visibleText(options.Path)));
    noteResult(options.Path, written);
    if (interruptSignal() == 0) return 0;
    note(fmt::format("stopped early: the recording is {} ms long, not {}", written.DurationMs,
                     timeText(wanted.DurationPs)));
    return exitCodeOfSignal(interruptSignal());
}

constexpr const char *simulateFooter =
    R"(--rate, --background and --lifetime take one value for all channels, or one for each with commas:
200kcps,50kcps. A number without a unit is in the unit in brackets.

Kinds of light (T3 takes pulsed light only):
  pulsed       many emitters, weakly excited by each pulse. A photon is detected after the delay,
               a Gaussian response and an exponential decay; what outlasts the sync period is
               detected in a later one.
  poisson      constant light, independent on every channel
  antibunched  one two-level emitter under constant excitation, split onto the channels:
               g2(t) = 1 - exp(-|t| / recovery)
  bunched      light that switches at random between bright and dark, with the g2 of one mode of
               thermal light, split onto the channels: g2(t) = 1 + exp(-|t| / correlation time)
  diffusing    molecules that diffuse in a plane through a Gaussian focus, split onto the
               channels: G(t) = 1 / molecules / (1 + t / diffusion time)

Background is Poissonian; with it g2 - 1 and G shrink by (signal / (signal + background))^2. There
is no dead time. A T2 recording has sync events if --sync-rate is given or the light is pulsed. A
seed makes the same records on every machine.

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
    text("OUT", options->Path, "The recording to write (.tgx)", "")->required();
    command->add_flag("--force", options->Force, "Replace a file that is there already");
    const auto name = [&](const char *option, std::string &value, const char *help,
                          const std::vector<std::string> &names) {
        asOneOf(command->add_option(option, value, help), names)->capture_default_str();
    };
    name("--mode", options->Mode, "T2: absolute times; T3: times since the sync", {"t2", "t3"});
    name("--light", options->Light, "Kind of light; by default pulsed in T3, poisson in T2",
         {"pulsed", "poisson", "antibunched", "bunched", "diffusing"});
    asNumber(command->add_option("--channels", options->Channels,
                                 "Input channels; by default 2, or as many as the longest list has"),
             1, 64);
    text("--rate", options->Rates, "Signal of each channel [cps]", "RATES");
    text("--background", options->Background, "Background of each channel [cps]", "RATES");
    text("--sync-rate", options->SyncRate,
         "Rate of the sync [Hz]; by default 40MHz for pulsed light, else no sync", "RATE");
    text("--duration", options->Duration, "Length of the recording [s]", "TIME");
    text("--lifetime", options->Lifetimes, "Lifetime of each channel [ns]; 0: prompt", "TIMES");
    text("--irf", options->Response,
         "Full width at half maximum of the response to a pulse, else of the jitter [ps]", "TIME");
    text("--delay", options->Delay, "Pulsed: time from the sync to the centre of the response [ps]", "TIME");
    text("--recovery", options->Recovery, "Antibunched: recovery time of the emitter [ns]", "TIME");
    text("--correlation-time", options->CorrelationTime, "Bunched: correlation time [ns]", "TIME");
    command
        ->add_option("--molecules", options->Molecules,
                     "Diffusing: mean number in the focus, from 0.01 to 1000")
        ->capture_default_str();
    text("--diffusion-time", options->DiffusionTime, "Diffusing: time of diffusion through the focus [us]",
         "TIME");
    text("--resolution", options->Resolution,
         "Width of a dtime (by default 25ps), in T2 of a time tag (5ps) [ps]", "TIME");
    name("--family", options->Family, "Instrument family", {"ZP", "CD", "SV40", "LM70", "CD90"});
    command->add_option("--seed", options->Seed, "Seed of the random numbers")->capture_default_str();
    text("--comment", options->Comment, "Comment in the header of the file", "TEXT");
    command->footer(simulateFooter);
    return {command,
            [options, command](const HostOptions &host) { return runSimulate(*options, host, *command); }};
}

} // namespace Tessel::Cli
