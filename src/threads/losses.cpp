#include "threads/losses.h"

#include "threads/run_control.h"

#include <algorithm>
#include <span>

namespace Tessel {

void startLedger(Run &run) noexcept
{
    std::lock_guard lock(run.Ledger.Lock);
    run.Ledger.BeganAt = monotonicNs();
}

void noteLoss(Run &run, LossPlace place, uint64_t lost, bool hadOverflows) noexcept
{
    const int64_t now = monotonicNs();
    std::lock_guard lock(run.Ledger.Lock);
    Loss &loss = run.Ledger.Places[static_cast<size_t>(place)];
    loss.LastNs = run.Ledger.BeganAt == 0 ? 0 : now - run.Ledger.BeganAt;
    if (loss.Occasions == 0) loss.FirstNs = loss.LastNs;
    ++loss.Occasions;
    loss.Lost += lost;
    loss.HadOverflows |= hadOverflows;
}

namespace {

using enum LossPlace;

constexpr LossPlace ofResult[] = {Fifo,  Dropped,  ReadBuffer,  InvalidWords, Store,
                                  Stage, RawBlock, UnfoldBlock, Import};
constexpr LossPlace ofRecording[] = {Fifo, Dropped, ReadBuffer, File};

LossReport reportOf(Losses &ledger, std::span<const LossPlace> places)
{
    LossReport report;
    std::lock_guard lock(ledger.Lock);
    for (const LossPlace place : places) {
        const Loss &loss = report.Places[static_cast<size_t>(place)] =
            ledger.Places[static_cast<size_t>(place)];
        if (loss.Occasions > 0) report.Verdict = std::max(report.Verdict, Verdict::Lossy);
    }
    return report;
}

bool hadOverflows(const Loss &loss)
{
    return loss.HadOverflows;
}

} // namespace

// Overflows that the read buffer lost are made good where the run decodes, but not in words as they came.
LossReport lossesOf(Run &run)
{
    LossReport report = reportOf(run.Ledger, ofResult);
    const bool hasWords = run.Request.Kind == MeasKind::Raw;
    if (report.Places[static_cast<size_t>(InvalidWords)].Occasions > 0 ||
        (hasWords && std::ranges::any_of(report.Places, hadOverflows)))
        report.Verdict = Verdict::Invalid;
    return report;
}

LossReport lossesOfRecording(Run &run)
{
    LossReport report = reportOf(run.Ledger, ofRecording);
    if (std::ranges::any_of(report.Places, hadOverflows)) report.Verdict = Verdict::Invalid;
    return report;
}

void tellOrder(Run &run, uint64_t stepsBack, uint64_t largestStep) noexcept
{
    if (stepsBack == run.StepsBack) return;
    const bool isT3 = run.Facts.Mode == MeasMode::T3;
    run.LargestStep = largestStep * (isT3 ? static_cast<uint64_t>(run.Facts.SyncPeriodPs) : 1);
    run.StepsBack = stepsBack;
}

DeviceLosses lossesOf(const DeviceRef &target)
{
    DeviceLosses losses;
    auto run = currentRun(target->context);
    if (run) {
        losses.Result = lossesOf(*run);
        losses.StepsBack = run->StepsBack;
        losses.LargestStepPs = run->LargestStep;
        losses.IsSorted = run->IsSorted;
        losses.Unsorted = run->Unsorted;
    }
    if (target->device.DeviceType == DeviceType::File)
        losses.Recording = target->context.FileLosses;
    else if (run && run->Facts.IsLive && run->Request.SaveToFile &&
             run->Facts.Mode != MeasMode::Histogramming) // which is never recorded
        losses.Recording = lossesOfRecording(*run);
    return losses;
}

} // namespace Tessel
