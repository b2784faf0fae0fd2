#include "measurements/correlation_setup.h"

#include <algorithm>
#include <new>

namespace Tessel {

namespace {

constexpr uint64_t mostG2Bins = 10'000'000;

void setUpG2(CorrelationWork &work)
{
    work.Lags = g2Bins(work.Params);
}

// Whether each bin begins where the one before it ends. Then the counts of all bins follow from the number of
// pairs beyond each of their ends.
bool isContiguous(const LagGrid &grid)
{
    uint64_t end = grid.Edges[0];
    for (size_t i = 0; i < grid.Edges.size(); ++i) {
        const uint64_t next = grid.Edges[i] + grid.Widths[i];
        if (next < end) return false;
        end = next;
    }
    return true;
}

// FCS counts an age by the first bin whose end isn't below it, and none up to the first edge; FFCS by edges.
std::vector<uint64_t> lagsForSearch(const CorrelationWork &work)
{
    if (work.Params.CorrMode == CorrMode::FFCS) return work.Grid.Edges;
    if (!isContiguous(work.Grid)) return {};
    std::vector<uint64_t> lags{work.Grid.Edges[0]};
    for (size_t i = 0; i < work.Lags; ++i)
        lags.push_back(std::min<uint64_t>(work.Grid.Edges[i] + work.Grid.Widths[i], INT64_MAX));
    return lags;
}

void setUpLags(CorrelationWork &work, const StreamFacts &facts)
{
    work.Grid = lagGridOf(facts, work.Params);
    work.Lags = work.Grid.Edges.size();
    work.Gate = work.Params.CorrFromStart;
    work.Reach.LaterFrom[0].assign(work.Lags, 0);
    work.Reach.LaterFrom[1].assign(work.Lags, 0);
    work.SearchLags = lagsForSearch(work);
    if (work.Params.CorrMode == CorrMode::FCS) work.Bins = ageBins(work.SearchLags);
    for (auto &cursors : work.LagCursors) cursors.assign(work.SearchLags.size(), 0);
}

} // namespace

double limitedBinWidth(const StreamFacts &facts, double binWidth)
{
    constexpr double widest = 1e9;
    const double narrowest = facts.Mode == MeasMode::T3 ? facts.Resolution : facts.BaseResolution;
    const double limited = binWidth >= widest ? widest : binWidth;
    return limited > narrowest ? limited : narrowest; // also for what is no number
}

uint64_t g2Bins(const CorrelationParams &params)
{
    return params.CorrBinWidth ? std::min(params.CorrWindow / params.CorrBinWidth, mostG2Bins) : 0;
}

LagGrid lagGridOf(const StreamFacts &facts, const CorrelationParams &params)
{
    return lagGrid(std::max(params.CorrMinLag, lagPs(facts.BaseResolution)), params.CorrWindow,
                   params.CorrSteps);
}

ResultShape curveShape(const StreamFacts &facts, const CorrelationParams &params)
{
    if (params.CorrMode == CorrMode::G2) return {1, 2 * g2Bins(params), sizeof(double)};
    return {3, lagGridOf(facts, params).Edges.size(), sizeof(double)};
}

std::shared_ptr<CorrelationWork> setUpCorrelation(const StreamFacts &facts, const CorrelationParams &params)
{
    auto work = std::make_shared<CorrelationWork>();
    work->Params = params;
    if (params.CorrMode == CorrMode::G2)
        setUpG2(*work);
    else
        setUpLags(*work, facts);
    for (auto &row : work->Rows)
        if (!allocatePages(row, work->Lags)) throw std::bad_alloc();
    for (TimeRing &ring : work->Rings) setUpRing(ring, params.CorrMode == CorrMode::FCS);
    return work;
}

void fillLagAxis(const StreamFacts &facts, const CorrelationParams &params, double *x)
{
    if (!x) return;
    if (params.CorrMode != CorrMode::G2) {
        const auto centers = lagGridOf(facts, params).Centers;
        for (size_t i = 0; i + 1 < centers.size(); ++i) x[i] = static_cast<double>(centers[i]) * 1e-12;
        return;
    }
    const uint64_t bins = g2Bins(params);
    const auto width = static_cast<double>(params.CorrBinWidth);
    for (uint64_t i = 0; i < bins; ++i) {
        const double edge = static_cast<double>(i) * width * 1e-12, half = width * 5e-13;
        x[bins - 1 - i] = -edge - half;
        x[bins + i] = edge + half;
    }
}

} // namespace Tessel
