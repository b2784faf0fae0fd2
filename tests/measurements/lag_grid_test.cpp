// Lag grids, and the parameters that they are made of.
#include "measurements/correlation_setup.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Tessel;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double noNumber = std::numeric_limits<double>::quiet_NaN();
constexpr uint64_t largestPs = std::numeric_limits<int64_t>::max();
constexpr uint64_t many = std::numeric_limits<uint64_t>::max();

} // namespace

TEST(LagGrid, WhatCannotAdvanceEnds)
{
    const struct
    {
        const char *name;
        uint64_t minLag, window, steps, leastLags, mostLags;
    } cases[] = {
        {"window at the shortest lag", 5000, 5000, 40, 1, 1},
        {"no window", 5000, 0, 40, 1, 1},
        {"no steps", 5000, 1'000'000, 0, 1, 1},
        {"no shortest lag", 0, 1'000'000, 40, 1, 1},
        {"steps lost in rounding", 1'000'000'000'000, 1'000'000'000'001, 1'000'000, 1, 2},
        {"steps near rounding", 1'000'000'000'000, 1'000'001'000'000, 1'000'000, 2, 2'000'003},
        {"too many steps", 1, largestPs, many, 999'000, 1'001'000},
        {"longest lags", largestPs - 1, largestPs, 3, 1, 5},
        {"longest window", 1, largestPs, 5, 6, 7},
    };
    for (const auto &given : cases) {
        SCOPED_TRACE(given.name);
        const LagGrid grid = lagGrid(given.minLag, given.window, given.steps);
        EXPECT_GE(grid.Edges.size(), given.leastLags);
        EXPECT_LE(grid.Edges.size(), given.mostLags);
        EXPECT_EQ(grid.Centers.size(), grid.Edges.size());
        EXPECT_EQ(grid.Widths.size(), grid.Edges.size());
        EXPECT_EQ(grid.Edges[0], given.minLag);
    }
}

TEST(LagGrid, DifferencesOfLagsDontWrap)
{
    EXPECT_EQ(lagPs(999.9), 999u);
    for (double ps : {-1.0, -infinity, noNumber}) EXPECT_EQ(lagPs(ps), 0u) << ps;
    for (double ps : {0x1p63, 1e300, infinity}) EXPECT_EQ(lagPs(ps), largestPs) << ps;
}

TEST(LagGrid, BinWidthsOfG2AreLimited)
{
    const struct
    {
        const char *name;
        MeasMode mode;
        double given, limited;
    } cases[] = {
        {"kept", MeasMode::T2, 100, 100},
        {"T2 below", MeasMode::T2, 3, 5},
        {"T3 below", MeasMode::T3, 3, 8},
        {"T3 between", MeasMode::T3, 9.25, 9.25},
        {"none", MeasMode::T2, 0, 5},
        {"negative", MeasMode::T2, -7, 5},
        {"above", MeasMode::T2, 2e9, 1e9},
        {"infinite", MeasMode::T2, infinity, 1e9},
        {"no number", MeasMode::T2, noNumber, 5},
    };
    StreamFacts facts{.Resolution = 8, .BaseResolution = 5};
    for (const auto &given : cases) {
        facts.Mode = given.mode;
        EXPECT_EQ(limitedBinWidth(facts, given.given), given.limited) << given.name;
    }
}

TEST(LagGrid, RowsOfG2AreLimited)
{
    const struct
    {
        uint64_t window, width, bins;
    } cases[] = {
        {1'000'000, 100, 10'000},   {199, 100, 1}, {99, 100, 0}, {100, 0, 0}, {largestPs, 1, 10'000'000},
        {10'000'001, 1, 10'000'000}};
    for (const auto &given : cases)
        EXPECT_EQ(g2Bins({.CorrWindow = given.window, .CorrBinWidth = given.width}), given.bins);
}

TEST(LagGrid, TheShortestLagIsAtLeastTheBaseResolution)
{
    const StreamFacts facts{.BaseResolution = 250.7};
    EXPECT_EQ(lagGridOf(facts, {.CorrMinLag = 10}).Edges[0], 250u);
    EXPECT_EQ(lagGridOf(facts, {.CorrMinLag = 251}).Edges[0], 251u);
}
