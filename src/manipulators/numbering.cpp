#include "manipulators/numbering.h"

#include "log/log.h"
#include "manipulators/chain.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

int64_t toldChans(const Device &device, const MeasContext &context)
{
    if (!device.IsInitialized) return 0;
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
    case ManisType::SubStream: break;
    }
    return 0;
}

// A CountRate has a rate for each channel that it sees. Rates of channels that stay are kept.
void followRates(Manipulator &record, int32_t oldIndex, uint64_t next, int32_t numChans)
{
    auto chansAhead = static_cast<int32_t>(next) - numChans - 1;
    if (record.Params2.empty() || record.Params2[0] > chansAhead) record.Params2 = {chansAhead};
    if (!record.Rates.empty()) {
        auto kept =
            static_cast<size_t>(std::clamp<int64_t>(int64_t{oldIndex} + numChans + 1, 0, int64_t(next)));
        record.Rates.resize(std::min(kept, record.Rates.size()));
        record.Rates.resize(next, 0.0f);
    }
    if (record.Params2[0] < chansAhead) record.Params2 = {chansAhead};
}

void numberChannels(Manipulator &record, int32_t oldIndex, uint64_t &next, int32_t numChans)
{
    record.OutChans.clear();
    if (record.Type == ManisType::CountRate) followRates(record, oldIndex, next, numChans);
    if (record.Type == ManisType::Herald && !record.KeepFlag && !record.InChans.empty())
        record.OutChans.assign(record.InChans.begin() + 1, record.InChans.end());
    for (uint64_t left = newChannels(record); left > 0; --left)
        record.OutChans.push_back(static_cast<uint8_t>(next++));
}

// A stage that was added during a run made rows for which the caller's array has no room: the counts move to an
// array of the run, and the caller's stays as it is. ManisLock is held.
void moveCounts(MeasContext &context, uint64_t rows)
{
    auto run = currentRun(context);
    if (!run || !isMeasuring(*run) || !run->ChannelRows) return;
    CountArray &counts = *run->ChannelRows;
    if (counts.Columns == 0 || rows == counts.Rows) return;
    counts.Moved.assign(rows * counts.Columns, 0);
    counts.Data = counts.Moved.data();
    counts.Rows = rows;
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
    uint64_t made = static_cast<uint64_t>(device.NumChans) + 1;
    for (const auto &record : chain) made += newChannels(*record);
    return made;
}

void rearrange(Device &device, MeasContext &context)
{
    if (LogLevel.Manipulators) logInf(LogCategory::Progress, "rearrange manipulators @{}", device.ID);
    uint64_t next = static_cast<uint64_t>(device.NumChans) + 1;
    for (const auto &record : context.Manis) numberChannels(*record, record->Index, next, device.NumChans);
    linkRecords(context.Manis);
    context.ManisChans = next - static_cast<uint64_t>(device.NumChans) - 1;
    moveCounts(context, next);
}

} // namespace Tessel
