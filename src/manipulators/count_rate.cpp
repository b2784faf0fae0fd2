// Count rate: passes all events on and counts them per channel. A batch that ends a window or more after the
// first event of the interval turns the counts into rates.
#include "manipulators/count_rate.h"

#include "log/log.h"
#include "manipulators/stage.h"
#include "manipulators/stages.h"
#include "stream/rounding.h"
#include "stream/run_copy.h"
#include "stream/times.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace Tessel {

namespace {

constexpr StageWords countRateWords = {
    .Created = "CountRateMThread created: {} @{}",
    .Started = "CountRateMThread started: {} @{}",
    .Stopped = "CountRateMThread stopped: {} @{}",
    .Exited = "CountRateMThread exited: {} @{}",
    .Overrun = "Device: CountRate Buffer overrun - clearing! {} @{}",
};

// Channels that the stage sees. A lock of the chain is held.
size_t channelsSeen(const StageRef &stage)
{
    const int32_t made = stage.record->Params2.empty() ? 0 : stage.record->Params2.front();
    return static_cast<size_t>(std::max(made + 1 + stage.run->Facts.NumChans, 0));
}

// Counts of each channel in turn in four tables: equal channels one after another don't wait for each other.
void countChannels(const uint8_t *channels, uint64_t count, std::vector<uint64_t> &counters)
{
    std::array<std::array<uint64_t, 256>, 4> tables{};
    uint64_t at = 0;
    for (; at + 8 <= count; at += 8) {
        uint64_t eight;
        std::memcpy(&eight, channels + at, sizeof eight);
        ++tables[0][eight & 0xFF];
        ++tables[1][eight >> 8 & 0xFF];
        ++tables[2][eight >> 16 & 0xFF];
        ++tables[3][eight >> 24 & 0xFF];
        ++tables[0][eight >> 32 & 0xFF];
        ++tables[1][eight >> 40 & 0xFF];
        ++tables[2][eight >> 48 & 0xFF];
        ++tables[3][eight >> 56];
    }
    for (; at < count; ++at) ++tables[0][channels[at]];
    for (size_t channel = 0; channel < std::min<size_t>(counters.size(), 256); ++channel)
        for (const auto &table : tables) counters[channel] += table[channel];
}

// An interval begins with the first event whose time isn't 0.
template <class Time>
void beginInterval(CountRateState &rate, Time time, const Piece &in)
{
    for (uint64_t at = 0; at < in.Count && rate.Start == 0; ++at) {
        rate.Start = time.ps(in.Times[at]);
        rate.FirstSync = in.Times[at] >> dtimeBits;
    }
}

} // namespace

void startPass(CountRateState &rate, const StageRef &stage)
{
    auto own = lockOwn(stage.context, stage.record);
    const size_t channels = channelsSeen(stage);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "CountRateMThread: mtCountRate: numChans: {} + {}",
               stage.run->Facts.NumChans + 1,
               stage.record->Params2.empty() ? 0 : stage.record->Params2.front());
    stage.record->Rates.assign(channels, 0.0f);
    rate.Counters.assign(channels, 0);
    rate.Start = rate.FirstSync = 0;
    rate.HasLast = false;
}

uint64_t work(CountRateState &rate, const StageRef &stage, Piece in, EventStore &out)
{
    in.Count = std::min(in.Count, roomOf(out));
    if (in.Count == 0) return 0;
    rate.Last = in.Times[in.Count - 1];
    rate.HasLast = true;
    rate.Counters.resize(channelsSeen(stage));
    withTime(stage.run->Facts, [&](auto time) { beginInterval(rate, time, in); });
    countChannels(in.Channels, in.Count, rate.Counters);
    appendRun(in, 0, in.Count, out);
    return in.Count;
}

// In single precision, as the rates are.
void endBatch(CountRateState &rate, const StageRef &stage)
{
    if (!std::exchange(rate.HasLast, false)) return;
    const uint64_t duration = RawTime(stage.run->Facts).ps(rate.Last) - rate.Start;
    if (duration < rate.Window) return;

    constexpr float psPerSecond = 1e12f;
    const auto span = static_cast<float>(std::max<uint64_t>(duration, 1)); // without a window it can be 0
    auto own = lockOwn(stage.context, stage.record);
    std::vector<float> &rates = stage.record->Rates;
    rate.Counters.resize(channelsSeen(stage));
    rates.resize(rate.Counters.size());
    for (size_t channel = 0; channel < rates.size(); ++channel)
        rates[channel] = std::round(static_cast<float>(rate.Counters[channel]) * (1.0f / span) * psPerSecond);
    if (stage.run->Facts.Mode == MeasMode::T3 && !rates.empty()) {
        const uint64_t syncs = (rate.Last >> dtimeBits) - rate.FirstSync;
        rates[0] = std::round(static_cast<float>(syncs) / span * psPerSecond);
    }
    own.unlock();
    rate.Start = 0;
    std::fill(rate.Counters.begin(), rate.Counters.end(), 0);
}

int32_t addCountRate(const DeviceRef &target, double windowPs)
{
    const auto window = static_cast<uint64_t>(int64_t{nearest<int32_t>(windowPs)});
    auto record = std::make_shared<Manipulator>();
    record->Type = ManisType::CountRate;
    record->Params = {window};

    ChainLocks locks(target->context);
    if (LogLevel.Manipulators)
        logInf(LogCategory::Progress, "AddMCountRate {} @{}", numAllChans(target->device, target->context),
               target->device.ID);
    auto thread = [window](StageRef stage) {
        runStage(stage, countRateWords, CountRateState{.Window = window, .Counters = {}});
    };
    if (!addStage(locks, target, record, "CountRate_{}", thread)) return -1;
    return record->Index;
}

bool countRates(const DeviceRef &target, int32_t index, uint32_t *rates)
{
    auto chain = chainOf(target->context);
    if (index < 0 || static_cast<size_t>(index) >= chain.size()) return false;
    Manipulator &record = *chain[static_cast<size_t>(index)];
    if (record.Type != ManisType::CountRate) {
        logErr(LogCategory::General, "Tessel_DLL: The manipulator at index {} is not of type of Countrate @{}!",
               index, target->device.ID);
        return false;
    }
    std::lock_guard lock(record.Lock);
    if (record.Rates.empty() || !record.StartedFlag) return false;
    const uint64_t channels = rates ? numAllChans(target->device, target->context) : 0;
    for (uint64_t channel = 0; channel < channels; ++channel)
        rates[channel] = channel < record.Rates.size() ? nearest<uint32_t>(record.Rates[channel]) : 0;
    return true;
}

} // namespace Tessel
