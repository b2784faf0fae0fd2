// Two processes: one serves a simulated instrument, the other finds it, sets it and starts a measurement.
#include "run_program.h"
#include "support/host.h"

#include <fmt/format.h>

#include <netinet/in.h>
#include <sys/socket.h>

using namespace TestSupport;

namespace {

// One that was free a moment ago.
uint16_t freePort()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{
        .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    socklen_t size = sizeof address;
    bind(descriptor, reinterpret_cast<sockaddr *>(&address), size);
    getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size);
    close(descriptor);
    return ntohs(address.sin_port);
}

class TwoProcesses : public testing::Test
{
protected:
    TwoProcesses()
    {
        std::ofstream(serving.file("sim.json"))
            << R"({"instruments": [{"truth": "truth.json", "pace": 1000}]})";
        serve();
    }
    ~TwoProcesses() override { stop(SIGKILL); }

    void serve()
    {
        std::filesystem::remove(serving.file("stdout")); // of the server before
        server = start(serving, fmt::format("-v serve --sim=sim.json --port {}", port));
        ASSERT_TRUE(eventually([&] { return contains(output("stdout"), "SIM-ZP-0 "); })) << server.errorText();
    }
    Ended stop(int signal)
    {
        if (server.Id == 0) return {};
        kill(server.Id, signal);
        const Ended ended = server.wait();
        server.Id = 0;
        return ended;
    }
    std::string output(const char *name) const { return contents(serving.file(name)); }

    // What the client does, within the bound.
    Ended client(const std::string &line) const
    {
        const auto begin = std::chrono::steady_clock::now();
        const Ended ended = run(asking, fmt::format("{} --host 127.0.0.1:{}", line, port));
        const auto bound = std::chrono::seconds(isSanitized ? 10 : 5);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, bound) << line;
        return ended;
    }
    TempFolder serving, asking;
    uint16_t port = freePort();
    Started server;
};

int64_t levelOf(const Ended &config, size_t input)
{
    EXPECT_EQ(config.Code, 0) << config.Err;
    if (config.Code != 0) return 0;
    const auto inputs = boost::json::parse(config.Out).at("device").at("ChansCfg");
    return inputs.at(input).at("TrigLvl").to_number<int64_t>();
}

} // namespace

TEST_F(TwoProcesses, FindSetAndStart)
{
    const Ended found = client("devices --json");
    ASSERT_EQ(found.Code, 0) << found.Err;
    const auto devices = boost::json::parse(found.Out).at("devices").as_array();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].at("id"), "SIM-ZP-0");
    EXPECT_EQ(devices[0].at("state"), "remote");
    EXPECT_EQ(devices[0].at("channels"), 4);

    EXPECT_EQ(levelOf(client("config --json --set ch2.level=-1V"), 1), -1000);
    EXPECT_EQ(levelOf(client("config --json --set ch4.level=-5V"), 3), -1200); // what the server made of it
    EXPECT_EQ(levelOf(client("config SIM-ZP-0 --json"), 1), -1000);
    EXPECT_EQ(client("start --for 250ms").Code, 0);

    EXPECT_TRUE(contains(client("start 78").Err, "78: no such instrument (found: SIM-ZP-0)"));
    EXPECT_TRUE(contains(client("config --set sync.level=1mV").Err, "the instrument refuses it"));
    EXPECT_TRUE(contains(client("config --mode t2").Err, "--host excludes --mode"));

    EXPECT_EQ(stop(SIGINT).Code, 0); // and the log is whole
    for (const char *call : {"ZP_SetInputEdgeTrg: 0 1 -1000 0 @SIM-ZP-0", "ZP_StartMeas: 0 250 @SIM-ZP-0"})
        EXPECT_TRUE(contains(output("stderr"), call)) << call;
    const auto truth = boost::json::parse(output("truth.json"));
    EXPECT_EQ(truth.at("simulatedPs").to_number<double>(), 250e9);
    EXPECT_GT(truth.at("inputs").at(0).at("recorded").to_number<int>(), 20000);
    EXPECT_EQ(truth.at("inputs").at(1).at("recorded").to_number<int>(), 0); // its pulses don't reach the level
    EXPECT_GT(truth.at("inputs").at(1).at("lost").at("level").to_number<int>(), 20000);
}

TEST_F(TwoProcesses, KilledAndStartedAgain)
{
    for (int i = 0; i < 5; ++i) { // at any moment of its life
        const Started killed =
            start(asking, fmt::format("config --host 127.0.0.1:{} --set ch1.level=-9mV", port));
        std::this_thread::sleep_for(std::chrono::milliseconds(4 * i));
        kill(killed.Id, SIGKILL);
        killed.wait();
    }
    EXPECT_EQ(client("start").Code, 0);
    stop(SIGKILL);
    const Ended refused = client("devices");
    EXPECT_EQ(refused.Code, 3);
    EXPECT_TRUE(contains(refused.Err, "can't be reached: Connection refused")) << refused.Err;
    serve();
    EXPECT_EQ(levelOf(client("config --json --set ch3.level=-70mV"), 2), -70);
}
