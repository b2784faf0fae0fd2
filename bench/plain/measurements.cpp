#include "plain/measurements.h"

#include <algorithm>
#include <cmath>

namespace Plain {

void countT3(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo, uint64_t numBins,
             uint64_t rows)
{
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t channel = channels[i], bin = times[i] & 0x7FFF;
        if (channel < rows && bin < numBins) ++histo[numBins * channel + bin];
    }
}

uint64_t countT2(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                 const T2Settings &settings, uint64_t lastReference)
{
    const auto [reference, binWidth, numBins, rows] = settings;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t channel = channels[i];
        if (channel >= rows) continue;
        if (lastReference != 0) {
            const uint64_t bin = (times[i] - lastReference) / binWidth;
            if (bin < numBins) ++histo[numBins * channel + bin];
        }
        if (channel == reference) lastReference = times[i];
    }
    return lastReference;
}

namespace {

template <class Ps>
void countTrace(TraceLoop &loop, const uint64_t *times, const uint8_t *channels, uint64_t count, Ps ps)
{
    const uint64_t bins = loop.bins, width = loop.width, rows = loop.rows;
    uint32_t *trace = loop.trace.data();
    uint64_t first = loop.first;
    for (uint64_t i = 0; i < count; ++i) {
        if (channels[i] >= rows) continue;
        uint64_t bin = ps(times[i]) / width - first;
        if (bin >= bins) {
            std::fill(loop.trace.begin(), loop.trace.end(), 0u);
            first += bin;
            bin = 0;
        }
        ++trace[bin * rows + channels[i]];
    }
    loop.first = first;
}

} // namespace

void TraceLoop::count(const uint64_t *times, const uint8_t *channels, uint64_t events)
{
    if (form.t3)
        countTrace(*this, times, channels, events, [form = form](uint64_t raw) { return form.ps(raw); });
    else
        countTrace(*this, times, channels, events, [](uint64_t raw) { return raw; });
}

TraceReference::TraceReference(size_t rows, size_t binCount, uint64_t widthPs, StreamForm streamForm)
    : bins(binCount),
      width(widthPs),
      form(streamForm),
      working(rows, std::deque<uint64_t>(binCount)),
      given(rows * binCount)
{
}

void TraceReference::count(const Event &event)
{
    if (event.channel >= 128 && event.channel < 255) return;
    const uint64_t relative = form.ps(event.time) / width - first;
    current = relative;
    if (relative >= bins) {
        const uint64_t shift = relative - bins + 1;
        if (shift < bins) {
            first += shift;
            lost += shift;
            current = bins - 1;
            for (auto &row : working)
                for (uint64_t i = 0; i < shift; ++i) {
                    row.pop_front();
                    row.push_back(0);
                }
        } else {
            first += relative;
            lost = bins;
            current = 0;
            for (auto &row : working) std::fill(row.begin(), row.end(), 0u);
        }
    }
    if (event.channel < working.size() && event.channel < 128) ++working[event.channel][current];
}

void TraceReference::giveOut(bool last)
{
    if (last && bins > 1) ++current;
    if (current == 0) return;
    for (size_t r = 0; r < working.size(); ++r) {
        std::deque<uint32_t> row(given.begin() + static_cast<ptrdiff_t>(r * bins),
                                 given.begin() + static_cast<ptrdiff_t>((r + 1) * bins));
        for (uint64_t i = 0; i < std::min<uint64_t>(lost, bins); ++i) row.push_back(0);
        for (uint64_t i = 0; i < current; ++i) {
            row.push_back(static_cast<uint32_t>(working[r][i]));
            working[r][i] = 0;
        }
        if (current < bins) std::swap(working[r][0], working[r][current]);
        std::copy(row.end() - static_cast<ptrdiff_t>(bins), row.end(),
                  given.begin() + static_cast<ptrdiff_t>(r * bins));
    }
    first += current;
    current = lost = 0;
}

namespace {

constexpr uint64_t none = ~uint64_t{0};

class PairCounter
{
public:
    explicit PairCounter(const PairSettings &wanted) : settings(wanted), counts(wanted.binsX * wanted.binsY) {}

    uint64_t reference = 0;

    void count(uint64_t x, uint64_t y)
    {
        const uint64_t gap = reference - previous;
        previous = reference;
        const bool recovery = gap < settings.recoveryMin || gap > settings.recoveryMax;
        const double slope = settings.slope + (recovery ? settings.recoverySlope : 0.0);
        if (recovery) x += settings.recoveryOffsetX;
        const double column = std::fma(slope, static_cast<double>(y), static_cast<double>(x)) /
                              static_cast<double>(settings.widthX);
        if (recovery) y += settings.recoveryOffsetY;
        const double whole = std::trunc(column);
        if (!(whole >= 0 && whole < static_cast<double>(settings.binsX))) return;
        if (y / settings.widthY >= settings.binsY) return;
        ++counts[y / settings.widthY * settings.binsX + static_cast<uint64_t>(whole)];
    }

    const PairSettings &settings;
    std::vector<uint32_t> counts;

private:
    uint64_t previous = 0;
};

std::vector<uint32_t> pairsT2(const Events &events, size_t rows, const PairSettings &settings)
{
    PairCounter counter(settings);
    uint64_t x = none, y = none;
    for (const auto &[time, channel] : events) {
        if (channel >= 128 || channel >= rows) continue;
        if (counter.reference != 0 && x != none && y != none)
            counter.count(x - counter.reference, settings.tot ? y - x : y - counter.reference);
        if (channel == settings.start) {
            counter.reference = time;
            x = y = none;
        }
        if (channel == settings.x) x = time - settings.offsetX;
        if (channel == settings.y) y = time - settings.offsetY;
    }
    return counter.counts;
}

std::vector<uint32_t> pairsT3(const Events &events, size_t rows, const PairSettings &settings,
                              const StreamForm &form)
{
    PairCounter counter(settings);
    uint64_t x = none, y = none, syncX = none, syncY = none;
    for (const auto &[time, channel] : events) {
        if (channel >= 128 || channel >= rows) continue;
        if (syncX == syncY && x != none && y != none) {
            counter.count(x, y);
            x = y = none;
        }
        const uint64_t delay = time % 32768 * static_cast<uint64_t>(form.resolution), sync = time / 32768;
        if (channel == settings.x) {
            x = delay - settings.offsetX;
            syncX = sync;
            counter.reference = sync * form.period;
        }
        if (channel == settings.y) {
            y = delay - settings.offsetY;
            if (settings.tot) y -= x;
            syncY = sync;
            counter.reference = sync * form.period;
        }
    }
    return counter.counts;
}

} // namespace

std::vector<uint32_t> pairHistogram(const Events &events, size_t rows, const PairSettings &settings,
                                    const StreamForm &form)
{
    return form.t3 ? pairsT3(events, rows, settings, form) : pairsT2(events, rows, settings);
}

} // namespace Plain
