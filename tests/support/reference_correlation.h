// What a correlation should give, written apart from the library: every event of a stream against the times
// that came before it, in the plainest form.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace TestSupport {

struct CorrelationSettings
{
    enum class Mode { G2, FCS, FFCS } mode = Mode::G2;
    uint64_t chan1 = 1, chan2 = 2;
    uint64_t windowPs = 1'000'000;
    uint64_t binWidthPs = 100;              // g2
    uint64_t minLagPs = 50'000, steps = 40; // FCS, FFCS
    bool normalize = true;                  // g2
};

struct ReferenceGrid
{
    std::vector<uint64_t> edges, centers, widths;
};
ReferenceGrid referenceGrid(uint64_t minLag, uint64_t window, uint64_t steps);

class ReferenceCorrelation
{
public:
    explicit ReferenceCorrelation(const CorrelationSettings &settings);

    void add(uint64_t timePs, uint8_t channel);
    void clear();
    std::vector<double> curves() const; // the caller's y, elements that aren't written 0
    std::vector<double> axis() const;   // the caller's x

    std::array<std::vector<uint64_t>, 4> rows;
    std::array<std::vector<uint64_t>, 4> cursors;
    std::array<uint64_t, 2> counts{}, firstTimes{}, lastTimes{};
    uint64_t reached = 0; // g2: value of the element that the last counted event counted last

private:
    bool push(size_t ring, uint64_t time, uint64_t window); // true: it removed something
    void addG2(uint64_t time, uint8_t channel);
    void addLags(uint64_t time, uint8_t channel);
    void pairG2(size_t row, size_t ring, uint64_t time);
    void pairFcs(size_t row, size_t ring, uint64_t time);
    void pairFfcs(size_t row, size_t ring, uint64_t time);

    CorrelationSettings settings;
    ReferenceGrid grid;
    std::array<std::deque<uint64_t>, 2> rings; // oldest first
    bool gate;
};

} // namespace TestSupport
