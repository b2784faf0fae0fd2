#include "threads/losses.h"

#include "records/run.h"
#include "threads/run_control.h"

#include <algorithm>
#include <initializer_list>

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

template <class Condition>
bool anyOf(const LossList &losses, std::initializer_list<LossPlace> places, Condition condition)
{
    return std::ranges::any_of(places,
                               [&](LossPlace place) { return condition(losses[static_cast<size_t>(place)]); });
}

bool isLost(const Loss &loss)
{
    return loss.Occasions > 0;
}

bool hadOverflows(const Loss &loss)
{
    return loss.HadOverflows;
}

// Overflows that the read buffer lost are made good in the run, but not in its recording.
Verdict verdictOfResult(const LossList &losses)
{
    if (anyOf(losses, {InvalidWords}, isLost)) return Verdict::Invalid;
    const bool lost =
        anyOf(losses, {Fifo, Dropped, ReadBuffer, Store, Stage, RawBlock, UnfoldBlock, Import}, isLost);
    return lost ? Verdict::Lossy : Verdict::Clean;
}

Verdict verdictOfRecording(const LossList &losses)
{
    if (anyOf(losses, {ReadBuffer, File}, hadOverflows)) return Verdict::Invalid;
    return anyOf(losses, {Fifo, Dropped, ReadBuffer, File}, isLost) ? Verdict::Lossy : Verdict::Clean;
}

} // namespace

LossReport lossesOf(Run &run)
{
    std::lock_guard lock(run.Ledger.Lock);
    LossReport report{.Places = run.Ledger.Places};
    report.Verdict = verdictOfResult(report.Places);
    if (run.Request.SaveToFile) report.OfRecording = verdictOfRecording(report.Places);
    return report;
}

} // namespace Tessel
