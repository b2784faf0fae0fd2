// Results as text, where a recording from outside can't show what they do.
#include "commands/histogram.h"

#include <gtest/gtest.h>

using namespace Tessel::Cli;

TEST(Results, KeepTheFractionOfABinWidth)
{
    const Histogram histogram{.NumBins = 3, .BinWidthPs = 12.5, .SyncPeriodPs = 25000, .Counts = {4, 5, 6}};
    Measured measured;
    measured.From.NumRows = 1;
    measured.From.MeasMode = 3;
    EXPECT_EQ(histogramJson(histogram, measured).at("binWidthPs"), 12.5);
    EXPECT_TRUE(histogramCsv(histogram, measured).ends_with("\ntime_ps,sync\n0,4\n12.5,5\n25,6\n"));
}
