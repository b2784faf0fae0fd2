// What a measuring command works on: its options for that, and the recording or instrument that they name.
#include "commands/doubts.h"
#include "commands/measure.h"
#include "jobs/job_options.h"
#include "program/exit_codes.h"
#include "program/instrument.h"
#include "program/output_file.h"
#include "program/settings.h"
#include "program/units.h"
#include "program/visible_text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <cmath>

namespace Tessel::Cli {

void addInstrumentOptions(CLI::App &command, MeasureOptions &options, const std::string &runsFor)
{
    command.add_option("--for", options.For, "How long an instrument runs (default " + runsFor + ") [ps]")
        ->type_name("TIME");
    asOneOf(command.add_option("--mode", options.Mode, "Mode of an instrument (default t3)"), {"t2", "t3"});
    addSettingOption(command, options.Assignments);
}

void addResultOptions(CLI::App &command, MeasureOptions &options)
{
    command.add_option("--record", options.RecordFile, "Also record what an instrument sends (.tgx)")
        ->type_name("FILE");
    addOutputOptions(command, options.Result, "CSV");
    addPlotOption(command, options.Result);
}

void addMeasureOptions(CLI::App &command, MeasureOptions &options)
{
    addInstrumentOptions(command, options, "1s, with --live until Ctrl-C");
    addChainOption(command, options.Chain);
    addResultOptions(command, options);
}

void addMeasurementOptions(CLI::App &command, MeasureOptions &options)
{
    options.Command = &command;
    command.add_option("FILE", options.Files, "The recordings (.tgx); the counts of several are added up")
        ->type_name("");
    addMeasureOptions(command, options);
}

void checkFiles(const MeasureOptions &options, const HostOptions &host, const std::string &beside)
{
    std::vector<std::string> inputs = chainFiles(options.Chain);
    inputs.insert(inputs.end(), options.Files.begin(), options.Files.end());
    inputs.insert(inputs.end(), {options.File, host.IniPath, host.SimulationPath});
    std::vector<Output> outputs = outputsOf(options.Result);
    for (const Output &output : outputs) checkPlace(output.Path);
    if (!beside.empty()) outputs.push_back({"-o", beside});
    if (!options.RecordFile.empty()) outputs.push_back({options.RecordOption, options.RecordFile});
    checkOutputs(inputs, outputs, options.Result.Force);
}

namespace {

// Whole ms, as the library takes it.
int32_t acqTimeMs(const MeasureOptions &options, const HostOptions &host)
{
    if (options.For.empty() && (options.RunsOn || drawsLive(options.Updates, host))) return longestRunMs;
    return acquisitionMs(options.For.empty() ? "1s" : options.For);
}

Recording openLive(const MeasureOptions &options, const HostOptions &host)
{
    const int32_t runForMs = acqTimeMs(options, host);
    const std::string id = openInstrument(host);
    initInstrument(id, modeNumber(options.Mode), 0);
    applySettings(options.Assignments);
    return liveRecording(runForMs);
}

Recording openSource(const MeasureOptions &options, const HostOptions &host)
{
    if (host.namesInstrument()) return openLive(options, host);
    if (!options.For.empty() || !options.Mode.empty() || !options.Assignments.empty())
        throw Failure(Exit::Usage, "--for, --mode and --set are for instruments");
    if (!options.RecordFile.empty()) throw Failure(Exit::Usage, "--record is for instruments");
    return openRecording(options.File);
}

} // namespace

Measured openForMeasuring(const MeasureOptions &options, const HostOptions &host)
{
    const std::vector<ChainStage> stages = readChain(options.Chain);
    Measured measured;
    if (options.Command) {
        const std::vector<ChainStage> own(stages.begin() + ptrdiff_t(numInputStages(options.Chain)),
                                          stages.end());
        measured.Job = jobAsked(*options.Command, own, host);
    }
    if (!options.RecordFile.empty() && host.namesInstrument())
        measured.Into = newRecording(options.RecordFile, options.Result.Force);
    measured.From = openSource(options, host);
    Recording &recording = measured.From;
    const bool isHistogram = options.Mode == histogramMode; // the instrument's own
    if (recording.MeasMode != 2 && recording.MeasMode != 3 && !isHistogram)
        throw Failure(Exit::Failed, fmt::format("{}: a recording of mode {} has no events to count",
                                                visibleText(recording.Path), recording.MeasMode));
    doubtPeriod(measured.Notes, recording);
    doubtDeadTimes(measured.Notes, recording);
    measured.Chain = placeChain(recording, stages);
    if (recording.MeasMode != 3 || !options.CountsDtimes || !measured.Chain.empty())
        doubtResolution(measured.Notes, recording);
    return measured;
}

} // namespace Tessel::Cli
