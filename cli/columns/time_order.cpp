#include "columns/time_order.h"

#include <algorithm>

namespace Tessel::Cli {

namespace {

constexpr size_t leastFresh = size_t(1) << 16; // rows that are sorted at once

// Fresh rows among those that wait.
void mergeFresh(TimeOrder &order)
{
    std::ranges::stable_sort(order.Fresh, {}, &TimedRow::Time);
    std::vector<TimedRow> merged(order.Waiting.size() + order.Fresh.size());
    std::ranges::merge(order.Waiting, order.Fresh, merged.begin(), {}, &TimedRow::Time, &TimedRow::Time);
    order.Waiting = std::move(merged);
    order.Fresh.clear();
}

void release(TimeOrder &order, size_t count)
{
    const auto end = order.Waiting.begin() + static_cast<std::ptrdiff_t>(count);
    order.Ready.insert(order.Ready.end(), order.Waiting.begin(), end);
    order.Waiting.erase(order.Waiting.begin(), end);
}

} // namespace

void addRow(TimeOrder &order, const TimedRow &row)
{
    order.Latest = std::max(order.Latest, row.Time);
    order.Fresh.push_back(row);
}

// Sorting as many as wait makes the work for each row that of a sort, however long the span is.
void makeReady(TimeOrder &order)
{
    if (order.Fresh.size() < std::max(leastFresh, order.Waiting.size())) return;
    mergeFresh(order);
    const uint64_t known = order.Latest - std::min(order.Latest, order.Span);
    const auto end = std::ranges::upper_bound(order.Waiting, known, {}, &TimedRow::Time);
    if (order.Latest >= order.Span) release(order, static_cast<size_t>(end - order.Waiting.begin()));
}

void finish(TimeOrder &order)
{
    mergeFresh(order);
    release(order, order.Waiting.size());
}

} // namespace Tessel::Cli
