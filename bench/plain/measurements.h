// What time traces and two-dimensional histograms should be, written apart from the library: event by event, in
// the plainest form.
#pragma once

#include "plain/stream.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace Plain {

// A trace of `bins` bins of `widthPs`. A bin that is left behind without having been given out is given out as
// zero.
class TraceReference
{
public:
    TraceReference(size_t rows, size_t bins, uint64_t widthPs, StreamForm form);

    void count(const Event &event);
    void giveOut(bool last);

    const std::vector<uint32_t> &trace() const { return given; } // rows x bins
    uint64_t firstBin() const { return first; }

private:
    const size_t bins;
    const uint64_t width;
    const StreamForm form;
    std::vector<std::deque<uint64_t>> working; // a row a channel, each of `bins` elements
    std::vector<uint32_t> given;
    uint64_t first = 0, current = 0, lost = 0;
};

struct PairSettings
{
    uint8_t start = 0, x = 1, y = 2;
    bool tot = false;
    uint64_t offsetX = 0, offsetY = 0;
    uint64_t widthX = 1, widthY = 1;
    uint64_t binsX = 100, binsY = 100;
    uint64_t recoveryMin = 0, recoveryMax = 1'000'000'000'000;
    uint64_t recoveryOffsetX = 0, recoveryOffsetY = 0;
    double slope = 0, recoverySlope = 0;
};

// binsY rows x binsX columns; events on channels from `rows` on don't take part.
std::vector<uint32_t> pairHistogram(const Events &events, size_t rows, const PairSettings &settings,
                                    const StreamForm &form);

} // namespace Plain
