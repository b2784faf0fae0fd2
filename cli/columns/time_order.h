// Rows put in order of time within a span: with the largest step back of a stream, exactly. Rows of equal times
// stay as they came.
#pragma once

#include <cstdint>
#include <vector>

namespace Tessel::Cli {

struct TimedRow
{
    uint64_t Time = 0; // in units of the recording
    uint32_t Channel = 0;
    uint32_t Dtime = 0;
};

// Holds the rows of the span, and at most as many again that came since.
struct TimeOrder
{
    uint64_t Span = 0;
    uint64_t Latest = 0;
    std::vector<TimedRow> Waiting = {}; // in order
    std::vector<TimedRow> Fresh = {};   // as they came
    std::vector<TimedRow> Ready = {};   // in order, to be taken
};

// Some rows become ready, now or later.
void addRow(TimeOrder &order, const TimedRow &row);

// Leaves in Ready what no later row can come before.
void makeReady(TimeOrder &order);

// All that is left becomes ready.
void finish(TimeOrder &order);

} // namespace Tessel::Cli
