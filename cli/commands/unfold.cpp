// `tessel unfold`: the decoded events of a recording, written as they come.
#include "columns/npy.h"
#include "commands/commands.h"
#include "commands/event_form.h"
#include "commands/event_plot.h"
#include "commands/measure.h"
#include "commands/result_head.h"
#include "commands/shown_run.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/output.h"
#include "program/output_file.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

constexpr const char *unfoldSchema = "tessel.unfold/1";
constexpr size_t capacity = size_t(1) << 20;      // events of a block
constexpr size_t writtenAtOnce = size_t(1) << 15; // events

struct UnfoldOptions
{
    MeasureOptions Measure;
    bool Binary = false, Npy = false, Overflows = false;
};

// The library fills one pair of arrays, this side reads the other.
struct Unfolded
{
    EventForm As = EventForm::Csv;
    bool IsT3 = false, Overflows = false;
    std::vector<uint64_t> Times, BlockTimes;
    std::vector<uint8_t> Channels, BlockChannels;
    uint64_t NumWritten = 0;
    std::vector<char> Text = std::vector<char>(writtenAtOnce * mostEventText);
    FirstEvents First; // for the plot
};

// Writes what stands in the block; false if there was nothing.
bool writeBlock(Unfolded &unfolded, std::optional<OutputFile> &stream)
{
    uint64_t count = 0;
    ufGetBlock(nullptr, unfolded.Times.data(), unfolded.Channels.data(), &count);
    for (size_t i = 0; i < count && !unfolded.First.isFull(); ++i)
        add(unfolded.First, unfolded.Times[i], unfolded.Channels[i]);
    for (size_t i = 0; stream && i < count; i += writtenAtOnce) {
        char *text = unfolded.Text.data();
        const char *end = writeEvents(unfolded.As, unfolded.IsT3, unfolded.Overflows, unfolded.Times.data() + i,
                                      unfolded.Channels.data() + i, std::min(count - i, writtenAtOnce),
                                      unfolded.NumWritten, text);
        if (end != text) write(*stream, {text, static_cast<size_t>(end - text)});
    }
    return count > 0;
}

boost::json::array columnsJson(bool isT3)
{
    return isT3 ? boost::json::array{"sync", "dtime", "channel"} : boost::json::array{"time_ps", "channel"};
}

// What is known before the run.
boost::json::object headJson(const Measured &measured)
{
    boost::json::object head = recordingKeys(measured, unfoldSchema);
    head["dtimePs"] = nullptr;
    if (measured.From.MeasMode == 3) head["dtimePs"] = jsonNumber(measured.From.ResolutionPs);
    return head;
}

// What `import` has to know; it looks for these keys.
std::string importHint(const Measured &measured)
{
    const Recording &from = measured.From;
    std::string text = fmt::format("import: mode=t{} inputs={} map=codes zero=kept", from.MeasMode,
                                   from.Config.at("NumChans").to_number<int>());
    if (from.MeasMode != 3) return text + fmt::format(" resolution={}ps", from.BaseResolutionPs);
    return text + fmt::format(" sync-period={}ps microtime-unit={}ps", from.MadePeriodPs, from.ResolutionPs);
}

std::string npyType(bool isT3)
{
    return isT3 ? "[('sync', '<u8'), ('dtime', '<u2'), ('channel', '|u1')]"
                : "[('time_ps', '<u8'), ('channel', '|u1')]";
}

// The header gets the number of events, which wasn't known before.
void patchHeader(const Unfolded &unfolded, const OutputFile &stream)
{
    const std::string header = npyHeader(npyType(unfolded.IsT3), unfolded.NumWritten);
    if (pwrite(stream.Descriptor, header.data(), header.size(), 0) != static_cast<ssize_t>(header.size()))
        throw Failure(Exit::Failed, fmt::format("{}: {}", stream.Shown, std::strerror(errno)));
}

std::string opening(const Unfolded &unfolded, const Measured &measured)
{
    switch (unfolded.As) {
    case EventForm::Csv: {
        const std::vector<std::string> notes = firstNotes(measured, unfoldSchema);
        const std::string unit = unfolded.IsT3 ? fmt::format("number of the sync, dtime in units of {} ps",
                                                             measured.From.ResolutionPs)
                                               : std::string("time in ps");
        return fmt::format("# {}\n# {}\n# {}\n{}\n", fmt::join(notes, "\n# "), unit, importHint(measured),
                           unfolded.IsT3 ? "sync,dtime,channel" : "time_ps,channel");
    }
    case EventForm::Json: {
        boost::json::object head = headJson(measured);
        head["columns"] = columnsJson(unfolded.IsT3);
        std::string text = boost::json::serialize(head);
        text.pop_back(); // the brace, which comes after the run
        return text + ",\"events\":[";
    }
    case EventForm::Npy: return npyHeader(npyType(unfolded.IsT3), 0);
    case EventForm::Binary: break;
    }
    return {};
}

// Why the events aren't all of a whole recording; none: they are.
std::vector<std::string> partialNotes(const Measured &measured, const ChainOptions &options)
{
    std::vector<std::string> notes;
    if (!options.From.empty()) notes.push_back(fmt::format("partial: from {} on", options.From));
    if (!options.To.empty()) notes.push_back(fmt::format("partial: up to {}", options.To));
    const std::string fault = endingFault(measured.From);
    if (!fault.empty()) notes.push_back("partial: " + fault);
    if (measured.Run.Signal != 0) notes.push_back("partial: stopped before the end");
    return notes;
}

std::string ending(const Unfolded &unfolded, const Measured &measured, const ChainOptions &options)
{
    if (unfolded.As == EventForm::Csv) {
        std::string text = fmt::format("# {}\n", lastNote(measured));
        for (const std::string &line : partialNotes(measured, options)) text += fmt::format("# {}\n", line);
        return text;
    }
    if (unfolded.As != EventForm::Json) return {};
    return fmt::format("],\"run\":{}}}\n", boost::json::serialize(outcomeJson(measured.From, measured.Run)));
}

// What stands beside a binary file: enough to read it.
boost::json::object sideFile(const Unfolded &unfolded, const Measured &measured)
{
    boost::json::object side = headJson(measured);
    side["run"] = outcomeJson(measured.From, measured.Run);
    side["events"] = unfolded.NumWritten;
    side["eventBytes"] = 9;
    side["byteOrder"] = "little";
    side["fields"] = boost::json::array{{{"name", "time"}, {"type", "uint64"}, {"offset", 0}},
                                        {{"name", "channel"}, {"type", "uint8"}, {"offset", 8}}};
    side["time"] = unfolded.IsT3 ? "sync << 15 | dtime" : "ps";
    return side;
}

EventForm formOf(const UnfoldOptions &options)
{
    const ResultOptions &result = options.Measure.Result;
    if (options.Binary + options.Npy + result.Json > 1)
        throw Failure(Exit::Usage, "--binary, --npy and --json: choose one");
    if (options.Binary && result.File.empty())
        throw Failure(Exit::Usage,
                      "--binary needs -o FILE, and writes FILE.json too; -o - has the events alone");
    if (options.Npy && isStandardOutput(result.File))
        throw Failure(Exit::Usage, "--npy needs -o FILE: its header has the number of events");
    if (options.Npy) return EventForm::Npy;
    return options.Binary ? EventForm::Binary : result.Json ? EventForm::Json : EventForm::Csv;
}

// What the reader of a stream has read is no whole table.
void tellOfFailure(const Unfolded &unfolded, std::optional<OutputFile> &stream)
{
    constexpr std::string_view line = "# partial: cut short by an error\n";
    if (stream && unfolded.As == EventForm::Csv && !stream->WorkName) writeAll(stream->Descriptor, line);
}

void unfoldInto(Unfolded &unfolded, Measured &measured, std::optional<OutputFile> &stream)
{
    measured.Run = replay(
        measured.From,
        [&](int32_t acqTimeMs, uint8_t *finished) {
            ufStartBlock(nullptr, acqTimeMs, prepareRecording(measured), unfolded.BlockTimes.data(),
                         unfolded.BlockChannels.data(), capacity, finished);
        },
        [&] { return writeBlock(unfolded, stream); });
}

Unfolded roomFor(const UnfoldOptions &options)
{
    Unfolded unfolded;
    unfolded.As = formOf(options);
    unfolded.Overflows = options.Overflows;
    for (auto *times : {&unfolded.Times, &unfolded.BlockTimes}) times->resize(capacity);
    for (auto *channels : {&unfolded.Channels, &unfolded.BlockChannels}) channels->resize(capacity);
    return unfolded;
}

void finish(OutputFile &stream, const Unfolded &unfolded, const Measured &measured,
            const UnfoldOptions &options)
{
    write(stream, ending(unfolded, measured, options.Measure.Chain));
    if (unfolded.As == EventForm::Npy) patchHeader(unfolded, stream);
    complete(stream);
}

int runUnfold(const UnfoldOptions &options, const HostOptions &host)
{
    const ResultOptions &result = options.Measure.Result;
    checkPlot(result.Plot);
    Unfolded unfolded = roomFor(options);
    const bool hasSide = unfolded.As == EventForm::Binary && !isStandardOutput(result.File);
    const std::string side = hasSide ? result.File + ".json" : "";
    const Session session(host);
    checkFiles(options.Measure, host, side);
    Measured measured = openForMeasuring(options.Measure, host);
    unfolded.IsT3 = measured.From.MeasMode == 3;
    std::optional<OutputFile> stream;
    if (wantsText(result)) write(stream.emplace(result.File), opening(unfolded, measured));
    if (unfolded.As == EventForm::Npy && !stream->WorkName)
        throw Failure(Exit::Usage, fmt::format("{}: --npy needs a file", stream->Shown));
    try {
        unfoldInto(unfolded, measured, stream);
    } catch (...) {
        tellOfFailure(unfolded, stream);
        throw;
    }
    lookBack(measured);
    if (stream) finish(*stream, unfolded, measured, options);
    if (!side.empty()) writeResult(side, jsonText(sideFile(unfolded, measured)));
    noteSpeed(measured.Run);
    if (!result.Plot.File.empty()) drawResult(result, eventPlot(unfolded.First, measured.From));
    return reportRun(measured);
}

constexpr ResultHelp unfoldHelp = {
    .About =
        R"(Writes every event in the order of the stream. The time is in ps in T2; in T3 it is the number of
the sync and the dtime. Channels: 0 sync (T2), 1 to 64 inputs, then those of the chain; 129 to 143
markers; with --overflows also 255, an overflow of the time tag: its time shows how far the stream
has come.

--plot draws the first 5000 events of sync and inputs: how long after the sync (T3) or after the
event before (T2) each came.

--binary writes 9 bytes per event, little-endian: 8 of time (T3: sync << 15 | dtime), 1 of channel.
FILE.json says how to read them: schema, file, device, mode, dtimePs, run, events (their number),
eventBytes, byteOrder, fields, time. In Python:
  numpy.fromfile(FILE, [('time', '<u8'), ('channel', 'u1')])
With -o - it writes the events alone, as tessel import - --raw u64,u8 (T3: t3,u8) reads them.

--npy writes one array with the fields time_ps and channel, in T3 sync, dtime and channel, for
numpy.load(FILE); -o takes a file. tessel import reads all of these, and the CSV without options.)",
    .Csv = "a line per event: time_ps,channel in T2,\nsync,dtime,channel in T3; with '#' how much was read "
           "and lost,\nand \"partial: \" with the reason if it isn't the whole recording",
    .Schema = unfoldSchema,
    .Keys = R"(  dtimePs  T3: width of a dtime; T2: null
  columns  names of the numbers of an event
  events   [[a number per column], ...])",
    .Examples = R"(  tessel unfold emitter.tgx -o events.csv
  tessel unfold emitter.tgx --binary -o events.bin
  tessel unfold emitter.tgx --npy -o events.npy
  tessel unfold emitter.tgx --from 1s --to 2s | tessel import second.tgx -)",
    .HasUpdates = false};

} // namespace

Command addUnfold(CLI::App &program)
{
    const auto options = std::make_shared<UnfoldOptions>();
    CLI::App *command =
        program.add_subcommand("unfold", "Write the single events of a recording: times and channels");
    addRecordingArgument(*command, options->Measure.File);
    addMeasureOptions(*command, options->Measure);
    options->Measure.CountsDtimes = true;
    command->add_option("OUT", options->Measure.Result.File, "The same as -o")
        ->type_name("")
        ->excludes(command->get_option("-o"));
    command->add_flag("--binary", options->Binary,
                      "Write 9 bytes per event to FILE, and FILE.json, which describes them");
    command->add_flag("--npy", options->Npy, "Write a NumPy array to FILE");
    command->add_flag("--overflows", options->Overflows, "Write the overflows of the time tag too");
    command->footer(helpText(unfoldHelp));
    return {command, [options](const HostOptions &host) { return runUnfold(*options, host); }};
}

} // namespace Tessel::Cli
