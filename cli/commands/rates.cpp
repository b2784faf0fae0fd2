// `tessel rates`: what an instrument counts per second.
#include "commands/commands.h"
#include "commands/measure.h"
#include "program/console.h"
#include "program/exit_codes.h"
#include "program/frame_table.h"
#include "program/instrument.h"
#include "program/interrupt.h"
#include "program/options.h"
#include "program/output.h"
#include "program/output_file.h"
#include "program/progress.h"
#include "program/units.h"

#include <CLI/CLI.hpp>
#include <boost/json/array.hpp>
#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <thread>
#include <unistd.h>

namespace Tessel::Cli {

namespace {

// What a row counts; 0 is the sync.
int32_t rateOf(const CountRates &rates, size_t row)
{
    return row == 0 ? rates.Sync : rates.Inputs[row - 1];
}

std::vector<std::vector<std::string>> tableOf(const Recording &instrument, const CountRates &rates)
{
    std::vector<std::vector<std::string>> lines = {{"Channel", "Rate", "cps"}};
    for (size_t row = 0; row <= rates.Inputs.size(); ++row) {
        const int32_t rate = rateOf(rates, row);
        lines.push_back({rowName(instrument, static_cast<int64_t>(row)),
                         row == 0 ? rateText(rate) : countRateText(rate), fmt::format("{}", rate)});
    }
    return lines;
}

boost::json::object asJson(const Recording &instrument, const CountRates &rates)
{
    boost::json::array channels;
    for (size_t row = 0; row <= rates.Inputs.size(); ++row)
        channels.push_back({{"row", row},
                            {"name", rowName(instrument, static_cast<int64_t>(row))},
                            {"cps", rateOf(rates, row)}});
    return {{"schema", "tessel.rates/1"},
            {"device", instrument.Id},
            {"mode", modeText(instrument.MeasMode)},
            {"channels", std::move(channels)}};
}

std::string plainTable(const Recording &instrument, const CountRates &rates)
{
    constexpr int columns = 120;
    const auto lines = tableOf(instrument, rates);
    Frame frame(columns, static_cast<int>(lines.size()), true, false);
    putTable(frame, {0, 0, frame.Rows, frame.Columns}, lines);
    return frameText(frame);
}

// An instrument counts for a tenth of a second before it has a rate.
void waitForRates()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
}

// To the end of the time, or Ctrl-C, whose signal it returns; 0: none.
int showRates(const MeasureOptions &options, const HostOptions &host, const Recording &instrument)
{
    CountRates rates;
    const InterruptWatch watch(HangUp::IsNoted);
    Updates updates(options.Updates, host,
                    {.Refresh = [&](double) { rates = countRates(instrument); },
                     .Draw =
                         [&](Frame &frame) {
                             putText(frame, 0, 0, instrument.Id);
                             putTable(frame, {1, 0, frame.Rows - 1, frame.Columns}, tableOf(instrument, rates));
                         },
                     .Line = [&] { return asJson(instrument, rates); }});
    while (interruptSignal() == 0 && secondsSince(updates.Start) * 1e3 < instrument.RunForMs) {
        update(updates);
        restUntilSignal(std::chrono::milliseconds(5));
    }
    updates.Show.Refresh(secondsSince(updates.Start));
    finish(updates);
    return interruptSignal();
}

int runRates(const MeasureOptions &options, const HostOptions &host)
{
    checkUpdateOptions(options.Updates);
    if (!host.namesInstrument()) throw Failure(Exit::Usage, "rates needs an instrument: --device ID or --sim");
    const Session session(host);
    checkFiles(options, host);
    const Recording instrument = openForMeasuring(options, host).From;
    const bool toTerminal = isStandardOutput(options.Result.File) && isatty(standardOutput());
    const bool isShown = drawsLive(options.Updates, host) && toTerminal && !options.Result.Json;
    if (options.Updates.JsonLines || isShown) {
        const int signal = showRates(options, host, instrument);
        return signal == 0 ? 0 : exitCodeOfSignal(signal);
    }
    waitForRates();
    const CountRates rates = countRates(instrument);
    writeResult(options.Result.File,
                options.Result.Json ? jsonText(asJson(instrument, rates)) : plainTable(instrument, rates));
    return 0;
}

constexpr const char *ratesFooter =
    R"(Shows what the sync and each input count per second, as the instrument says: on a terminal a table that
is redrawn, until --for is over or Ctrl-C; elsewhere, with --json or with -o once. --json-lines
writes a line at each --interval, until --for is over or Ctrl-C.

JSON: schema (tessel.rates/1), device, mode, and
  channels  [{row (0: sync), name, cps}]
A line of --json-lines has update (from 1) and final before that.

Examples:
  tessel rates --sim
  tessel rates --sim --set 'ch*.level=-100mV' --json | jq '.channels[].cps'
  tessel rates --sim --json-lines --interval 1s --for 1min)";

} // namespace

Command addRates(CLI::App &program)
{
    const auto options = std::make_shared<MeasureOptions>();
    CLI::App *command = program.add_subcommand("rates", "Show the count rates of an instrument");
    options->RunsOn = true;
    options->Updates.Live = true;
    addInstrumentOptions(*command, *options, "until Ctrl-C");
    addUpdateOptions(*command, options->Updates, false);
    addOutputOptions(*command, options->Result, "a table");
    command->footer(ratesFooter);
    return {command, [options](const HostOptions &host) { return runRates(*options, host); }};
}

} // namespace Tessel::Cli
