// Chains on the current device.
#include "chain/placed_chain.h"

#include "program/console.h"
#include "program/exit_codes.h"
#include "program/options.h"
#include "program/text_file.h"
#include "program/units.h"
#include "program/visible_text.h"
#include "tessel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

namespace Tessel::Cli {

namespace {

bool isFileName(const std::string &text)
{
    return text.ends_with(".json");
}

std::vector<ChainStage> readPart(const std::string &text)
{
    const bool isFile = isFileName(text);
    try {
        return isFile ? parseChainJson(fileText("--chain", text)) : parseChain(text);
    } catch (const ChainError &error) {
        const std::string file = isFile ? visibleText(text) + ": " : "";
        throw Failure(Exit::Usage, fmt::format("--chain: {}{}", file, error.what()));
    }
}

// What the library answers: a channel or an index, -1 if it refuses. A sub-stream can't be refused.
int32_t add(const ChainStage &stage)
{
    const auto count = static_cast<int32_t>(stage.Channels.size());
    const int32_t *channels = stage.Channels.data();
    switch (stage.Kind) {
    case StageKind::Coincidence:
        return addMCoincidence(nullptr, channels, count, static_cast<double>(stage.WindowPs),
                               static_cast<uint32_t>(stage.Mode), static_cast<uint32_t>(stage.Time),
                               stage.Keep);
    case StageKind::Merge: return addMMerge(nullptr, channels, count, stage.Keep);
    case StageKind::Delay:
        return addMDelay(nullptr, static_cast<uint8_t>(stage.Channels.front()),
                         static_cast<double>(stage.DelayPs), stage.Keep);
    case StageKind::Herald:
        return addMHerald(nullptr, static_cast<uint8_t>(stage.Herald), channels, count,
                          static_cast<int32_t>(stage.DelayPs), static_cast<int32_t>(stage.WindowPs),
                          stage.Inverted, stage.Keep);
    case StageKind::SubStream:
        addMSubStream(nullptr, static_cast<uint64_t>(stage.FromPs), static_cast<uint64_t>(stage.ToPs));
        return 0;
    case StageKind::Sort: return tessel_addMSort(nullptr, static_cast<uint64_t>(stage.WindowPs)) ? 0 : -1;
    case StageKind::CountRate: return addMCountRate(nullptr, static_cast<double>(stage.WindowPs));
    }
    return -1;
}

constexpr int64_t longestRateWindowPs = 2147483647;
constexpr int32_t firstMarker = 129, lastMarker = 143;

// A T3 stream has no sync events; a herald on the sync, and a coincidence that lists it first, go by the sync
// of each event.
bool doubtsSync(const Recording &recording, const ChainStage &stage, int32_t channel)
{
    if (channel != 0 || recording.MeasMode != 3) return false;
    return stage.Kind != StageKind::Coincidence || stage.Channels.front() != 0;
}

std::vector<int32_t> channelsSought(const ChainStage &stage)
{
    std::vector<int32_t> channels = stage.Channels;
    if (stage.Kind == StageKind::Herald && stage.Herald != 0) channels.push_back(stage.Herald);
    return channels;
}

void checkChannels(const Recording &recording, const ChainStage &stage, const std::string &name)
{
    for (const int32_t channel : channelsSought(stage))
        if (channel >= recording.NumRows && (channel < firstMarker || channel > lastMarker))
            throw Failure(Exit::Usage, fmt::format("{}: there is no channel {} here, only 0 (sync) to {}", name,
                                                   channel, recording.NumRows - 1));
}

// Places where a stage looks for events that never come there, a sentence each.
std::vector<std::string> doubtsOf(const PlacedStage &placed, const Recording &recording)
{
    const ChainStage &stage = placed.Stage;
    std::vector<std::string> doubts;
    for (const int32_t channel : channelsSought(stage))
        if (doubtsSync(recording, stage, channel))
            doubts.push_back("a T3 stream has no events on channel 0 (sync)");
    if (stage.Kind == StageKind::Coincidence && stage.Mode == CoincidenceMode::Sliding &&
        stage.Time != CoincidenceTime::Last && !stage.Keep)
        doubts.push_back("sliding coincidences at the first or average time are dropped without keep");
    if (stage.Kind == StageKind::CountRate && stage.WindowPs > longestRateWindowPs)
        doubts.push_back(
            fmt::format("the window is cut to {}, the longest there is", timeText(longestRateWindowPs)));
    return doubts;
}

// "coincidence 1+2"; of a herald, which makes a channel for each that it gates, "herald 1 of 2".
std::string originOf(const PlacedStage &placed, int64_t row)
{
    const ChainStage &stage = placed.Stage;
    if (stage.Kind == StageKind::Delay && !stage.Keep)
        return fmt::format("empty: delay {} without keep", stage.Channels.front());
    if (stage.Kind != StageKind::Herald)
        return fmt::format("{} {}", stageName(stage.Kind), fmt::join(stage.Channels, "+"));
    return fmt::format("{} {} of {}", stageName(stage.Kind), stage.Herald,
                       stage.Channels[static_cast<size_t>(row - placed.FirstChannel)]);
}

PlacedStage place(Recording &recording, const ChainStage &stage, const std::string &name)
{
    PlacedStage placed{.Stage = stage, .FirstChannel = recording.NumRows};
    if (add(stage) < 0)
        throw Failure(Exit::Failed, name + ": the library refuses it (a stream has at most 255 channels; "
                                           "--verbose shows the log)");
    recording.NumRows = getNumAllChans(nullptr);
    placed.NumChannels = recording.NumRows - placed.FirstChannel;
    for (int64_t row = placed.FirstChannel; row < recording.NumRows; ++row)
        recording.Made.push_back({.Name = fmt::format("Channel {}, {}", row, originOf(placed, row)),
                                  .Column = fmt::format("ch{}_{}", row, stageName(stage.Kind))});
    return placed;
}

// Of a countrate stage, by row of what it sees; else none.
std::vector<uint32_t> ratesOf(const PlacedChain &chain, size_t index)
{
    if (chain[index].Stage.Kind != StageKind::CountRate) return {};
    std::vector<uint32_t> rates(static_cast<size_t>(getNumAllChans(nullptr)), 0);
    if (!getMCountRates(nullptr, static_cast<int32_t>(index), rates.data())) return {};
    rates.resize(static_cast<size_t>(chain[index].FirstChannel));
    return rates;
}

int64_t chainTime(const char *option, const std::string &text, int64_t unset)
{
    return text.empty() ? unset : static_cast<int64_t>(optionWholePs(option, text, 0));
}

// Of --sort, --from and --to, before all others.
std::vector<ChainStage> inputStages(const ChainOptions &options)
{
    constexpr int64_t latestPs = 9'000'000'000'000'000'000;
    std::vector<ChainStage> stages;
    if (!options.Sort.empty()) {
        stages.emplace_back().Kind = StageKind::Sort;
        stages.back().WindowPs = chainTime("--sort", options.Sort, 0);
    }
    if (options.From.empty() && options.To.empty()) return stages;
    ChainStage &span = stages.emplace_back();
    span.Kind = StageKind::SubStream;
    span.FromPs = chainTime("--from", options.From, 0);
    span.ToPs = chainTime("--to", options.To, latestPs);
    if (span.FromPs > span.ToPs) throw Failure(Exit::Usage, "--to: not before --from");
    return stages;
}

} // namespace

void addChainOption(CLI::App &command, ChainOptions &options)
{
    command
        .add_option("--chain", options.Texts,
                    "Stages that the events pass first (see tessel chain --help); can be given several times")
        ->type_name("TEXT|FILE.json")
        ->allow_extra_args(false);
    command
        .add_option("--sort", options.Sort,
                    "Put events in order that come up to TIME after a later one, before all else [ps]")
        ->type_name("TIME");
    command.add_option("--from", options.From, "Leave out events before TIME of the run [ps]")
        ->type_name("TIME");
    command.add_option("--to", options.To, "Leave out events after TIME of the run [ps]")->type_name("TIME");
}

std::vector<std::string> chainFiles(const ChainOptions &options)
{
    std::vector<std::string> files;
    std::ranges::copy_if(options.Texts, std::back_inserter(files), isFileName);
    return files;
}

std::vector<ChainStage> readChain(const ChainOptions &options)
{
    std::vector<ChainStage> stages;
    const auto first = inputStages(options);
    stages.insert(stages.end(), first.begin(), first.end());
    for (const std::string &text : options.Texts)
        for (ChainStage &stage : readPart(text)) stages.push_back(std::move(stage));
    return stages;
}

size_t numInputStages(const ChainOptions &options)
{
    return size_t(!options.Sort.empty()) + size_t(!options.From.empty() || !options.To.empty());
}

PlacedChain placeChain(Recording &recording, const std::vector<ChainStage> &stages)
{
    PlacedChain chain;
    for (const ChainStage &stage : stages) {
        const std::string name = fmt::format("--chain: stage {}, {}", chain.size() + 1, stageText(stage));
        checkChannels(recording, stage, name);
        chain.push_back(place(recording, stage, name));
        for (const std::string &doubt : doubtsOf(chain.back(), recording)) warn(name + ": " + doubt);
    }
    return chain;
}

boost::json::array chainJson(const PlacedChain &chain, bool withRates)
{
    boost::json::array array;
    for (size_t index = 0; index < chain.size(); ++index) {
        const auto &[stage, first, made] = chain[index];
        boost::json::object object = stageJson(stage);
        boost::json::array makes;
        for (int64_t channel = first; channel < first + made; ++channel) makes.push_back(channel);
        object["makes"] = std::move(makes);
        const auto rates = withRates ? ratesOf(chain, index) : std::vector<uint32_t>();
        if (!rates.empty()) object["rates"] = boost::json::array(rates.begin(), rates.end());
        array.push_back(std::move(object));
    }
    return array;
}

std::vector<std::string> chainNotes(const PlacedChain &chain, bool withRates)
{
    std::vector<std::string> lines;
    for (size_t index = 0; index < chain.size(); ++index) {
        const auto &[stage, first, made] = chain[index];
        std::string line = fmt::format("stage {}: {}", index + 1, stageText(stage));
        if (made > 0) line += fmt::format(", makes ch{}", first);
        if (made > 1) line += fmt::format(" to ch{}", first + made - 1);
        if (stage.Kind == StageKind::Delay && !stage.Keep) line += ", which stays empty";
        const auto rates = withRates ? ratesOf(chain, index) : std::vector<uint32_t>();
        if (!rates.empty()) line += fmt::format(", last rates in cps from sync on: {}", fmt::join(rates, " "));
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace Tessel::Cli
