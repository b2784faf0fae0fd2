// T3: channel and dtime stand side by side in a word, so a word counts in a table of its own upper bits, and
// needs no decoding. Only where one is invalid the slice is decoded.
//
// T2: of the slices before it, one needs the time of the last reference event alone.
#include "measurements/histogram_sides.h"

#include "measurements/histogram_count.h"
#include "stream/event_store.h"
#include "stream/times.h"

#include <algorithm>
#include <new>

namespace Tessel {

namespace {

constexpr uint64_t pieceEvents = 8192;               // with their words they stay in the second-level cache
constexpr uint64_t largestCopy = uint64_t{32} << 20; // bytes of a thread's counts
constexpr uint64_t dtimes = dtimeMask + 1;

// Adds the counts and zeroes them.
void moveCounts(uint32_t *from, uint32_t *to, uint64_t count)
{
    for (uint64_t i = 0; i < count; ++i) to[i] += from[i];
    std::fill_n(from, count, 0u);
}

class T3Side
{
public:
    T3Side(const Run &run, Histogram &ofRun)
        : reader(pieceEvents), result(ofRun), rows(std::min<uint64_t>(run.NumRows, ChannelCode::Special))
    {
        if (!allocatePages(counts, (1 + tableRows) * dtimes)) throw std::bad_alloc();
    }

    void look(RunRef &, const Slices &, const Slice &) {}

    void count(RunRef &, const Slices &all, const Slice &slice)
    {
        if (slice.AllValid)
            for (const uint32_t word : slice.Words) ++counts[dtimes + (word >> dtimeShift)];
        else
            countDecoded(all, slice);
    }

    void add()
    {
        const uint64_t bins = std::min(result.Counts.Columns, dtimes);
        for (uint64_t row = 1; row < std::min(rows, result.Counts.Rows); ++row)
            moveCounts(&counts[row * dtimes], result.Counts.Data + row * result.Counts.Columns, bins);
    }

    void drop() { std::fill_n(counts.get(), rows * dtimes, 0u); }

    SliceReader reader;

private:
    static constexpr uint64_t tableRows = 128; // special bit and channel
    static constexpr int dtimeShift = 10;

    void countDecoded(const Slices &all, const Slice &slice)
    {
        uint64_t base = slice.Base;
        for (auto words = slice.Words; !words.empty();) {
            const uint64_t events = decodePiece(all, slice, reader, words, base);
            countT3(reader.Times.data(), reader.Channels.data(), events, counts.get(), dtimes, rows);
        }
    }

    Histogram &result;
    const uint64_t rows;
    // Row 1 + c is input c, so its row is its code. Rows of special words are counted too, and never read.
    PageArray<uint32_t> counts;
};

// What one slice hands on to the next.
struct LastReference
{
    uint64_t Time = 0; // ps; 0: none seen
};

class T2Side
{
public:
    T2Side(const Run &run, Histogram &ofRun, std::shared_ptr<LastReference> last)
        : reader(pieceEvents),
          result(ofRun),
          rows(result.Counts.Rows),
          bins(result.Counts.Columns),
          params(run.Params.Histogram),
          handed(std::move(last))
    {
        if (!allocatePages(counts, rows * bins)) throw std::bad_alloc();
    }

    void look(RunRef &, const Slices &all, const Slice &slice)
    {
        hasReference = false;
        const uint32_t refChan = params.HistoRefChan;
        if (refChan >= std::min<uint64_t>(rows, ChannelCode::Special) || refChan > all.Rules.NumChans) return;
        const uint32_t kind = refChan == ChannelCode::Sync ? Word::SyncKind : refChan - 1;
        const auto &words = slice.Words;
        const auto last =
            std::find_if(words.rbegin(), words.rend(), [kind](uint32_t word) { return word >> 25 == kind; });
        if (last == words.rend()) return;
        hasReference = true;
        const auto after = static_cast<size_t>(last - words.rbegin());
        const uint64_t base = slice.BaseAfter - overflowsIn(words.last(after), all.Rules.Mode);
        reference = (base + Word::timetag(*last)) * all.Rules.SyncPeriodPs;
    }

    bool takeTurn(RunRef &, const Slices &, const Slice &)
    {
        lastRefTime = handed->Time;
        if (hasReference) handed->Time = reference;
        return true;
    }

    void count(RunRef &, const Slices &all, const Slice &slice)
    {
        uint64_t base = slice.Base;
        for (auto words = slice.Words; !words.empty();) {
            const uint64_t events = decodePiece(all, slice, reader, words, base);
            countT2(reader.Times.data(), reader.Channels.data(), events, counts.get(),
                    {lastRefTime, params.HistoRefChan, params.HistoBinWidth, bins, rows});
        }
    }

    void add() { moveCounts(counts.get(), result.Counts.Data, rows * bins); }
    void drop() { std::fill_n(counts.get(), rows * bins, 0u); }

    SliceReader reader;

private:
    Histogram &result;
    const uint64_t rows, bins;
    const HistogramParams params;
    std::shared_ptr<LastReference> handed; // whose turn it is
    PageArray<uint32_t> counts;            // as the caller's

    bool hasReference = false; // of the present slice
    uint64_t reference = 0;    // ps, its last
    uint64_t lastRefTime = 0;  // ps, before it
};

SideBySide t2Sides(RunRef &ref, Histogram &result, Slices &all)
{
    const auto last = std::make_shared<LastReference>();
    SideBySide sides = workersOf(ref, all, [&] { return std::make_shared<T2Side>(*ref.run, result, last); });
    sides.HandOver = [&result, last] { result.LastRefTime = last->Time; };
    return sides;
}

} // namespace

SideBySide histogramSides(RunRef &ref, Histogram &result, Slices &all)
{
    const CountArray &counts = result.Counts;
    if (ref.run->Facts.StopCount != 0 || counts.Rows == 0) return {};
    if (ref.run->Facts.Mode == MeasMode::T3)
        return workersOf(ref, all, [&] { return std::make_shared<T3Side>(*ref.run, result); });
    if (counts.Rows > largestCopy / sizeof(uint32_t) / std::max<uint64_t>(counts.Columns, 1)) return {};
    return t2Sides(ref, result, all);
}

} // namespace Tessel
