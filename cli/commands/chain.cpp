// `tessel chain`: how the stages of a chain number their channels on a recording.
#include "chain/placed_chain.h"
#include "commands/commands.h"
#include "program/options.h"
#include "program/output.h"
#include "program/visible_text.h"

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
    return {{"schema", "tessel.chain/1"},      {"file", jsonName(recording.Path)},
            {"device", recording.Id},          {"mode", fmt::format("T{}", recording.MeasMode)},
            {"channels", std::move(channels)}, {"chain", chainJson(chain)}};
}

int runChain(const Options &options, const HostOptions &host)
{
    const Session session(host);
    std::vector<std::string> inputs = chainFiles(options.Chain);
    inputs.insert(inputs.end(), {options.File, host.IniPath});
    checkOutputs(inputs, outputsOf(options.Result), options.Result.Force);
    const std::vector<ChainStage> stages = readChain(options.Chain);
    Recording recording = openRecording(options.File);
    const PlacedChain chain = placeChain(recording, stages);
    writeResult(options.Result.File,
                options.Result.Json ? jsonText(asJson(recording, chain)) : table(recording, chain));
    return 0;
}

constexpr const char *chainFooter =
    R"(A chain is a row of stages that the events pass before they are counted. A new channel gets the
next number after the inputs, in the order of the chain; later stages and the options of a
measurement take these numbers. The stages:

{}
'|' or a new line separates stages; --chain can be given several times. Values stand in their
order, or with a name as in 'window 10ns'; words stand anywhere. A time is rounded to whole
picoseconds; a number without a unit is in ps.

  coincidence  makes an event on a new channel when each channel had one within the window.
               sliding (the default): every event that completes the set makes one; once: a
               coincidence uses its events up. Its time is that of the first event, the last
               (the default) or the average. Without keep only coincidences go on.
  merge        copies the channels onto a new one. Without keep all other channels are dropped.
  delay        shifts a channel by up to 2.147ms, forward or (negative) back. With keep the
               channel stays, and a new one has the shifted copy; without, the new one is empty.
  herald       lets the channels pass only inside a window, which begins at the delay after the
               last event of the herald, its first channel (0: the sync). inverted: only outside.
               With keep all events stay, and those that pass are copied to a new channel each.
  sort         puts the events of all channels in order, where none comes more than the window after
               a later one.
  substream    lets events pass only between two times since the start.
  countrate    measures the rate of each channel over at least the window (up to 2.147ms). The
               last rates of a run are in the comments of a CSV and in JSON.

A text that ends in .json is the name of a file with the same words, as --json writes it:
  {{"chain": [{{"stage": "coincidence", "channels": [1, 2], "window": "10ns",
              "mode": "once", "time": "last", "keep": true}}]}}

JSON: schema (tessel.chain/1), file, device, mode, and
  channels  [{{row, column, name, stage (from 1; 0: the recording's own)}}]
  chain     [{{stage and its values, makes [channels]}}]

Examples:
  tessel chain emitter.tgx --chain 'coincidence(1,2; 10ns; keep) | merge(1,2; keep)'
  tessel histogram emitter.tgx --ref-chan 1 --chain 'delay(2; 50ns)' --plot shifted.png)";

} // namespace

Command addChain(CLI::App &program)
{
    const auto options = std::make_shared<Options>();
    CLI::App *command =
        program.add_subcommand("chain", "Show how a chain of stages numbers its channels on a recording");
    addRecordingArgument(*command, options->File);
    addChainOption(*command, options->Chain);
    addOutputOptions(*command, options->Result, "a table");
    command->footer(fmt::format(chainFooter, stageForms()));
    return {command, [options](const HostOptions &host) { return runChain(*options, host); }};
}

} // namespace Tessel::Cli
