// Runs of a host on simulated instruments.
#include "sim_host.h"

#include <cmath>

using namespace SimTest;
using namespace TestSupport;

namespace {

constexpr double inputCps = 500'000;
const std::string light = "'sync':{'periodPs':50000},'input':{'rateCps':500000,'darkCps':0}";

class HardwareHistogram : public testing::TestWithParam<FamilyLibrary>
{
protected:
    void init(const std::string &rest = "")
    {
        ASSERT_TRUE(host.open(GetParam().Prefix, 0, light + (rest.empty() ? "" : ",") + rest));
        uint64_t rows = 0, columns = 0, bytes = 0;
        ASSERT_TRUE(tessel_getResultShape(nullptr, 8, &rows, &columns, &bytes));
        counts = Counts(rows, columns);
    }
    // That the instrument says of an input.
    uint64_t recorded(size_t input)
    {
        return host.truth().at("inputs").at(input).at("recorded").to_number<uint64_t>();
    }
    uint32_t highest() const { return *std::max_element(counts.data.begin(), counts.data.end()); }

    SimHost host;
    Counts counts{0, 0};
    Finished finished;
};

} // namespace

TEST_P(HardwareHistogram, HoldsWhatTheInstrumentHasCounted)
{
    init();
    getHistogram(nullptr, 200, 1, 0, counts.data.data(), finished.get());
    EXPECT_TRUE(finished.isSet());
    EXPECT_EQ(describedText("StopReason"), "TimeOver");
    EXPECT_DOUBLE_EQ(described("StopAfter"), 200);
    EXPECT_EQ(counts.rowSum(0), 0u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(counts.rowSum(i + 1), recorded(i));
        EXPECT_GT(counts.rowSum(i + 1), inputCps / 10);
    }
}

TEST_P(HardwareHistogram, GrowsUntilItIsStopped)
{
    init();
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    EXPECT_FALSE(finished.isSet());
    ASSERT_TRUE(eventually([&] { return counts.rowSum(0) == 0 && counts.rowSum(4) > inputCps / 10; }));
    const uint64_t before = counts.rowSum(4);
    clearMeasure(nullptr);
    ASSERT_TRUE(eventually([&] { return counts.rowSum(4) > 100; }));
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_LE(counts.rowSum(4) + before, recorded(3));
    EXPECT_EQ(describedText("StopReason"), "Manual");
}

TEST_P(HardwareHistogram, InStepsOfTime)
{
    init();
    setSequenceMode(1, 1, 0.05);
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    const size_t steps = takeSteps([&, left = 3]() mutable {
        EXPECT_NEAR(static_cast<double>(counts.rowSum(2)), inputCps / 20, 6 * std::sqrt(inputCps / 20));
        if (--left == 0) stopMeasure(nullptr);
    });
    EXPECT_EQ(steps, 3u);
    EXPECT_TRUE(finished.wait());
}

TEST_P(HardwareHistogram, InStepsOfCounts)
{
    init();
    setStopOverflow(nullptr, 400);
    setSequenceMode(2, 1, 100);
    getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
    const size_t steps = takeSteps([&, left = 3]() mutable {
        EXPECT_EQ(highest(), 100u);
        if (--left == 0) stopMeasure(nullptr);
    });
    EXPECT_EQ(steps, 3u);
    ASSERT_TRUE(finished.wait());
    setSequenceMode(0, 0, 0); // the device's own count holds again
    getHistogram(nullptr, 60'000, 1, 0, counts.data.data(), finished.get());
    EXPECT_EQ(highest(), 400u);
    EXPECT_EQ(describedText("StopReason"), "OverFlow");
}

INSTANTIATE_TEST_SUITE_P(Families, HardwareHistogram, testing::ValuesIn(families),
                         [](const auto &each) { return each.param.Prefix; });
