#include "stream/word_scan.h"

#include "records/event_store.h"
#include "stream/order.h"
#include "stream/times.h"

#include <algorithm>

namespace Tessel {

namespace {

bool isNegative(uint64_t difference)
{
    return static_cast<int64_t>(difference) < 0;
}

} // namespace

WordScanner::WordScanner(DecodeRules wanted)
    : rules(wanted), timeShift(wanted.Mode == MeasMode::T3 ? dtimeBits : 0)
{
    rules.SyncPeriodPs = 1;
}

void WordScanner::scan(std::span<const uint32_t> words)
{
    while (!words.empty()) {
        const auto piece = words.first(std::min(words.size(), pieceWords));
        scanPiece(piece);
        words = words.subspan(piece.size());
    }
}

void WordScanner::scanPiece(std::span<const uint32_t> words)
{
    const uint64_t baseBefore = overflowBase;
    InvalidWords unlisted{.Words = {}, .Count = 0, .Room = 0};
    const uint64_t count = decode(words, rules, overflowBase, times.get(), channels.get(), unlisted);
    const uint64_t invalid = invalidAmong(words, count, rules);
    const bool isBack = hasStepBack(times.get(), count, lastTime, timeShift);
    if ((invalid > 0 || isBack) && scanned.FirstFault == WordScan::none)
        scanned.FirstFault = scanned.Words + firstFaultIn(words, baseBefore);
    if (isBack) countStepsBack(count);
    countEvents(count);
    scanned.Invalid += invalid;
    scanned.Ignored += words.size() - count - invalid;
    scanned.Words += words.size();
    if (count == 0) return;
    lastTime = timeOf(times[count - 1]);
    scanned.LatestTime = std::max(scanned.LatestTime, lastTime);
}

// Four tables, so that a count doesn't wait for the one before it.
void WordScanner::countEvents(uint64_t count)
{
    std::array<std::array<uint32_t, 256>, 4> tables{};
    uint64_t i = 0;
    for (; i + 4 <= count; i += 4)
        for (size_t table = 0; table < 4; ++table) ++tables[table][channels[i + table]];
    for (; i < count; ++i) ++tables[0][channels[i]];
    for (size_t code = 0; code < scanned.Events.size(); ++code)
        for (const auto &table : tables) scanned.Events[code] += table[code];
}

void WordScanner::countStepsBack(uint64_t count)
{
    uint64_t before = lastTime;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t time = timeOf(times[i]);
        if (isNegative(time - before))
            ++(channels[i] == ChannelCode::Overflow ? scanned.IdleOverflows : scanned.StepsBack);
        scanned.LatestTime = std::max(scanned.LatestTime, time);
        before = time;
    }
}

uint64_t WordScanner::firstFaultIn(std::span<const uint32_t> words, uint64_t base) const
{
    uint64_t before = lastTime;
    for (uint64_t i = 0; i < words.size(); ++i) {
        uint64_t raw = 0;
        uint8_t channel = 0;
        InvalidWords invalid;
        const bool isEvent = decodePlain(words.subspan(i, 1), rules, base, &raw, &channel, invalid) > 0;
        if (invalid.Count > 0 || (isEvent && isNegative(timeOf(raw) - before))) return i;
        if (isEvent) before = timeOf(raw);
    }
    return words.size(); // not reached: there is one
}

} // namespace Tessel
