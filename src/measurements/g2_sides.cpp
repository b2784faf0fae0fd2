// An event pairs with those of the other channel before it, within the window. So a slice needs the last times
// of both channels from the slices before it, those that their rings would hold; it hands on its own before it
// counts, and slices are counted side by side.
//
// That holds where the times of each channel ascend. A slice in which they don't is counted while it has its
// turn, on the rings as one thread would have them, and hands those on.
#include "measurements/g2_sides.h"

#include "measurements/correlation_count.h"
#include "measurements/correlation_result.h"
#include "measurements/correlation_setup.h"
#include "stream/times.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace Tessel {

namespace {

constexpr uint64_t largestRows = uint64_t{32} << 20; // bytes of a thread's rows
constexpr uint64_t mostHanded = 1'000'000;           // times of a channel; with more, one thread holds them all

// The end of a channel, as a ring holds it: times that ascend, none more than the window before the last.
struct ChannelEnd
{
    std::vector<uint64_t> Times{}; // ps
    uint64_t latest() const { return Times.empty() ? 0 : Times.back(); }
};

// What one slice hands on to the next: the ends, or, where times didn't ascend, the rings themselves.
struct Handed
{
    std::array<ChannelEnd, 2> Ends{};
    std::optional<std::array<TimeRing, 2>> Rings{};
};

// Where the first and the last events of a channel are. Guarded by ManisLock, or one thread's own.
struct Bounds
{
    uint64_t First = 0, FirstIn = UINT64_MAX; // ps; 0: none. The slice that it is in
    uint64_t Last = 0, LastIn = 0;
};

void refill(TimeRing &ring, const ChannelEnd &end, uint64_t window)
{
    TimeRing empty;
    empty.Times = std::move(ring.Times);
    empty.Capacity = ring.Capacity;
    empty.MaxCapacity = ring.MaxCapacity;
    ring = std::move(empty);
    reserve(ring, end.Times.size());
    std::ranges::copy(end.Times, ring.behindTail());
    pushWritten(ring, end.Times.size(), window);
}

// None: what it holds doesn't ascend.
std::optional<ChannelEnd> endOf(const TimeRing &ring)
{
    if (!ring.isAscending() || ring.VisibleFrom > ring.Head || ring.Latest >= TimeRing::TimeLimit)
        return std::nullopt;
    const uint64_t *times = ring.Times.get();
    return ChannelEnd{{times + ring.place(ring.Head), times + ring.place(ring.Tail)}};
}

bool areAscending(const uint64_t *times, uint64_t count)
{
    uint64_t signs = times[0] | times[count - 1];
    for (uint64_t i = 1; i < count; ++i) signs |= times[i] - times[i - 1];
    return signs >> 63 == 0;
}

// What a slice has of a channel.
struct ChannelPart
{
    bool Ascends = true;
    uint64_t First = 0;
    ChannelEnd End; // no times: it has none
};

// `channel`: of CorrChan1 or CorrChan2.
ChannelPart partOf(const TimedEvents &events, uint64_t channel, uint64_t window, bool allAscend)
{
    ChannelPart part;
    if (channel >= ChannelCode::Special || events.Count == 0) return part;
    const auto code = static_cast<int>(channel);
    const auto *first = static_cast<const uint8_t *>(std::memchr(events.Channels, code, events.Count));
    if (!first) return part;
    part.First = events.Times[first - events.Channels];
    const uint8_t *at = events.Channels + events.Count;
    uint64_t last = 0;
    do {
        at = static_cast<const uint8_t *>(
            memrchr(events.Channels, code, static_cast<size_t>(at - events.Channels)));
        const uint64_t time = events.Times[at - events.Channels];
        if (part.End.Times.empty()) last = time;
        if (last - time > window) break;
        part.End.Times.push_back(time);
    } while (at != first);
    std::ranges::reverse(part.End.Times);
    if (allAscend) return part;
    uint64_t before = 0;
    for (uint64_t i = 0; i < events.Count; ++i) {
        if (events.Channels[i] != channel) continue;
        part.Ascends &= events.Times[i] >= before;
        before = events.Times[i];
    }
    part.Ascends &= before < TimeRing::TimeLimit;
    return part;
}

class G2Side
{
public:
    G2Side(const Run &run, Correlation &ofRun, std::shared_ptr<Handed> end,
           std::shared_ptr<std::array<Bounds, 2>> ofAll)
        : reader(sliceWords),
          result(ofRun),
          handed(std::move(end)),
          boundsOfAll(std::move(ofAll)),
          work(setUpCorrelation(run.Facts, run.Params.Correlation)),
          window(work->Params.CorrWindow)
    {
        work->Control = &run.Control;
    }

    void look(RunRef &ref, const Slices &all, const Slice &slice)
    {
        auto words = slice.Words;
        uint64_t base = slice.Base;
        events = {reader.Times.data(), reader.Channels.data(), decodePiece(all, slice, reader, words, base)};
        if (all.Rules.Mode == MeasMode::T3) {
            const T3Time time(ref.run->Facts);
            for (uint64_t i = 0; i < events.Count; ++i) reader.Times[i] = time.ps(reader.Times[i]);
        }
        const bool allAscend = events.Count == 0 || areAscending(events.Times, events.Count);
        parts[0] = partOf(events, work->Params.CorrChan1, window, allAscend);
        parts[1] = partOf(events, work->Params.CorrChan2, window, allAscend);
    }

    bool takeTurn(RunRef &ref, const Slices &, const Slice &slice)
    {
        for (const ChannelEnd &end : handed->Ends)
            if (end.Times.size() > mostHanded) return false;
        isCounted = !ascends();
        if (isCounted) {
            takeRings();
            countEvents(*ref.run, slice);
            giveRings();
        } else {
            for (size_t i = 0; i < 2; ++i) refill(work->Rings[i], handed->Ends[i], window);
            for (size_t i = 0; i < 2; ++i) append(handed->Ends[i], parts[i].End);
        }
        return true;
    }

    void count(RunRef &ref, const Slices &, const Slice &slice)
    {
        if (!isCounted) countEvents(*ref.run, slice);
    }

    void add()
    {
        CorrelationWork &to = *result.Work;
        for (size_t row = 0; row < 2; ++row)
            for (uint64_t k = 0; k < work->Lags; ++k) to.Rows[row][k] += work->Rows[row][k];
        to.NumAtZero += work->NumAtZero;
        for (size_t i = 0; i < 2; ++i) {
            to.CorrCounts[i] += counts[i];
            Bounds &all = (*boundsOfAll)[i];
            if (to.CorrCounts[i] == counts[i]) all = {}; // the result was empty, or the host has cleared it
            if (bounds[i].FirstIn < all.FirstIn) all.First = bounds[i].First, all.FirstIn = bounds[i].FirstIn;
            if (counts[i] > 0 && bounds[i].LastIn >= all.LastIn)
                all.Last = bounds[i].Last, all.LastIn = bounds[i].LastIn;
            to.FirstTime[i] = all.First;
            to.LastTimes[i] = all.Last;
        }
        drop();
    }

    void drop()
    {
        for (size_t row = 0; row < 2; ++row) std::fill_n(work->Rows[row].get(), work->Lags, 0);
        work->NumAtZero = 0;
        counts = {};
        bounds = {};
    }

    SliceReader reader;

private:
    // Whether the slice goes on from what was handed to it.
    bool ascends() const
    {
        for (size_t i = 0; i < 2; ++i) {
            const bool isEmpty = parts[i].End.Times.empty();
            if (!isEmpty && parts[i].First < std::max<uint64_t>(handed->Ends[i].latest(), 1)) return false;
        }
        return !handed->Rings && parts[0].Ascends && parts[1].Ascends;
    }

    void append(ChannelEnd &end, const ChannelEnd &more) const
    {
        if (more.Times.empty()) return;
        const auto isYoung = [&](uint64_t time) { return more.latest() - time <= window; };
        end.Times.erase(end.Times.begin(), std::ranges::find_if(end.Times, isYoung));
        end.Times.insert(end.Times.end(), more.Times.begin(), more.Times.end());
    }

    void takeRings()
    {
        if (handed->Rings) return std::swap(work->Rings, *handed->Rings);
        for (size_t i = 0; i < 2; ++i) refill(work->Rings[i], handed->Ends[i], window);
    }

    void giveRings()
    {
        auto first = endOf(work->Rings[0]), second = endOf(work->Rings[1]);
        if (first && second) {
            handed->Ends = {std::move(*first), std::move(*second)};
            handed->Rings.reset();
            return;
        }
        if (!handed->Rings) {
            handed->Rings.emplace();
            for (TimeRing &ring : *handed->Rings) setUpRing(ring, false);
        }
        std::swap(work->Rings, *handed->Rings);
    }

    void countEvents(const Run &run, const Slice &slice)
    {
        work->CorrCounts = work->FirstTime = {};
        for (uint64_t at = 0; at < events.Count && !isAborted(run);) {
            const uint64_t size = std::min(blockWithinReach(*work), events.Count - at);
            const TimedEvents block{events.Times + at, events.Channels + at, size};
            noteAtZero(*work, block);
            countCorrelation(*work, block);
            at += size;
        }
        for (size_t i = 0; i < 2; ++i) {
            if (work->CorrCounts[i] == 0) continue;
            counts[i] += work->CorrCounts[i];
            bounds[i].Last = work->LastTimes[i];
            bounds[i].LastIn = slice.Number;
            if (bounds[i].First != 0 || work->FirstTime[i] == 0) continue;
            bounds[i].First = work->FirstTime[i];
            bounds[i].FirstIn = slice.Number;
        }
    }

    Correlation &result;
    std::shared_ptr<Handed> handed;                     // whose turn it is
    std::shared_ptr<std::array<Bounds, 2>> boundsOfAll; // of what is in the result
    std::shared_ptr<CorrelationWork> work;              // its rows and rings; what it counts of a slice
    const uint64_t window;                              // ps

    TimedEvents events{}; // of the present slice
    std::array<ChannelPart, 2> parts;
    bool isCounted = false;

    std::array<uint64_t, 2> counts{}; // since the last look at the result
    std::array<Bounds, 2> bounds;
};

} // namespace

SideBySide g2Sides(RunRef &ref, Correlation &result, Slices &all)
{
    const CorrelationWork &work = *result.Work;
    if (work.Params.CorrMode != CorrMode::G2 || work.Lags == 0) return {};
    if (work.Lags > largestRows / (2 * sizeof(uint64_t))) return {};
    const auto handed = std::make_shared<Handed>();
    const auto bounds = std::make_shared<std::array<Bounds, 2>>();
    SideBySide sides =
        workersOf(ref, all, [&] { return std::make_shared<G2Side>(*ref.run, result, handed, bounds); });
    sides.HandOver = [&result, handed] {
        CorrelationWork &next = *result.Work;
        if (handed->Rings)
            next.Rings = std::move(*handed->Rings);
        else
            for (size_t i = 0; i < 2; ++i) refill(next.Rings[i], handed->Ends[i], next.Params.CorrWindow);
    };
    return sides;
}

} // namespace Tessel
