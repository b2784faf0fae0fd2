// `tessel chain`: how the stages of a chain number their channels on a recording.
#include "chain/placed_chain.h"
#include "commands/commands.h"
#include "program/options.h"
#include "program/output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <iterator>
#include <memory>

namespace Tessel::Cli {

namespace {

struct Options
{
    std::string File;
    ChainOptions Chain;
    ResultOptions Result;
};

// The stage from 1 that made the row; 0: the recording itself.
size_t stageOf(const PlacedChain &chain, int64_t row)
{
    for (size_t index = 0; index < chain.size(); ++index)
        if (chain[index].made(row)) return index + 1;
    return 0;
}

std::string table(const Recording &recording, const PlacedChain &chain)
{
    fmt::memory_buffer text;
    auto out = std::back_inserter(text);
    fmt::format_to(out, "{:<8} {:<18} {:<30} {}\n", "Channel", "Column", "Name", "Stage");
    for (int64_t row = 0; row < recording.NumRows; ++row) {
        const size_t stage = stageOf(chain, row);
        fmt::format_to(out, "{:<8} {:<18} {:<30} {}\n", row, columnName(recording, row),
                       rowName(recording, row), stage ? fmt::format("{}", stage) : "input");
    }
    if (!chain.empty()) fmt::format_to(out, "\n{:<8} {}\n", "Stage", "What it does");
    for (size_t index = 0; index < chain.size(); ++index)
        fmt::format_to(out, "{:<8} {}\n", index + 1, stageText(chain[index].Stage));
    return fmt::to_string(text);
}

boost::json::object asJson(const Recording &recording, const PlacedChain &chain)
{
    boost::json::array channels;
    for (int64_t row = 0; row < recording.NumRows; ++row)
        channels.push_back({{"row", row},
                            {"column", columnName(recording, row)},
                            {"name", rowName(recording, row)},
                            {"stage", stageOf(chain, row)}});
    return {{"schema", "tessel.chain/1"},      {"file", recording.Path},
            {"device", recording.Id},          {"mode", fmt::format("T{}", recording.MeasMode)},
            {"channels", std::move(channels)}, {"chain", chainJson(chain)}};
}

int runChain(const Options &options, const HostOptions &host)
{
    const std::vector<ChainStage> stages = readChain(options.Chain);
    const Session session(host);
    Recording recording = openRecording(options.File);
    const PlacedChain chain = placeChain(recording, stages);
    writeResult(options.Result.File,
                options.Result.Json ? jsonText(asJson(recording, chain)) : table(recording, chain));
    return 0;
}

constexpr const char *chainFooter =
    R"(A chain is a row of stages that the events pass before they are counted. Stages that make
channels number them behind the inputs, in the order of the chain; later stages and the
options of a measurement take these numbers. Stages:

{}
Between stages stands '|' or a new line; --chain may also be given several times. Values come
in their order, or by name as in 'window 10ns'; words come anywhere. Times are rounded to
whole picoseconds and a bare number is in ps. Without 'keep' a stage replaces what it works on:

  coincidence  one event on a new channel whenever all channels had one within the window;
               sliding (the default) finds every one, once uses events up; it stands at the
               time of the first, the last (the default) or at the average; without keep only
               coincidences go on
  merge        copies the channels onto a new one; without keep all others end here
  delay        shifts a channel by up to 2.147ms, forward or (negative) back; with keep a copy
               of it on a new channel, which stays empty without
  herald       lets the channels pass only within a window that begins at a delay after the
               last event of the herald, its first channel (0: the sync); inverted, only
               outside of it; with keep, as copies on a new channel each
  substream    lets pass only what lies between two times since the start
  countrate    counts per second of every channel, over at least the window (up to 2.147ms);
               the last ones of a replay stand in the results' comments or JSON

A text that ends in .json names a file with the same words, and what --json writes here:
  {{"chain": [{{"stage": "coincidence", "channels": [1, 2], "window": "10ns",
              "mode": "once", "time": "last", "keep": true}}]}}

JSON, schema tessel.chain/1: file, device, mode, channels [{{row, column, name, stage (from 1;
0: of the recording)}}], chain [{{stage and its values, makes [channels]}}].

Examples:
  tessel chain emitter.tgx --chain 'coincidence(1,2; 10ns; keep) | merge(1,2; keep)'
  tessel histogram emitter.tgx --ref-chan 1 --chain 'delay(2; 50ns)' --plot shifted.png)";

} // namespace

Command addChain(CLI::App &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *command =
        program.add_subcommand("chain", "Tell how a chain of stages numbers its channels on a recording");
    addRecordingArgument(*command, options->File);
    addChainOption(*command, options->Chain);
    addOutputOptions(*command, options->Result, "a table");
    command->footer(fmt::format(chainFooter, stageForms()));
    return {command, [options](const HostOptions &host) { return runChain(*options, host); }};
}

} // namespace Tessel::Cli
