#include "run/histogram_loop.h"

#include "devices/acquisition.h"
#include "devices/primitives.h"
#include "devices/result.h"
#include "measurements/measurement.h"
#include "run/steps.h"
#include "threads/losses.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

namespace Tessel {

namespace {

enum SequenceMode : int32_t { ByTime = 1, ByCount = 2 };

// Trace lines are for single measurements: a sequence would fill the log.
bool isTraced(const RunRef &ref)
{
    return ref.context.SequenceMode == 0;
}

bool isStopped(const Run &run)
{
    return run.Control.StopRequested || isAborted(run);
}

// ms, of one measurement of the instrument.
int32_t measuredTime(const RunRef &ref)
{
    constexpr uint64_t psPerMs = 1'000'000'000;
    if (ref.context.SequenceMode != ByTime)
        return std::clamp(ref.run->AcqTimeMs, 1, Pace::longestAcquisitionMs);
    return static_cast<int32_t>(
        std::min<uint64_t>(ref.context.SequencePeriodPs / psPerMs, Pace::longestAcquisitionMs));
}

bool start(RunRef &ref, HistogramLoop &loop)
{
    loop.TimerStatus = 0;
    if (ref.context.SequenceMode == ByCount) {
        constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
        const uint64_t count = std::min(ref.context.SequenceCount.load(), most);
        SetStopOverflow(ref.device, ref.context, static_cast<uint32_t>(count), false);
    }
    loop.Running = StartMeasure(ref.device, measuredTime(ref), isTraced(ref));
    return loop.Running;
}

void tellHistogramFlags(RunRef &ref, int32_t flags)
{
    if (flags & Flag::SyncLost) tellFlag(ref, StopReason::SyncLost, "Sync_Lost");
    if (flags & Flag::RefLost) tellFlag(ref, StopReason::RefClkLost, "Ref_Lost");
    if (flags & Flag::SystemError) tellFlag(ref, StopReason::SysError, "SysError");
    if (flags & Flag::CountsDropped) {
        noteLoss(*ref.run, LossPlace::Dropped, 0);
        logWrn(LogCategory::Device, "Device: Cnts_Dropped @{}", ref.device.ID);
        if (ref.context.SequenceMode == ByCount) clearHistMem(ref.device, false); // this count can't be trusted
    }
    if (flags & Flag::FifoFull) {
        noteLoss(*ref.run, LossPlace::Fifo, 0);
        tellFlag(ref, StopReason::FiFoOverrun, "FIFO Full");
    }
}

void askFlags(RunRef &ref, HistogramLoop &loop)
{
    loop.Flags = 0;
    if (!loop.TimerRunning) return;
    if (getFlags(ref.device, loop.Flags, isTraced(ref))) {
        tellHistogramFlags(ref, loop.Flags);
    } else {
        loop.Flags = Flag::RefLost;
        tellFlag(ref, StopReason::DataXferFail, "Device lost");
    }
}

// Those that end the run.
int32_t endingFlags(const RunRef &ref, const HistogramLoop &loop)
{
    int32_t harmless = Flag::CountsDropped;
    if (ref.device.LibType == LibType::CD) harmless |= Flag::StillActive;
    if (ref.context.SequenceMode == ByCount) harmless |= Flag::CountReached; // it ends a step
    return loop.Flags & ~harmless;
}

// True: the run ends.
bool askTimer(RunRef &ref, HistogramLoop &loop)
{
    if (ref.device.IsOpen && getCtcStatus(ref.device, loop.TimerStatus, isTraced(ref))) return false;
    return endWith(ref, StopReason::Unknown);
}

// The timer was seen running, and has run out.
bool timerRanOut(const HistogramLoop &loop)
{
    return loop.TimerStatus == 1 && loop.TimerRunning;
}

// An instrument of the CD family works on for a moment.
bool isStillActive(const RunRef &ref, const HistogramLoop &loop)
{
    return ref.device.LibType == LibType::CD && (loop.Flags & Flag::StillActive);
}

void waitShort(RunRef &ref)
{
    constexpr int32_t shortMs = 1000;
    if (measuredTime(ref) < shortMs)
        waitFor(ref.run->Control, Pace::shortPass, [&ref] { return isStopped(*ref.run); });
}

// Into the caller's rows, but for that of the sync. False: the host has emptied them meanwhile.
bool showFetched(RunRef &ref, const HistogramLoop &loop)
{
    Run &run = *ref.run;
    std::lock_guard lock(ref.context.ManisLock);
    if (run.ClearRequested.exchange(false)) return false;
    const CountArray &counts = resultAs<Histogram>(run).Counts;
    const uint64_t end = std::min(counts.Rows * counts.Columns, loop.Size);
    if (end > counts.Columns)
        std::copy(loop.Fetched.get() + counts.Columns, loop.Fetched.get() + end, counts.Data + counts.Columns);
    return true;
}

// The library may hang, and so it never writes to the caller's array.
bool fetch(RunRef &ref, HistogramLoop &loop, bool clear)
{
    Run &run = *ref.run;
    if (valueOf(ref.device, &DeviceConfig::NumBins) != run.NumBins)
        return refuse(ref.device, "The number of bins has changed during the measurement!");
    do {
        run.ClearRequested = false;
        if (!ref.device.IsOpen ||
            !getHistograms(ref.device, {loop.Fetched.get(), loop.Size}, clear, isTraced(ref)))
            return false;
    } while (!showFetched(ref, loop) && !isAborted(run));
    return true;
}

// A step that the host wants to take is held until he has, or the run is to end.
void publishFetched(RunRef &ref)
{
    Run &run = *ref.run;
    const bool isHeld = ref.context.SequenceMode != 0 && ref.context.SequenceWait;
    (isHeld ? run.NewDataWait : run.NewData) = true;
    wake(run.Control);
    if (isHeld) waitFor(run.Control, [&run] { return !run.NewDataWait || isStopped(run); });
}

// True: the run ends.
bool takeHistograms(RunRef &ref, HistogramLoop &loop, bool clear)
{
    if (!fetch(ref, loop, clear)) {
        endWith(ref, StopReason::DataXferFail);
        stopHistogramming(ref, loop);
        return true;
    }
    publishFetched(ref);
    return false;
}

void beginStep(HistogramLoop &loop)
{
    loop.TimerRunning = false;
    loop.ClearPending = loop.StartPending = true;
}

// No sequence: the caller's array follows the instrument's memory. An instrument that has stopped at its count
// is fetched for the last time.
bool passSingle(RunRef &ref, HistogramLoop &loop)
{
    if (endingFlags(ref, loop) & ~Flag::CountReached) return true;
    bool ended = askTimer(ref, loop);
    if (!ended && timerRanOut(loop) && !isStillActive(ref, loop)) {
        ended = endWith(ref, StopReason::TimeOver);
        if (ref.run->Facts.StopCount != 0) askFlags(ref, loop); // was it the count?
    }
    if (endingFlags(ref, loop) & Flag::CountReached) ended = endWith(ref, StopReason::OverFlow);
    waitShort(ref);
    if (loop.TimerStatus != 1) loop.TimerRunning = true;
    return takeHistograms(ref, loop, false) || ended;
}

// Each period is a measurement.
bool passByTime(RunRef &ref, HistogramLoop &loop)
{
    if (askTimer(ref, loop)) {
        stopHistogramming(ref, loop);
        return true;
    }
    if (timerRanOut(loop) && !isStillActive(ref, loop)) {
        endWith(ref, StopReason::TimeOver);
        if (takeHistograms(ref, loop, true)) return true;
        beginStep(loop);
    }
    waitShort(ref);
    if (loop.TimerStatus != 1) loop.TimerRunning = true;
    return false;
}

// A measurement ends when a bin has the count, or with the timer.
bool passByCount(RunRef &ref, HistogramLoop &loop)
{
    if (askTimer(ref, loop)) return true;
    const bool isOver = timerRanOut(loop), isReached = loop.Flags & Flag::CountReached;
    loop.TimerRunning = true;
    if (!isOver && !isReached) return false;
    endWith(ref, isOver ? StopReason::TimeOver : StopReason::OverFlow);
    if (takeHistograms(ref, loop, false)) return true;
    if (loop.TimerStatus == 1) StopMeasure(ref.device, false);
    beginStep(loop);
    return false;
}

} // namespace

void stopHistogramming(RunRef &ref, HistogramLoop &loop)
{
    if (std::exchange(loop.Running, false) && ref.device.IsOpen) StopMeasure(ref.device, isTraced(ref));
}

// A caller that waits for the run changes nothing: between two passes others come to the library.
bool passHistogramLoop(RunRef &ref, HistogramLoop &loop)
{
    if (std::exchange(loop.ClearPending, false)) clearHistMem(ref.device, isTraced(ref));
    if (!ref.device.IsOpen) return endWith(ref, StopReason::DataXferFail);
    if (std::exchange(loop.StartPending, false) && !start(ref, loop)) return endWith(ref, StopReason::SyncLost);
    askFlags(ref, loop);
    bool ended = endingFlags(ref, loop) != 0;
    switch (ref.context.SequenceMode) {
    case ByTime: ended = passByTime(ref, loop) || ended; break;
    case ByCount: ended = passByCount(ref, loop) || ended; break;
    default: ended = passSingle(ref, loop);
    }
    if (!ended && !ref.run->Control.StopRequested) {
        waitFor(ref.run->Control, Pace::instrumentPass, [&ref] { return isStopped(*ref.run); });
        return false;
    }
    stopHistogramming(ref, loop);
    return true;
}

} // namespace Tessel
