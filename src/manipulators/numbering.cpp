#include "manipulators/numbering.h"

#include "devices/locked_device.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

int64_t toldChans(const Device &device, const MeasContext &context)
{
    if (!device.IsInitialized) return 0;
    std::lock_guard look(device.ConfigLock);
    bool isStream = device.MeasMode == MeasMode::T2 || device.MeasMode == MeasMode::T3;
    return int64_t{device.NumChans} + 1 + (isStream ? static_cast<int64_t>(context.ManisChans.load()) : 0);
}

uint64_t numAllChans(const Device &device, const MeasContext &context)
{
    return static_cast<uint64_t>(std::max<int64_t>(toldChans(device, context), 0));
}

namespace {

// Channels that a stage makes, apart from those that it hands on under their own number.
uint64_t newChannels(const Manipulator &record)
{
    switch (record.Type) {
    case ManisType::Coincidence:
    case ManisType::Merge:
    case ManisType::Delay: return 1; // a delay also without keep: the numbers of later channels depend on it
    case ManisType::Herald: return record.KeepFlag && !record.InChans.empty() ? record.InChans.size() - 1 : 0;
    case ManisType::ImportStream: return record.InChans.size();
    case ManisType::Nothing:
    case ManisType::Store:
    case ManisType::CountRate:
    case ManisType::SubStream:
    case ManisType::Sort: break;
    }
    return 0;
}

// A CountRate has a rate for each channel that it sees. Rates of channels that stay are kept.
void followRates(StageNumbers &numbers, const Manipulator &record, uint64_t next, int32_t numChans)
{
    numbers.Params2 = {static_cast<int32_t>(next) - numChans - 1};
    if (record.Rates.empty()) return;
    const auto kept =
        static_cast<size_t>(std::clamp<int64_t>(int64_t{record.Index} + numChans + 1, 0, int64_t(next)));
    numbers.Rates.assign(next, 0.0f);
    std::copy_n(record.Rates.begin(), std::min(kept, record.Rates.size()), numbers.Rates.begin());
}

StageNumbers numbersOf(const Manipulator &record, uint64_t &next, int32_t numChans)
{
    StageNumbers numbers;
    if (record.Type == ManisType::CountRate) followRates(numbers, record, next, numChans);
    if (record.Type == ManisType::Herald && !record.KeepFlag && !record.InChans.empty())
        numbers.OutChans.assign(record.InChans.begin() + 1, record.InChans.end());
    for (uint64_t left = newChannels(record); left > 0; --left)
        numbers.OutChans.push_back(static_cast<uint8_t>(next++));
    return numbers;
}

// The run whose counts a stage that was added under way leaves without room; null: none. ManisLock is held.
std::shared_ptr<Run> runWithoutRoom(MeasContext &context, uint64_t rows)
{
    auto run = currentRun(context);
    if (!run || !isMeasuring(*run) || !run->ChannelRows) return nullptr;
    const CountArray &counts = *run->ChannelRows;
    return counts.Columns == 0 || rows == counts.Rows ? nullptr : run;
}

} // namespace

void linkRecords(std::vector<std::shared_ptr<Manipulator>> &chain)
{
    auto size = static_cast<int32_t>(chain.size());
    for (int32_t i = 0; i < size; ++i) {
        Manipulator &record = *chain[static_cast<size_t>(i)];
        record.Index = record.ChainIndex = i;
    }
    int32_t enabled = 0;
    for (int32_t i = 0; i < size; ++i)
        if (chain[static_cast<size_t>(i)]->Enabled) chain[static_cast<size_t>(enabled++)]->ChainIndex = i;
    int32_t next = size;
    for (int32_t i = size - 1; i >= 0; --i) {
        chain[static_cast<size_t>(i)]->NextIndex = next;
        if (chain[static_cast<size_t>(i)]->Enabled) next = i;
    }
}

uint64_t channelsMade(const Device &device, const std::vector<std::shared_ptr<Manipulator>> &chain)
{
    uint64_t made = static_cast<uint64_t>(valueOf(device, &DeviceConfig::NumChans)) + 1;
    for (const auto &record : chain) made += newChannels(*record);
    return made;
}

Numbering numberingOf(const Device &device, MeasContext &context,
                      const std::vector<std::shared_ptr<Manipulator>> &chain)
{
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "rearrange manipulators @{}", device.ID);
    const int32_t numChans = valueOf(device, &DeviceConfig::NumChans);
    Numbering numbering{.Inputs = static_cast<uint64_t>(numChans) + 1};
    numbering.Channels = numbering.Inputs;
    numbering.Stages.reserve(chain.size());
    for (const auto &record : chain)
        numbering.Stages.push_back(numbersOf(*record, numbering.Channels, numChans));
    numbering.Grown = runWithoutRoom(context, numbering.Channels);
    if (numbering.Grown) numbering.Counts.assign(numbering.Channels * numbering.Grown->ChannelRows->Columns, 0);
    return numbering;
}

void renumber(MeasContext &context, Numbering numbering) noexcept
{
    for (size_t i = 0; i < context.Manis.size(); ++i) {
        Manipulator &record = *context.Manis[i];
        StageNumbers &numbers = numbering.Stages[i];
        record.OutChans.swap(numbers.OutChans);
        if (record.Type != ManisType::CountRate) continue;
        record.Params2.swap(numbers.Params2);
        record.Rates.swap(numbers.Rates);
    }
    linkRecords(context.Manis);
    context.ManisChans = numbering.Channels - numbering.Inputs;
    if (!numbering.Grown) return;
    CountArray &counts = *numbering.Grown->ChannelRows;
    counts.Moved.swap(numbering.Counts);
    counts.Data = counts.Moved.data();
    counts.Rows = numbering.Channels;
}

void rearrange(Device &device, MeasContext &context)
{
    renumber(context, numberingOf(device, context, context.Manis));
}

} // namespace Tessel
