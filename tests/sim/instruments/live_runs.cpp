// Runs of a host on simulated instruments: what they count in each mode, in sequences, and what ends them.
#include "sim_host.h"

#include <cmath>
#include <tuple>

using namespace SimTest;
using namespace TestSupport;

namespace {

constexpr int histogramming = 0, t2 = 2, t3 = 3;
constexpr double inputCps = 500'000;
const std::string light = "'sync':{'periodPs':1e6},'input':{'rateCps':500000,'darkCps':0}";

// The caller's array of a histogram of the current device.
Counts histogramCounts()
{
    uint64_t rows = 0, columns = 0, bytes = 0;
    EXPECT_TRUE(tessel_getResultShape(nullptr, 8, &rows, &columns, &bytes));
    return {rows, columns};
}

class LiveHistogram : public testing::TestWithParam<std::tuple<FamilyLibrary, int>>
{
protected:
    LiveHistogram()
    {
        EXPECT_TRUE(host.open(std::get<0>(GetParam()).Prefix, mode, light));
        setHistoT2BinWidth(nullptr, 100);
        counts = histogramCounts();
    }
    // That the instrument says of an input.
    uint64_t recorded(size_t input)
    {
        return host.truth().at("inputs").at(input).at("recorded").to_number<uint64_t>();
    }
    uint32_t highest() const { return *std::max_element(counts.data.begin(), counts.data.end()); }

    // Calls `check` for three steps, and then stops the run. The first step is left out: of T2 it begins with
    // the second batch.
    template <class Check>
    void takeThreeSteps(Check check)
    {
        getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        size_t steps = 0;
        takeSteps([&] {
            if (++steps > 1 && steps <= 4) check();
            if (steps == 4) stopMeasure(nullptr);
        });
        EXPECT_GE(steps, 4u);
        EXPECT_TRUE(finished.wait());
    }

    const int mode = std::get<1>(GetParam());
    SimHost host;
    Counts counts{0, 0};
    Finished finished;
};

} // namespace

TEST_P(LiveHistogram, HoldsWhatTheInstrumentHasCounted)
{
    getHistogram(nullptr, 200, 1, 0, counts.data.data(), finished.get());
    EXPECT_TRUE(finished.isSet());
    EXPECT_EQ(describedText("StopReason"), "TimeOver");
    EXPECT_DOUBLE_EQ(described("StopAfter"), 200);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_GT(counts.rowSum(i + 1), inputCps / 10);
        // Of T2 those before the second sync are missing: the first one is at the time 0, which is no time.
        EXPECT_NEAR(static_cast<double>(counts.rowSum(i + 1)), static_cast<double>(recorded(i)),
                    mode == t2 ? 8 : 0);
    }
    if (mode == histogramming) {
        EXPECT_EQ(counts.rowSum(0), 0u);
    }
}

TEST_P(LiveHistogram, GrowsUntilItIsStopped)
{
    getHistogram(nullptr, 0, 1, 0, counts.data.data(), finished.get());
    EXPECT_FALSE(finished.isSet());
    // More than that is what stood in the array before the run emptied it.
    const auto hasBegun = [&] {
        return counts.rowSum(4) > inputCps / 10 && counts.rowSum(4) < 1000 * inputCps;
    };
    ASSERT_TRUE(eventually(hasBegun));
    const uint64_t before = counts.rowSum(4);
    clearMeasure(nullptr);
    ASSERT_TRUE(eventually([&] { return counts.rowSum(4) > 100; }));
    stopMeasure(nullptr);
    ASSERT_TRUE(finished.wait());
    EXPECT_LE(counts.rowSum(4) + before, recorded(3));
    EXPECT_EQ(describedText("StopReason"), "Manual");
}

TEST_P(LiveHistogram, InStepsOfTime)
{
    setSequenceMode(1, 1, 0.05);
    double before = 0;
    takeThreeSteps([&] {
        const auto step = static_cast<double>(counts.rowSum(2));
        EXPECT_NEAR(step, inputCps / 20, inputCps / 80); // dead times cost some
        if (before > 0) {
            EXPECT_NEAR(step, before, 8 * std::sqrt(inputCps / 20));
        }
        before = step;
    });
}

TEST_P(LiveHistogram, InStepsOfCounts)
{
    setStopOverflow(nullptr, 400);
    setSequenceMode(2, 1, 100);
    takeThreeSteps([&] { EXPECT_EQ(highest(), 100u); });
    setSequenceMode(0, 0, 0); // the device's own count holds again
    getHistogram(nullptr, 60'000, 1, 0, counts.data.data(), finished.get());
    EXPECT_EQ(highest(), 400u);
    EXPECT_EQ(describedText("StopReason"), mode == histogramming ? "OverFlow" : "Manual");
}

INSTANTIATE_TEST_SUITE_P(Families, LiveHistogram,
                         testing::Combine(testing::ValuesIn(families), testing::Values(histogramming, t2, t3)),
                         [](const auto &each) {
                             const int mode = std::get<1>(each.param);
                             return std::get<0>(each.param).Prefix + (mode == t2   ? "T2"
                                                                      : mode == t3 ? "T3"
                                                                                   : "Histogramming");
                         });

// Of each cause of an end, and of what doesn't end a run.
TEST(LiveRun, EndsAsTheFaultScriptSays)
{
    const struct
    {
        int mode;
        const char *faults, *reason, *line;
    } rows[] = {
        {t3, "{'flag':'fifoFull','atMs':20}", "FiFoOverrun", "Device: FIFOfull @"},
        {t3, "{'op':'ReadFiFo','call':5,'hangMs':1000}", "FiFoOverrun", "Device: FIFOfull @"},
        {t3, "{'flag':'syncLost','atMs':20}", "SyncLost", "Device: Sync_Lost @"},
        {t3, "{'op':'GetSyncRate','value':0}", "SyncLost", "Device: No sync detected! @"},
        {t2, "{'flag':'refLost','atMs':20}", "RefClkLost", "Device: Ref_Lost @"},
        {t2, "{'flag':'systemError','atMs':20},{'flag':'fifoFull','atMs':20}", "SYSERROR",
         "Device: SysError @"},
        {t2, "{'flag':'countsDropped','atMs':20}", "TimeOver", "Device: TTTR: Cnts_Dropped @"},
        {t3, "{'op':'CTCStatus','from':9,'value':1}", "TimeOver", "ctc stopped @"},
        {t3, "{'op':'ReadFiFo','from':9,'code':-36}", "DataXferFail", "in ZP_ReadFiFo @"},
        {histogramming, "{'flag':'fifoFull','atMs':20}", "FiFoOverrun", "Device: FIFO Full @"},
        {histogramming, "{'flag':'syncLost','atMs':20}", "SyncLost", "Device: Sync_Lost @"},
        {histogramming, "{'flag':'refLost','atMs':20}", "RefClkLost", "Device: Ref_Lost @"},
        {histogramming, "{'flag':'systemError','atMs':20}", "SYSERROR", "Device: SysError @"},
        {histogramming, "{'flag':'countsDropped','atMs':20}", "TimeOver", "Device: Cnts_Dropped @"},
        {histogramming, "{'op':'GetFlags','from':9,'code':-36}", "DataXferFail", "Device: Device lost @"},
    };
    SimHost host;
    for (const auto &[mode, faults, reason, line] : rows) {
        SCOPED_TRACE(faults);
        // Small only where it is to be full: a busy machine reads late.
        const std::string fifo = std::string(reason) == "FiFoOverrun" ? "'fifoRecords':200000," : "";
        ASSERT_TRUE(host.open("ZP", mode, fifo + "'faults':[" + faults + "]"));
        const size_t before = host.host.logged(line);
        Counts counts = histogramCounts();
        Finished finished;
        // Of several reasons the last holds, and the end of the time is one.
        const uint32_t acqTimeMs = std::string(reason) == "TimeOver" ? 600 : 20'000;
        getHistogram(nullptr, acqTimeMs, 0, 0, counts.data.data(), finished.get());
        EXPECT_TRUE(finished.wait());
        host.pick("SIM-ZP-0"); // one that is lost isn't the current device
        EXPECT_EQ(describedText("StopReason"), reason);
        EXPECT_GT(host.host.logged(line), before);
    }
}

// More than is taken: to empty a long trace takes the decoding's time.
TEST(LiveRun, DropsWhatOverrunsAndGoesOn)
{
    SimHost host;
    ASSERT_TRUE(host.open("ZP", t3, "'faults':[{'op':'ReadFiFo','flood':true}]"));
    constexpr size_t bins = 5'000'000;
    setTimeTraceNumBins(nullptr, bins);
    std::vector<uint32_t> trace(5 * bins);
    Finished finished;
    getTimeTrace(nullptr, 0, 0, 0, trace.data(), nullptr, finished.get());
    EXPECT_TRUE(eventually([&] {
        for (int i = 0; i < 5; ++i) clearMeasure(nullptr);
        return host.host.logged("WRN Device: TTRead buffer overrun - clearing! @SIM-ZP-0") > 1;
    }));
    EXPECT_FALSE(finished.isSet());
    stopMeasure(nullptr);
    EXPECT_TRUE(finished.wait());
}

// A live source gives its events to a live device. One that histograms has none to give.
TEST(LiveRun, ImportsFromAnInstrument)
{
    SimHost host;
    for (const int mode : {t2, histogramming}) {
        ASSERT_TRUE(host.open("ZP", mode, light + "},{'family':'CD'," + light));
        ASSERT_TRUE(host.pick("SIM-CD-0") && initDevice(t2, 0));
        const int32_t input = 1;
        ASSERT_EQ(addMImportStream(nullptr, u"SIM-ZP-0", 1, &input, 1, 0), 5);
        Counts counts(6, 65536);
        setHistoT2BinWidth(nullptr, 100);
        Finished finished;
        getHistogram(nullptr, 0, 0, 0, counts.data.data(), finished.get());
        if (mode == t2) {
            EXPECT_TRUE(eventually([&] { return counts.at(0, 0) == 0 && counts.rowSum(5) > 1000; }));
            stopMeasure(nullptr);
        }
        EXPECT_TRUE(finished.wait());
        const bool isRefused =
            host.host.logged("Device: Measurement not supported histogram mode! @SIM-ZP-0") > 0;
        EXPECT_EQ(isRefused, mode == histogramming);
        clearManis(nullptr);
    }
}
