// A correlation as a host asks for it: the parameters, and the arrays of its curves.
#pragma once

#include "support/host.h"
#include "support/reference_correlation.h"
#include "tessel.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace TestSupport {

constexpr double untouched = -7.25; // where nothing may be written

// Gives the parameters and returns the number of points of a curve.
inline uint64_t setParams(const CorrelationSettings &settings)
{
    uint64_t points =
        settings.mode == CorrelationSettings::Mode::G2 ? settings.windowPs / settings.binWidthPs : 0;
    auto minLag = static_cast<double>(settings.minLagPs), window = static_cast<double>(settings.windowPs);
    switch (settings.mode) {
    case CorrelationSettings::Mode::G2:
        EXPECT_TRUE(setG2Params(nullptr, settings.chan1, settings.chan2, window,
                                static_cast<double>(settings.binWidthPs), settings.normalize));
        break;
    case CorrelationSettings::Mode::FCS:
        EXPECT_TRUE(
            setFCSParams(nullptr, settings.chan1, settings.chan2, &points, minLag, window, settings.steps));
        break;
    case CorrelationSettings::Mode::FFCS:
        EXPECT_TRUE(
            setFFCSParams(nullptr, settings.chan1, settings.chan2, &points, minLag, window, settings.steps));
        break;
    }
    return points;
}

// The caller's arrays, with guards behind what is promised to be written.
struct Curves
{
    explicit Curves(const CorrelationSettings &settings)
    {
        uint64_t points = setParams(settings);
        bool g2 = settings.mode == CorrelationSettings::Mode::G2;
        xSize = g2 ? 2 * points : points;
        ySize = g2 ? 2 * points : 3 * (points + 1);
        x.assign(xSize + 3, untouched);
        y.assign(ySize + 3, untouched);
    }

    void run()
    {
        EXPECT_TRUE(getCorrelation(nullptr, 0, 1, 0, y.data(), x.data(), finished.get()));
        EXPECT_TRUE(finished.isSet());
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(x[xSize + i], untouched);
            EXPECT_EQ(y[ySize + i], untouched);
        }
    }

    size_t xSize, ySize;
    std::vector<double> x, y;
    Finished finished;
};

} // namespace TestSupport
