#include "run/live_read.h"

#include "devices/primitives.h"
#include "devices/rates.h"
#include "devices/result.h"
#include "log/log.h"
#include "manipulators/chain.h"
#include "measurements/raw.h"
#include "run/steps.h"
#include "settings/system_ini.h"
#include "stream/rounding.h"
#include "stream/words.h"
#include "threads/losses.h"
#include "threads/paces.h"
#include "threads/run_control.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Tessel {

bool takeSyncPeriod(RunRef &ref, int32_t syncRate)
{
    Run &run = *ref.run;
    if (!run.Facts.IsLive || run.Facts.Mode != MeasMode::T3) return true;
    if (syncRate == 0) {
        ref.context.Description.StopReason = StopReason::SyncLost;
        reportDeviceError(ref.device, LogCategory::General, "Device: No sync detected! @{}", ref.device.ID);
        return false;
    }
    constexpr int32_t countedRate = 100; // below it the rate is too coarse, and the instrument is asked
    double periodPs = 1e12 / syncRate;
    if (double seconds = 0; syncRate < countedRate && getSyncPeriod(ref.device, ref.context, seconds))
        periodPs = seconds * 1e12;
    // Nobody decodes before the first words are handed over.
    run.Facts.SyncPeriodPs = std::max(nearest<int64_t>(periodPs), int64_t{1});
    ref.device.SyncPeriodPs = run.Facts.SyncPeriodPs;
    return true;
}

namespace {

struct FatalFlag
{
    int32_t Bit;
    StopReason Reason;
    const char *Text;
};
constexpr FatalFlag fatalFlags[] = {{Flag::FifoFull, StopReason::FiFoOverrun, "FIFOfull"},
                                    {Flag::SyncLost, StopReason::SyncLost, "Sync_Lost"},
                                    {Flag::RefLost, StopReason::RefClkLost, "Ref_Lost"},
                                    {Flag::SystemError, StopReason::SysError, "SysError"}};

} // namespace

bool tellFlags(RunRef &ref, int32_t flags)
{
    bool ends = false;
    for (const auto &[bit, reason, text] : fatalFlags) {
        if (!(flags & bit)) continue;
        tellFlag(ref, reason, text);
        if (reason == StopReason::FiFoOverrun) noteLoss(*ref.run, LossPlace::Fifo, 0);
        ends = true;
    }
    if (flags & Flag::CountsDropped) {
        logWrn(LogCategory::Device, "Device: TTTR: Cnts_Dropped @{}", ref.device.ID);
        noteLoss(*ref.run, LossPlace::Dropped, 0);
    }
    return ends;
}

bool timerRanOut(RecordSource &source)
{
    if (source.TimerStatus == 1) return source.TimerRunning;
    source.TimerRunning = true;
    return false;
}

bool wordsWait(Run &run)
{
    std::lock_guard gate(run.ReadGate);
    return run.ReadCount > 0 || run.FillCount > 0;
}

namespace {

// A file is read in place, once ProcessThread has taken the read before: each is a batch of its own.
Reading readFromFile(RunRef &ref, RecordSource &source)
{
    Run &run = *ref.run;
    std::lock_guard gate(run.ReadGate);
    if (run.ReadCount > 0) return {.IsFull = true};
    const Reading reading = readSource(source, ref.device, run.ReadBuffer.get());
    run.ReadCount = reading.Words;
    return reading;
}

// ProcessThread gets what was read, if it has taken what it got before. ReadGate is held.
void handOverIfTaken(Run &run)
{
    if (run.ReadCount > 0 || run.FillCount == 0) return;
    std::swap(run.FillBuffer, run.ReadBuffer);
    run.ReadCount = std::exchange(run.FillCount, 0);
}

// The library may hang, so the gate isn't held: whoever stops the run passes it.
Reading readFromInstrument(RunRef &ref, RecordSource &source)
{
    Run &run = *ref.run;
    const auto handOver = [&run] {
        std::lock_guard gate(run.ReadGate);
        handOverIfTaken(run);
    };
    handOver();
    if (run.FillCount > streamRecords() - chunkWords) return {.IsFull = true};
    const Reading reading = readSource(source, ref.device, run.FillBuffer.get() + run.FillCount);
    run.FillCount += reading.Words;
    handOver();
    return reading;
}

} // namespace

void handOverRest(Run &run)
{
    std::unique_lock gate(run.ReadGate);
    run.ReadChanged.wait(gate, [&run] { return run.ReadCount == 0 || run.FillCount == 0 || isAborted(run); });
    handOverIfTaken(run);
    gate.unlock();
    run.ReadChanged.notify_all();
}

Reading readWords(RunRef &ref, RecordSource &source)
{
    const Reading reading = ref.run->Facts.IsLive ? readFromInstrument(ref, source) : readFromFile(ref, source);
    ref.run->ReadChanged.notify_all();
    return reading;
}

namespace {

// The instrument keeps its last words so long. False: ProcessThread has taken nothing.
bool waitForRoom(Run &run)
{
    std::unique_lock gate(run.ReadGate);
    return run.ReadChanged.wait_for(gate, Pace::lastRoom, [&run] {
        return run.ReadCount <= streamRecords() - chunkWords || isAborted(run);
    });
}

} // namespace

bool readLastWords(RunRef &ref, RecordSource &source)
{
    constexpr int passes = 100, mostEmpty = 4;
    Run &run = *ref.run;
    ref.context.Description.StopReason = StopReason::TimeOver;
    if (LogLevel.Api) logInf(LogCategory::Progress, "ctc stopped @{}", ref.device.ID);
    for (int pass = 0, empty = 0; pass < passes && empty <= mostEmpty && !isAborted(run); ++pass) {
        if (!waitForRoom(run)) break;
        const Reading reading = readWords(ref, source);
        if (reading.Failed) {
            ref.context.Description.StopReason = StopReason::DataXferFail;
            stopSource(source, ref.device);
            return true;
        }
        if (reading.Words > 0)
            empty = 0;
        else if (!wordsWait(run) && ++empty <= mostEmpty)
            logDeb(LogCategory::Progress, "Wait for last data: {} @{}", pass, ref.device.ID);
        waitFor(run.Control, Pace::lastData, [&run] { return isAborted(run); });
    }
    if (wordsWait(run)) return false; // the next pass goes on
    stopSource(source, ref.device);
    return true;
}

namespace {

// The overflows are kept for ProcessThread, so that the times of what comes later stay right.
void dropWords(Run &run)
{
    std::lock_guard gate(run.ReadGate);
    const std::span given(run.ReadBuffer.get(), std::exchange(run.ReadCount, 0));
    const std::span filled(run.FillBuffer.get(), std::exchange(run.FillCount, 0));
    const uint64_t overflows = overflowsIn(given, run.Facts.Mode) + overflowsIn(filled, run.Facts.Mode);
    run.DroppedOverflows += overflows;
    noteLoss(run, LossPlace::ReadBuffer, given.size() + filled.size(), overflows > 0);
}

} // namespace

void dropWaiting(RunRef &ref)
{
    Run &run = *ref.run;
    ref.context.Description.StopReason = StopReason::QueueOverrun;
    logWrn(LogCategory::Device, "Device: TTRead buffer overrun - clearing! @{}", ref.device.ID);
    dropWords(run);
    clearRawBlock(run);
    if (auto first = lockFirst(ref.context); first.record) {
        const uint64_t events = std::exchange(first.record->Events.Count, 0);
        if (events > 0) noteLoss(run, LossPlace::Store, events);
    }
}

} // namespace Tessel
