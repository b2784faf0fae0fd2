// What histograms, time traces and two-dimensional histograms should be, written apart from the library: event
// by event, in the plainest form. Those over arrays are what speeds are measured against.
#pragma once

#include "plain/stream.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace Plain {

// Events on channels below `rows`, which is at most 128; rows x numBins counts.
void countT3(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo, uint64_t numBins,
             uint64_t rows);

struct T2Settings
{
    uint8_t reference;
    uint64_t binWidth, numBins, rows; // ps
};

// The time of the last reference, 0: none, goes from call to call.
uint64_t countT2(const uint64_t *times, const uint8_t *channels, uint64_t count, uint32_t *histo,
                 const T2Settings &settings, uint64_t lastReference);

// A division and an increment for each event. A trace that is full begins anew at the next bin.
struct TraceLoop
{
    uint64_t bins, width, rows; // ps; rows at most 128
    StreamForm form;
    uint64_t first = 0;                                               // number of the first bin
    std::vector<uint32_t> trace = std::vector<uint32_t>(bins * rows); // `rows` counts a bin

    void count(const uint64_t *times, const uint8_t *channels, uint64_t events);
};

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
