#include "measurements/measurement.h"

#include "devices/result.h"

namespace Tessel {

namespace {

constexpr uint64_t largestResult = uint64_t{1} << 31; // elements; more is a mistake of the caller's

// Calls `visitor` with the run's result and the steps of its kind.
template <class Visitor>
auto visitResult(const Run &run, Visitor visitor)
{
    return std::visit([&visitor](auto &result) { return visitor(result, result.Steps); }, run.Result->Kind);
}

ResultShape askedShape(const Run &run)
{
    return visitResult(
        run, [&run](auto &, const auto &steps) { return steps.Shape ? steps.Shape(run) : ResultShape(); });
}

bool isSensible(const ResultShape &shape)
{
    return shape.Rows == 0 || shape.Columns <= largestResult / shape.Rows;
}

} // namespace

// The one switch on the kind.
std::shared_ptr<MeasResult> resultOf(const RunRequest &request)
{
    auto made = [](auto result) { return std::make_shared<MeasResult>(MeasResult{std::move(result)}); };
    switch (request.Kind) {
    case MeasKind::Raw:
        return made(
            RawWords{.Words = request.RawBlock, .Capacity = request.RawCapacity, .Count = request.RawCount});
    case MeasKind::Histogram: return made(Histogram{.Counts = {.Data = request.HistoData}});
    case MeasKind::Histo2d: return made(Histogram2d{.Counts = {.Data = request.HistoData}});
    case MeasKind::TimeTrace:
        return made(TimeTrace{.Counts = {.Data = request.HistoData}, .FirstBin = request.TraceFirstBin});
    case MeasKind::Correlation: return made(Correlation{.Curves = request.CorrResult});
    case MeasKind::Unfold: return made(UnfoldEvents{.Block = hostsBlock(request)});
    case MeasKind::ImportSource: return made(UnfoldEvents{});
    case MeasKind::None: break;
    }
    return nullptr;
}

void beginResult(Run &run)
{
    visitResult(run, [&run](auto &result, const auto &steps) {
        if (steps.Begin) steps.Begin(run, result);
    });
}

ResultShape shapeOf(const Run &run)
{
    const ResultShape shape = askedShape(run);
    return isSensible(shape) ? shape : ResultShape();
}

bool hasResult(const Run &run)
{
    return visitResult(run, [](auto &, const auto &steps) { return steps.Shape != nullptr; });
}

bool sizeResult(RunRef &ref)
{
    Run &run = *ref.run;
    const ResultShape shape = askedShape(run);
    if (!isSensible(shape)) return refuse(ref.device, "The result has too many bins!");
    visitResult(run, [&](auto &result, const auto &steps) {
        if (steps.Size) steps.Size(run, result, shape);
    });
    return true;
}

bool hasTimeScale(const RunRef &run)
{
    const StreamFacts &facts = run.run->Facts;
    if (facts.SyncPeriodPs < 1)
        return refuse(run.device, "A sync period or base resolution of 0 ps, can't measure!");
    if (facts.Mode == MeasMode::T3 && !(facts.Resolution >= 1))
        return refuse(run.device, "A resolution of 0 ps, can't measure!");
    return true;
}

bool checkParams(const RunRef &run)
{
    return visitResult(*run.run,
                       [&run](auto &, const auto &steps) { return !steps.Check || steps.Check(run); });
}

bool makeWork(RunRef &run)
{
    return visitResult(*run.run, [&run](auto &result, const auto &steps) {
        return !steps.Prepare || steps.Prepare(run, result);
    });
}

MeasurementThread threadOf(Run &run)
{
    return visitResult(run, [](auto &result, const auto &steps) -> MeasurementThread {
        if (!steps.Thread) return {};
        return {steps.ThreadName, [&result](RunRef ref) { result.Steps.Thread(std::move(ref), result); }};
    });
}

SideBySide sidesOf(RunRef &run, Slices &all)
{
    return visitResult(*run.run, [&](auto &result, const auto &steps) {
        return steps.Sides ? steps.Sides(run, result, all) : SideBySide();
    });
}

void giveOutResult(Run &run)
{
    visitResult(run, [&run](auto &result, const auto &steps) {
        if (steps.GiveOut) steps.GiveOut(run, result);
    });
}

void zeroResult(Run &run)
{
    visitResult(run, [](auto &result, const auto &steps) {
        if (steps.Clear) steps.Clear(result);
    });
}

} // namespace Tessel
