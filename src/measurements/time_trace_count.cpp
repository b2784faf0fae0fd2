// The loops of the time trace.
//
// Events come nearly in the order of time. So the fast loop for long bins doesn't look for the bin of an event,
// but for the run of events in the present bin: it compares each with the bin's edges and counts the run at
// once, whatever the channels are. Only of an event that may lie outside the time is worked out. Of short bins
// the elements of a block of events are worked out together, if all lie in the window.
#include "measurements/time_trace_count.h"

#include "measurements/count_elements.h"
#include "measurements/time_trace_block.h"
#include "stream/rounding.h"
#include "stream/time_span.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <optional>

namespace Tessel {

namespace {

constexpr uint64_t maxRows = ChannelCode::Special; // channels from here on aren't counted

void zeroColumns(TimeTraceWork &work, uint64_t count)
{
    const uint64_t beforeEnd = std::min(count, work.NumBins - work.Origin);
    std::fill_n(work.columnAt(0), beforeEnd * work.Rows, 0u);
    std::fill_n(work.Counts.get(), (count - beforeEnd) * work.Rows, 0u);
}

// Removes the first `count` bins from the window, which gets as many empty ones at its end.
void advance(TimeTraceWork &work, uint64_t count)
{
    zeroColumns(work, std::min(count, work.Used));
    work.Used -= std::min(count, work.Used);
    work.Origin = work.Origin + count < work.NumBins ? work.Origin + count : work.Origin + count - work.NumBins;
    work.FirstBin += count;
}

// Starts the window at its bin `count`, which becomes bin 0 alone: bins after it, in which events came before
// time went back, keep their place in the window.
void startAt(TimeTraceWork &work, uint64_t count)
{
    uint32_t *first = work.columnAt(0);
    if (count < work.NumBins)
        std::copy_n(work.columnAt(count), work.Rows, first);
    else
        std::fill_n(first, work.Rows, 0u);
    for (uint64_t i = 1; i <= std::min(count, work.NumBins - 1); ++i)
        std::fill_n(work.columnAt(i), work.Rows, 0u);
    work.Used = work.Used > count + 1 ? work.Used : 1;
    work.FirstBin += count;
    work.CurrentBin = 0;
}

void moveTo(TimeTraceWork &work, uint64_t bin)
{
    const uint64_t position = bin - work.FirstBin, numBins = work.NumBins;
    work.HasRestarted |= bin < work.FirstBin;
    work.CurrentBin = position;
    if (position >= numBins && position - numBins + 1 < numBins) {
        const uint64_t shift = position - numBins + 1;
        advance(work, shift);
        work.CurrentBin = numBins - 1;
        work.Dropped = std::min(numBins, work.Dropped + shift);
    } else if (position >= numBins) { // everything is old, or the time has jumped back
        zeroColumns(work, work.Used);
        work.FirstBin = bin;
        work.CurrentBin = work.Used = 0;
        work.Dropped = numBins;
    }
    work.Used = std::max(work.Used, work.CurrentBin + 1);
}

// One event, with a division only if it lies outside the present bin.
template <class Time>
void countOne(TimeTraceWork &work, const Time &time, uint64_t raw, uint8_t channel)
{
    if (isMarker(channel)) return;
    const uint64_t ps = time.ps(raw), start = (work.FirstBin + work.CurrentBin) * work.BinWidth;
    if (ps < start || ps - start >= work.BinWidth) moveTo(work, ps / work.BinWidth);
    if (channel < std::min(work.Rows, maxRows)) ++work.columnAt(work.CurrentBin)[channel];
}

template <class Time>
void countPlain(TimeTraceWork &work, const Time &time, const uint64_t *times, const uint8_t *channels,
                uint64_t count)
{
    const uint64_t rows = std::min(work.Rows, maxRows);
    for (uint64_t i = 0; i < count; ++i) {
        if (isMarker(channels[i])) continue;
        moveTo(work, time.ps(times[i]) / work.BinWidth);
        if (channels[i] < rows) ++work.columnAt(work.CurrentBin)[channels[i]];
    }
}

// Raw times that are surely in the present bin: from First on, Span of them.
struct BinEdges
{
    uint64_t First, Span;
};

template <class Time>
BinEdges edgesOf(const TimeTraceWork &work, const Time &time)
{
    const uint64_t start = (work.FirstBin + work.CurrentBin) * work.BinWidth;
    const uint64_t end = start <= std::numeric_limits<uint64_t>::max() - work.BinWidth
                             ? start + work.BinWidth
                             : std::numeric_limits<uint64_t>::max();
    const uint64_t first = time.surelyFrom(start), behind = time.surelyBefore(end);
    return {first, behind > first ? behind - first : 0};
}

// Counts events of one bin by their channels. In one table an event would wait for the one before it, if their
// channels are the same; so events take turns on several tables.
class ChannelCounter
{
public:
    explicit ChannelCounter(uint64_t rowCount) : rows(rowCount) { clear(); }

    void count(uint32_t *column, const uint8_t *channels, uint64_t length)
    {
        if (length < rows * tables.size()) {
            for (uint64_t i = 0; i < length; ++i)
                if (channels[i] < rows) ++column[channels[i]];
            return;
        }
        uint64_t i = 0;
        for (; i + tables.size() <= length; i += tables.size())
            for (size_t k = 0; k < tables.size(); ++k) ++tables[k][channels[i + k]];
        for (; i < length; ++i) ++tables[0][channels[i]];
        for (const auto &table : tables)
            for (uint64_t row = 0; row < rows; ++row) column[row] += table[row];
        clear();
    }

private:
    void clear()
    {
        for (auto &table : tables) std::fill_n(table.begin(), rows, 0u);
    }

    const uint64_t rows;
    std::array<std::array<uint32_t, 256>, 4> tables; // what lies behind the rows is never read
};

template <class Time>
void countRuns(TimeTraceWork &work, const Time &time, const uint64_t *times, const uint8_t *channels,
               uint64_t count)
{
    if (count == 0) return;
    BinEdges edges = edgesOf(work, time);
    if (edges.Span == 0) return countPlain(work, time, times, channels, count); // bins of a few sync periods
    ChannelCounter counter(std::min(work.Rows, maxRows));
    work.Used = std::max(work.Used, work.CurrentBin + 1);
    for (uint64_t i = 0; i < count;) {
        const uint64_t length = leadingWithin(times + i, count - i, edges.First, edges.First + edges.Span);
        counter.count(work.columnAt(work.CurrentBin), channels + i, length);
        i += length;
        if (i == count) break;
        const uint64_t bin = work.FirstBin + work.CurrentBin;
        countOne(work, time, times[i], channels[i]);
        ++i;
        if (work.FirstBin + work.CurrentBin != bin) edges = edgesOf(work, time);
    }
}

TraceScale scaleOf(uint64_t fromPs, T2Time)
{
    return {fromPs, false, 0, 0};
}
TraceScale scaleOf(uint64_t fromPs, const T3Time &time)
{
    return {fromPs, true, time.periodPs(), time.resolutionPs()};
}

// Moves the window so far that it ends with the block's last bin, and gives the distance of its first one.
// Nothing if an event would then be before the window: one by one it would have been counted, or have started
// the window anew.
std::optional<uint64_t> makeVisible(TimeTraceWork &work, const TraceBlock &block)
{
    const uint64_t lastBin = block.Most / work.BinWidth, numBins = work.NumBins;
    const uint64_t shift = lastBin < numBins ? 0 : lastBin - numBins + 1;
    const uint64_t skipped = shift * work.BinWidth;
    if (shift >= numBins || block.Least < skipped) return std::nullopt;
    if (shift > 0) {
        advance(work, shift);
        work.Dropped = std::min(numBins, work.Dropped + shift);
    }
    work.Used = std::max(work.Used, lastBin - shift + 1);
    return skipped;
}

// A block of TraceBlock::Events. False: it must be counted otherwise.
template <class Time>
bool countBlock(TimeTraceWork &work, const Time &time, const uint64_t *times, const uint8_t *channels)
{
    constexpr uint64_t mostElements = uint64_t{1} << 31;
    TraceBlock block;
    if (work.Rows >= mostElements / work.NumBins ||
        !findDistances(block, scaleOf(work.FirstBin * work.BinWidth, time), times, channels))
        return false;
    const auto skipped = makeVisible(work, block);
    if (!skipped) return false;
    std::array<uint32_t, TraceBlock::Events> elements;
    const TraceColumns columns{*skipped, work.BinWidth, work.NumBins, work.Origin, work.Rows};
    const uint64_t found =
        findElements(block, columns, std::min(work.Rows, maxRows), channels, elements.data());
    countElements(elements.data(), found, work.Counts.get());
    uint64_t last = TraceBlock::Events - 1;
    while (isMarker(channels[last])) --last;
    work.CurrentBin = (block.Distances[last] - *skipped) / work.BinWidth;
    return true;
}

constexpr uint64_t stretchEvents = 8 * TraceBlock::Events;

// Whether so many bins begin within a stretch that runs are short.
template <class Time>
bool hasShortBins(const TimeTraceWork &work, const Time &time, const uint64_t *times)
{
    constexpr uint64_t eventsOfRun = 256; // from here on runs are as fast
    const uint64_t span = time.ps(times[stretchEvents - 1]) - time.ps(times[0]);
    return span / (stretchEvents / eventsOfRun) > work.BinWidth;
}

template <class Time>
void countAll(TimeTraceWork &work, const Time &time, const uint64_t *times, const uint8_t *channels,
              uint64_t count)
{
    while (count > 0) {
        const uint64_t events = std::min(count, stretchEvents);
        const bool inBlocks = events == stretchEvents && hasShortBins(work, time, times);
        uint64_t done = 0;
        while (inBlocks && done < events && countBlock(work, time, times + done, channels + done))
            done += TraceBlock::Events;
        countRuns(work, time, times + done, channels + done, events - done);
        times += events, channels += events, count -= events;
    }
}

} // namespace

bool TimeTraceWork::allocate(uint64_t rows, uint64_t numBins)
{
    Rows = rows;
    NumBins = numBins;
    const bool fits = numBins == 0 || rows <= std::numeric_limits<uint64_t>::max() / numBins;
    return fits && allocatePages(Counts, rows * numBins);
}

void TimeTraceWork::growTo(uint64_t rows)
{
    PageArray<uint32_t> grown;
    if (!allocatePages(grown, rows * NumBins)) throw std::bad_alloc();
    for (uint64_t column = 0; column < NumBins; ++column)
        std::copy_n(Counts.get() + column * Rows, Rows, grown.get() + column * rows);
    Counts = std::move(grown);
    Rows = rows;
}

uint64_t traceBinWidth(uint64_t historySizePs, uint64_t numBins)
{
    if (numBins == 0) return 0;
    return truncated<uint64_t>(static_cast<double>(historySizePs) / static_cast<double>(numBins));
}

void timeTraceCount(TimeTraceWork &work, T2Time time, const uint64_t *times, const uint8_t *channels,
                    uint64_t count)
{
    countAll(work, time, times, channels, count);
}
void timeTraceCount(TimeTraceWork &work, const T3Time &time, const uint64_t *times, const uint8_t *channels,
                    uint64_t count)
{
    countAll(work, time, times, channels, count);
}

void addTrace(TimeTraceWork &work, const TimeTraceWork &counted, uint64_t before)
{
    const uint64_t rows = std::min(work.Rows, counted.Rows);
    for (uint64_t position = before; position < counted.Used; ++position) {
        moveTo(work, counted.FirstBin + position);
        const uint32_t *from = counted.columnAt(position);
        uint32_t *to = work.columnAt(work.CurrentBin);
        for (uint64_t row = 0; row < rows; ++row) to[row] += from[row];
    }
    moveTo(work, counted.FirstBin + counted.CurrentBin);
}

uint64_t emptyPositions(const TimeTraceWork &work)
{
    auto isEmpty = [&work](uint64_t position) {
        const uint32_t *column = work.columnAt(position);
        return std::all_of(column, column + work.Rows, [](uint32_t count) { return count == 0; });
    };
    uint64_t position = 0;
    while (position < work.CurrentBin && isEmpty(position)) ++position;
    return position;
}

void emptyTrace(TimeTraceWork &work, uint64_t firstBin)
{
    zeroColumns(work, work.Used);
    work.FirstBin = firstBin;
    work.CurrentBin = work.Origin = work.Used = work.Dropped = 0;
    work.HasRestarted = false;
}

bool giveOutTrace(TimeTraceWork &work, uint32_t *trace, uint64_t rows, bool last)
{
    const uint64_t numBins = work.NumBins;
    const uint64_t given = last && numBins > 1 ? work.CurrentBin + 1 : work.CurrentBin;
    if (given == 0) return last;
    const uint64_t moved = std::min(numBins, work.Dropped + given);
    for (uint64_t row = 0; trace && row < std::min(rows, work.Rows); ++row) {
        uint32_t *bins = trace + row * numBins;
        std::copy(bins + moved, bins + numBins, bins);
        std::fill_n(bins + (numBins - moved), moved - given, 0u);
        for (uint64_t i = 0; i < given; ++i) bins[numBins - given + i] = work.columnAt(i)[row];
    }
    startAt(work, given);
    work.Dropped = 0;
    return true;
}

} // namespace Tessel
