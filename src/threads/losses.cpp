#include "threads/losses.h"

#include "records/run.h"
#include "threads/run_control.h"

#include <algorithm>

namespace Tessel {

void startLedger(Run &run) noexcept
{
    std::lock_guard lock(run.Ledger.Lock);
    run.Ledger.BeganAt = monotonicNs();
}

void noteLoss(Run &run, LossPlace place, uint64_t lost) noexcept
{
    const int64_t now = monotonicNs();
    std::lock_guard lock(run.Ledger.Lock);
    Loss &loss = run.Ledger.Places[static_cast<size_t>(place)];
    loss.LastNs = run.Ledger.BeganAt == 0 ? 0 : now - run.Ledger.BeganAt;
    if (loss.Occasions == 0) loss.FirstNs = loss.LastNs;
    ++loss.Occasions;
    loss.Lost += lost;
}

namespace {

bool isLost(const Loss &loss)
{
    return loss.Occasions > 0;
}

} // namespace

LossReport lossesOf(Run &run)
{
    std::lock_guard lock(run.Ledger.Lock);
    LossReport report{.Places = run.Ledger.Places};
    const auto at = [&](LossPlace place) { return isLost(report.Places[static_cast<size_t>(place)]); };
    if (at(LossPlace::ReadBuffer))
        report.Verdict = Verdict::Invalid;
    else if (std::ranges::any_of(report.Places, isLost))
        report.Verdict = Verdict::Lossy;
    return report;
}

} // namespace Tessel
