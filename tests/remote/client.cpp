// The client of a server, through tessel.h: servers of every kind, what they are told, what they can't do here.
#include "remote/client.h"

#include "devices/primitives.h"
#include "scripted_server.h"
#include "session/tables.h"
#include "support/instrument.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <thread>

using namespace TestSupport;
using namespace Tessel;
using namespace std::chrono_literals;

namespace {

constexpr const char *loopback = "127.0.0.1";

bool connectTo(const ScriptedServer &server)
{
    return tessel_connect(loopback, server.port());
}

boost::json::value text(int32_t which, const char16_t *id = nullptr)
{
    std::vector<char> room(1 << 20);
    EXPECT_TRUE(tessel_getText(id, which, room.data(), room.size(), nullptr));
    return boost::json::parse(room.data());
}

size_t numDevices()
{
    return text(TESSEL_TEXT_DEVICE_IDS).as_array().size();
}

std::string lastErrorText()
{
    std::vector<char> room(5000);
    tessel_lastError(room.data(), room.size());
    return room.data();
}

// A measurement of the device ends at once; gives the error that it says.
std::string measureBriefly(const char16_t *id)
{
    Finished finished;
    rawMeasure(id, 5000, 1, 0, nullptr, nullptr, 0, finished.get());
    EXPECT_TRUE(finished.isSet());
    return lastErrorText();
}

template <class Call>
std::chrono::milliseconds timeOf(Call call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

constexpr auto bound = 5s, slack = isSanitized ? 3s : 1s;

} // namespace

TEST(Client, ServersOfEveryKind)
{
    const struct
    {
        std::string Behaviour;
        bool Connects;
        size_t Devices;
        std::string Error; // the end of the call's last one; empty: none
    } cases[] = {
        {"silent", false, 0, "doesn't tell its devices: no answer in time"},
        {"half a line", false, 0, "doesn't tell its devices: no answer in time"},
        {"http", false, 0, "doesn't tell its devices: it answers something else"},
        {"random", false, 0, "doesn't tell its devices: it answers something else"},
        {"nonsense", false, 0, "doesn't tell its devices: it answers something else"},
        {"error", false, 0, "doesn't tell its devices: it answers something else"},
        {"names no array", false, 0, "doesn't tell its devices: it answers something else"},
        {"endless line", false, 0, "doesn't tell its devices: Message too long"},
        {"closes", false, 0, "doesn't tell its devices: End of file"},
        {"no devices", true, 0, ""},
        {"many devices", true, 64, ""},
        {"odd devices", true, 2, ""},
        {"odd config", true, 1, ""},
        {"split", true, 1, ""},
        {"another device", true, 1, "doesn't give its device @77"},
        {"config no object", true, 1, "doesn't give its device @77"},
        {"refuses config", true, 1, "doesn't give its device @77"},
        {"no config", true, 1, "doesn't give its device @77"},
    };
    for (const auto &[behaviour, connects, devices, error] : cases) {
        SCOPED_TRACE(behaviour);
        Host host;
        const ScriptedServer server(behaviour), honest("honest");
        std::string said;
        const auto time = timeOf([&, expected = connects] {
            EXPECT_EQ(connectTo(server), expected);
            said = lastErrorText();
        });
        EXPECT_LT(time, bound + slack);
        EXPECT_TRUE(error.empty() ? said.empty() : said.ends_with(error)) << said;
        EXPECT_EQ(numDevices(), devices);
        const size_t threads = threadCount();
        EXPECT_TRUE(connectTo(honest)) << lastErrorText(); // whatever was before
        EXPECT_EQ(text(TESSEL_TEXT_DEVICE, u"77").at("Index"), 0);
        EXPECT_LE(threadCount(), threads + 1);
    }
}

TEST(Client, NoServer)
{
    Host host;
    uint16_t port = 0;
    {
        const ScriptedServer gone("honest");
        port = gone.port();
    }
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(tessel_connect(loopback, port)); }), bound);
    EXPECT_TRUE(lastErrorText().ends_with("can't be reached: Connection refused")) << lastErrorText();
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(tessel_connect("no.such.host.invalid", 0)); }), bound + slack);
    EXPECT_TRUE(lastErrorText().starts_with("Remote: no.such.host.invalid:55000 can't be reached: "));
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(tessel_connect("240.0.0.1", 0)); }), bound + slack); // answers nobody
}

TEST(Client, DeviceIsFilledAndCommanded)
{
    Host host;
    const ScriptedServer server("honest");
    ASSERT_TRUE(connectTo(server));
    EXPECT_EQ(currentDevice(), noDevice());
    auto config = text(TESSEL_TEXT_DEVICE, u"77");
    EXPECT_EQ(config.at("DeviceType"), 2);
    EXPECT_EQ(config.at("Model"), "Distant");

    EXPECT_TRUE(setInputEdgeTrig(u"77", -1, -8000, 1)); // the server forces it into its range
    EXPECT_FALSE(setSyncDiv(nullptr, 2));
    EXPECT_EQ(text(TESSEL_TEXT_DEVICE, u"77").at("ChansCfg").at(1).at("TrigLvl"), -8000);
    EXPECT_EQ(measureBriefly(nullptr), "");
    EXPECT_EQ(describedText("StopReason"), "Unknown");
    EXPECT_TRUE(eventually([&] { return server.received("\"StartMeasure\",\"data\":{\"tAcq\":5000}}") == 1; }));
    for (const char *data : {R"({"chan":0,"trigLvl":-8000,"trigEdge":1}})", R"({"chan":1,"trigLvl":-8000)"})
        EXPECT_EQ(server.received(std::string("\"SetInputEdgeTrig\",\"data\":") + data), 1u) << data;

    ASSERT_TRUE(connectTo(server)); // over the connection that there is
    EXPECT_EQ(numDevices(), 1u);
    EXPECT_EQ(server.received(R"("index":5,)"), 1u);
    EXPECT_EQ(server.received("getConfig"), 2u);
    EXPECT_EQ(text(TESSEL_TEXT_DEVICE, u"77").at("ChansCfg").at(1).at("TrigLvl"), -50);

    closeDevice(0);
    closeDevice(1);
    EXPECT_EQ(numDevices(), 1u);
    EXPECT_EQ(measureBriefly(u"77"), ""); // it is still connected
    EXPECT_FALSE(initDevice(3, 0));
}

TEST(Client, ServerGoesAndComesBack)
{
    Host host;
    ScriptedServer server("honest");
    ASSERT_TRUE(connectTo(server));
    server.end();
    EXPECT_TRUE(eventually([&] { return host.logged("Client: read failed: ") == 1; }));
    EXPECT_LT(timeOf([] { EXPECT_TRUE(setInputEdgeTrig(u"77", 0, -9, 0)); }), 500ms); // said to nobody
    EXPECT_EQ(measureBriefly(u"77"), "Device: Can't do a measurement on a invalid device! @77");
    EXPECT_FALSE(connectTo(server));

    const ScriptedServer again("honest", server.port());
    EXPECT_TRUE(connectTo(again)) << lastErrorText();
    EXPECT_EQ(numDevices(), 1u);
    EXPECT_EQ(measureBriefly(u"77"), "");
    EXPECT_TRUE(eventually([&] { return again.received("StartMeasure") == 1; }));
    EXPECT_EQ(again.received("SetInputEdgeTrig"), 0u);
}

TEST(Client, OneMessageIsInFlight)
{
    Host host;
    ScriptedServer server("no answers");
    ASSERT_TRUE(connectTo(server));
    const auto send = [] { EXPECT_TRUE(setInputEdgeTrig(u"77", 0, -9, 0)); };
    measureBriefly(u"77"); // has no answer
    const auto waited = timeOf(send);
    EXPECT_GE(waited, 990ms);
    EXPECT_LT(waited, 1s + slack);
    EXPECT_TRUE(eventually([&] { return server.received("SetInputEdgeTrig") == 1; }));
    const auto ends = timeOf([&] {
        std::thread waiting(send); // the answers are one behind
        server.end();
        waiting.join();
    });
    EXPECT_LT(ends, 900ms + slack);

    ScriptedServer other("no answers");
    ASSERT_TRUE(connectTo(other));
    measureBriefly(u"77");
    std::thread waiting([] { setInputEdgeTrig(u"77", 0, -9, 0); }); // waits, or finds no device any more
    EXPECT_LT(timeOf([] { exitAPI(); }), 900ms + slack);
    waiting.join();
    EXPECT_EQ(other.received("SetInputEdgeTrig"), 0u);
}

TEST(Client, LibraryEndsAfterWhoConnects)
{
    Host host;
    const ScriptedServer silent("silent"), honest("honest");
    std::thread first([&] { EXPECT_FALSE(connectTo(silent)); });
    EXPECT_TRUE(eventually([&] { return silent.received("getDeviceNames") == 1; }));
    std::thread second([&] { EXPECT_FALSE(connectTo(honest)); }); // waits for its turn
    std::this_thread::sleep_for(100ms);
    EXPECT_LT(timeOf([] { exitAPI(); }), bound + slack);
    first.join();
    second.join();
    EXPECT_EQ(allDevices().size(), 0u);
    EXPECT_EQ(honest.received("getDeviceNames"), 0u);
}

TEST(Client, WhatNobodyAskedForChangesNothing)
{
    Host host;
    const ScriptedServer server("unasked");
    ASSERT_TRUE(connectTo(server));
    measureBriefly(u"77");
    EXPECT_TRUE(eventually([&] { return host.logged("DecodeMessage (Client): getConfig") == 1001; }));
    EXPECT_EQ(numDevices(), 1u);
    EXPECT_EQ(text(TESSEL_TEXT_DEVICE, u"77").at("Model"), "Distant");
    EXPECT_TRUE(connectTo(server));
}

TEST(Client, SameIdAsALocalInstrument)
{
    Instrument local(LibType::ZP);
    const ScriptedServer server("honest");
    ASSERT_TRUE(connectTo(server));
    EXPECT_EQ(numDevices(), 2u);
    local.fake.newCalls();
    EXPECT_TRUE(setInputEdgeTrig(u"77", 0, -9, 0)); // the one that was first
    EXPECT_EQ(local.fake.newCalls(), "SetInputEdgeTrg 0 0 -9 0");
    EXPECT_EQ(server.received("SetInputEdgeTrig"), 0u);
    const DeviceRef remote = allDevices().back();
    EXPECT_TRUE(StartMeasure(remote->device, 5, false));
    sendCommand(remote, commandContent("unknown"), 5s); // waits for the answers to both
    EXPECT_EQ(server.received("StartMeasure"), 1u);
    makeCurrent(remote);
    closeDevice(0);
    EXPECT_EQ(local.fake.newCalls(), "");
    exitAPI();
}
