// A slice is counted into a window of its own, whose bins are added to the trace's in the order of the file.
// Where an event is in an earlier bin than one before it, what the trace becomes depends on where its window
// stands: such a slice is counted into that, while it has its turn. The trace is given out at the end of each
// batch, and is then as far as that batch goes.
#include "measurements/time_trace_sides.h"

#include "devices/source.h"
#include "measurements/publish.h"

#include <algorithm>
#include <mutex>
#include <new>

namespace Tessel {

namespace {

constexpr uint64_t pieceOfTrace = 8192; // events; with their words they stay in the second-level cache
constexpr uint64_t largestWindow = uint64_t{32} << 20; // bytes of a thread's counts

// Events of a sync come in any order. One that is still further back has its slice counted in turn.
constexpr uint64_t binsBack = 64;

static_assert(chunkWords % sliceWords == 0);
constexpr uint64_t slicesOfBatch = chunkWords / sliceWords;

class TraceSide
{
public:
    explicit TraceSide(TimeTrace &ofRun) : reader(pieceOfTrace), trace(ofRun)
    {
        window.BinWidth = trace.Window.BinWidth;
        if (!window.allocate(trace.Window.Rows, trace.Window.NumBins)) throw std::bad_alloc();
    }

    void look(RunRef &ref, const Slices &all, const Slice &slice)
    {
        const uint64_t bin = slice.First * static_cast<uint64_t>(ref.run->Facts.SyncPeriodPs) / window.BinWidth;
        emptyTrace(window, bin - std::min(bin, binsBack));
        countInto(window, *ref.run, all, slice, true);
    }

    bool takeTurn(RunRef &ref, const Slices &all, const Slice &slice)
    {
        addToTrace(ref, all, slice);
        if ((slice.Number + 1) % slicesOfBatch == 0) { // as the ordinary way does
            ref.run->NewData = true;
            newDataStep(ref);
        }
        return true;
    }

    void count(RunRef &, const Slices &, const Slice &) {}
    void add() {}  // it is there already
    void drop() {} // the trace keeps its window

    SliceReader reader;

private:
    void addToTrace(RunRef &ref, const Slices &all, const Slice &slice)
    {
        std::lock_guard manis(ref.context.ManisLock);
        TimeTraceWork &whole = trace.Window;
        const uint64_t before = window.Used > 0 ? emptyPositions(window) : 0;
        if (window.HasRestarted ||
            (window.Used > 0 && window.FirstBin + before < whole.FirstBin + whole.CurrentBin))
            countInto(whole, *ref.run, all, slice, false);
        else if (window.Used > 0)
            addTrace(whole, window, before);
        tellFirstBin(trace);
    }

    void countInto(TimeTraceWork &work, Run &run, const Slices &all, const Slice &slice, bool isFirstTime)
    {
        uint64_t base = slice.Base;
        withTime(run.Facts, [&](const auto &time) {
            for (auto words = slice.Words; !words.empty() && !isAborted(run);) {
                const uint64_t events = decodePiece(all, slice, reader, words, base, isFirstTime);
                timeTraceCount(work, time, reader.Times.data(), reader.Channels.data(), events);
            }
        });
    }

    TimeTrace &trace;
    TimeTraceWork window; // of the present slice
};

} // namespace

SideBySide traceSides(RunRef &ref, TimeTrace &result, Slices &all)
{
    const TimeTraceWork &whole = result.Window;
    if (whole.Rows > largestWindow / sizeof(uint32_t) / whole.NumBins) return {};
    return workersOf(ref, all, [&] { return std::make_shared<TraceSide>(result); });
}

} // namespace Tessel
