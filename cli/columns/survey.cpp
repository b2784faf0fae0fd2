#include "columns/survey.h"

#include <algorithm>

namespace Tessel::Cli {

namespace {

void noteOrder(Survey &found, uint64_t &last, const ScaledRows &rows)
{
    for (size_t i = 0; i < rows.From.Count; ++i) {
        const uint64_t time = rows.Times[i];
        if (time < last) {
            const uint64_t step = std::max(found.Latest, last) - time;
            if (found.StepsBack++ == 0) {
                found.FirstBack = placeOf(rows.From, i);
                found.FirstStep = step;
            }
            found.LargestStep = std::max(found.LargestStep, step);
        }
        found.Earliest = std::min(found.Earliest, time);
        found.Latest = std::max(found.Latest, time);
        last = time;
    }
}

void countChannels(Survey &found, const ScaledRows &rows)
{
    if (rows.From.Channels.empty())
        found.Counts[0] += rows.From.Count;
    else
        for (size_t i = 0; i < rows.From.Count; ++i) ++found.Counts[rows.From.Channels[i]];
}

} // namespace

bool nextScaled(EventTable &table, Scaling &scaling, ScaledRows &rows)
{
    if (!nextRows(table, rows.From)) return false;
    scale(scaling.Times, rows.From.Times, rows.From, rows.Times);
    if (table.HasMicrotimes) scale(scaling.Microtimes, rows.From.Microtimes, rows.From, rows.Dtimes);
    return true;
}

Survey survey(EventTable &table, Scaling &scaling, const std::function<void(uint64_t events)> &shown)
{
    Survey found;
    ScaledRows rows;
    uint64_t last = 0;
    while (nextScaled(table, scaling, rows)) {
        noteOrder(found, last, rows);
        countChannels(found, rows);
        found.HasFractions |= !rows.From.Times.AreWhole;
        found.Events += rows.From.Count;
        shown(found.Events);
    }
    return found;
}

} // namespace Tessel::Cli
