// Threads of a host that act on one instrument at the same time.
#include "config/device_json.h"
#include "session/open_close.h"
#include "support/host.h"
#include "support/instrument.h"
#include "tessel.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <thread>

using namespace Tessel;
using namespace TestSupport;

namespace {

constexpr int turns = 40;

void initialise()
{
    for (int i = 0; i < turns; ++i) initDevice(i % 2 ? 3 : 2, i % 3);
}

void setParameters()
{
    for (int32_t i = 0; i < 4 * turns; ++i) {
        setSyncDiv(nullptr, 1 + i % 8);
        setSyncEdgeTrig(nullptr, -i, i % 2);
        setSyncCFD(nullptr, -i, 0);
        setInputTrigMode(nullptr, i % 4, i / 4 % 2);
        setInputEdgeTrig(nullptr, -1, -i, i % 2);
        setInputDeadTime(nullptr, i % 4, 800 * i);
        setBinning(nullptr, i % 4);
        setStopOverflow(nullptr, static_cast<uint32_t>(i));
        setMeasControl(nullptr, 0, i % 2, 1);
        setTriggerOutput(nullptr, i);
        setMarkerEdges(nullptr, i % 2, 0, 1, 0);
        setMarkerHoldoffTime(nullptr, i);
        setHistoT2NumBins(nullptr, static_cast<uint64_t>(1000 + i));
    }
}

void setMeasurements()
{
    for (int32_t i = 0; i < 4 * turns; ++i) {
        const auto width = static_cast<uint64_t>(i + 1);
        setHistoT2BinWidth(nullptr, width);
        setHisto2dParams(nullptr, 0, 1, 2, 0, 0, width, width, 10, 10);
        setTimeTraceHistorySize(nullptr, i + 1);
        setG2Params(nullptr, 1, 2, 1000, i + 1, 1);
        addIntTag("Tag", i, 0xFFFFFFFF);
        clearTags();
    }
}

// Every text is whole, whatever the others do.
void look()
{
    std::vector<int32_t> rates(mostInputs);
    std::vector<char> text(65536);
    uint64_t rows = 0, columns = 0, bytes = 0;
    int32_t syncRate = 0;
    for (int i = 0; i < 4 * turns; ++i) {
        for (int32_t which : {TESSEL_TEXT_DEVICE, TESSEL_TEXT_SETTINGS}) {
            ASSERT_TRUE(tessel_getText(nullptr, which, text.data(), text.size(), nullptr));
            ASSERT_TRUE(boost::json::parse(text.data()).is_object());
        }
        getCountRates(&syncRate, rates.data());
        getNumAllChans(nullptr);
        tessel_getResultShape(nullptr, 8, &rows, &columns, &bytes);
    }
}

void measure()
{
    for (int i = 0; i < turns / 8; ++i) {
        Finished finished;
        uint64_t count = 0;
        rawMeasure(nullptr, 1000, 0, 0, nullptr, &count, 0, finished.get());
        stopMeasure(nullptr);
        ASSERT_TRUE(finished.wait());
    }
}

} // namespace

TEST(HostsAtOnce, SetReadInitialiseAndMeasure)
{
    for (LibType family : fiveFamilies) {
        Fake fake(libraryOf(family)->FileName);
        fake->number("GetNumOfInputChannels", 0, 4);
        fake->number("GetFeatures", 0, 1023);
        fake->number("GetBaseResolution", 1, 8);
        char id[8192] = "";
        ASSERT_TRUE(getDevice(id));
        ASSERT_TRUE(initDevice(2, 0));
        std::vector<std::thread> hosts;
        for (auto act : {initialise, setParameters, setMeasurements, setMeasurements, look, measure})
            hosts.emplace_back(act);
        for (std::thread &host : hosts) host.join();

        // What the device remembers is what the instrument was told last.
        const Device &device = currentDevice()->device;
        ASSERT_EQ(device.ChansCfg.size(), 4u);
        const auto journal = fake.journal();
        const auto last = [&](std::string_view start) {
            const auto call = std::find_if(journal.rbegin(), journal.rend(),
                                           [&](const std::string &line) { return line.starts_with(start); });
            return call == journal.rend() ? std::string() : *call;
        };
        EXPECT_EQ(last("SetSyncDiv"), fmt::format("SetSyncDiv 0 {}", device.SyncDiv));
        EXPECT_EQ(last("SetBinning"), fmt::format("SetBinning 0 {}", device.Binning));
        if (family != LibType::CD) {
            EXPECT_EQ(last("SetSyncEdgeTrg"),
                      fmt::format("SetSyncEdgeTrg 0 {} {}", device.SyncTrigLvl, device.SyncTrigEdge));
        }
        closeForGood();
    }
}
