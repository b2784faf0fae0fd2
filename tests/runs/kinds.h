// Every kind of run that a host can start on the current device, and stages of every kind.
#pragma once

#include "tessel.h"

#include <cstdint>
#include <vector>

namespace TestSupport {

// Memory of the host, for the longest run.
struct Arrays
{
    std::vector<uint32_t> counts = std::vector<uint32_t>(32 * 65536);
    std::vector<uint64_t> times = std::vector<uint64_t>(2'000'000);
    std::vector<uint8_t> codes = std::vector<uint8_t>(times.size());
    std::vector<double> x = std::vector<double>(100'000), y = x;
    uint64_t count = 0, firstBin = 0, points = 0, capacity = 0; // of a block
};

inline bool correlate(Arrays &host, uint8_t *finished)
{
    return getCorrelation(nullptr, 0, 0, 0, host.y.data(), host.x.data(), finished);
}

struct RunKind
{
    const char *name;
    bool settles; // before data flow
    bool isBlock; // that a reader empties
    bool (*start)(Arrays &, uint8_t *finished);
};

inline const RunKind runKinds[] = {
    {"histogram", true, false,
     [](Arrays &host, uint8_t *finished) {
         return getHistogram(nullptr, 0, 0, 0, host.counts.data(), finished);
     }},
    {"histogram 2d", true, false,
     [](Arrays &host, uint8_t *finished) {
         return get2dHistogram(nullptr, 0, 0, 0, host.counts.data(), finished);
     }},
    {"time trace", true, false,
     [](Arrays &host, uint8_t *finished) {
         return getTimeTrace(nullptr, 0, 0, 0, host.counts.data(), &host.firstBin, finished);
     }},
    {"g2", true, false,
     [](Arrays &host, uint8_t *finished) {
         setG2Params(nullptr, 1, 2, 100'000, 1000, 1);
         return correlate(host, finished);
     }},
    {"FCS", true, false,
     [](Arrays &host, uint8_t *finished) {
         setFCSParams(nullptr, 1, 2, &host.points, 1000, 1e6, 20);
         return correlate(host, finished);
     }},
    {"FFCS", true, false,
     [](Arrays &host, uint8_t *finished) {
         setFFCSParams(nullptr, 1, 2, &host.points, 1000, 1e6, 20);
         return correlate(host, finished);
     }},
    {"export", false, false,
     [](Arrays &, uint8_t *finished) { return exportStreamMeasure(nullptr, 0, 0, 0, finished); }},
    {"raw", false, true,
     [](Arrays &host, uint8_t *finished) {
         return rawMeasure(nullptr, 0, 0, 0, host.counts.data(), &host.count, host.capacity, finished);
     }},
    {"raw block", false, true,
     [](Arrays &host, uint8_t *finished) {
         return rawStartBlock(nullptr, 0, 0, host.counts.data(), host.capacity, finished);
     }},
    {"unfold", false, true,
     [](Arrays &host, uint8_t *finished) {
         return ufMeasure(nullptr, 0, 0, 0, host.times.data(), host.codes.data(), &host.count, host.capacity,
                          finished);
     }},
    {"unfold block", false, true,
     [](Arrays &host, uint8_t *finished) {
         return ufStartBlock(nullptr, 0, 0, host.times.data(), host.codes.data(), host.capacity, finished);
     }},
};

// Eight stages of all kinds that leave what comes in as it is and add channels.
inline void addEightStages()
{
    const int32_t members[] = {1, 2, 3}, gated[] = {2};
    for (const int32_t &member : members) addMMerge(nullptr, &member, 1, 1);
    addMDelay(nullptr, 4, 5000, 1);
    addMCoincidence(nullptr, members, 2, 1000, 1, 1, 1);
    addMHerald(nullptr, 1, gated, 1, 0, 100'000, 0, 1);
    addMSubStream(nullptr, 0, UINT64_MAX);
    addMCountRate(nullptr, 1e9);
}

} // namespace TestSupport
