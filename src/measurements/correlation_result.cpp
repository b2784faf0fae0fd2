#include "measurements/correlation_result.h"

#include <algorithm>

namespace Tessel {

namespace {

double real(uint64_t count)
{
    return static_cast<double>(count);
}
float single(uint64_t count)
{
    return static_cast<float>(count);
}

// The negative half of y ends where the positive one begins; each bin is at the same distance from there.
void giveOutG2(const CorrelationWork &work, double *y)
{
    const bool isAuto = work.Params.CorrChan1 == work.Params.CorrChan2;
    const bool isNormalized = work.Params.CorrNormalize != 0;
    const double width = real(work.Params.CorrBinWidth);
    const double count0 = real(work.CorrCounts[0]), count1 = real(work.CorrCounts[1]);
    const double span0 = real(work.LastTimes[0] - work.FirstTime[0]);
    const double span1 = real(work.LastTimes[1] - work.FirstTime[1]);
    const uint64_t *row0 = work.Rows[0].get(), *row1 = work.Rows[1].get();
    double *positive = y + work.Lags, *negative = positive - 1;
    for (uint64_t k = 0; k < work.Lags; ++k) {
        double later = real(row0[k]), earlier = isAuto ? later : real(row1[k]);
        if (isNormalized && isAuto) {
            later = later * span0 / (width * count0 * count0);
            earlier = later;
        } else if (isNormalized) {
            later = later * span0 / (count0 * width * count1);
            earlier = earlier * span1 / (count1 * width * count0);
        }
        positive[k] = later;
        *negative-- = earlier;
    }
}

// Single precision throughout. A bin whose width is 0 has no value.
void giveOutLags(const CorrelationWork &work, double *y)
{
    const uint64_t size = work.Lags, first0 = work.FirstTime[0], first1 = work.FirstTime[1];
    const float count0 = single(work.CorrCounts[0]), count1 = single(work.CorrCounts[1]);
    const float span0 = single(work.LastTimes[0] - first0), span1 = single(work.LastTimes[1] - first1);
    const float bothSpans = single((work.LastTimes[1] - first0) + (work.LastTimes[0] - first1));
    for (uint64_t k = 0; k + 1 < size; ++k) {
        const float width = single(work.Grid.Widths[k]);
        const float crossed = single(work.Rows[1][k] + work.Rows[2][k]);
        y[k] = single(work.Rows[0][k]) * (span0 / width) / (count0 * count0) - 1.0f;
        y[size + k] = (crossed / width) * bothSpans * 0.25f / (count1 * count0) - 1.0f;
        y[2 * size + k] = single(work.Rows[3][k]) * (span1 / width) / (count1 * count1) - 1.0f;
    }
}

} // namespace

void giveOutCurves(const CorrelationWork &work, double *y)
{
    if (!y || (work.CorrCounts[0] == 0 && work.CorrCounts[1] == 0)) return;
    if (work.Params.CorrMode == CorrMode::G2)
        giveOutG2(work, y);
    else
        giveOutLags(work, y);
}

void clearCorrelation(CorrelationWork &work)
{
    for (auto &row : work.Rows) std::fill_n(row.get(), work.Lags, 0);
    work.CorrCounts = work.FirstTime = work.LastTimes = {};
    work.NumAtZero = 0;
    work.WasCleared = true;
}

} // namespace Tessel
