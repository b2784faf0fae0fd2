#include "support/reference_correlation.h"

#include <algorithm>
#include <cmath>

namespace TestSupport {

using Mode = CorrelationSettings::Mode;

ReferenceGrid referenceGrid(uint64_t minLag, uint64_t window, uint64_t steps)
{
    ReferenceGrid grid;
    double step = (std::log10(double(window)) - std::log10(double(minLag))) / double(steps);
    double e = std::log10(double(minLag)) + step;
    auto cur = minLag;
    while (true) {
        double w = std::pow(10.0, e) - double(cur);
        grid.edges.push_back(cur);
        grid.centers.push_back(w * 0.5 + double(cur) > 0 ? uint64_t(w * 0.5 + double(cur)) : 0);
        grid.widths.push_back(w > 0 ? uint64_t(w) : 0);
        if (cur >= window) break;
        cur = uint64_t(double(cur) + w);
        e += step;
    }
    return grid;
}

ReferenceCorrelation::ReferenceCorrelation(const CorrelationSettings &given)
    : settings(given), gate(given.mode == Mode::G2)
{
    size_t bins = 0;
    if (settings.mode == Mode::G2) {
        bins = std::min<uint64_t>(settings.windowPs / settings.binWidthPs, 10'000'000);
    } else {
        grid = referenceGrid(settings.minLagPs, settings.windowPs, settings.steps);
        bins = grid.edges.size();
    }
    for (auto &row : rows) row.assign(bins, 0);
    for (auto &row : cursors) row.assign(bins, 0);
}

void ReferenceCorrelation::clear()
{
    for (auto &row : rows) std::fill(row.begin(), row.end(), 0);
    counts = firstTimes = lastTimes = {};
}

void ReferenceCorrelation::add(uint64_t time, uint8_t channel)
{
    if (channel >= 128) return;
    if (settings.mode == Mode::G2)
        addG2(time, channel);
    else
        addLags(time, channel);
}

bool ReferenceCorrelation::push(size_t r, uint64_t time, uint64_t window)
{
    lastTimes[r] = time;
    auto &ring = rings[r];
    ring.push_back(time);
    bool removed = false;
    while (time - ring.front() > window) {
        ring.pop_front();
        removed = true;
    }
    return removed;
}

void ReferenceCorrelation::addG2(uint64_t time, uint8_t channel)
{
    uint64_t chans[] = {settings.chan1, settings.chan2};
    reached = 0;
    for (size_t i = 0; i < 2; ++i) {
        if (channel != chans[i]) continue;
        if (gate) {
            if (firstTimes[i] == 0) firstTimes[i] = time;
            ++counts[i];
            pairG2(i, 1 - i, time);
        }
        if (push(i, time, settings.windowPs)) gate = true;
    }
}

void ReferenceCorrelation::pairG2(size_t row, size_t r, uint64_t time)
{
    if (rows[row].empty()) return;
    const auto &ring = rings[r];
    size_t last = 0;
    for (auto entry = ring.rbegin(); entry != ring.rend(); ++entry) {
        if (*entry == 0) break;
        if (*entry == time) {
            ++rows[0][0];
            ++rows[1][0];
        } else {
            uint64_t bin = (time - *entry) / settings.binWidthPs;
            if (bin >= rows[row].size()) break;
            ++rows[row][bin];
            last = bin;
        }
    }
    reached = std::max(reached, rows[row][last]);
}

void ReferenceCorrelation::addLags(uint64_t time, uint8_t channel)
{
    auto pair = [&](size_t row, size_t r) {
        if (settings.mode == Mode::FCS)
            pairFcs(row, r, time);
        else
            pairFfcs(row, r, time);
    };
    uint64_t window = grid.edges.back();
    if (firstTimes[0] == 0) gate = false;
    if (channel == settings.chan1) {
        if (gate) {
            ++counts[0];
            pair(0, 0);
            pair(1, 1);
        }
        if (push(0, time, window)) gate = true;
        if (firstTimes[0] == 0 && gate) firstTimes[0] = time;
    }
    if (channel == settings.chan2) {
        if (gate) {
            ++counts[1];
            pair(2, 0);
            pair(3, 1);
        }
        if (push(1, time, window)) gate = true;
        if (firstTimes[1] == 0 && gate) firstTimes[1] = time;
    }
}

void ReferenceCorrelation::pairFcs(size_t row, size_t r, uint64_t time)
{
    const auto &edge = grid.edges, &width = grid.widths;
    size_t b = 0, bins = edge.size();
    uint64_t first = edge[0], top = edge.back() + width.back();
    const auto &ring = rings[r];
    for (auto entry = ring.rbegin(); entry != ring.rend(); ++entry) {
        uint64_t d = time - *entry;
        if (*entry == 0) break;
        if (d > edge[b] + width[b]) {
            if (d > top) break;
            while (b < bins && d > edge[b] + width[b]) ++b;
            if (b == bins) break;
            if (d <= first) continue;
        } else if (b == 0 && d <= first) {
            continue;
        }
        ++rows[row][b];
    }
}

void ReferenceCorrelation::pairFfcs(size_t row, size_t r, uint64_t time)
{
    const auto &ring = rings[r];
    size_t c = ring.size();
    if (c == 0) return;
    auto age = [&](size_t nth) { return time - ring[c - nth]; }; // the first is the newest
    auto &cursor = cursors[row];
    for (size_t k = 0; k < cursor.size(); ++k) {
        uint64_t lag = grid.edges[k], &p = cursor[k];
        for (bool done = false; !done;) {
            if (p == 0) {
                if (age(1) >= lag)
                    done = true;
                else
                    ++p;
            } else if (p < c) {
                if (age(p + 1) < lag)
                    ++p;
                else if (age(p) > lag)
                    --p;
                else
                    done = true;
            } else if (p == c) {
                if (age(c) <= lag)
                    done = true;
                else
                    --p;
            } else {
                --p;
            }
        }
    }
    for (size_t k = 1; k < cursor.size(); ++k) rows[row][k - 1] += cursor[k] - cursor[k - 1];
}

std::vector<double> ReferenceCorrelation::axis() const
{
    std::vector<double> x;
    if (settings.mode == Mode::G2) {
        auto bins = int64_t(rows[0].size());
        auto w = double(settings.binWidthPs);
        for (int64_t i = bins - 1; i >= 0; --i) x.push_back(-(double(i) * w * 1e-12) - w * 5e-13);
        for (int64_t i = 0; i < bins; ++i) x.push_back(double(i) * w * 1e-12 + w * 5e-13);
    } else {
        for (size_t i = 0; i + 1 < grid.centers.size(); ++i) x.push_back(double(grid.centers[i]) * 1e-12);
    }
    return x;
}

std::vector<double> ReferenceCorrelation::curves() const
{
    size_t bins = rows[0].size();
    std::vector<double> y((settings.mode == Mode::G2 ? 2 : 3) * bins);
    if (counts[0] == 0 && counts[1] == 0) return y;
    uint64_t f0 = firstTimes[0], f1 = firstTimes[1], l0 = lastTimes[0], l1 = lastTimes[1];
    if (settings.mode == Mode::G2) {
        double c0 = double(counts[0]), c1 = double(counts[1]), w = double(settings.binWidthPs);
        for (size_t k = 0; k < bins; ++k) {
            double r0 = double(rows[0][k]), r1 = double(rows[1][k]);
            double &plus = y[bins + k], &minus = y[bins - 1 - k];
            bool same = settings.chan1 == settings.chan2;
            if (!settings.normalize) {
                plus = r0;
                minus = same ? r0 : r1;
            } else if (same) {
                plus = minus = r0 * double(l0 - f0) / (w * c0 * c0);
            } else {
                plus = r0 * double(l0 - f0) / (c0 * w * c1);
                minus = r1 * double(l1 - f1) / (c1 * w * c0);
            }
        }
        return y;
    }
    auto c0 = float(counts[0]), c1 = float(counts[1]);
    for (size_t k = 0; k + 1 < bins; ++k) {
        auto w = float(grid.widths[k]);
        y[k] = float(rows[0][k]) * (float(l0 - f0) / w) / (c0 * c0) - 1.0f;
        y[bins + k] =
            (float(rows[1][k] + rows[2][k]) / w) * float((l1 - f0) + (l0 - f1)) * 0.25f / (c1 * c0) - 1.0f;
        y[2 * bins + k] = float(rows[3][k]) * (float(l1 - f1) / w) / (c1 * c1) - 1.0f;
    }
    return y;
}

} // namespace TestSupport
