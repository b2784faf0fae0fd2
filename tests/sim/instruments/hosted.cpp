// The whole library on simulated instruments of all families, through tessel.h: its loading, its dispatch, and
// what an instrument makes of the settings that reach it.
#include "loaded.h"
#include "support/host.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

using namespace SimTest;

namespace {

// Five instruments of two inputs each; that of the last family is lost and back.
constexpr const char *description = R"({"instruments":[
    {"family":"ZP","channels":2}, {"family":"ZP","port":5,"busy":true}, {"family":"CD","channels":2},
    {"family":"SV40","channels":2}, {"family":"LM70","channels":2},
    {"family":"CD90","channels":2,"faults":[{"op":"WRabbitGetStatus","call":1,"code":-36}]}]})";

constexpr const char *allIds =
    R"ids(["SIM-ZP-0","ZP_Port 5 (busy)","SIM-CD-0","SIM-SV40-0","SIM-LM70-0","SIM-CD90-0"])ids";

std::string picked(std::string id)
{
    id.resize(8192);
    return getDevice(id.data()) ? id.c_str() : "";
}

std::vector<int32_t> rates()
{
    int32_t sync = 0;
    std::vector<int32_t> inputs(256);
    EXPECT_EQ(getCountRates(&sync, inputs.data()), 2);
    return {sync, inputs[0], inputs[1]};
}

} // namespace

TEST(HostOfSimulators, DrivesAllFamilies)
{
    const TestSupport::TempFolder folder;
    std::ofstream(folder.file("sim.json")) << description;
    setenv("TESSEL_INSTRUMENT_PATH", TESSEL_SIM_FOLDER, 1);
    setenv("TESSEL_SIM_INSTRUMENTS", folder.file("sim.json").c_str(), 1);
    TestSupport::Host host;
    std::string ids(8192, '\0');
    ASSERT_TRUE(getDeviceIDs(ids.data()));
    EXPECT_STREQ(ids.c_str(), allIds);
    EXPECT_EQ(picked("ZP_Port 5 (busy)"), "");
    for (const char *family : {"ZP", "CD", "SV40", "LM70", "CD90"}) {
        const std::string id = std::string("SIM-") + family + "-0";
        ASSERT_EQ(picked(id), id);
        const size_t errors = host.logged(" ERR ");
        for (const int32_t mode : {0, 2, 3}) EXPECT_TRUE(initDevice(mode, 0)) << family << mode;
        EXPECT_EQ(host.logged(" ERR "), errors) << family; // each setting was accepted
        EXPECT_NEAR(rates()[1], 100100, 300) << family;
        EXPECT_TRUE(setInputChannelEnable(nullptr, 0, 0));
        const bool hasCfd = std::string(family) == "CD"; // the others start with edges
        const bool isBeyond = hasCfd ? setInputCFD(nullptr, 1, 400, 0) : setInputEdgeTrig(nullptr, 1, -400, 0);
        EXPECT_TRUE(isBeyond) << family;
        EXPECT_EQ(rates(), (std::vector<int32_t>{5000000, 0, 0})) << family;
    }
    // Lost at a call, closed by it, and there again.
    int32_t status = 0;
    EXPECT_FALSE(WRabbitGetStatus(nullptr, &status));
    EXPECT_EQ(host.logged("the instrument is lost"), 1u);
    EXPECT_EQ(picked("SIM-CD90-0"), "SIM-CD90-0");
    EXPECT_TRUE(initDevice(3, 0));
    EXPECT_TRUE(WRabbitGetStatus(nullptr, &status));
    closeDevice(1);
}
